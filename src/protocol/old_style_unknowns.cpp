// The tables of the unknown groups.

#include "checks/latin1.h"
#include "linalg/normal_system.h"
#include "linalg/tensor_matrix.h"
#include "protocol/old_style_message_handler.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_ior.h"
#include "unknowns/data_linie.h"
#include "unknowns/data_obko.h"
#include "unknowns/data_plane.h"
#include "unknowns/data_projektion.h"
#include "unknowns/doppel_orientierung.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>

namespace vermo {
namespace {

using ostra_bundle::Matrix;

// What stands in place of a standard deviation that was not estimated. Each table has its own.
constexpr BilingualText kFixedPoint = {"     fest ", "      fix "};
constexpr BilingualText kFixedLine = {"    fest ", "     fix "};
constexpr BilingualText kFixedPlane = {"     fest", "     fix "};
constexpr BilingualText kFixedProjection = {"        fest", "         fix"};
constexpr BilingualText kFixedCamera = {"           fest", "            fix"};
constexpr BilingualText kFixedOrientation = {"      fest ", "       fix "};

constexpr BilingualText kCameras = {"Innere Orientierungen", "Interior orientation"};
constexpr BilingualText kCamera = {" Kamera/R0: ", " Camera/R0: "};
constexpr BilingualText kCameraCorrelation = {"\nKorrelation:\n\n", "\nCorrelation:\n\n"};
constexpr const char* kCameraLabels[] = {" Ck       : ",
                                         " Xh       : ",
                                         " Yh       : ",
                                         " A1       : ",
                                         " A2       : ",
                                         " A3       : ",
                                         " B1       : ",
                                         " B2       : ",
                                         " C1       : ",
                                         " C2       : ",
                                         " AZ1      : ",
                                         " AZ2      : ",
                                         " AZ3      : "};
constexpr const char* kCameraNames[] = {
    "Ck", "Xh", "Yh", "A1", "A2", "A3", "B1", "B2", "C1", "C2", "AZ1", "AZ2", "AZ3"};
constexpr const char* kNameGap = "      ";
static_assert(std::size(kCameraLabels) == DataIor::kParameters);
static_assert(std::size(kCameraNames) == DataIor::kParameters);

constexpr BilingualText kProjections = {"Projektionen", "Projections"};
constexpr BilingualText kProjection = {" Projektion: ", " Projection: "};
constexpr const char* kProjectionLabels[] = {" Ck       : ", " Xh       : ", " Yh       : "};

constexpr BilingualText kOrientations = {"Äussere Orientierungen"_latin1, "Exterior orientation"};
constexpr BilingualText kOrientationHead[] = {
    {"  Bild Nr.  | Ior Nr.|     x     |     y     |     z     |",
     "  Image no. | Ior no.|     x     |     y     |     z     |"},
    {"    sx    |    sy    |    sz    |", "    sx    |    sy    |    sz    |"},
    {" Strahlen |\n", "   Rays   |\n"},
    {"                     |   Omega   |    Phi    |   Kappa   |",
     "                     |   Omega   |    Phi    |   Kappa   |"},
    {"    sO    |    sP    |    sK    |", "    sO    |    sP    |    sK    |"},
    {"  rms vx  |  rms vy  |\n", "  rms vx  |  rms vy  |\n"},
    {"                     |           |           |           |",
     "                     |           |           |           |"},
    {"   srx    |   sry    |   srz    |", "   srx    |   sry    |   srz    |"},
    {"  max vx  |  max vy  |\n", "  max vx  |  max vy  |\n"}};
constexpr BilingualText kOrientationDisabled = {"   *** Unbekannte deaktiviert ***\n\n",
                                                "   *** Unknown disabled ***\n\n"};
constexpr BilingualText kCorrelations = {"         Korrelationen:\n", "          Correlations:\n"};
constexpr const char* kOrientationNames[] = {" x", " y", " z", "rx", "ry", "rz"};

constexpr BilingualText kRelatives = {"Relative Orientierungen", "Relative orientation"};
constexpr BilingualText kRelativeHead = {"   ID   | Kamera |Rel.Ori |Abs.Ori |\n",
                                         "   ID   | Camera |Rel.ori |Abs.ori |\n"};
constexpr BilingualText kRelativeDisabled = {"  *** deaktiviert ***", "  *** disabled ***"};

constexpr BilingualText kPoints = {"Objektpunkte", "Object points"};
constexpr BilingualText kPointHead[] = {
    {"  Punkt Nr. |      x     |      y     |      z     |",
     "  Point no. |      x     |      y     |      z     |"},
    {"    sx   |    sy   |    sz   |Strahlen| Ausreißer|\n"_latin1,
     "    sx   |    sy   |    sz   |  Rays  | Blunder|\n"}};
constexpr BilingualText kPointDisabled = {"   *** Unbekannte deaktiviert ",
                                          "   *** unknown disabled "};
constexpr BilingualText kTooFewRays = {"- zu wenig Strahlen ", "- not enough rays "};
constexpr BilingualText kMinimum = {"                        Minimale Standardabweichung:",
                                    "                         minimum standard deviation:"};
constexpr BilingualText kMaximum = {"                        Maximale Standardabweichung:",
                                    "                         maximum standard deviation:"};
constexpr BilingualText kRms = {"                       RMS der Standardabweichungen:",
                                "                             rms standard deviation:"};

constexpr BilingualText kLines = {"Linien", "Lines"};
constexpr BilingualText kLineHead = {
    "  Linie Nr.  |      x1     |      y1     |      z1     |      x2     |      y2     |      z2  "
    " "
    "  |\n",
    "  Point no.  |      x1     |      y1     |      z1     |      x2     |      y2     |      z2  "
    " "
    "  |\n"};
constexpr BilingualText kPlanes = {"Ebenen", "Planes"};
constexpr BilingualText kPlaneHead = {
    "  Ebene Nr.  |      x1     |      y1     |      z1     |      x2     |      y2     |      z2  "
    " "
    "  |\n",
    "  Plane no.  |      x1     |      y1     |      z1     |      x2     |      y2     |      z2  "
    " "
    "  |\n"};
constexpr const char* kSigmaHead =
    "             |     sx1     |     sy1     |     sz1     |     sx2     |     sy2     |     sz2  "
    " "
    "  |\n";

// Rotation type and angle unit of an output format: the low and the high byte of the format of
// the whole table, each replaced by the image's own where it is 0.
struct AngleFormat {
  std::uint32_t rotationType;
  const char* label;
  const char* unit;
  double factor;  // from radians
};

AngleFormat FormatOf(std::uint32_t format, std::uint32_t own) {
  const auto pick = [&](std::uint32_t mask) {
    return (format & mask) != 0 ? format & mask : own & mask;
  };
  AngleFormat result{1, "air", "rad", 1.0};
  switch (pick(0xFFU)) {
    case 2:
      result.rotationType = 2;
      result.label = "arc";
      break;
    case 4:
      result.rotationType = 4;
      result.label = "ttg";
      break;
    default:
      break;
  }
  switch (pick(0xFF00U)) {
    case 512:
      result.unit = "gon";
      result.factor = 63.66197723675813;
      break;
    case 1024:
      result.unit = "deg";
      result.factor = 57.29577951308232;
      break;
    default:
      break;
  }
  return result;
}

double Correlation(double covariance, double variances) {
  return variances > 0.0 ? covariance / std::sqrt(variances) : 0.0;
}

// The covariances of two groups. A group that never got columns, in a run without an iteration,
// has none.
Matrix CovarianceBlock(const NormalSystem& system, const Data& rows, const Data& columns) {
  Matrix block(rows.UnknownCount(), columns.UnknownCount());
  block.Fill(0.0);
  if (rows.FirstUnknown() >= 0 && columns.FirstUnknown() >= 0)
    system.CofactorBlock(block,
                         static_cast<std::uint32_t>(rows.FirstUnknown()),
                         rows.UnknownCount(),
                         static_cast<std::uint32_t>(columns.FirstUnknown()),
                         columns.UnknownCount());
  return block;
}

// Calls visit(parameter, position among the estimated ones) in order.
template <typename Visit>
void ForEachEstimated(const DataIor& camera, Visit visit) {
  std::uint32_t position = 0;
  for (unsigned i = 0; i < DataIor::kParameters; ++i)
    if (camera.ParameterMask()[i]) visit(i, position++);
}

void AppendEstimatedNames(ProtocolText& row, const DataIor& camera) {
  ForEachEstimated(camera,
                   [&](unsigned i, std::uint32_t) { row.Text(kCameraNames[i]).Text(kNameGap); });
}

void AppendCameraCorrelations(ProtocolText& row, const DataIor& camera, const Matrix& block) {
  ForEachEstimated(camera, [&](unsigned i, std::uint32_t r) {
    row.Text(kCameraNames[i]).Text("  ");
    for (std::uint32_t c = 0; c <= r; ++c)
      row.Fixed(Correlation(block.At(r, c), block.At(c, c) * block.At(r, r)), 8, 3);
    row.Text("\n");
  });
  row.Text("         ");
  AppendEstimatedNames(row, camera);
}

void AppendFixed(ProtocolText& row,
                 std::span<const double> values,
                 std::size_t width,
                 int decimals) {
  for (const double value : values) row.Fixed(value, width, decimals).Text(" ");
}

void AppendFixed(ProtocolText& row,
                 const ostra_bundle::VektorD<3>& values,
                 std::size_t width,
                 int decimals) {
  for (unsigned i = 0; i < 3; ++i) row.Fixed(values[i], width, decimals).Text(" ");
}

void AppendRepeated(ProtocolText& row, const char* word, std::size_t width, unsigned times) {
  for (unsigned i = 0; i < times; ++i) row.Text(word, width);
}

using ThreeSigmas = std::array<double, 3>;

// "a b c", each in the form of the point table.
void AppendExtremes(ProtocolText& out, const char* label, const ThreeSigmas& values) {
  out.Text(label);
  out.Fixed(values[0], 9, 4).Text(" ").Fixed(values[1], 9, 4).Text(" ").Fixed(values[2], 9, 4);
  out.Text("\n");
}

// The beginning of a row of lines or planes: number and six values.
template <typename Group>
ProtocolText TwoVectorRow(const Group& group,
                          const typename Group::Vector& first,
                          const typename Group::Vector& second) {
  ProtocolText row;
  row.Integer(group.Id(), 8).Text(" ").Ordinal(group.Ordinal());
  AppendFixed(row, first, 13, 4);
  // No blank stands behind the last value.
  row.Fixed(second[0], 13, 4).Text(" ").Fixed(second[1], 13, 4).Text(" ").Fixed(second[2], 13, 4);
  row.Text("\n             ");
  return row;
}

}  // namespace

ProtocolText& OldStyleMessageHandler::CameraValue(ProtocolText& row,
                                                  double value,
                                                  std::size_t width) const {
  // The English writer sets the fixed and the scientific flag together.
  return IsGerman() ? row.Scientific(value, width, 6) : row.Hexadecimal(value, width);
}

void OldStyleMessageHandler::WriteInteriorOrientations(const ProtocolList<DataIor>& cameras,
                                                       const NormalSystem& system) {
  if (cameras.empty()) return;
  WriteHeading("interior_orientations", kCameras);
  for (const DataIor* camera : cameras) {
    WriteText("\n");
    WriteCamera(*camera, system);
  }
  WriteText("\n");
}

void OldStyleMessageHandler::WriteCamera(const DataIor& camera, const NormalSystem& system) {
  ProtocolText row;
  if (!camera.IsActive()) {
    Write(row);
    return;
  }
  const bool variable = camera.IsVariable();
  row.Text(In(kCamera)).Integer(camera.Id(), 15).Text(" ").Ordinal(camera.Ordinal());
  CameraValue(row, camera.R0().r0, 11).Text("\n");
  for (unsigned i = DataIor::kCk; i <= DataIor::kC2; ++i) {
    CameraValue(row.Text(kCameraLabels[i]), camera.Calibration()[i], 15).Text(" ");
    if (variable && camera.ParameterMask()[i])
      CameraValue(row, camera.Sigma()[i], 15);
    else
      row.Text(In(kFixedCamera));
    row.Text("\n");
  }
  for (unsigned i = DataIor::kAz1; i <= DataIor::kAz3; ++i) {
    if (!variable || !camera.ParameterMask()[i]) continue;
    CameraValue(row.Text(kCameraLabels[i]), camera.Calibration()[i], 15);
    row.Text(i == DataIor::kAz1 ? "  " : " ");
    CameraValue(row, camera.Sigma()[i], 15).Text("\n");
  }
  if (variable) {
    row.Text(In(kCameraCorrelation));
    AppendCameraCorrelations(row, camera, CovarianceBlock(system, camera, camera));
  }
  Write(row.Text("\n\n"));
}

void OldStyleMessageHandler::WriteProjections(const ProtocolList<DataProjektion>& projections) {
  if (projections.empty()) return;
  WriteHeading("projections", kProjections);
  for (const DataProjektion* projection : projections) {
    WriteText("\n");
    WriteProjection(*projection);
  }
  WriteText("\n");
}

void OldStyleMessageHandler::WriteProjection(const DataProjektion& projection) {
  ProtocolText row;
  if (projection.IsActive()) {
    row.Text(In(kProjection)).Integer(projection.Id(), 12).Text("\n");
    row.Ordinal(projection.Ordinal());
    for (unsigned i = 0; i < DataProjektion::kValues; ++i) {
      row.Text(kProjectionLabels[i]).Hexadecimal(projection.Values()[i], 12).Text("  ");
      if (projection.IsVariable() && projection.IsEstimated(i))
        row.Hexadecimal(projection.Sigma()[i], 12);
      else
        row.Text(In(kFixedProjection));
      row.Text("\n");
    }
  }
  Write(row);
}

void OldStyleMessageHandler::WriteExteriorOrientations(const ProtocolList<DataEor>& orientations,
                                                       const NormalSystem& system,
                                                       std::uint32_t format) {
  if (orientations.empty()) return;
  WriteHeading("exterior_orientations", kOrientations);
  for (const BilingualText& text : kOrientationHead) Write(text);
  WriteText("\n\n");
  for (const DataEor* orientation : orientations) {
    if (!orientation->IsActive()) {
      ProtocolText row;
      Write(row.Integer(orientation->Id(), 8).Text(In(kOrientationDisabled)));
      continue;
    }
    if (WriteOrientation(*orientation, format)) WriteCameraCorrelations(*orientation, system);
  }
  WriteText("\n");
}

bool OldStyleMessageHandler::WriteOrientation(const DataEor& orientation, std::uint32_t format) {
  const AngleFormat angleFormat = FormatOf(format, orientation.Format());
  DataEor::Angles angles;
  if (!orientation.ToAngles(angleFormat.rotationType, angles)) return false;
  for (double& angle : angles.values) angle *= angleFormat.factor;

  const bool variable = orientation.IsVariable();
  const ImageResiduals residuals = ResidualsOf(orientation);
  const std::span<const double> sigma(orientation.Sigma());
  const char* fixed = In(kFixedOrientation);

  ProtocolText row;
  row.Integer(orientation.Id(), 8).Text(" ").Ordinal(orientation.Ordinal());
  row.Integer(orientation.IorId(), 8).Text(" ");
  AppendFixed(row, orientation.fTranslation, 11, 4);
  if (variable)
    AppendFixed(row, sigma.first(3), 10, 4);
  else
    AppendRepeated(row, fixed, 0, 3);
  row.Integer(orientation.CountMessungen(MessungKind::Biko), 10);

  row.Text("\n           ").Text(angleFormat.label).Text("  ").Text(angleFormat.unit).Text("   ");
  AppendFixed(row, angles.values, 11, 8);
  if (variable)
    AppendFixed(row, angles.sigmas, 10, 6);
  else
    AppendRepeated(row, fixed, 0, 3);
  row.Fixed(residuals.rmsVx, 10, 6).Text(" ").Fixed(residuals.rmsVy, 10, 6);

  row.Text("\n                      ");
  // The width of a number goes to a blank.
  for (unsigned i = 0; i < 3; ++i) row.Text(" ", 11).Text(" ");
  if (variable)
    AppendFixed(row, sigma.last(3), 10, 6);
  else
    AppendRepeated(row, fixed, 0, 3);
  row.Fixed(residuals.maxVx, 10, 6).Text(" ").Fixed(residuals.maxVy, 10, 6);
  Write(row.Text("\n\n"));
  return true;
}

void OldStyleMessageHandler::WriteCameraCorrelations(const DataEor& orientation,
                                                     const NormalSystem& system) {
  const DataIor* camera = orientation.Ior();
  if (!orientation.IsVariable() || camera == nullptr || !camera->IsVariable() ||
      !camera->IsActive() || orientation.FirstUnknown() < 0 || camera->FirstUnknown() < 0)
    return;
  const Matrix block = CovarianceBlock(system, orientation, *camera);
  const auto variance = [&system](const Data& group, std::uint32_t i) {
    const std::uint32_t column = static_cast<std::uint32_t>(group.FirstUnknown()) + i;
    return system.Cofactor(column, column);
  };
  ProtocolText out;
  out.Text(In(kCorrelations));
  for (std::uint32_t r = 0; r < std::size(kOrientationNames); ++r) {
    out.Text("          ").Text(kOrientationNames[r]).Text(" ");
    ForEachEstimated(*camera, [&](unsigned, std::uint32_t c) {
      out.Fixed(Correlation(block.At(r, c), variance(orientation, r) * variance(*camera, c)), 8, 3);
    });
    out.Text("\n");
  }
  out.Text("                  ");
  AppendEstimatedNames(out, *camera);
  Write(out.Text("\n\n"));
}

void OldStyleMessageHandler::WriteRelativeOrientations(
    const ProtocolList<DoppelOrientierung>& relatives, const ProtocolList<DataEor>& orientations) {
  if (relatives.empty()) return;
  std::map<std::uint32_t, const DataEor*> byId;
  for (const DataEor* eor : orientations) byId[eor->Id()] = eor;
  const auto find = [&byId](std::uint32_t id) -> const DataEor* {
    const auto found = byId.find(id);
    return found == byId.end() ? nullptr : found->second;
  };
  const auto isActive = [](const DataEor* eor) { return eor != nullptr && eor->IsActive(); };
  WriteHeading("relative_orientations", kRelatives);
  Write(kRelativeHead);
  for (const DoppelOrientierung* relative : relatives) {
    const DataEor* eor = find(relative->EorId());
    const DataEor* base = find(relative->BaseEorId());
    ProtocolText row;
    row.Integer(relative->Id(), 8).Text(" ");
    if (eor != nullptr)
      row.Integer(eor->IorId(), 8);
    else
      row.Text(" ", 8);
    row.Text(" ").Integer(relative->EorId(), 8).Text(" ").Integer(relative->BaseEorId(), 8);
    if (!relative->IsActive() || !isActive(eor) || !isActive(base)) row.Text(In(kRelativeDisabled));
    Write(row.Text("\n"));
  }
  WriteText("\n");
}

void OldStyleMessageHandler::WriteObjectPoints(const ProtocolList<DataObko>& points) {
  if (points.empty()) return;
  WriteHeading("object_points", kPoints);
  for (const BilingualText& text : kPointHead) Write(text);
  for (const DataObko* point : points) WriteObjectPoint(*point);
  WriteObjectPointExtremes(points);
  WriteText("\n");
}

void OldStyleMessageHandler::WriteObjectPoint(const DataObko& point) {
  ProtocolText row;
  row.Integer(point.Id(), 8);
  if (!point.IsActive()) {
    row.Text(In(kPointDisabled));
    if (!point.HasEnoughRays()) row.Text(In(kTooFewRays));
    Write(row.Text("***\n"));
    return;
  }
  row.Text(" ").Ordinal(point.Ordinal());
  AppendFixed(row, point.Current(), 12, 4);
  if (point.IsVariable())
    AppendFixed(row, point.Sigma(), 9, 4);
  else
    AppendRepeated(row, In(kFixedPoint), 0, 3);
  row.Integer(point.RayCount(), 8).Text(" ");
  Write(row.Integer(point.CountAusreisser(MessungKind::Biko), 8).Text("\n"));
}

void OldStyleMessageHandler::WriteObjectPointExtremes(const ProtocolList<DataObko>& points) {
  ThreeSigmas smallest;
  smallest.fill(std::numeric_limits<double>::max());
  ThreeSigmas largest{};
  ThreeSigmas rms{};
  std::uint32_t count = 0;
  for (const DataObko* point : points) {
    if (!point->IsActive() || !point->IsVariable()) continue;
    ++count;
    for (unsigned i = 0; i < 3; ++i) {
      const double sigma = point->Sigma()[i];
      smallest[i] = std::min(smallest[i], sigma);
      largest[i] = std::max(largest[i], sigma);
      rms[i] += sigma * sigma;
    }
  }
  if (count == 0) smallest.fill(0.0);
  for (double& value : rms) value = count == 0 ? 0.0 : std::sqrt(value / count);
  ProtocolText out;
  out.Text("\n");
  AppendExtremes(out, In(kMinimum), smallest);
  AppendExtremes(out, In(kMaximum), largest);
  AppendExtremes(out, In(kRms), rms);
  Write(out);
}

void OldStyleMessageHandler::WriteLines(const ProtocolList<DataLinie>& lines) {
  if (lines.empty()) return;
  WriteHeading("lines", kLines);
  Write(kLineHead);
  WriteText(kSigmaHead);
  WriteText("\n");
  for (const DataLinie* line : lines) {
    if (!line->IsActive()) {
      WriteText("");
      continue;
    }
    ProtocolText row = TwoVectorRow(*line, line->Point(), line->Direction());
    if (line->IsVariable()) {
      AppendFixed(row, line->Sigma(), 13, 6);
      row.Text("\n\n");
    } else {
      // A fixed line does not end its row.
      AppendRepeated(row, In(kFixedLine), 14, 6);
    }
    Write(row);
  }
  WriteText("\n\n");
}

void OldStyleMessageHandler::WritePlanes(const ProtocolList<DataPlane>& planes) {
  if (planes.empty()) return;
  WriteHeading("planes", kPlanes);
  Write(kPlaneHead);
  WriteText(kSigmaHead);
  WriteText("\n");
  for (const DataPlane* plane : planes) {
    if (!plane->IsActive()) {
      WriteText("");
      continue;
    }
    ProtocolText row = TwoVectorRow(*plane, plane->Point(), plane->Normal());
    if (plane->IsVariable()) {
      AppendFixed(row, plane->Sigma(), 13, 6);
    } else {
      // The first word is one blank narrower in German.
      row.Text(In(kFixedPlane), IsGerman() ? 13 : 14);
      AppendRepeated(row, In(kFixedPlane), 14, 5);
    }
    Write(row.Text("\n\n"));
  }
  WriteText("\n\n");
}

}  // namespace vermo
