#include "protocol/old_style_message_handler.h"

#include "adjustment/adjustment_settings.h"
#include "adjustment/iteration_info.h"
#include "checks/language.h"
#include "checks/latin1.h"
#include "checks/version.h"
#include "protocol/protocol_contents.h"
#include "protocol/protocol_date.h"
#include "protocol/protocol_target.h"

#include <cstddef>
#include <iomanip>
#include <ios>
#include <locale>
#include <sstream>

namespace vermo {
namespace {

// The text of one operation while it is put together: default formatting, classic locale.
class TextStream : public std::ostringstream {
 public:
  TextStream() { imbue(std::locale::classic()); }

  TextStream& Fixed() {
    setf(std::ios_base::fixed, std::ios_base::floatfield);
    return *this;
  }
  TextStream& General() {
    unsetf(std::ios_base::floatfield);
    return *this;
  }
};

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

template <std::size_t N>
void WriteLinks(std::ostream& out,
                WriterLanguage language,
                const ProtocolContents& contents,
                const ContentsLink (&links)[N]) {
  for (const ContentsLink& link : links)
    if (link.condition == nullptr || contents.*link.condition)
      out << "<p><a href=\"#" << link.anchor << "\">" << In(language, link.text) << "</a></p>";
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
  TextStream out;
  std::string version;
  out << "<html>\n<body>\n";
  out << Text(kTitle) << "Version " << LibraryVersion().GetVersionText(version) << "\n</a></p>";
  out << Text(kSummaryLink);
  out << Text(kUnknowns);
  WriteLinks(out, fLanguage, contents, kUnknownLinks);
  out << Text(kConstraints);
  WriteLinks(out, fLanguage, contents, kConstraintLinks);
  out << Text(kMeasurements);
  WriteLinks(out, fLanguage, contents, kMeasurementLinks);
  out << "<pre>\n";
  out << Text(kStart);
  WriteDate(out, fLanguage, *startTime, DateGap::TwoBlanks);
  out << "</h3>\n\n\n";

  // The German writer goes on in the fixed notation of the date, the English one does not.
  if (fLanguage == WriterLanguage::English) out.General();
  out << Text(kSettings);
  out << Text(kSolvability) << (settings.SolvabilityCheck() ? 1 : 0) << '\n';
  out << Text(kDamping) << settings.fDamping << '\n';
  out << Text(kDynamicLower) << settings.fDynamicLower << '\n';
  out << Text(kDynamicUpper) << settings.fDynamicUpper << '\n';
  out << Text(kBlunderTest) << (settings.BlunderTest() ? 1 : 0) << '\n';
  if (settings.BlunderTest()) {
    out << Text(kTestMethod);
    if (settings.fTestMethod == static_cast<std::int32_t>(TestMethod::Redundancy))
      out << Text(kByRedundancy);
    else if (settings.fTestMethod == static_cast<std::int32_t>(TestMethod::InnerReliability))
      out << Text(kByReliability);
  }
  out << "\n\n";
  WriteText(out.str().c_str());
}

void OldStyleMessageHandler::ReportRobustEstimation() { WriteText(Text(kRobust)); }

void OldStyleMessageHandler::ReportL2Estimation() { WriteText(Text(kL2)); }

void OldStyleMessageHandler::ReportBlunderCount(std::uint32_t count) {
  TextStream out;
  out << Text(kBlunderCount) << count << "\n\n";
  WriteText(out.str().c_str());
}

void OldStyleMessageHandler::RunFinished(double redundancySum) {
  WriteText(Text(kFinished));
  TextStream out;
  out.Fixed() << Text(kRedundancySum) << std::setprecision(4) << std::setw(10) << redundancySum
              << "\n\n";
  WriteText(out.str().c_str());
}

void OldStyleMessageHandler::RunFailed(std::int32_t code) {
  TextStream out;
  out << Text(kFailure) << code << " - " << ErrorText(fLanguage, code) << "</h3>\n\n";
  WriteText(out.str().c_str());
  WriteText(Text(kFailed));
}

void OldStyleMessageHandler::RunClosed(const std::int64_t* startTime, const std::int64_t* endTime) {
  TextStream out;
  out << Text(kEnd);
  WriteDate(out, fLanguage, *endTime, DateGap::OneBlank);
  out << Text(kRunTime) << *endTime - *startTime << " s</h3>\n\n</pre>\n</body>\n</html>\n";
  WriteText(out.str().c_str());
}

void OldStyleMessageHandler::WriteIteration(const IterationInfo& info) {
  TextStream times;
  // The width goes to the line end: seven blanks stand before it.
  times.Fixed() << std::setprecision(3) << std::setw(8) << "\n";
  times << Text(kCalculation);
  times << Text(kBuild) << info.aufbauSekunden;
  times << Text(kSolution) << info.loesungSekunden;
  times << Text(kComplete) << info.aufbauSekunden + info.loesungSekunden << " s\n";
  WriteText(times.str().c_str());

  TextStream out;
  out << Text(kLoop) << info.iterationGesamt << " (" << info.ausreisserRunde << ")\n";
  out.Fixed() << "         S0: " << std::setprecision(6) << std::setw(14) << info.s0;
  out.General() << "      (S0 apriori: " << std::setprecision(3) << std::setw(7) << info.s0APriori
                << ")\n";
  out.Fixed() << "       norm: " << std::setprecision(6) << std::setw(14) << info.mittlereAenderung
              << "\n";
  out << "          n: " << std::setw(14) << info.beobachtungen << "\n";
  out << "          u: " << std::setw(14) << info.unbekannte << "\n";
  out << "          b: " << std::setw(14) << info.bedingungen << "\n\n";
  WriteText(out.str().c_str());
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
