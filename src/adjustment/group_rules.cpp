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
#include <cstddef>
#include <typeinfo>

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

// Whether the Solvability of a block of three unknowns is above kSmallestSolvability without doubt.
// With rows a, b, c, the determinant of the rows of unit length is
//
//   d = |a . (b x c)| / (|a| |b| |c|)
//
// d > 1e-6 means a solvability of 0.01, while all roundings, here and there, change d by less than
// 1e-14: the squares on both sides tell it without roots and quotients. Rows so short that their
// squares could underflow leave the doubt, and so does what overflows or is not a number.
bool IsClearlySolvable(const double* block) {
  constexpr double kClearSquare = 1e-12;
  constexpr double kShortestSquare = 1e-60;
  const double* const a = block;
  const double* const b = block + 3;
  const double* const c = block + 6;
  const double aa = a[0] * a[0] + a[1] * a[1] + a[2] * a[2];
  const double bb = b[0] * b[0] + b[1] * b[1] + b[2] * b[2];
  const double cc = c[0] * c[0] + c[1] * c[1] + c[2] * c[2];
  const double det = a[0] * (b[1] * c[2] - b[2] * c[1]) + a[1] * (b[2] * c[0] - b[0] * c[2]) +
                     a[2] * (b[0] * c[1] - b[1] * c[0]);
  return aa > kShortestSquare && bb > kShortestSquare && cc > kShortestSquare &&
         det * det > kClearSquare * (aa * bb * cc);
}

}  // namespace

std::uint32_t Adjustment::ApplyMinimumRays() {
  const auto minRays = static_cast<std::uint32_t>(fSettings.fMinRays);
  std::uint32_t disabled = 0;
  for (std::size_t i = 0; i < fDaten.size(); ++i) {
    if (i + kGroupsAhead < fDaten.size()) fDaten[i + kGroupsAhead]->FetchMessungen();
    Data* const group = fDaten[i];
    if (typeid(*group) != typeid(DataObko)) continue;
    auto* point = static_cast<DataObko*>(group);
    if (!point->IsVariable() || point->IsExemptFromRayRule()) continue;
    const bool enough = point->HasRays(minRays);
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
  // What is not below the threshold does not matter.
  double best = kSmallestSolvability;
  Data* worst = nullptr;
  for (Data* group : fDaten) {
    if (!group->IsActive() || !group->IsVariable()) continue;
    const std::uint32_t n = group->UnknownCount();
    if (group->FirstUnknown() < 0 || n == 0) throw KlException(failure::kInternal);
    fBlock.resize(std::size_t{n} * n);
    fSystem->DiagonalBlock(static_cast<std::uint32_t>(group->FirstUnknown()), n, fBlock.data());
    if (n == 3 && IsClearlySolvable(fBlock.data())) continue;
    const double v = Solvability(fBlock.data(), n);
    if (!(best > v)) continue;
    // A line or a plane may be held by constraints, which its own block does not show.
    if (dynamic_cast<DataLinie*>(group) != nullptr || dynamic_cast<DataPlane*>(group) != nullptr)
      continue;
    best = v;
    worst = group;
  }
  if (worst == nullptr) return true;
  worst->SetActive(false);
  worst->SetFirstUnknown(Data::kNoColumn);
  fGeaendert = true;
  OnGroupsDisabled({&worst, 1});
  return false;
}

}  // namespace vermo
