// The two rules that take groups out of an adjustment while it runs: points with too few rays,
// and groups whose own block of the normal matrix is close to singular.

#include "adjustment/adjustment.h"
#include "checks/failure_codes.h"
#include "checks/kl_exception.h"
#include "unknowns/data.h"
#include "unknowns/data_linie.h"
#include "unknowns/data_obko.h"
#include "unknowns/data_plane.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vermo {
namespace {

// A group whose scaled block has a smaller mean pivot is not determined.
constexpr double kSmallestSolvability = 0.0001;
// A row that is shorter after the others were taken out of it has no direction.
constexpr double kShortestRow = 1e-15;

double Dot(const double* a, const double* b, std::uint32_t n) {
  double sum = 0.0;
  for (std::uint32_t i = 0; i < n; ++i) sum += a[i] * b[i];
  return sum;
}

// |det|^(1/n) of a block by rows after its rows were made unit vectors: 1 for independent unknowns,
// 0 for a singular block. The rows are orthogonalised in turn; the determinant is the product of
// the lengths that are left. The block is used up.
double Solvability(double* block, std::uint32_t n) {
  for (std::uint32_t r = 0; r < n; ++r) {
    double* row = block + std::size_t{r} * n;
    const double norm = std::sqrt(Dot(row, row, n));
    if (norm == 0.0) return 0.0;
    for (std::uint32_t c = 0; c < n; ++c) row[c] /= norm;
  }
  double det = 1.0;
  for (std::uint32_t k = 0; k < n; ++k) {
    double* direction = block + std::size_t{k} * n;
    double norm = std::sqrt(Dot(direction, direction, n));
    // The longest row goes first.
    for (std::uint32_t j = k + 1; j < n; ++j) {
      double* row = block + std::size_t{j} * n;
      const double candidate = std::sqrt(Dot(row, row, n));
      if (!(candidate > norm)) continue;
      norm = candidate;
      std::swap_ranges(direction, direction + n, row);
    }
    if (norm < kShortestRow) return 0.0;
    det *= norm;
    for (std::uint32_t j = k + 1; j < n; ++j) {
      double* row = block + std::size_t{j} * n;
      const double factor = Dot(direction, row, n) / (norm * norm);
      for (std::uint32_t c = 0; c < n; ++c) row[c] -= factor * direction[c];
    }
  }
  return std::pow(det, 1.0 / n);
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
    fBlock.resize(std::size_t{n} * n);
    fSystem->DiagonalBlock(static_cast<std::uint32_t>(group->FirstUnknown()), n, fBlock.data());
    const double v = Solvability(fBlock.data(), n);
    if (!(best > v)) continue;
    // A line or a plane may be held by constraints, which its own block does not show.
    if (dynamic_cast<DataLinie*>(group) != nullptr || dynamic_cast<DataPlane*>(group) != nullptr)
      continue;
    best = v;
    worst = group;
  }
  if (!(best < kSmallestSolvability)) return true;
  worst->SetActive(false);
  worst->SetFirstUnknown(Data::kNoColumn);
  fGeaendert = true;
  OnGroupsDisabled({&worst, 1});
  return false;
}

}  // namespace vermo
