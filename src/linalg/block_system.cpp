// Elimination, solution and cofactors. The blocks are laid out in block_layout.cpp and filled in
// block_equations.cpp.

#include "linalg/block_system.h"

#include "linalg/prefetch.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace vermo {
namespace {

// A pivot of a positive definite block below this share of its diagonal element counts as zero.
constexpr double kSmallestPivot = 1e-12;
// Blocks that will be needed soon are fetched so many groups before their turn.
constexpr std::size_t kGroupsAhead = 8;

// Factors L^-1 and D^-1 of the inverse of a symmetric positive definite block P = L D L^T by rows,
// n <= 6, with ones on the diagonal of L: a lower triangle by rows, L^-1 below the diagonal and
// D^-1 on it. False when P is not positive definite.
template <std::uint32_t N>
bool FactoriseInverse(const double* block, double* factors) {
  double l[N][N];
  double reciprocal[N];
  for (std::size_t i = 0; i < N; ++i) {
    double pivot = block[i * N + i];
    for (std::size_t j = 0; j < i; ++j) {
      double sum = block[i * N + j];
      // Row i is still L D here, row j is L already.
      for (std::size_t k = 0; k < j; ++k) sum -= l[i][k] * l[j][k];
      l[i][j] = sum;
    }
    for (std::size_t j = 0; j < i; ++j) {
      const double scaled = l[i][j] * reciprocal[j];
      pivot -= l[i][j] * scaled;
      l[i][j] = scaled;
    }
    if (!(pivot > kSmallestPivot * block[i * N + i])) return false;
    reciprocal[i] = 1.0 / pivot;
  }
  double m[N][N];  // L^-1
  for (std::size_t j = 0; j < N; ++j) {
    m[j][j] = 1.0;
    for (std::size_t i = j + 1; i < N; ++i) {
      double sum = 0.0;
      for (std::size_t k = j; k < i; ++k) sum -= l[i][k] * m[k][j];
      m[i][j] = sum;
    }
  }
  for (std::size_t i = 0; i < N; ++i)
    for (std::size_t j = 0; j < N; ++j)
      factors[i * N + j] = j < i ? m[i][j] : (j == i ? reciprocal[i] : 0.0);
  return true;
}

// The root M = D^-1/2 L^-1 of the inverse P^-1 = M^T M, by rows, and its diagonal D^-1/2.
template <std::uint32_t N>
void RootOfInverse(const double* factors, double* root) {
  for (std::size_t i = 0; i < N; ++i) {
    const double scale = std::sqrt(factors[i * N + i]);
    for (std::size_t j = 0; j < N; ++j)
      root[i * N + j] = j < i ? factors[i * N + j] * scale : (j == i ? scale : 0.0);
  }
}

// P^-1 = L^-T D^-1 L^-1
template <std::uint32_t N>
void InverseOf(const double* factors, double* inverse) {
  for (std::size_t i = 0; i < N; ++i)
    for (std::size_t j = 0; j <= i; ++j) {
      double sum = factors[i * N + i] * (j < i ? factors[i * N + j] : 1.0);
      for (std::size_t k = i + 1; k < N; ++k)
        sum += factors[k * N + i] * factors[k * N + k] * factors[k * N + j];
      inverse[i * N + j] = inverse[j * N + i] = sum;
    }
}

// M^T G M
template <std::uint32_t N>
void Congruence(const double* root, const double* g, double* result) {
  double product[N][N];  // G M
  for (std::size_t i = 0; i < N; ++i)
    for (std::size_t j = 0; j < N; ++j) {
      double sum = 0.0;
      for (std::size_t k = j; k < N; ++k) sum += g[i * N + k] * root[k * N + j];
      product[i][j] = sum;
    }
  for (std::size_t i = 0; i < N; ++i)
    for (std::size_t j = 0; j <= i; ++j) {
      double sum = 0.0;
      for (std::size_t k = i; k < N; ++k) sum += root[k * N + i] * product[k][j];
      result[i * N + j] = result[j * N + i] = sum;
    }
}

// Calls `run` with the size as a constant.
template <typename Run>
auto WithSize(std::uint32_t n, Run run) {
  switch (n) {
    case 1:
      return run.template operator()<1>();
    case 2:
      return run.template operator()<2>();
    case 3:
      return run.template operator()<3>();
    case 4:
      return run.template operator()<4>();
    case 5:
      return run.template operator()<5>();
    default:
      return run.template operator()<6>();
  }
}

bool FactoriseInverse(const double* block, std::uint32_t n, double* factors) {
  return WithSize(n, [&]<std::uint32_t N>() { return FactoriseInverse<N>(block, factors); });
}

void InverseOf(const double* factors, std::uint32_t n, double* inverse) {
  WithSize(n, [&]<std::uint32_t N>() { InverseOf<N>(factors, inverse); });
}

void RootOfInverse(const double* factors, std::uint32_t n, double* root) {
  WithSize(n, [&]<std::uint32_t N>() { RootOfInverse<N>(factors, root); });
}

void Congruence(const double* root, std::uint32_t n, const double* g, double* result) {
  WithSize(n, [&]<std::uint32_t N>() { Congruence<N>(root, g, result); });
}

// M x
void MultiplyRoot(const double* root, std::uint32_t n, const double* x, double* product) {
  for (std::size_t i = 0; i < n; ++i) {
    product[i] = 0.0;
    for (std::size_t k = 0; k <= i; ++k) product[i] += root[i * n + k] * x[k];
  }
}

}  // namespace

bool BlockSystem::InvertLeading() {
  bool allInverted = true;
  for (const std::uint32_t g : fLeading) {
    const Group& group = fGroups[g];
    if (FactoriseInverse(
            fValues.data() + group.diagonal, group.size, fFactors.data() + group.diagonal))
      continue;
    allInverted = false;
    Demote(g);
  }
  return allInverted;
}

// Makes V or U of every leading group, then calls use(group, working), and `finish` after it: each
// step one group later than the step before, so that what is written piece by piece is read only
// when it has arrived.
template <BlockSystem::Scaling kScaling, typename Use, typename Finish>
void BlockSystem::ForEachLeader(Use use, Finish finish) {
  const std::size_t count = fLeaders.size();
  for (std::size_t k = 0; k < count + 2; ++k) {
    if (k < count) {
      if (k + kGroupsAhead < count)
        for (const LeadingRun& block : PlacesOf(fLeaders[k + kGroupsAhead]))
          FetchAll(fValues.data() + block.place,
                   std::size_t{fLeaders[k + kGroupsAhead].size} * block.size);
      Scale<kScaling>(fLeaders[k], fWorking[k % kTurns]);
    }
    if (k >= 1 && k <= count) use(fLeaders[k - 1], fWorking[(k - 1) % kTurns]);
    if (k >= 2) finish(fLeaders[k - 2], fWorking[(k - 2) % kTurns]);
  }
}

template <BlockSystem::Scaling kScaling>
void BlockSystem::Scale(const Group& group, Working& working) const {
  const double* factors = fFactors.data() + group.diagonal;
  if constexpr (kScaling == Scaling::kRoot)
    RootOfInverse(factors, group.size, working.matrix.data());
  else
    InverseOf(factors, group.size, working.matrix.data());
  MultiplyScattered(group.size,
                    PlacesOf(group),
                    fValues.data(),
                    working.matrix.data(),
                    group.width,
                    working.v.data());
}

// Every leading group leaves its share of the reduced system, V^T V, and of the right-hand side
// there, V^T M n_i. Taking the share as a square keeps digits where P is nearly singular.
void BlockSystem::Eliminate() {
  fReduced.Clear();
  FillReduced();
  fReducedRhs.assign(fReduced.Unknowns() + kReadBeyond, 0.0);
  for (const std::uint32_t g : fTrailing)
    std::copy_n(fRhs.begin() + fGroups[g].start,
                fGroups[g].size,
                fReducedRhs.begin() + fReduced.Start(fGroups[g].trailing));
  ForEachLeader<Scaling::kRoot>(
      [this](const Group& group, const Working& working) {
        const double* v = working.v.data();
        SubtractShares(BlocksOf(group), v, v, fReduced.Values().data());
        GatherInto(group, fRhs.data() + group.start, working, fReducedRhs);
      },
      [](const Group&, const Working&) {});
}

double BlockSystem::Element(std::uint32_t row, std::uint32_t column) const {
  const std::uint32_t a = fGroupOf[row];
  const std::uint32_t b = fGroupOf[column];
  const std::size_t i = row - fGroups[a].start;
  const std::size_t j = column - fGroups[b].start;
  if (a == b) return fValues[fGroups[a].diagonal + i * fGroups[a].size + j];
  if (const LeadingRun* block = FindBlock(a, b)) return fValues[block->place + i * block->size + j];
  if (const LeadingRun* block = FindBlock(b, a)) return fValues[block->place + j * block->size + i];
  return 0.0;
}

void BlockSystem::DiagonalBlock(std::uint32_t first, std::uint32_t size, double* block) const {
  const Group& group = fGroups[fGroupOf[first]];
  if (group.start == first && group.size == size)
    std::copy_n(fValues.data() + group.diagonal, std::size_t{size} * size, block);
  else
    NormalSystem::DiagonalBlock(first, size, block);
}

void BlockSystem::FactorizeAndSolve(bool /*pivotSearch*/) {
  fHasCross = false;
  for (;;) {
    Eliminate();
    const std::uint32_t failed = fReduced.Factorize();
    if (failed == ReducedSystem::kNoBlock) break;
    fForcedRoot[fTrailing[failed]] = true;
    ArrangeReduced();
    ArrangePairs();
  }
  fReduced.Solve(fReducedRhs);
  fReduced.Invert();
  const std::span<const double> inverse = fReduced.Inverse();
  for (const std::uint32_t g : fTrailing) {
    const Group& group = fGroups[g];
    std::copy_n(fReducedRhs.begin() + fReduced.Start(group.trailing),
                group.size,
                fSolution.begin() + group.start);
    const ReducedSystem::Place own = fReduced.PlaceOf(group.trailing, group.trailing);
    for (std::size_t i = 0; i < group.size; ++i)
      fDiagonal[group.start + i] = inverse[own.offset + i * (own.rowStride + own.columnStride)];
  }
  const double* const q = inverse.data();
  if (fExpectsCross) {
    OpenCross();
    ForEachLeader<Scaling::kRoot>(
        [&](const Group& group, Working& working) {
          SolveLeading<Scaling::kRoot>(group,
                                       fReducedRhs,
                                       fRhs.data() + group.start,
                                       working,
                                       fSolution.data() + group.start);
          MultiplyByInverse(BlocksOf(group), working.v.data(), q, working.half.data());
        },
        [this](const Group& group, Working& working) { CrossOf(group, working); });
    fHasCross = true;
    return;
  }
  ForEachLeader<Scaling::kInverse>(
      [&](const Group& group, Working& working) {
        SolveLeading<Scaling::kInverse>(
            group, fReducedRhs, fRhs.data() + group.start, working, fSolution.data() + group.start);
        MultiplyByHalfInverse(BlocksOf(group), working.v.data(), q, working.half.data());
      },
      // The diagonal of P^-1 + U Q_rr U^T.
      [this](const Group& group, const Working& working) {
        double diagonal[kLargestLeading];
        for (std::size_t i = 0; i < group.size; ++i)
          diagonal[i] = working.matrix[i * group.size + i];
        SubtractDiagonalProducts(group.size,
                                 group.width,
                                 working.half.data(),
                                 working.v.data(),
                                 diagonal,
                                 fDiagonal.data() + group.start);
      });
}

// Q_ii = M^T (1 + V Q_rr V^T) M from half of the inner product.
void BlockSystem::CofactorsOf(const Group& group, const Working& working) {
  constexpr std::size_t kMost = std::size_t{kLargestLeading} * kLargestLeading;
  double identity[kMost] = {};
  for (std::size_t i = 0; i < group.size; ++i) identity[i * group.size + i] = 1.0;
  double inner[kMost];
  SubtractBothProducts(
      group.size, group.width, working.half.data(), working.v.data(), identity, inner);
  double* own = fOwnCofactors.data() + group.diagonal;
  Congruence(working.matrix.data(), group.size, inner, own);
  for (std::size_t i = 0; i < group.size; ++i) fDiagonal[group.start + i] = own[i * group.size + i];
}

void BlockSystem::InvertCofactors() {
  fNextForm = 0;
  if (fHasCross) return;
  OpenCross();
  ForEachLeader<Scaling::kRoot>(
      [this](const Group& group, Working& working) {
        MultiplyByInverse(
            BlocksOf(group), working.v.data(), fReduced.Inverse().data(), working.half.data());
      },
      [this](const Group& group, Working& working) { CrossOf(group, working); });
  fHasCross = true;
}

void BlockSystem::OpenCross() {
  // What stands before W is never touched, the rest is written whole before it is read, up to what
  // kernels read beyond it.
  if (fCross != nullptr) return;
  fCross = std::make_unique_for_overwrite<double[]>(fValues.size());
  std::fill_n(fCross.get() + fValues.size() - kReadBeyond, kReadBeyond, 0.0);
}

// Q_ir = -M^T V Q_rr from the product -V Q_rr, and Q_ii from it: forms of both, in which much
// cancels, keep more digits so.
void BlockSystem::CrossOf(const Group& group, Working& working) {
  const double* root = working.matrix.data();
  double transposed[kLargestLeading * kLargestLeading];
  for (std::size_t i = 0; i < group.size; ++i)
    for (std::size_t j = 0; j < group.size; ++j)
      transposed[i * group.size + j] = root[j * group.size + i];
  double* half = working.half.data();
  MultiplyIntoRuns(group.size, PlacesOf(group), fCross.get(), transposed, group.width, half);
  const std::size_t elements = std::size_t{group.size} * group.width;
  for (std::size_t k = 0; k < elements; ++k) half[k] *= 0.5;
  CofactorsOf(group, working);
}

void BlockSystem::FillReduced() {
  const std::span<double> reduced = fReduced.Values();
  for (const std::uint32_t g : fTrailing) {
    const Group& group = fGroups[g];
    const double* block = fValues.data() + group.diagonal;
    const ReducedSystem::Place own = fReduced.PlaceOf(group.trailing, group.trailing);
    const std::span<double> limits = fReduced.Limits(group.trailing);
    for (std::size_t i = 0; i < group.size; ++i) {
      limits[i] = kSmallestPivot * block[i * group.size + i];
      for (std::size_t j = 0; j < group.size; ++j)
        reduced[own.offset + i * own.rowStride + j * own.columnStride] += block[i * group.size + j];
    }
    for (std::uint32_t l = 0; l < group.links; ++l) {
      const LeadingRun& link = fPlaces[group.firstLink + l];
      const Pair& pair = fPairs[group.firstPair + l];
      // The pair's rows are the link's, its columns this group's, or the other way round.
      for (std::size_t i = 0; i < group.size; ++i)
        for (std::size_t j = 0; j < link.size; ++j)
          reduced[pair.offset + (pair.swapped ? j * pair.stride + i : i * pair.stride + j)] +=
              fValues[link.place + i * link.size + j];
    }
  }
}

LeadingBlocks BlockSystem::BlocksOf(const Group& group) const noexcept {
  return {group.size,
          group.joined,
          group.width,
          fJoined.data() + group.firstJoined,
          fPairs.data() + group.firstPair};
}

// reduced -= V^T M n_i
void BlockSystem::GatherInto(const Group& group,
                             const double* rhs,
                             const Working& working,
                             std::span<double> reduced) const {
  double scaled[kLargestLeading];
  MultiplyRoot(working.matrix.data(), group.size, rhs, scaled);
  SubtractCombined(BlocksOf(group), working.v.data(), scaled, reduced.data());
}

// By U: x_i = P^-1 n_i - U x_r with P^-1 = L^-T D^-1 L^-1.
// By V: x_i = L^-T (D^-1 L^-1 n_i - D^-1/2 V x_r).
// Both are without a root where nothing is coupled, so that a group that stands alone has its exact
// solution.
template <BlockSystem::Scaling kScaling>
void BlockSystem::SolveLeading(const Group& group,
                               std::span<const double> reduced,
                               const double* rhs,
                               const Working& working,
                               double* x) const {
  const std::size_t n = group.size;
  double dots[kLargestLeading];
  MultiplyVector(BlocksOf(group), working.v.data(), reduced.data(), dots);
  const double* factors = fFactors.data() + group.diagonal;
  double scaled[kLargestLeading];
  for (std::size_t k = 0; k < n; ++k) {
    double sum = rhs[k];
    for (std::size_t j = 0; j < k; ++j) sum += factors[k * n + j] * rhs[j];
    scaled[k] = factors[k * n + k] * sum;
    if constexpr (kScaling == Scaling::kRoot) scaled[k] -= working.matrix[k * n + k] * dots[k];
  }
  for (std::size_t i = 0; i < n; ++i) {
    double sum = scaled[i];
    for (std::size_t k = i + 1; k < n; ++k) sum += factors[k * n + i] * scaled[k];
    x[i] = kScaling == Scaling::kRoot ? sum : sum - dots[i];
  }
}

std::optional<BlockSystem::View> BlockSystem::ViewOf(std::uint32_t a, std::uint32_t b) const {
  if (!fArranged) return {};
  const Group& ga = fGroups[a];
  const Group& gb = fGroups[b];
  if (!ga.leads && !gb.leads) {
    if (!fReduced.HasPlace(ga.trailing, gb.trailing)) return {};
    const ReducedSystem::Place place = fReduced.PlaceOf(ga.trailing, gb.trailing);
    return View{fReduced.Inverse().data() + place.offset, place.rowStride, place.columnStride};
  }
  if (!fHasCross) return {};
  if (a == b) return View{fOwnCofactors.data() + ga.diagonal, ga.size, 1};
  if (ga.leads && gb.leads) return {};
  const LeadingRun* block = ga.leads ? FindBlock(a, b) : FindBlock(b, a);
  if (block == nullptr) return {};
  const double* from = fCross.get() + block->place;
  return ga.leads ? View{from, block->size, 1} : View{from, 1, block->size};
}

bool BlockSystem::BlockOf(std::uint32_t a, std::uint32_t b, double* block) const {
  const std::optional<View> view = ViewOf(a, b);
  if (!view) return false;
  for (std::uint32_t i = 0; i < fGroups[a].size; ++i)
    for (std::uint32_t j = 0; j < fGroups[b].size; ++j)
      *block++ = view->from[i * view->rowStride + j * view->columnStride];
  return true;
}

void BlockSystem::SolveColumn(std::uint32_t column, std::vector<double>& x) const {
  x.assign(fSize, 0.0);
  if (!fArranged) return;
  const Group& own = fGroups[fGroupOf[column]];
  std::vector<double> reduced(fReduced.Unknowns() + kReadBeyond);
  Working working;
  working.v.resize(fWorking[0].v.size());
  double unit[kLargestBlock] = {};
  unit[column - own.start] = 1.0;
  if (own.leads) {
    Scale<Scaling::kRoot>(own, working);
    GatherInto(own, unit, working, reduced);
  } else {
    reduced[fReduced.Start(own.trailing) + column - own.start] = 1.0;
  }
  fReduced.Solve(reduced);
  constexpr double kZeros[kLargestBlock] = {};
  for (const Group& group : fGroups) {
    double* solution = x.data() + group.start;
    if (group.leads) {
      Scale<Scaling::kInverse>(group, working);
      SolveLeading<Scaling::kInverse>(
          group, reduced, &group == &own ? unit : kZeros, working, solution);
    } else {
      std::copy_n(reduced.begin() + fReduced.Start(group.trailing), group.size, solution);
    }
  }
}

double BlockSystem::Cofactor(std::uint32_t row, std::uint32_t column) const {
  const std::uint32_t a = fGroupOf[row];
  const std::uint32_t b = fGroupOf[column];
  if (const std::optional<View> view = ViewOf(a, b))
    return view->from[(row - fGroups[a].start) * view->rowStride +
                      (column - fGroups[b].start) * view->columnStride];
  std::vector<double> x;
  SolveColumn(column, x);
  return x[row];
}

void BlockSystem::CofactorBlock(ostra_bundle::Matrix& target,
                                std::uint32_t firstRow,
                                std::uint32_t rows,
                                std::uint32_t firstColumn,
                                std::uint32_t columns) const {
  target.Resize(rows, columns);
  target.Detach();
  std::vector<double> block;
  std::vector<double> x;
  for (std::uint32_t c = 0; c < columns; ++c) {
    const std::uint32_t column = firstColumn + c;
    const std::uint32_t b = fGroupOf[column];
    bool hasColumn = false;
    std::uint32_t blockOf = kNone;
    for (std::uint32_t r = 0; r < rows; ++r) {
      const std::uint32_t row = firstRow + r;
      const std::uint32_t a = fGroupOf[row];
      if (a != blockOf && !hasColumn) {
        block.resize(std::size_t{fGroups[a].size} * fGroups[b].size);
        if (BlockOf(a, b, block.data())) {
          blockOf = a;
        } else {
          SolveColumn(column, x);
          hasColumn = true;
        }
      }
      target.At(r, c) = hasColumn ? x[row]
                                  : block[(row - fGroups[a].start) * std::size_t{fGroups[b].size} +
                                          column - fGroups[b].start];
    }
  }
}

}  // namespace vermo
