#include "protocol/warning_text.h"

#include "checks/latin1.h"
#include "checks/warnings.h"
#include "observations/bedingung.h"
#include "observations/messung.h"
#include "observations/protocol_text.h"
#include "unknowns/data.h"

namespace vermo {
namespace {

constexpr BilingualText kDataDisabled = {"Daten deaktiviert", "Data disabled"};
constexpr BilingualText kObservationWithoutData = {"Fehlende Daten für die Beobachtung"_latin1,
                                                   "Missing data for observation"};
constexpr BilingualText kDataWithoutSubData = {"Fehlende Basisdaten für Daten"_latin1,
                                               "Data without subdata"};
constexpr BilingualText kManyBlunders = {"Daten haben viele Ausreißer"_latin1,
                                         "Data has many blunder"};
constexpr BilingualText kLessRedundancy = {"Beobachtung hat geringe Redundanz",
                                           "Observation has less redundancy"};
constexpr BilingualText kShouldBeFree = {"Bedingung sollte zwangsfrei sein",
                                         "Constraint should be free"};

}  // namespace

std::string WarningText(WriterLanguage language, const WarningItf& warning) {
  ProtocolText line;
  line.Integer(warning.GetCode(), 5).Text(": ");
  const auto tell = [&](const BilingualText& text, const std::string& description) {
    line.LeftText(In(language, text), 35).Text(" > ").Text(description);
  };
  if (const auto* disabled = dynamic_cast<const WarningDataDisabled*>(&warning))
    tell(kDataDisabled, disabled->fData->GetDescription());
  else if (const auto* lonely = dynamic_cast<const WarningObsevationWithoutData*>(&warning))
    tell(kObservationWithoutData, lonely->fMessung->GetDescription());
  else if (const auto* baseless = dynamic_cast<const WarningDataWithoutSubData*>(&warning))
    tell(kDataWithoutSubData, baseless->fData->GetDescription());
  else if (const auto* doubtful = dynamic_cast<const WarningDataHasManyBlunder*>(&warning))
    tell(kManyBlunders, doubtful->fData->GetDescription());
  else if (const auto* weak = dynamic_cast<const WarningObservationHasLessRedundancy*>(&warning))
    tell(kLessRedundancy, weak->fMessung->GetDescription());
  else if (const auto* strained = dynamic_cast<const WarningConstraintShouldBeFree*>(&warning))
    tell(kShouldBeFree, strained->fBedingung->GetDescription());
  else
    line.Text("***");
  return line.Text("\n").Str();
}

}  // namespace vermo
