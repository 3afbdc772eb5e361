#include "protocol/protocol_texts.h"

#include "checks/failure_codes.h"
#include "checks/language.h"
#include "checks/latin1.h"

#include <cstddef>
#include <iterator>

namespace vermo {
namespace {

// In the order of the codes, from kNoMessungen on.
constexpr BilingualText kErrors[] = {
    {"Keine Messungen vorhanden", "no observations"},
    {"Linienkoordinaten und variable Hauptpunktlage koennen nicht zusammen verarbeitet werden",
     "line coordinates and variable principal point can not be calculated together"},
    {"Kein Fortschritt in der Ausgleichung", "no progress in adjustment"},
    {"Doppelte Daten", "double data"},
    {"Interner Fehler", "internal error"},
    {"Keine Unbekannten", "no unknown"},
    {"Abbruch durch Nutzer", "abort by user"},
    {"S0 Zu Gross", "S0 too large"},
    {"Ungültige Parameter"_latin1, "invalid parameter"},
    {"Keine Messungen vorhanden", "no observations"},
    {"Kii gleich Null", "Kii equal zeroNull"},
};
static_assert(std::size(kErrors) == failure::kKiiZero - failure::kNoMessungen + 1);

constexpr BilingualText kWeekdays[] = {{"So", "Su"},
                                       {"Mo", "Mo"},
                                       {"Di", "Tu"},
                                       {"Mi", "We"},
                                       {"Do", "Th"},
                                       {"Fr", "Fr"},
                                       {"Sa", "Sa"}};

constexpr BilingualText kMonths[] = {{"Januar", "January"},
                                     {"Februar", "February"},
                                     {"März"_latin1, "March"},
                                     {"April", "April"},
                                     {"Mai", "May"},
                                     {"Juni", "June"},
                                     {"Juli", "July"},
                                     {"August", "August"},
                                     {"September", "September"},
                                     {"Oktober", "October"},
                                     {"November", "November"},
                                     {"Dezember", "December"}};

template <std::size_t N>
const char* NameOfMoment(const BilingualText (&names)[N], int index) noexcept {
  if (index < 0 || index >= static_cast<int>(N)) return "**";
  return ByLanguage(names[index].german, names[index].english);
}

}  // namespace

const char* ErrorText(WriterLanguage language, int code) noexcept {
  const auto index = static_cast<unsigned>(code) - static_cast<unsigned>(failure::kNoMessungen);
  return index < std::size(kErrors) ? In(language, kErrors[index]) : "";
}

const char* WeekdayName(int index) noexcept { return NameOfMoment(kWeekdays, index); }

const char* MonthName(int index) noexcept { return NameOfMoment(kMonths, index); }

}  // namespace vermo
