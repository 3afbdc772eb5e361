// What is told of outlier tests and of disabled groups while a run goes on, and the summary and the
// warnings at its end.

#include "adjustment/blunder_round_info.h"
#include "checks/latin1.h"
#include "checks/warnings.h"
#include "observations/messung.h"
#include "protocol/old_style_message_handler.h"
#include "protocol/warning_text.h"
#include "unknowns/data_ior.h"
#include "unknowns/data_obko.h"

#include <map>

namespace vermo {

// The words of a block of outliers, each with its width filled up.
struct OldStyleMessageHandler::BlunderLabels {
  BilingualText observations;
  BilingualText unknowns;
  BilingualText constraints;
  bool tellsConstraints;
  BilingualText redundancy;
  BilingualText critical;
  BilingualText current;
  BilingualText reactivation;
  BilingualText reactivated;
};

namespace {

constexpr BilingualText kNoBlunders = {"Keine Ausreißer festgestellt. \n"_latin1,
                                       "No blunders found. \n"};
constexpr BilingualText kBlunders = {"Ausreißer: \n\n"_latin1, "Blunders: \n\n"};

constexpr BilingualText kDisabled = {"\nWarnung: Unbekannte deaktiviert - ",
                                     "\nWarning: Unknown disabled - "};
constexpr BilingualText kTooFewRays = {"zu wenig Strahlen (", "not enough rays ("};
constexpr BilingualText kMissing = {"zugehörige Messwerte fehlen\n"_latin1,
                                    "not enough observations\n"};
constexpr BilingualText kEnabled = {"\nWarnung: Unbekannte reaktiviert - ",
                                    "\nWarning: Unknown reactivated - "};
constexpr BilingualText kEnoughRays = {"Anzahl Strahlen gültig ("_latin1, "enough rays ("};

constexpr BilingualText kSummaryAnchor = {"Zusammenfassung", "summary"};
constexpr BilingualText kSummary = {"Zusammenfassung", "Summary"};
constexpr BilingualText kOverall = {"<h5>Gesamtstatistik</h5>", "<h5>Summary of statistics</h5>"};
constexpr BilingualText kStandardDeviation = {"Standardabweichung: ", "Standard deviation: "};
constexpr BilingualText kObservations = {"Anzahl Beobachtungen: ", "Number of observations: "};
constexpr BilingualText kUnknowns = {"Anzahl Unbekannte: ", "Number of unknowns: "};
constexpr BilingualText kConstraints = {"Anzahl Bedingungen: ", "Number of constraints: "};
constexpr BilingualText kRedundancy = {"Gesamtredundanz: ", "Redundancy at all: "};
constexpr BilingualText kLoops = {"Durchlaufene Schleifen: ", "Loops: "};
constexpr BilingualText kBlunderRounds = {"Durchgeführte Ausreißererkennungen: "_latin1,
                                          "Blunder detections executed: "};

constexpr BilingualText kCameras = {"<h5>Statistik der Kameras</h5>", "<h5>Camera statistics</h5>"};
constexpr BilingualText kFixedCameras = {"Anzahl der festen Kameras: ",
                                         "Number of fixed cameras: "};
constexpr BilingualText kEstimatedCameras = {"Anzahl der geschätzten Kameras: "_latin1,
                                             "Number of estimated cameras: "};
constexpr BilingualText kCameraResiduals = {
    "\nStatistik der Bildkoordinaten für die Kameras:\n\n"_latin1,
    "\nStatistic of image coordinates per camera:\n\n"};
constexpr const char* kCameraHead =
    "   IOR  |    n     |  rms vx  |  rms vy  |  max vx  |  max vy  |\n";

constexpr BilingualText kPoints = {"<h5>Statistik der Objektpunkte</h5>",
                                   "<h5>Object coordinate statistics</h5>"};
constexpr BilingualText kFixedPoints = {"Anzahl der festen Objektpunkte: ",
                                        "Number of fixed object points: "};
constexpr BilingualText kEstimatedPoints = {"Anzahl der geschätzten Objektpunkte: "_latin1,
                                            "Number of estimated object points: "};
constexpr BilingualText kRaysPerPoint = {"Durchschn. Strahlen pro Objektpunkt: ",
                                         "Mean number of rays per object points: "};
constexpr const char* kAxes = "|     x    |     y    |     z    |\n";
constexpr BilingualText kSigmaRms = {"RMS der Standardabweichungen: ", "Mean standard deviation: "};
constexpr BilingualText kSigmaMaximum = {"Maximale Standardabweichung: ",
                                         "Maximum standard deviation: "};

constexpr BilingualText kDistances = {"<h5>Statistik der Strecken</h5>",
                                      "<h5>Distance statistics</h5>"};
constexpr BilingualText kUsedDistances = {"Anzahl der verwendeten Strecken: ",
                                          "Number of used distances: "};
constexpr BilingualText kResidualRms = {"RMS der Verbesserungen: ", "RMS of residuals: "};
constexpr BilingualText kResidualMaximum = {"Maximale Verbesserung: ", "Maximum residual: "};

constexpr BilingualText kImages = {"<h5>Statistik der Bilder</h5>", "<h5>Images statistic</h5>"};
constexpr BilingualText kUsedImages = {"Anzahl der verwendeten Bilder: ",
                                       "Number of used images: "};
constexpr BilingualText kRaysPerImage = {"Mittlere Anzahl der Strahlen pro Bild: ",
                                         "Mean number of rays per image: "};
constexpr BilingualText kPerImage = {"   pro Bild\n", "\n"};
constexpr BilingualText kFewestRays = {"Minimale Anzahl von Strahlen: ",
                                       "Minimum number of rays: "};
constexpr BilingualText kInImage = {"     in Bild  ", "   in image  "};
constexpr BilingualText kImageResiduals = {
    "\nStatistik der Bildkoordinaten für die Bilder:\n\n"_latin1,
    "\nImage coordinate statistics per image:\n\n"};
constexpr const char* kImageHead =
    "   EOR  |    n     |  rms vx  |  rms vy  |  max vx  |  max vy  |\n";

constexpr BilingualText kWarnings = {"Warnungen", "Warnings"};
constexpr BilingualText kMoreWarnings = {": ... Weitere Warnungen vorhanden\n",
                                         ": ... More warnings pending\n"};
// From this one on the warnings of one number are not told.
constexpr std::uint32_t kFirstUntold = 10;

}  // namespace

void OldStyleMessageHandler::WriteAusreisserTest(const BlunderRoundInfo& info) {
  static constexpr BlunderLabels kLabels = {
      {"\n\nAnzahl der Beobachtungen      : ", "\n\nNumber of observations        : "},
      {"Anzahl der Unbekannten        : ", "Number of unknowns            : "},
      {"Anzahl der Bedingungen        : ", "Number of constraints         : "},
      true,
      {"Gesamtredundanz               : ", "Redundancy                    : "},
      {"Testwert für den Ausreißertest: "_latin1, "Test value for blunder test   : "},
      {"    Aktueller Testwert        : ", "  Current test value          : "},
      {"    Testwert für Reaktivierung: "_latin1, "  Test value for reactivation : "},
      {"Reaktivierte Ausreißer: \n\n"_latin1, "Reactivated Blunders: \n\n"}};
  WriteBlunders(info, kLabels, info.redundanz);
}

void OldStyleMessageHandler::WriteFinalIteration(const BlunderRoundInfo& info) {
  static constexpr BilingualText kConstraintLabel = {"Anzahl der Bedingungen       : ", ""};
  static constexpr BilingualText kReactivated = {"Reaktivierte Ausreißer: \n\n"_latin1,
                                                 "Reactivated blunders: \n\n"};
  // The English block has no line of constraints.
  const BlunderLabels labels = {
      {"\n\nAnzahl der Beobachtungen     : ", "\n\nNumber of observations      : "},
      {"Anzahl der Unbekannten       : ", "Number of unknowns          : "},
      kConstraintLabel,
      IsGerman(),
      {"Gesamtredundanz              : ", "Redundancy                  : "},
      {"Testwert für den Auseißertest: "_latin1, "Test value for blunder test   : "},
      {"   Aktueller Testwert        : ", "  Current test value         : "},
      {"   Testwert für Reaktivierung: "_latin1, "  Test value for reactivation: "},
      kReactivated};
  WriteBlunders(info, labels, std::int64_t{info.beobachtungen} - std::int64_t{info.unbekannte});
}

void OldStyleMessageHandler::WriteBlunders(const BlunderRoundInfo& info,
                                           const BlunderLabels& labels,
                                           std::int64_t redundancy) {
  ProtocolText out;
  // The width of the values goes to the first label.
  out.Text(In(labels.observations), 8).Integer(info.beobachtungen).Text("\n");
  out.Text(In(labels.unknowns)).Integer(info.unbekannte).Text("\n");
  if (labels.tellsConstraints)
    out.Text(In(labels.constraints)).Integer(info.bedingungen).Text("\n");
  out.Text(In(labels.redundancy)).Integer(redundancy).Text("\n");
  out.Text(In(labels.critical)).Fixed(info.testwertKritisch, 0, 6).Text("\n\n");
  out.Text(In(labels.current)).Fixed(info.testwertAusreisser, 0, 6).Text("\n");
  out.Text(In(labels.reactivation)).Fixed(info.testwertReaktivierung, 0, 6).Text("\n\n");
  Write(out);
  WriteText("\n");

  if (info.ausreisser.empty()) {
    Write(kNoBlunders);
  } else {
    Write(kBlunders);
    for (const BlunderEntry& entry : info.ausreisser) {
      ProtocolText row;
      row.Text(entry.messung->GetDescription()).Text(" (").Fixed(entry.testwert, 6, 2);
      Write(row.Text(")\n"));
    }
  }
  WriteText("\n");

  if (info.reaktiviert.empty()) return;
  Write(labels.reactivated);
  for (const BlunderEntry& entry : info.reaktiviert) {
    ProtocolText row;
    // The width of the test value goes to the bracket.
    row.Text(entry.messung->GetDescription()).Text(" (", 6).Fixed(entry.testwert, 0, 2);
    Write(row.Text(")\n"));
  }
  WriteText("\n");
}

void OldStyleMessageHandler::WriteDatenDeaktiviert(std::span<Data* const> groups) {
  if (!groups.empty()) Write(kDisabled);
  for (const Data* group : groups) {
    const auto* point = dynamic_cast<const DataObko*>(group);
    if (point != nullptr && !point->HasEnoughRays())
      Write(ProtocolText().Text(In(kTooFewRays)).Integer(point->RayCount()).Text(")\n"));
    else
      Write(kMissing);
    Write(ProtocolText().Text(group->GetDescription()).Text("\n"));
  }
  WriteText("\n");
}

void OldStyleMessageHandler::WriteDatenReaktiviert(std::span<Data* const> groups) {
  if (!groups.empty()) Write(kEnabled);
  for (const Data* group : groups) {
    const auto* point = dynamic_cast<const DataObko*>(group);
    // The two writers ask for opposite states.
    if (point != nullptr && point->HasEnoughRays() == IsGerman())
      Write(ProtocolText().Text(In(kEnoughRays)).Integer(point->RayCount()).Text(")"));
    Write(ProtocolText().Text("\n").Text(group->GetDescription()).Text("\n"));
  }
  WriteText("\n");
}

void OldStyleMessageHandler::WriteSummary(const ProtocolResults& results) {
  WriteHeading(In(kSummaryAnchor), kSummary);
  Write(kOverall);
  WriteOverallFigures(results.statistics);
  WriteCameraFigures(results.figures.cameras, results.cameras);
  WriteObjectPointFigures(results.figures.objectPoints);
  WriteDistanceFigures(results.figures.distances);
  WriteImageFigures(results.figures.images);
  WriteText("\n");
}

void OldStyleMessageHandler::WriteOverallFigures(const AdjustmentStatistics& statistics) {
  constexpr std::size_t kLabel = 37;
  ProtocolText out;
  out.Text(In(kStandardDeviation), kLabel).Fixed(statistics.fS0, 10, 6).Text("\n");
  const auto line = [&](const BilingualText& label, std::int64_t value) {
    out.Text(In(label), kLabel).Integer(value, 8).Text("\n");
  };
  line(kObservations, statistics.fBeobachtungen);
  line(kUnknowns, statistics.fUnbekannte);
  line(kConstraints, statistics.fBedingungsAnzahl);
  line(kRedundancy, statistics.fRedundanz);
  line(kLoops, statistics.fIteration);
  line(kBlunderRounds, statistics.fAusreisserRunde);
  Write(out);
}

void OldStyleMessageHandler::WriteResidualRow(const ImageResiduals& residuals) {
  ProtocolText row;
  row.Integer(residuals.id, 8).Text(" ").Integer(residuals.rays, 10).Text(" ");
  row.Fixed(residuals.rmsVx, 10, 6).Text(" ").Fixed(residuals.rmsVy, 10, 6).Text(" ");
  row.Fixed(residuals.maxVx, 10, 6).Text(" ").Fixed(residuals.maxVy, 10, 6).Text("\n");
  Write(row);
}

void OldStyleMessageHandler::WriteCameraFigures(const CameraFigures& figures,
                                                const ProtocolList<DataIor>& cameras) {
  if (figures.fixed == 0 && figures.variable == 0) return;
  constexpr std::size_t kLabel = 33;
  Write(kCameras);
  ProtocolText out;
  out.Text(In(kFixedCameras), kLabel).Integer(figures.fixed, 8).Text("\n");
  out.Text(In(kEstimatedCameras), kLabel).Integer(figures.variable, 8).Text("\n\n");
  Write(out);
  Write(kCameraResiduals);
  WriteText(kCameraHead);
  for (const DataIor* camera : cameras) WriteResidualRow(ResidualsOf(*camera));
}

void OldStyleMessageHandler::WriteObjectPointFigures(const ObjectPointFigures& figures) {
  if (figures.fixed == 0 && figures.estimated == 0) return;
  constexpr std::size_t kLabel = 45;
  WriteText("\n");
  Write(kPoints);
  ProtocolText out;
  out.Text(In(kFixedPoints), kLabel).Integer(figures.fixed, 8).Text("\n");
  out.Text(In(kEstimatedPoints), kLabel).Integer(figures.estimated, 8).Text("\n");
  out.Text(In(kRaysPerPoint), kLabel).Fixed(figures.meanRays, 11, 2).Text("\n");
  if (figures.estimated > 0) {
    const auto line = [&](const BilingualText& label, const std::array<double, 3>& values) {
      out.Text(In(label), kLabel).Fixed(values[0], 10, 6).Text(" ");
      out.Fixed(values[1], 10, 6).Text(" ").Fixed(values[2], 10, 6).Text("\n");
    };
    out.Text("\n").Text(" ", 44).Text(" ").Text(kAxes);
    line(kSigmaRms, figures.rms);
    line(kSigmaMaximum, figures.largest);
  }
  Write(out);
}

void OldStyleMessageHandler::WriteDistanceFigures(const DistanceFigures& figures) {
  if (figures.count == 0) return;
  const std::size_t label = IsGerman() ? 40 : 31;
  WriteText("\n");
  Write(kDistances);
  ProtocolText out;
  out.Text(In(kUsedDistances), label).Integer(figures.count, 8).Text("\n");
  out.Text(In(kResidualRms), label).Fixed(figures.rms, 10, 4).Text("\n");
  // The last line has no end: the next heading follows on it.
  Write(out.Text(In(kResidualMaximum), label).Fixed(figures.largest, 10, 4));
}

void OldStyleMessageHandler::WriteImageFigures(const ImageFigures& figures) {
  if (figures.count == 0) return;
  const std::size_t label = IsGerman() ? 40 : 31;
  Write(kImages);
  ProtocolText out;
  out.Text(In(kUsedImages), label).Integer(figures.count, 8).Text("\n");
  out.Text(In(kRaysPerImage), label).Fixed(figures.meanRays, 10, 1).Text(In(kPerImage));
  out.Text(In(kFewestRays), label).Integer(figures.fewest, 8);
  Write(out.Text(In(kInImage)).Integer(figures.fewestId));
  WriteText("\n");
  Write(kImageResiduals);
  WriteText(kImageHead);
  for (const ImageResiduals& row : figures.rows) WriteResidualRow(row);
}

void OldStyleMessageHandler::WriteWarnings(const WarningList& warnings) {
  if (warnings.IsEmpty()) return;
  WriteHeading("warnungen", kWarnings);
  std::map<std::int32_t, std::uint32_t> counts;
  for (std::size_t i = 0; i < warnings.Size(); ++i) {
    const WarningItf& warning = *warnings.At(i);
    const std::uint32_t count = ++counts[warning.GetCode()];
    if (count < kFirstUntold)
      WriteText(WarningText(fLanguage, warning).c_str());
    else if (count == kFirstUntold)
      Write(ProtocolText().Integer(warning.GetCode(), 5).Text(In(kMoreWarnings)));
  }
}

}  // namespace vermo
