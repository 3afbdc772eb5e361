#include "protocol/old_style_message_handler.h"

#include "adjustment/adjustment_settings.h"
#include "adjustment/iteration_info.h"
#include "checks/language.h"
#include "checks/latin1.h"
#include "checks/version.h"
#include "observations/bedingung_hlm.h"
#include "protocol/protocol_contents.h"
#include "protocol/protocol_date.h"
#include "protocol/protocol_target.h"

#include <cstddef>
#include <vector>

namespace vermo {
namespace {

constexpr BilingualText kTitle = {"<p><a name=\"Start\">Protokoll Bündelblockausgleichung, "_latin1,
                                  "<p><a name=\"Start\">Protocol of bundle adjustment, "};
constexpr BilingualText kSummaryLink = {"<p><a href=\"#Zusammenfassung\">Zusammenfassung</a></p>",
                                        "<p><a href=\"#summary\">summary</a></p>"};
constexpr BilingualText kUnknowns = {"<h1>\nUnbekannte</h1>", "<h1>\nUnknowns</h1>"};
constexpr BilingualText kConstraints = {"<h1>\nBedingungen</h1>", "<h1>\nConstraints</h1>"};
constexpr BilingualText kMeasurements = {"<h1>\nMessungen</h1>", "<h1>\nMeasurements</h1>"};

// A link of the list of contents; one without a condition always stands.
struct ContentsLink {
  bool ProtocolContents::*condition;
  const char* anchor;
  BilingualText text;
};
constexpr ContentsLink kUnknownLinks[] = {
    {&ProtocolContents::cameras,
     "interior_orientations",
     {"innere Orientierungen", "interior orientations"}},
    {&ProtocolContents::projections, "projections", {"Projektionen", "projections"}},
    {&ProtocolContents::exteriorOrientations,
     "exterior_orientations",
     {"äußere Orientierungen"_latin1, "exterior orientations"}},
    {&ProtocolContents::relativeOrientations,
     "relative_orientations",
     {"relative Orientierungen", "relative orientations"}},
    {&ProtocolContents::objectPoints, "object_points", {"Objektpunkte", "object points"}},
    {&ProtocolContents::lines, "lines", {"Linien", "lines"}},
    {&ProtocolContents::planes, "planes", {"Ebenen", "planes"}},
};
constexpr ContentsLink kConstraintLinks[] = {
    {nullptr, "HlmTrn", {"Translation", "translation"}},
    {nullptr, "HlmRot", {"Rotation", "rotation"}},
    {nullptr, "HlmM", {"Maßstab"_latin1, "scale"}},
    {&ProtocolContents::pointOnLine,
     "constraints_point_on_line",
     {"Punkt auf Linie", "constraints point on line"}},
    {&ProtocolContents::pointOnPlane,
     "constraints_point_on_plane",
     {"Punkt auf Ebene", "constraints point on plane"}},
};
constexpr ContentsLink kMeasurementLinks[] = {
    {&ProtocolContents::imageCoordinates,
     "image_coordinates",
     {"Bildkoordinaten", "image coordinates"}},
    {&ProtocolContents::lineCoordinates,
     "line_coordinates",
     {"Linienkoordinaten", "line coordinates"}},
    {&ProtocolContents::measuredObjectPoints,
     "measured_object_points",
     {"Objektpunkte", "object points"}},
    {&ProtocolContents::distances, "distances", {"Strecken", "distances"}},
};

constexpr BilingualText kStart = {"\n\n<h3>Starte Ausgleichung:  ",
                                  "\n\n<h3>Start of bundle adjustment:  "};
constexpr BilingualText kSettings = {"Einstellungen: \n\n", "Options: \n\n"};
constexpr BilingualText kSolvability = {"Loesbarkeitskontrolle.........: ",
                                        "Check for solvable calculation control for solving...: "};
constexpr BilingualText kDamping = {"Daempfungsfaktor..............: ",
                                    "Factor of suppression................................: "};
constexpr BilingualText kDynamicLower = {"Dynamikbereich unterer Wert...: ",
                                         "Dynamic range minimum value..........................: "};
constexpr BilingualText kDynamicUpper = {"Dynamikbereich oberer Wert....: ",
                                         "Dynamic range maximum value..........................: "};
constexpr BilingualText kBlunderTest = {"Ausreißertest.................: "_latin1,
                                        "Blunder detection....................................: "};
constexpr BilingualText kTestMethod = {"Testverfahren Ausreißertest...: "_latin1,
                                       "Type of blunder detection............................: "};
constexpr BilingualText kByRedundancy = {"Test per Redundanz\n", "Test by redundancy\n"};
constexpr BilingualText kByReliability = {"Test per innere Zuverlaessigkeit\n",
                                          "Test by interior reliability\n"};

constexpr BilingualText kCalculation = {"\nBerechnung des Systems:\n", "\nCalculation:\n"};
constexpr BilingualText kBuild = {"\nAufstellung: ", "\n      Build: "};
constexpr BilingualText kSolution = {" s\n     Lösung: "_latin1, " s\n   Solution: "};
constexpr BilingualText kComplete = {" s\n     Gesamt: ", " s\n   Complete: "};
constexpr BilingualText kLoop = {"   Schleife: ", "       Loop: "};

constexpr BilingualText kRobust = {"\n<h3>Robuste Schätzung...</h3>\n"_latin1,
                                   "\n<h3>Robust estemation...</h3>\n"};
constexpr BilingualText kL2 = {"\n<h3>L2-Parameterschätzung...</h3>\n"_latin1,
                               "\n<h3>L2-estemation...</h3>\n"};
constexpr BilingualText kBlunderCount = {"\nAusreißer gefunden: "_latin1, "\nBlunder found: "};

constexpr BilingualText kFinished = {"<h2>\nBerechnung fertig</h2>\n\n\n",
                                     "<h2>\nCalculation done</h2>\n\n\n"};
constexpr BilingualText kRedundancySum = {"\nGesamtredundanz: ", "\nRedundancy at all: "};
constexpr BilingualText kFailure = {"\n<h3>Abbruch: Fehler ", "\n<h3>Abbort: Error "};
constexpr BilingualText kFailed = {"\n<h3>Berechnung nicht erfolgreich</h3>\n\n",
                                   "\n<h3>Calculation failed</h3>\n\n"};
constexpr BilingualText kEnd = {"\n<h3>Ende der Ausgleichung: ",
                                "\n<h3>End of bundle adjustment: "};
constexpr BilingualText kRunTime = {"\n\n      Gesamtlaufzeit:  ", "\n\n      Time:  "};

constexpr BilingualText kActive = {"Aktiv: ", "Active: "};
constexpr BilingualText kYes = {"ja", "yes"};
constexpr BilingualText kNo = {"nein", "no"};
constexpr BilingualText kAxisValues[] = {
    {"Wert x: ", "Value x: "}, {"Wert y: ", "Value y: "}, {"Wert z: ", "Value z: "}};
constexpr BilingualText kScaleValue[] = {{"Wert : ", "Value : "}};

// Of a stream in its default state, for floats.
constexpr int kDefaultPrecision = 6;

template <std::size_t N>
void AppendLinks(ProtocolText& out,
                 WriterLanguage language,
                 const ProtocolContents& contents,
                 const ContentsLink (&links)[N]) {
  for (const ContentsLink& link : links) {
    if (link.condition != nullptr && !(contents.*link.condition)) continue;
    out.Text("<p><a href=\"#").Text(link.anchor).Text("\">");
    out.Text(In(language, link.text)).Text("</a></p>");
  }
}

}  // namespace

void OldStyleMessageHandler::WriteText(const char* text) {
  if (fTarget != nullptr) fTarget->OnProtocolText(text);
  fFile << text;
  fFile.flush();
}

void OldStyleMessageHandler::RunStarted(const std::int64_t* startTime,
                                        const AdjustmentSettings& settings,
                                        const ProtocolContents& contents) {
  ProtocolText out;
  std::string version;
  out.Text("<html>\n<body>\n").Text(In(kTitle));
  out.Text("Version ").Text(LibraryVersion().GetVersionText(version)).Text("\n</a></p>");
  out.Text(In(kSummaryLink));
  out.Text(In(kUnknowns));
  AppendLinks(out, fLanguage, contents, kUnknownLinks);
  out.Text(In(kConstraints));
  AppendLinks(out, fLanguage, contents, kConstraintLinks);
  out.Text(In(kMeasurements));
  AppendLinks(out, fLanguage, contents, kMeasurementLinks);
  out.Text("<pre>\n").Text(In(kStart));
  AppendDate(out, fLanguage, *startTime, DateGap::TwoBlanks);
  out.Text("</h3>\n\n\n");

  const auto setting = [&](const BilingualText& label, double value) {
    out.Text(In(label));
    if (IsGerman())
      out.Fixed(value, 0, kDefaultPrecision);
    else
      out.General(value, 0, kDefaultPrecision);
    out.Text("\n");
  };
  out.Text(In(kSettings));
  out.Text(In(kSolvability)).Text(settings.SolvabilityCheck() ? "1\n" : "0\n");
  setting(kDamping, settings.fDamping);
  setting(kDynamicLower, settings.fDynamicLower);
  setting(kDynamicUpper, settings.fDynamicUpper);
  out.Text(In(kBlunderTest)).Text(settings.BlunderTest() ? "1\n" : "0\n");
  if (settings.BlunderTest()) {
    out.Text(In(kTestMethod));
    if (settings.fTestMethod == static_cast<std::int32_t>(TestMethod::Redundancy))
      out.Text(In(kByRedundancy));
    else if (settings.fTestMethod == static_cast<std::int32_t>(TestMethod::InnerReliability))
      out.Text(In(kByReliability));
  }
  Write(out.Text("\n\n"));
}

void OldStyleMessageHandler::ReportRobustEstimation() { Write(kRobust); }

void OldStyleMessageHandler::ReportL2Estimation() { Write(kL2); }

void OldStyleMessageHandler::ReportBlunderCount(std::uint32_t count) {
  Write(ProtocolText().Text(In(kBlunderCount)).Integer(count).Text("\n\n"));
}

void OldStyleMessageHandler::RunFinished(const ProtocolResults& results) {
  // Tables that nobody would see are not put together.
  if (!fFile.is_open() && (fTarget == nullptr || !fTarget->IsListening())) return;
  Write(kFinished);
  WriteConstraintTranslation(*results.translation);
  WriteConstraintRotation(*results.rotation);
  WriteConstraintScale(*results.scale);
  WriteInteriorOrientations(results.cameras, *results.system);
  if (!results.hideProjections) WriteProjections(results.projections);
  WriteExteriorOrientations(results.exteriorOrientations, *results.system, results.eorFormat);
  WriteRelativeOrientations(results.relativeOrientations, results.exteriorOrientations);
  WriteObjectPoints(results.objectPoints);
  WriteLines(results.lines);
  WritePlanes(results.planes);
  WriteImageCoordinates(results.imageCoordinates);
  WriteLineCoordinates(results.lineCoordinates);
  WriteMeasuredObjectPoints(results.measuredObjectPoints);
  WriteDistances(results.distances);
  WriteConstraintsPointOnLine(results.pointOnLine);
  WriteConstraintsPointOnPlane(results.pointOnPlane);
  WriteSummary(results);
  WriteWarnings(*results.warnings);
  ProtocolText out;
  Write(out.Text(In(kRedundancySum)).Fixed(results.redundancySum, 10, 4).Text("\n\n"));
}

void OldStyleMessageHandler::RunFailed(std::int32_t code) {
  ProtocolText out;
  out.Text(In(kFailure)).Integer(code).Text(" - ").Text(ErrorText(fLanguage, code));
  Write(out.Text("</h3>\n\n"));
  Write(kFailed);
}

void OldStyleMessageHandler::RunClosed(const std::int64_t* startTime, const std::int64_t* endTime) {
  ProtocolText out;
  out.Text(In(kEnd));
  AppendDate(out, fLanguage, *endTime, DateGap::OneBlank);
  out.Text(In(kRunTime)).Integer(*endTime - *startTime);
  Write(out.Text(" s</h3>\n\n</pre>\n</body>\n</html>\n"));
}

void OldStyleMessageHandler::WriteIteration(const IterationInfo& info) {
  ProtocolText times;
  // The width goes to the line end: seven blanks stand before it.
  times.Text("\n", 8).Text(In(kCalculation));
  times.Text(In(kBuild)).Fixed(info.aufbauSekunden, 0, 3);
  times.Text(In(kSolution)).Fixed(info.loesungSekunden, 0, 3);
  times.Text(In(kComplete)).Fixed(info.aufbauSekunden + info.loesungSekunden, 0, 3);
  Write(times.Text(" s\n"));

  ProtocolText out;
  out.Text(In(kLoop)).Integer(info.iterationGesamt);
  out.Text(" (").Integer(info.ausreisserRunde).Text(")\n");
  out.Text("         S0: ").Fixed(info.s0, 14, 6);
  out.Text("      (S0 apriori: ").General(info.s0APriori, 7, 3).Text(")\n");
  out.Text("       norm: ").Fixed(info.mittlereAenderung, 14, 6).Text("\n");
  out.Text("          n: ").Integer(info.beobachtungen, 14).Text("\n");
  out.Text("          u: ").Integer(info.unbekannte, 14).Text("\n");
  out.Text("          b: ").Integer(info.bedingungen, 14).Text("\n\n");
  Write(out);
}

void OldStyleMessageHandler::WriteConstraintScale(const BedingungHlmM& constraint) {
  WriteDatumConstraint(
      "HlmM", {"Bedingung Maßstab"_latin1, "Constraint scale"}, constraint, kScaleValue);
}

void OldStyleMessageHandler::WriteConstraintTranslation(const BedingungHlmTrans& constraint) {
  WriteDatumConstraint(
      "HlmTrn", {"Bedingung Translation", "Constraint translation"}, constraint, kAxisValues);
}

void OldStyleMessageHandler::WriteConstraintRotation(const BedingungHlmRot& constraint) {
  WriteDatumConstraint(
      "HlmRot", {"Bedingung Rotation", "Constraint rotation"}, constraint, kAxisValues);
}

void OldStyleMessageHandler::WriteDatumConstraint(const char* anchor,
                                                  const BilingualText& title,
                                                  const BedingungHlm& constraint,
                                                  std::span<const BilingualText> labels) {
  ProtocolText out;
  out.Text(SectionHeading(anchor, In(title)));
  out.Text(In(kActive)).Text(In(constraint.IsActive() ? kYes : kNo)).Text("\n");
  if (constraint.IsActive()) {
    const std::vector<double> values = constraint.CollectMultipliers();
    out.Text("\n");
    for (std::size_t i = 0; i < labels.size(); ++i)
      out.Text(In(labels[i])).General(values[i], 0, kDefaultPrecision).Text("\n");
    out.Text("\n");
  }
  Write(out.Text("\n"));
}

void OldStyleMessageHandler::WriteHeading(const char* anchor, const BilingualText& title) {
  WriteText("\n");
  WriteText(SectionHeading(anchor, In(title)).c_str());
}

std::string SectionHeading(const char* anchor, const char* title) {
  std::string heading = "<h4><a name=\"";
  heading += anchor;
  heading += "\">*** ";
  heading += title;
  heading += ByLanguage(" ***</a> <a href=\"#Start\">(zurück zum Anfang)</a></h4>\n"_latin1,
                        " ***</a> <a href=\"#Start\">(return to start)</a></h4>\n");
  return heading;
}

}  // namespace vermo
