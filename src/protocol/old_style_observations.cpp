// The tables of the observations and of the constraints of points.

#include "observations/bedingung_punkt.h"
#include "observations/image_residuals.h"
#include "observations/messung_biko.h"
#include "observations/messung_linko.h"
#include "observations/messung_obko.h"
#include "observations/messung_strecke.h"
#include "protocol/old_style_message_handler.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <tuple>

namespace vermo {
namespace {

constexpr BilingualText kImageCoordinates = {"Bildkoordinaten", "Image coordinates"};
constexpr BilingualText kImageHead[] = {
    {" Punkt| Bild |   |      x      |      y      |",
     " Point| Image|   |      x      |      y      |"},
    {"     vx    |     vy    |sx a priori|sy a priori|  rx  |  ry  | Testwerte \n",
     "     vx    |     vy    |sx a priori|sy a priori|  rx  |  ry  | Test values\n"}};
constexpr BilingualText kImageMaximum = {"                             Max Verbesserung: ",
                                         "                           maximum residuals: "};

constexpr BilingualText kLineCoordinates = {"Linienkoordinaten", "Line coordinates"};
constexpr BilingualText kLineHead[] = {
    {"Punkt | Bild.| Linie|   |     x     |     y     |",
     "Point.| Pict.| Line |   |     x     |     y     |"},
    {"   v    |   r    | Testwerte\n", "   v    |   r    | Test values\n"}};
constexpr BilingualText kLineMaximum = {"                               Max Verbesserung: ",
                                        "                              maximum residuals: "};

constexpr BilingualText kMeasuredPoints = {"Gemessene Objektpunkte", "Measured object points"};
constexpr BilingualText kMeasuredHead[] = {
    {"Punkt |   |     x     |     y     |     z     |",
     "Point.|   |     x     |     y     |     z     |"},
    {"   vx   |   vy   |   vz   |   rx   |   ry   |   rz   | Testwerte\n",
     "   vx   |   vy   |   vz   |   rx   |   ry   |   rz   | Test values\n"}};
constexpr BilingualText kMeasuredMaximum = {"                             Max Verbesserung: ",
                                            "                            maximum residuals: "};

constexpr BilingualText kDistances = {"Strecken", "Distances"};
constexpr BilingualText kDistanceHead = {
    " Punkt | Punkt |   |     s     |    vs    |    rz    |s a priori| Testwerte\n",
    " Point.| Point.|   |     s     |    vs    |    rz    |s a priori| Test value\n"};
constexpr BilingualText kDistanceRms = {"         RMS der Verbesserungen: ",
                                        "                  rms residuals: "};
constexpr BilingualText kDistanceMaximum = {"               Max Verbesserung: ",
                                            "               maximum residual: "};

constexpr BilingualText kPointOnLine = {"Bedingungen Punkt auf einer Linie",
                                        "Constaint points on a linie"};
constexpr BilingualText kPointOnLineHead = {"   ID   | Punkt  | Linie  |\n",
                                            "   ID   | Point  |  Line  |\n"};
constexpr BilingualText kPointOnPlane = {"Bedingungen Punkt auf einer Ebene",
                                         "Constraint points on a plane"};
constexpr BilingualText kPointOnPlaneHead = {"   ID   | Punkt  | Ebene  |\n",
                                             "   ID   | Point  | Plane  |\n"};

// The largest residual of each component over the observations that take part.
template <std::uint32_t N, typename Observation>
std::array<double, N> LargestResiduals(const ProtocolList<Observation>& observations) {
  std::array<double, N> largest{};
  for (const Observation* observation : observations) {
    if (!observation->IsUsed()) continue;
    for (std::uint32_t i = 0; i < N; ++i) KeepLarger(largest[i], observation->Wert(i).Residuum());
  }
  return largest;
}

// Outliers first, then by image and point.
template <typename Observation>
ProtocolList<Observation> SortedByImage(const ProtocolList<Observation>& observations) {
  const auto key = [](const Observation* observation) {
    return std::tuple(
        !observation->IsAusreisser(), observation->BildNummer(), observation->Nummer());
  };
  ProtocolList<Observation> sorted = observations;
  std::sort(sorted.begin(), sorted.end(), [key](const Observation* a, const Observation* b) {
    return key(a) < key(b);
  });
  return sorted;
}

// Ends a row that the writers build themselves: the mark has one blank more than in the
// observations' own rows.
void FinishRow(ProtocolText& row, const Messung& observation) {
  const std::string_view mark = observation.RowMark();
  if (!mark.empty()) row.Text(" ").Text(mark);
  row.Text("\n");
}

}  // namespace

template <typename Observation>
void OldStyleMessageHandler::WriteRowsByImage(const ProtocolList<Observation>& observations) {
  // The outliers stand first, so an image may open two groups.
  std::uint32_t lastImage = 0xFFFFFFFF;
  for (const Observation* observation : SortedByImage(observations)) {
    if (!observation->IsActive()) continue;
    if (observation->BildNummer() != lastImage) {
      WriteText("\n");
      lastImage = observation->BildNummer();
    }
    WriteText(observation->GetProtocolLine().c_str());
  }
}

void OldStyleMessageHandler::WriteImageCoordinates(const ProtocolList<MessungBiko>& observations) {
  if (observations.empty()) return;
  WriteHeading("image_coordinates", kImageCoordinates);
  for (const BilingualText& text : kImageHead) Write(text);
  WriteRowsByImage(observations);
  const auto largest = LargestResiduals<2>(observations);
  ProtocolText out;
  out.Text("\n").Text(In(kImageMaximum));
  Write(out.Fixed(largest[0], 10, 6).Text(" ").Fixed(largest[1], 10, 6).Text(" "));
  WriteText("\n");
}

void OldStyleMessageHandler::WriteLineCoordinates(const ProtocolList<MessungLinko>& observations) {
  if (observations.empty()) return;
  WriteHeading("line_coordinates", kLineCoordinates);
  for (const BilingualText& text : kLineHead) Write(text);
  WriteRowsByImage(observations);
  const auto largest = LargestResiduals<1>(observations);
  // This section does not end its last line.
  ProtocolText out;
  Write(out.Text("\n").Text(In(kLineMaximum)).Fixed(largest[0], 8, 4).Text(" "));
}

void OldStyleMessageHandler::WriteMeasuredObjectPoints(
    const ProtocolList<MessungObko>& observations) {
  if (observations.empty()) return;
  WriteHeading("measured_object_points", kMeasuredPoints);
  for (const BilingualText& text : kMeasuredHead) Write(text);
  ProtocolList<MessungObko> sorted = observations;
  std::sort(sorted.begin(), sorted.end(), [](const MessungObko* a, const MessungObko* b) {
    return a->IsAusreisser() && !b->IsAusreisser();
  });
  for (const MessungObko* observation : sorted) {
    if (!observation->IsActive()) continue;
    ProtocolText row;
    row.Integer(observation->Nummer(), 6).Text(" ").Ordinal(observation->Ordinal());
    for (unsigned i = 0; i < 3; ++i) row.Fixed((*observation)[i], 11, 4).Text(" ");
    for (unsigned i = 0; i < 3; ++i) row.Fixed(observation->Wert(i).Residuum(), 8, 4).Text(" ");
    for (unsigned i = 0; i < 3; ++i) row.Fixed(observation->Wert(i).Redundanz(), 8, 2).Text(" ");
    row.Fixed(observation->Wert(0).Testwert(), 6, 2).Text(" ");
    row.Fixed(observation->Wert(1).Testwert(), 6, 2).Text(" ");
    row.Fixed(observation->Wert(2).Testwert(), 6, 2);
    FinishRow(row, *observation);
    Write(row);
  }
  ProtocolText out;
  out.Text("\n").Text(In(kMeasuredMaximum));
  for (const double value : LargestResiduals<3>(observations)) out.Fixed(value, 8, 4).Text(" ");
  Write(out);
  WriteText("\n");
}

void OldStyleMessageHandler::WriteDistances(const ProtocolList<MessungStrecke>& observations) {
  if (observations.empty()) return;
  WriteHeading("distances", kDistances);
  Write(kDistanceHead);
  double sum = 0.0;
  std::uint32_t count = 0;
  for (const MessungStrecke* observation : observations) {
    if (!observation->IsActive()) continue;
    const MessungWert& wert = observation->Wert(0);
    ProtocolText row;
    row.Integer(observation->Punkt1Nummer(), 7).Text(" ");
    row.Integer(observation->Punkt2Nummer(), 7).Text(" ").Ordinal(observation->Ordinal()).Text(" ");
    row.Fixed(observation->Strecke(), 10, 4).Text(" ").Fixed(wert.Residuum(), 10, 4).Text(" ");
    row.Fixed(wert.Redundanz(), 10, 4).Text(" ").Fixed(observation->Sigma(), 10, 4).Text(" ");
    FinishRow(row.Fixed(wert.Testwert(), 10, 2), *observation);
    Write(row);
    if (!observation->IsUsed()) continue;
    sum += wert.Residuum() * wert.Residuum();
    ++count;
  }
  ProtocolText out;
  out.Text("\n");
  out.Text(In(kDistanceRms)).Fixed(count == 0 ? 0.0 : std::sqrt(sum / count), 9, 4).Text(" \n");
  out.Text(In(kDistanceMaximum)).Fixed(LargestResiduals<1>(observations)[0], 9, 4).Text(" \n");
  Write(out);
}

template <typename Constraint>
void OldStyleMessageHandler::WritePointConstraints(const ProtocolList<Constraint>& constraints) {
  for (const Constraint* constraint : constraints) {
    if (!constraint->IsActive()) continue;
    ProtocolText row;
    row.Integer(constraint->Id(), 8).Text(" ").Integer(constraint->PunktNummer(), 8).Text(" ");
    Write(row.Integer(constraint->ObjektNummer(), 8).Text("\n"));
  }
  WriteText("\n");
}

void OldStyleMessageHandler::WriteConstraintsPointOnLine(
    const ProtocolList<BedingungPunktGerade>& constraints) {
  if (constraints.empty()) return;
  WriteHeading("constraints_point_on_line", kPointOnLine);
  Write(kPointOnLineHead);
  WritePointConstraints(constraints);
}

void OldStyleMessageHandler::WriteConstraintsPointOnPlane(
    const ProtocolList<ConstraintPointOnPlane>& constraints) {
  if (constraints.empty()) return;
  WriteHeading("constraints_point_on_plane", kPointOnPlane);
  Write(kPointOnPlaneHead);
  WritePointConstraints(constraints);
}

}  // namespace vermo
