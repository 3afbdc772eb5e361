#include "observations/bedingung_punkt.h"

#include "checks/language.h"
#include "linalg/normal_system.h"
#include "observations/point_node.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

namespace vermo {
namespace {

using Vector = ostra_bundle::VektorD<3>;

std::string Description(const char* point,
                        std::uint32_t pointNumber,
                        const char* on,
                        std::uint32_t objectNumber) {
  return point + std::to_string(pointNumber) + on + std::to_string(objectNumber);
}

}  // namespace

void BedingungPunktGerade::AddConstraintRows(NormalSystem& system) const {
  if (!IsActive() || HasNoColumns()) return;
  const ostra_bundle::Rotation3& frame = GetObjekt().LocalFrame();
  const Vector u = ostra_bundle::MultiplyVector(
      frame, ostra_bundle::Subtract(GetPunkt().Current(), GetObjekt().Point()));
  const std::uint32_t i = FirstRow();
  const std::int32_t a = GetPunkt().FirstUnknown();
  const std::int32_t b = GetObjekt().FirstUnknown();
  if (a >= 0) system.StoreBlock(i, 2, static_cast<std::uint32_t>(a), 3, frame.data());
  if (b >= 0) {
    // Shifts, then tilts; a tilt of t turns the line by 2 t.
    const std::array<double, 8> rows{-1.0, 0.0, 0.0, 2.0 * u[2], 0.0, -1.0, -2.0 * u[2], 0.0};
    system.StoreBlock(i, 2, static_cast<std::uint32_t>(b), 4, rows.data());
  }
  system.SetRhs(i, -u[0]);
  system.SetRhs(i + 1, -u[1]);
}

std::string BedingungPunktGerade::GetDescription() const {
  return Description(ByLanguage("Bedingung Punkt ", "Constraint point "),
                     PunktNummer(),
                     ByLanguage(" auf Linie ", " at line "),
                     ObjektNummer());
}

void ConstraintPointOnPlane::AddConstraintRows(NormalSystem& system) const {
  if (!IsActive() || HasNoColumns()) return;
  const PointNode node(GetPunkt());
  Vector point;
  node.Root()->Value(point);
  VectorJacobian jacobian;
  node.Root()->Derivatives(jacobian);

  const DataPlane& plane = GetObjekt();
  const Vector offset = ostra_bundle::Subtract(point, plane.Point());
  const Vector u = ostra_bundle::MultiplyVector(plane.LocalFrame(), offset);

  DesignRow row;
  if (plane.FirstUnknown() >= 0) {
    const auto column = static_cast<std::uint32_t>(plane.FirstUnknown());
    row.push(column, 2.0 * u[1]);
    row.push(column + 1, -2.0 * u[0]);
    row.push(column + 2, -1.0);
  }
  for (unsigned c = 0; c < jacobian.columns; ++c)
    if (jacobian.tags[c] >= 0)
      row.push(static_cast<std::uint32_t>(jacobian.tags[c]),
               plane.Normal()[0] * jacobian.elements[0][c] +
                   plane.Normal()[1] * jacobian.elements[1][c] +
                   plane.Normal()[2] * jacobian.elements[2][c]);
  if (row.empty()) return;
  const auto [smallest, largest] = std::minmax_element(row.Columns(), row.Columns() + row.size());
  if (*smallest == *largest) return;

  const std::uint32_t i = FirstRow();
  system.WidenRow(i, *smallest);
  for (const DesignEntry& entry : row) system.StoreElement(i, entry.column, entry.coefficient);
  system.SetRhs(i, -ostra_bundle::Dot(plane.Normal(), offset));
}

std::string ConstraintPointOnPlane::GetDescription() const {
  return Description(ByLanguage("Bedingung Punkt ", "Constraint point "),
                     PunktNummer(),
                     ByLanguage(" auf Ebene ", " at plane "),
                     ObjektNummer());
}

}  // namespace vermo
