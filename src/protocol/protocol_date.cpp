#include "protocol/protocol_date.h"

#include <ctime>
#include <iomanip>
#include <ios>

namespace vermo {
namespace {

// A number with two digits, filled in front with the present fill.
auto TwoDigits() { return std::setw(2); }

}  // namespace

void WriteDate(std::ostream& out, WriterLanguage language, std::int64_t time, DateGap gap) {
  out.setf(std::ios_base::fixed, std::ios_base::floatfield);
  const auto seconds = static_cast<std::time_t>(time);
  std::tm local{};
  if (localtime_r(&seconds, &local) == nullptr) {
    out << "**";
    return;
  }
  out << std::setw(2) << WeekdayName(local.tm_wday);
  out << (gap == DateGap::TwoBlanks ? "  " : " ") << local.tm_mday;
  const long long year = 1900LL + local.tm_year;
  if (language == WriterLanguage::German) {
    out << std::setfill('0') << '.' << TwoDigits() << local.tm_mon + 1;
    out << '.' << TwoDigits() << year << "  ";
    out << std::setfill(' ') << TwoDigits() << local.tm_hour;
  } else {
    out << ' ' << MonthName(local.tm_mon) << ' ' << year << "  ";
    out << std::setfill(' ') << TwoDigits() << (local.tm_hour + 11) % 12 + 1;
  }
  out << std::setfill('0') << ':' << TwoDigits() << local.tm_min << ':' << TwoDigits()
      << local.tm_sec << std::setfill(' ');
  if (language == WriterLanguage::English) out << (local.tm_hour < 12 ? " am" : " pm");
}

}  // namespace vermo
