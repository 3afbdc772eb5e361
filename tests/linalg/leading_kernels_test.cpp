#include "linalg/leading_kernels.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace vermo {
namespace {

using dense::Variant;

constexpr Variant kVariants[] = {Variant::Portable, Variant::Avx2, Variant::Avx512};
// What stands behind a block.
constexpr double kBeyond = 1e300;
// Rounding of a few dozen terms of size 1.
constexpr double kRounding = 1e-14;

class Draw {
 public:
  explicit Draw(std::uint64_t seed) : fGenerator(seed) {}
  double Uniform() { return static_cast<double>(fGenerator() >> 11U) * 0x1p-52 - 1.0; }
  std::uint32_t Below(std::uint32_t n) { return static_cast<std::uint32_t>(fGenerator() % n); }
  // With as much behind it as the kernels may read; what they make of it must not show.
  std::vector<double> Block(std::size_t elements) {
    std::vector<double> block(elements + kReadBeyond, kBeyond);
    for (std::size_t i = 0; i < elements; ++i) block[i] = Uniform();
    return block;
  }

 private:
  std::mt19937_64 fGenerator;
};

std::vector<double> Zeros(std::size_t elements) {
  std::vector<double> block(elements + kReadBeyond, kBeyond);
  std::fill_n(block.begin(), elements, 0.0);
  return block;
}

void ExpectNear(const std::vector<double>& a, const std::vector<double>& b, const char* what) {
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], kRounding) << what << ' ' << i;
}

void ExpectSameBits(const std::vector<double>& a, const std::vector<double>& b, const char* what) {
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); ++i)
    ASSERT_EQ(std::bit_cast<std::uint64_t>(a[i]), std::bit_cast<std::uint64_t>(b[i]))
        << what << ' ' << i;
}

// Runs every variant on copies of the target: near what is expected, and the same bits every time.
template <typename Run>
void ExpectAlike(const std::vector<double>& before,
                 const std::vector<double>& expected,
                 const char* what,
                 Run run) {
  for (const Variant variant : kVariants) {
    if (!dense::IsAvailable(variant)) continue;
    std::vector<double> result = before;
    run(variant, result.data());
    ASSERT_NO_FATAL_FAILURE(ExpectNear(result, expected, what));
    std::vector<double> again = before;
    run(variant, again.data());
    ASSERT_NO_FATAL_FAILURE(ExpectSameBits(again, result, what));
  }
}

// Sizes of runs are 1 to kLargest. The first two lists together hold each of them, so that every
// kernel meets every remainder alone and behind a whole piece; the others are drawn.
constexpr std::uint32_t kLargest = 16;
constexpr std::uint32_t kWholeLists = 2;
std::vector<std::uint32_t> SizesOf(std::uint32_t list, std::uint32_t drawn, Draw& draw) {
  switch (list) {
    case 0:
      return {1, 2, 3, 4, 5, 6, 7, 8};
    case 1:
      return {16, 15, 14, 13, 12, 11, 10, 9};
    default:
      std::vector<std::uint32_t> sizes(drawn);
      for (std::uint32_t& size : sizes) size = 1 + draw.Below(kLargest);
      return sizes;
  }
}

// Links and places of their pairs in a matrix where every pair of links has one block, some of them
// turned.
struct Layout {
  static constexpr std::uint32_t kLists = 12;

  std::vector<LeadingRun> links;
  std::vector<LeadingPair> pairs;
  std::uint32_t width = 0;
  std::size_t elements = 0;

  Layout(std::uint32_t list, Draw& draw) {
    for (const std::uint32_t size : SizesOf(list, list - kWholeLists, draw)) {
      links.push_back({0, width, size});
      width += size;
    }
    for (std::uint32_t a = 0; a < links.size(); ++a)
      for (std::uint32_t b = 0; b <= a; ++b) {
        const bool isTurned = list < kWholeLists ? (a + b) % 2 == 1 : a != b && draw.Below(2) == 0;
        const LeadingRun& rows = links[isTurned ? b : a];
        const LeadingRun& columns = links[isTurned ? a : b];
        const std::uint32_t stride = rows.size + draw.Below(4);
        pairs.push_back({elements, stride, isTurned});
        elements += std::size_t{stride} * columns.size;
      }
  }

  [[nodiscard]] LeadingBlocks Blocks(std::uint32_t n) const {
    return {n, static_cast<std::uint32_t>(links.size()), width, links.data(), pairs.data()};
  }
  // Calls visit with the place of each element of each pair and its two columns; the second one
  // belongs to the columns of the place.
  template <typename Visit>
  void ForEach(Visit visit) const {
    const LeadingPair* pair = pairs.data();
    for (std::size_t a = 0; a < links.size(); ++a)
      for (std::size_t b = 0; b <= a; ++b, ++pair) {
        const LeadingRun& rows = links[pair->swapped ? b : a];
        const LeadingRun& columns = links[pair->swapped ? a : b];
        for (std::uint32_t j = 0; j < columns.size; ++j)
          for (std::uint32_t i = 0; i < rows.size; ++i)
            visit(pair->offset + i + std::size_t{j} * pair->stride,
                  rows.first + i,
                  columns.first + j,
                  a == b);
      }
  }
};

// Q at the places of all pairs, and as a full matrix.
std::vector<double> DrawInverse(const Layout& layout, Draw& draw, std::vector<double>& full) {
  std::vector<double> q = draw.Block(layout.elements);
  full.assign(std::size_t{layout.width} * layout.width, 0.0);
  // Diagonal blocks are symmetric.
  layout.ForEach([&](std::size_t place, std::uint32_t row, std::uint32_t column, bool isOwn) {
    if (isOwn && row > column) q[place] = full[std::size_t{column} * layout.width + row];
    full[std::size_t{row} * layout.width + column] = q[place];
    full[std::size_t{column} * layout.width + row] = q[place];
  });
  layout.ForEach([&](std::size_t place, std::uint32_t row, std::uint32_t column, bool) {
    q[place] = full[std::size_t{row} * layout.width + column];
  });
  return q;
}

// Columns cut into runs, and where each of them has its block.
struct Runs {
  static constexpr std::uint32_t kLists = 40;

  std::vector<LeadingRun> runs;
  std::uint32_t width = 0;
  std::size_t elements = 0;  // of all blocks of n rows

  Runs(std::uint32_t n, std::uint32_t list, Draw& draw) {
    for (const std::uint32_t size : SizesOf(list, draw.Below(8), draw)) {
      runs.push_back({0, width, size});
      width += size;
    }
    // The places have an order of their own.
    for (auto run = runs.rbegin(); run != runs.rend(); ++run) {
      run->place = elements;
      elements += std::size_t{n} * run->size;
    }
  }

  // As links of a group of `rows` unknowns.
  [[nodiscard]] LeadingBlocks Links(std::uint32_t rows) const {
    return {rows, static_cast<std::uint32_t>(runs.size()), width, runs.data(), nullptr};
  }
};

// Blocks anywhere between `width` columns, for each count of columns first.
constexpr std::uint32_t kBlockLists = 60;
template <typename Block>
std::vector<Block> DrawBlocks(std::uint32_t list, std::uint32_t width, Draw& draw) {
  std::vector<Block> blocks(list == 0 ? kLargest : draw.Below(6));
  const auto place = [&](std::uint32_t& first, std::uint32_t& size, std::uint32_t wanted) {
    first = draw.Below(wanted == 0 ? width : width - wanted + 1);
    size = wanted == 0 ? 1 + draw.Below(std::min(kLargest, width - first)) : wanted;
  };
  for (std::uint32_t k = 0; k < blocks.size(); ++k) {
    place(blocks[k].firstRow, blocks[k].rows, 0);
    place(blocks[k].firstColumn, blocks[k].columns, list == 0 ? 1 + k : 0);
    blocks[k].stride = blocks[k].columns + draw.Below(5);
  }
  return blocks;
}

TEST(LeadingKernels, ScatteredBlocksAreMultipliedIntoOne) {
  Draw draw(1);
  for (std::uint32_t n = 1; n <= 6; ++n)
    for (std::uint32_t list = 0; list < Runs::kLists; ++list) {
      const Runs runs(n, list, draw);
      const std::size_t width = runs.width;
      const std::vector<double> matrix = draw.Block(std::size_t{n} * n);
      const std::vector<double> w = draw.Block(runs.elements);
      const std::vector<double> before = draw.Block(n * width);
      std::vector<double> expected = Zeros(n * width);
      for (const LeadingRun& run : runs.runs)
        for (std::uint32_t i = 0; i < n; ++i)
          for (std::uint32_t c = 0; c < run.size; ++c)
            for (std::uint32_t k = 0; k < n; ++k)
              expected[i * width + run.first + c] +=
                  matrix[i * n + k] * w[run.place + std::size_t{k} * run.size + c];
      ExpectAlike(before, expected, "MultiplyScattered", [&](Variant variant, double* y) {
        MultiplyScattered(n, runs.runs, w.data(), matrix.data(), width, y, variant);
      });
      std::vector<double> best = before;
      MultiplyScattered(n, runs.runs, w.data(), matrix.data(), width, best.data());
      ExpectNear(best, expected, "MultiplyScattered");
    }
}

TEST(LeadingKernels, AProductGoesRunByRunToItsPlaces) {
  Draw draw(5);
  for (std::uint32_t n = 1; n <= 6; ++n)
    for (std::uint32_t list = 0; list < Runs::kLists; ++list) {
      const Runs runs(n, list, draw);
      const std::size_t width = runs.width;
      const std::vector<double> matrix = draw.Block(std::size_t{n} * n);
      const std::vector<double> y = draw.Block(n * width);
      const std::vector<double> before = draw.Block(runs.elements);
      std::vector<double> expected = Zeros(runs.elements);
      for (const LeadingRun& run : runs.runs)
        for (std::uint32_t i = 0; i < n; ++i)
          for (std::uint32_t c = 0; c < run.size; ++c)
            for (std::uint32_t k = 0; k < n; ++k)
              expected[run.place + std::size_t{i} * run.size + c] +=
                  matrix[i * n + k] * y[k * width + run.first + c];
      ExpectAlike(before, expected, "MultiplyIntoRuns", [&](Variant variant, double* to) {
        MultiplyIntoRuns(n, runs.runs, to, matrix.data(), width, y.data(), variant);
      });
      std::vector<double> best = before;
      MultiplyIntoRuns(n, runs.runs, best.data(), matrix.data(), width, y.data());
      ExpectNear(best, expected, "MultiplyIntoRuns");
    }
}

TEST(LeadingKernels, ACombinationOfRowsIsSubtractedAtThePlacesOfTheRuns) {
  Draw draw(6);
  for (std::uint32_t n = 1; n <= 6; ++n)
    for (std::uint32_t list = 0; list < Runs::kLists; ++list) {
      const Runs runs(1, list, draw);
      const std::size_t width = runs.width;
      const std::vector<double> y = draw.Block(n * width);
      const std::vector<double> factors = draw.Block(n);
      const std::vector<double> before = draw.Block(runs.elements);
      std::vector<double> expected = before;
      for (const LeadingRun& run : runs.runs)
        for (std::uint32_t c = 0; c < run.size; ++c)
          for (std::uint32_t i = 0; i < n; ++i)
            expected[run.place + c] -= factors[i] * y[i * width + run.first + c];
      ExpectAlike(before, expected, "SubtractCombined", [&](Variant variant, double* to) {
        SubtractCombined(runs.Links(n), y.data(), factors.data(), to, variant);
      });
      std::vector<double> best = before;
      SubtractCombined(runs.Links(n), y.data(), factors.data(), best.data());
      ExpectNear(best, expected, "SubtractCombined");
    }
}

TEST(LeadingKernels, RowsTimesAVectorInPiecesAreTheDotProducts) {
  Draw draw(7);
  for (std::uint32_t n = 1; n <= 6; ++n)
    for (std::uint32_t list = 0; list < Runs::kLists; ++list) {
      const Runs runs(1, list, draw);
      const std::size_t width = runs.width;
      const std::vector<double> y = draw.Block(n * width);
      std::vector<double> x = draw.Block(runs.elements);
      const std::vector<double> before = draw.Block(n);
      std::vector<double> expected = Zeros(n);
      for (const LeadingRun& run : runs.runs)
        for (std::uint32_t i = 0; i < n; ++i)
          for (std::uint32_t c = 0; c < run.size; ++c)
            expected[i] += y[i * width + run.first + c] * x[run.place + c];
      ExpectAlike(before, expected, "MultiplyVector", [&](Variant variant, double* dots) {
        MultiplyVector(runs.Links(n), y.data(), x.data(), dots, variant);
      });
      std::vector<double> best = before;
      MultiplyVector(runs.Links(n), y.data(), x.data(), best.data());
      ExpectNear(best, expected, "MultiplyVector");
    }
}

TEST(LeadingKernels, ARayAddsToTheBlocksOfItsLeadingGroupOnly) {
  Draw draw(8);
  for (std::uint32_t n = 1; n <= 6; ++n)
    for (std::uint32_t components = 1; components <= 3; ++components)
      for (std::uint32_t repeat = 0; repeat < 20; ++repeat) {
        struct Other {
          std::uint32_t first, size;
          std::size_t offset;
        };
        // The leading group's columns stand before, between or behind the others'.
        // First each size once, then drawn ones.
        constexpr std::uint32_t kMost = LeadingProducts::kMostCouplings;
        const bool isWhole = repeat * kMost < kLargest;
        const std::uint32_t count = isWhole ? kMost : draw.Below(kMost + 1);
        const std::uint32_t place = draw.Below(count + 1);
        std::vector<Other> others;
        std::uint32_t width = 0;
        std::uint32_t lead = 0;
        // Own block, right-hand side, couplings.
        std::size_t elements = std::size_t{n} * n + n;
        for (std::uint32_t k = 0; k <= count; ++k) {
          if (k == place) {
            lead = width;
            width += n;
          }
          if (k == count) break;
          const std::uint32_t size =
              1 + (isWhole ? repeat * kMost + k : draw.Below(kLargest)) % kLargest;
          others.push_back({width, size, elements});
          width += size;
          elements += std::size_t{n} * size;
        }
        const std::vector<double> a = draw.Block(components * std::size_t{width});
        const std::vector<double> weights = draw.Block(components);
        const std::vector<double> misclosures = draw.Block(components);
        const ProductRows rows{components, a.data(), width, weights.data()};
        const std::vector<double> before = draw.Block(elements);
        std::vector<double> expected = before;
        for (std::uint32_t r = 0; r < components; ++r) {
          const double* row = a.data() + r * std::size_t{width};
          for (std::uint32_t p = 0; p < n; ++p) {
            const double weighted = weights[r] * row[lead + p];
            for (std::uint32_t q = 0; q < n; ++q) expected[p * n + q] += weighted * row[lead + q];
            expected[std::size_t{n} * n + p] += weighted * misclosures[r];
            for (const Other& other : others)
              for (std::uint32_t q = 0; q < other.size; ++q)
                expected[other.offset + std::size_t{p} * other.size + q] +=
                    weighted * row[other.first + q];
          }
        }
        const auto productsAt = [&](double* to) {
          LeadingProducts products{n, lead, to, to + std::size_t{n} * n, count, {}};
          for (std::uint32_t k = 0; k < count; ++k)
            products.coupling[k] = {to + others[k].offset, others[k].first, others[k].size};
          return products;
        };
        ExpectAlike(before, expected, "AddToLeading", [&](Variant variant, double* to) {
          AddToLeading(productsAt(to), rows, misclosures.data(), variant);
        });
        std::vector<double> best = before;
        AddToLeading(productsAt(best.data()), rows, misclosures.data());
        ExpectNear(best, expected, "AddToLeading");
      }
}

TEST(LeadingKernels, GatheredRowsGiveTheirNormalsOnAndBelowTheDiagonal) {
  Draw draw(9);
  constexpr std::size_t kStride = GatheredRows::kStride;
  for (std::uint32_t width = 1; width <= GatheredRows::kMostColumns; ++width)
    for (const std::uint32_t count : {1U, 2U, 7U, GatheredRows::kMost}) {
      GatheredRows rows;
      rows.a.fill(kBeyond);
      rows.count = count;
      rows.width = width;
      std::vector<double> expected = Zeros(std::size_t{width} * width);
      for (std::uint32_t k = 0; k < count; ++k) {
        double* row = rows.a.data() + k * kStride;
        rows.weights[k] = draw.Uniform();
        for (std::uint32_t c = 0; c < width; ++c) row[c] = draw.Uniform();
        for (std::uint32_t p = 0; p < width; ++p)
          for (std::uint32_t q = 0; q <= p; ++q)
            expected[p * width + q] += rows.weights[k] * row[p] * row[q];
      }
      const auto take = [&](GatheredRows& from, double* to) {
        for (std::uint32_t p = 0; p < width; ++p)
          for (std::uint32_t q = 0; q <= p; ++q) to[p * width + q] = from.normals[p * kStride + q];
      };
      const std::vector<double> before = Zeros(std::size_t{width} * width);
      ExpectAlike(before, expected, "ComputeNormals", [&](Variant variant, double* to) {
        ComputeNormals(rows, variant);
        take(rows, to);
      });
      std::vector<double> best = before;
      ComputeNormals(rows);
      take(rows, best.data());
      ExpectNear(best, expected, "ComputeNormals");
    }
}

TEST(LeadingKernels, SharesLeaveEveryPairAtItsPlace) {
  Draw draw(2);
  for (std::uint32_t n = 1; n <= 6; ++n)
    for (std::uint32_t list = 0; list < Layout::kLists; ++list) {
      const Layout layout(list, draw);
      const std::size_t width = layout.width;
      // W^T Y is symmetric: Y = P^-1 W. So the kernel may take either side of a pair.
      const std::vector<double> w = draw.Block(n * width);
      std::vector<double> p = draw.Block(std::size_t{n} * n);
      for (std::uint32_t i = 0; i < n; ++i)
        for (std::uint32_t k = 0; k < i; ++k) p[i * n + k] = p[k * n + i];
      std::vector<double> y = Zeros(n * width);
      for (std::uint32_t i = 0; i < n; ++i)
        for (std::uint32_t k = 0; k < n; ++k)
          for (std::size_t c = 0; c < width; ++c)
            y[i * width + c] += p[i * n + k] * w[k * width + c];
      const std::vector<double> before = draw.Block(layout.elements);
      std::vector<double> expected = before;
      layout.ForEach([&](std::size_t place, std::uint32_t row, std::uint32_t column, bool) {
        for (std::uint32_t r = 0; r < n; ++r)
          expected[place] -= w[r * width + row] * y[r * width + column];
      });
      ExpectAlike(before, expected, "SubtractShares", [&](Variant variant, double* reduced) {
        SubtractShares(layout.Blocks(n), w.data(), y.data(), reduced, variant);
      });
      std::vector<double> best = before;
      SubtractShares(layout.Blocks(n), w.data(), y.data(), best.data());
      ExpectNear(best, expected, "SubtractShares");
    }
}

TEST(LeadingKernels, MultiplyByInverseReadsEveryPairBothWays) {
  Draw draw(3);
  for (std::uint32_t n = 1; n <= 6; ++n)
    for (std::uint32_t list = 0; list < Layout::kLists; ++list) {
      const Layout layout(list, draw);
      const std::size_t width = layout.width;
      std::vector<double> full;
      const std::vector<double> q = DrawInverse(layout, draw, full);
      const std::vector<double> y = draw.Block(n * width);
      const std::vector<double> before = draw.Block(n * width);
      std::vector<double> expected = Zeros(n * width);
      for (std::uint32_t r = 0; r < n; ++r)
        for (std::size_t c = 0; c < width; ++c)
          for (std::size_t k = 0; k < width; ++k)
            expected[r * width + c] -= y[r * width + k] * full[k * width + c];
      ExpectAlike(before, expected, "MultiplyByInverse", [&](Variant variant, double* cross) {
        MultiplyByInverse(layout.Blocks(n), y.data(), q.data(), cross, variant);
      });
      std::vector<double> best = before;
      MultiplyByInverse(layout.Blocks(n), y.data(), q.data(), best.data());
      ExpectNear(best, expected, "MultiplyByInverse");
    }
}

TEST(LeadingKernels, HalfAndItsTransposeMakeTheWholeForm) {
  Draw draw(5);
  for (std::uint32_t n = 1; n <= 6; ++n)
    for (std::uint32_t list = 0; list < Layout::kLists; ++list) {
      const Layout layout(list, draw);
      const std::size_t width = layout.width;
      std::vector<double> full;
      const std::vector<double> q = DrawInverse(layout, draw, full);
      const std::vector<double> y = draw.Block(n * width);
      const std::vector<double> block = draw.Block(std::size_t{n} * n);
      // Y Q Y^T
      std::vector<double> expected(std::size_t{n} * n, 0.0);
      for (std::uint32_t i = 0; i < n; ++i)
        for (std::uint32_t k = 0; k < n; ++k) {
          expected[i * n + k] = k <= i ? block[i * n + k] : block[k * n + i];
          for (std::size_t c = 0; c < width; ++c)
            for (std::size_t d = 0; d < width; ++d)
              expected[i * n + k] += y[i * width + c] * full[c * width + d] * y[k * width + d];
        }
      for (const Variant variant : kVariants) {
        if (!dense::IsAvailable(variant)) continue;
        std::vector<double> half = draw.Block(n * width);
        MultiplyByHalfInverse(layout.Blocks(n), y.data(), q.data(), half.data(), variant);
        for (std::size_t i = n * width; i < half.size(); ++i) ASSERT_EQ(half[i], kBeyond);
        std::vector<double> own(std::size_t{n} * n);
        SubtractBothProducts(n, width, half.data(), y.data(), block.data(), own.data(), variant);
        for (std::size_t i = 0; i < own.size(); ++i)
          ASSERT_NEAR(own[i], expected[i], 1e-12 * static_cast<double>(1 + width)) << n << ' ' << i;
        std::vector<double> again = draw.Block(n * width);
        MultiplyByHalfInverse(layout.Blocks(n), y.data(), q.data(), again.data(), variant);
        ExpectSameBits(again, half, "MultiplyByHalfInverse");
        std::vector<double> ownAgain(own.size());
        SubtractBothProducts(
            n, width, again.data(), y.data(), block.data(), ownAgain.data(), variant);
        ExpectSameBits(ownAgain, own, "SubtractBothProducts");
        std::vector<double> diagonal(n);
        std::vector<double> blockDiagonal(n);
        for (std::size_t i = 0; i < n; ++i) blockDiagonal[i] = block[i * n + i];
        SubtractDiagonalProducts(
            n, width, half.data(), y.data(), blockDiagonal.data(), diagonal.data(), variant);
        for (std::size_t i = 0; i < n; ++i)
          ASSERT_NEAR(diagonal[i], expected[i * n + i], 1e-12 * static_cast<double>(1 + width))
              << n << ' ' << i;
        std::vector<double> diagonalAgain(n);
        SubtractDiagonalProducts(
            n, width, half.data(), y.data(), blockDiagonal.data(), diagonalAgain.data(), variant);
        ExpectSameBits(diagonalAgain, diagonal, "SubtractDiagonalProducts");
      }
    }
}

TEST(LeadingKernels, FormsAreThoseOfTheWholeMatrix) {
  Draw draw(6);
  for (std::uint32_t components = 1; components <= 3; ++components)
    for (std::uint32_t list = 0; list < kBlockLists; ++list) {
      const std::uint32_t width = kLargest * (list == 0 ? 1 : 0) + 1 + draw.Below(60);
      const std::vector<double> a = draw.Block(components * width);
      std::vector<FormBlock> blocks;
      std::vector<std::vector<double>> values;
      std::vector<double> expected(components, 0.0);
      for (FormBlock& block : DrawBlocks<FormBlock>(list, width, draw)) {
        block.factor = 1.0 + draw.Below(2);
        values.push_back(draw.Block(block.rows * block.stride));
        block.from = values.back().data();
        blocks.push_back(block);
        for (std::uint32_t p = 0; p < block.rows; ++p)
          for (std::uint32_t q = 0; q < block.columns; ++q)
            for (std::uint32_t r = 0; r < components; ++r)
              expected[r] += block.factor * block.from[p * block.stride + q] *
                             a[r * width + block.firstRow + p] *
                             a[r * width + block.firstColumn + q];
      }
      for (const Variant variant : kVariants) {
        if (!dense::IsAvailable(variant)) continue;
        std::vector<double> forms(components);
        ComputeForms(blocks, components, a.data(), width, forms.data(), variant);
        for (std::uint32_t r = 0; r < components; ++r) ASSERT_NEAR(forms[r], expected[r], 1e-12);
        std::vector<double> again(components);
        ComputeForms(blocks, components, a.data(), width, again.data(), variant);
        ExpectSameBits(again, forms, "ComputeForms");
      }
    }
}

TEST(LeadingKernels, ProductsOfAnObservationGoToTheirBlocksOnly) {
  Draw draw(4);
  for (std::uint32_t components = 1; components <= 3; ++components)
    for (std::uint32_t list = 0; list < kBlockLists; ++list) {
      const std::uint32_t width = kLargest * (list == 0 ? 1 : 0) + 1 + draw.Below(60);
      const std::vector<double> a = draw.Block(components * width);
      const std::vector<double> weights = draw.Block(components);
      const ProductRows rows{components, a.data(), width, weights.data()};
      struct Target {
        std::size_t offset;
        ProductBlock block;
      };
      std::vector<Target> targets;
      std::size_t elements = 0;
      for (const ProductBlock& block : DrawBlocks<ProductBlock>(list, width, draw)) {
        targets.push_back({elements, block});
        elements += block.rows * block.stride;
      }
      const std::vector<double> before = draw.Block(elements);
      std::vector<double> expected = before;
      for (const auto& [offset, block] : targets)
        for (std::uint32_t p = 0; p < block.rows; ++p)
          for (std::uint32_t q = 0; q < block.columns; ++q)
            for (std::uint32_t r = 0; r < components; ++r)
              expected[offset + p * block.stride + q] += weights[r] *
                                                         a[r * width + block.firstRow + p] *
                                                         a[r * width + block.firstColumn + q];
      const auto blocksAt = [&](double* to) {
        std::vector<ProductBlock> blocks;
        for (const auto& [offset, block] : targets) {
          blocks.push_back(block);
          blocks.back().to = to + offset;
        }
        return blocks;
      };
      ExpectAlike(before, expected, "AddProducts", [&](Variant variant, double* to) {
        AddProducts(blocksAt(to), rows, variant);
      });
      std::vector<double> best = before;
      AddProducts(blocksAt(best.data()), rows);
      ExpectNear(best, expected, "AddProducts");
    }
}

}  // namespace
}  // namespace vermo
