#include "observations/bedingung_hlm.h"

#include "checks/language.h"
#include "checks/latin1.h"
#include "linalg/normal_system.h"

#include <algorithm>
#include <cmath>

namespace vermo {
namespace {

using ostra_bundle::Add;
using ostra_bundle::Cross;
using ostra_bundle::Dot;
using ostra_bundle::Scale;
using ostra_bundle::Subtract;
using Vector = DataObko::Vector;

// Size of the largest element of a row: small beside the observations, so that the pivot search
// leaves the unknowns alone.
constexpr double kRowScale = 0.00001;

double ScaleFor(double spread) noexcept { return spread == 0.0 ? kRowScale : kRowScale / spread; }

// Stores an element of row in the column of coordinate k of the point, which must have columns.
void Store(
    NormalSystem& system, std::uint32_t row, const DataObko& point, std::uint32_t k, double value) {
  const auto first = static_cast<std::uint32_t>(point.FirstUnknown());
  system.WidenRow(row, first);
  system.StoreElement(row, first + k, value);
}

bool HasColumns(const DataObko& point) noexcept { return point.FirstUnknown() >= 0; }

}  // namespace

bool BedingungHlm::HasDatumPoints() const {
  return std::ranges::any_of(fPunkte, [](const DataObko* p) { return p->IsReferencePoint(); });
}

Vector BedingungHlm::Centroid() const {
  Vector sum{0.0, 0.0, 0.0};
  std::size_t count = 0;
  ForEachDatumPoint([&](const DataObko& point) {
    sum = Add(sum, point.Current());
    ++count;
  });
  for (unsigned k = 0; k < 3; ++k) sum[k] /= static_cast<double>(count);
  return sum;
}

void BedingungHlmTrans::AddConstraintRows(NormalSystem& system) const {
  Vector sum{0.0, 0.0, 0.0};
  ForEachDatumPoint(
      [&](const DataObko& point) { sum = Add(sum, Subtract(point.Initial(), point.Current())); });
  const std::uint32_t i = FirstRow();
  for (std::uint32_t k = 0; k < 3; ++k) system.SetRhs(i + k, kRowScale * sum[k]);
  ForEachDatumPoint([&](const DataObko& point) {
    if (!HasColumns(point)) return;
    for (std::uint32_t k = 0; k < 3; ++k) Store(system, i + k, point, k, kRowScale);
  });
}

std::string BedingungHlmTrans::GetDescription() const {
  return ByLanguage("Bedingung Translation", "Constraint translation");
}

void BedingungHlmRot::AddConstraintRows(NormalSystem& system) const {
  if (!HasDatumPoints()) return;
  const Vector c = Centroid();
  // The coordinate itself is kept, not its magnitude: after a negative one the next coordinate
  // replaces it at once.
  double m = 0.0;
  Vector v{0.0, 0.0, 0.0};
  ForEachDatumPoint([&](const DataObko& point) {
    const Vector e = Subtract(point.Current(), c);
    for (unsigned k = 0; k < 3; ++k)
      if (std::fabs(e[k]) > m) m = e[k];
    v = Add(v, Cross(e, Subtract(point.Initial(), c)));
  });
  const double s = ScaleFor(m);
  const std::uint32_t i = FirstRow();
  for (std::uint32_t k = 0; k < 3; ++k) system.SetRhs(i + k, s * v[k]);
  ForEachDatumPoint([&](const DataObko& point) {
    if (!HasColumns(point)) return;
    const Vector e = Scale(Subtract(point.Current(), c), s);
    Store(system, i, point, 1, -e[2]);
    Store(system, i, point, 2, e[1]);
    Store(system, i + 1, point, 0, e[2]);
    Store(system, i + 1, point, 2, -e[0]);
    Store(system, i + 2, point, 0, -e[1]);
    Store(system, i + 2, point, 1, e[0]);
  });
}

std::string BedingungHlmRot::GetDescription() const {
  return ByLanguage("Bedingung Rotation", "Constraint rotation");
}

void BedingungHlmM::AddConstraintRows(NormalSystem& system) const {
  if (!HasDatumPoints()) return;
  const Vector c = Centroid();
  double m = 0.0;
  double w = 0.0;
  ForEachDatumPoint([&](const DataObko& point) {
    const Vector e = Subtract(point.Current(), c);
    const Vector e0 = Subtract(point.Initial(), c);
    for (unsigned k = 0; k < 3; ++k) m = std::max(m, std::fabs(e[k]));
    w += Dot(Subtract(e, e0), e0);
  });
  const double s = ScaleFor(m);
  const std::uint32_t i = FirstRow();
  system.SetRhs(i, -s * w);
  ForEachDatumPoint([&](const DataObko& point) {
    if (!HasColumns(point)) return;
    const Vector e = Scale(Subtract(point.Current(), c), s);
    for (std::uint32_t k = 0; k < 3; ++k) Store(system, i, point, k, e[k]);
  });
}

std::string BedingungHlmM::GetDescription() const {
  return ByLanguage("Bedingung Maßstab"_latin1, "Constraint scale");
}

}  // namespace vermo
