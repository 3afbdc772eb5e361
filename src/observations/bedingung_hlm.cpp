#include "observations/bedingung_hlm.h"

#include "checks/language.h"
#include "checks/latin1.h"
#include "linalg/normal_system.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

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

// Stores the elements of the rows from first on in the columns of the point, if it has columns;
// values by rows.
template <std::size_t Elements>
void Store(NormalSystem& system,
           std::uint32_t first,
           const DataObko& point,
           const std::array<double, Elements>& values) {
  static_assert(Elements % 3 == 0);
  if (point.FirstUnknown() < 0) return;
  system.StoreBlock(
      first, Elements / 3, static_cast<std::uint32_t>(point.FirstUnknown()), 3, values.data());
}

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
  constexpr std::array<double, 9> kRows{
      kRowScale, 0.0, 0.0, 0.0, kRowScale, 0.0, 0.0, 0.0, kRowScale};
  Vector sum{0.0, 0.0, 0.0};
  const std::uint32_t i = FirstRow();
  ForEachDatumPoint([&](const DataObko& point) {
    sum = Add(sum, Subtract(point.Initial(), point.Current()));
    Store(system, i, point, kRows);
  });
  for (std::uint32_t k = 0; k < 3; ++k) system.SetRhs(i + k, kRowScale * sum[k]);
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
    Store(system, i, point, ostra_bundle::Skew(Scale(Subtract(point.Current(), c), s)));
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
    const Vector e = Scale(Subtract(point.Current(), c), s);
    Store(system, i, point, std::array{e[0], e[1], e[2]});
  });
}

std::string BedingungHlmM::GetDescription() const {
  return ByLanguage("Bedingung Maßstab"_latin1, "Constraint scale");
}

}  // namespace vermo
