// The two rules that take groups out of an adjustment while it runs: points with too few rays,
// and groups whose own block of the normal matrix is close to singular.

#include "adjustment/adjustment.h"
#include "checks/failure_codes.h"
#include "checks/kl_exception.h"
#include "linalg/matrix_dense.h"
#include "unknowns/data.h"
#include "unknowns/data_linie.h"
#include "unknowns/data_obko.h"
#include "unknowns/data_plane.h"

#include <cmath>
#include <limits>

namespace vermo {
namespace {

// A group whose scaled block has a smaller mean pivot is not determined.
constexpr double kSmallestSolvability = 0.0001;

// |det|^(1/n) of the group's diagonal block with rows of unit length: 1 for independent
// unknowns, 0 for a singular block.
double Solvability(const NormalSystem& system, std::uint32_t first, std::uint32_t n) {
  CMatrix block(n, n);
  for (std::uint32_t r = 0; r < n; ++r)
    for (std::uint32_t c = 0; c < n; ++c) {
      const double lower = system.Element(first + r, first + c);
      const double upper = system.Element(first + c, first + r);
      block.At(r, c) = std::fabs(upper) > std::fabs(lower) ? upper : lower;
    }
  double det = 0.0;
  try {
    for (std::uint32_t r = 0; r < n; ++r) block.Row(r).Normalize();
    det = block.Determinant();
  } catch (const KlException&) {
    // A row of zeros: the block is singular.
    det = 0.0;
  }
  return det == 0.0 ? 0.0 : std::pow(std::fabs(det), 1.0 / n);
}

}  // namespace

std::uint32_t Adjustment::ApplyMinimumRays() {
  const auto minRays = static_cast<std::uint32_t>(fSettings.fMinRays);
  std::uint32_t disabled = 0;
  for (Data* group : fDaten) {
    auto* point = dynamic_cast<DataObko*>(group);
    if (point == nullptr || !point->IsVariable() || point->IsExemptFromRayRule()) continue;
    const bool enough = point->RayCount() >= minRays;
    if (enough == point->IsActive()) continue;
    point->SetEnoughRays(enough);
    point->SetActive(enough);
    if (enough) {
      OnGroupsEnabled({&group, 1});
    } else {
      OnGroupsDisabled({&group, 1});
      ++disabled;
    }
  }
  return disabled;
}

bool Adjustment::CheckSolvability() {
  double best = std::numeric_limits<double>::max();
  Data* worst = nullptr;
  for (Data* group : fDaten) {
    if (!group->IsActive() || !group->IsVariable()) continue;
    const std::uint32_t n = group->UnknownCount();
    if (group->FirstUnknown() < 0 || n == 0) throw KlException(failure::kInternal);
    // A line or a plane may be held by constraints, which its own block does not show.
    if (dynamic_cast<DataLinie*>(group) != nullptr || dynamic_cast<DataPlane*>(group) != nullptr)
      continue;
    const double v = Solvability(*fSystem, static_cast<std::uint32_t>(group->FirstUnknown()), n);
    if (best > v) {
      best = v;
      worst = group;
    }
  }
  if (!(best < kSmallestSolvability)) return true;
  worst->SetActive(false);
  worst->SetFirstUnknown(Data::kNoColumn);
  fGeaendert = true;
  OnGroupsDisabled({&worst, 1});
  return false;
}

}  // namespace vermo
