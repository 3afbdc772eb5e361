#pragma once

#include "linalg/dense_kernels.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace vermo {

// What the engine on blocks does for every observation and for every leading group, in the widest
// vector code of the machine. Variants differ by rounding only: those with vectors fuse products
// and sums.

// What one leading group does to the reduced system and takes from it. The group has n unknowns (at
// most 6) and links to trailing groups; W, Y and Q_ir are blocks of n rows by `width` columns, by
// rows, and a link owns a run of the columns.
struct LeadingRun {
  std::size_t place;    // of what belongs to the run somewhere else: its first element there
  std::uint32_t first;  // column
  std::uint32_t size;
};

// The place of the pair (a, b) of links, a >= b, in the reduced system: element (i, j) of the link
// that gives the rows and of the one that gives the columns stands at offset + i + j stride. Pairs
// come in the order (0, 0), (1, 0), (1, 1), (2, 0) ...
struct LeadingPair {
  std::size_t offset;
  std::uint32_t stride;
  bool swapped;  // b gives the rows
};

struct LeadingBlocks {
  std::uint32_t n;
  std::uint32_t links;
  std::size_t width;
  const LeadingRun* link;
  const LeadingPair* pair;
};

// Blocks of all operations must be readable for so many doubles beyond their ends; nothing is
// written there. A variant is given by tests only; without it the machine's best one runs.
inline constexpr std::size_t kReadBeyond = 4;

// y = M w for the w of n rows of `width` columns whose runs stand as blocks of their own, by rows,
// at their places behind `blocks`.
void MultiplyScattered(std::uint32_t n,
                       std::span<const LeadingRun> runs,
                       const double* blocks,
                       const double* matrix,
                       std::size_t width,
                       double* y,
                       std::optional<dense::Variant> variant = {});

// The product M y of n rows of `width` columns, run by run: each one by rows at its place behind
// `blocks`.
void MultiplyIntoRuns(std::uint32_t n,
                      std::span<const LeadingRun> runs,
                      double* blocks,
                      const double* matrix,
                      std::size_t width,
                      const double* y,
                      std::optional<dense::Variant> variant = {});

// x(c) -= sum over i of factors(i) y(i, c), with x at the places of the links.
void SubtractCombined(const LeadingBlocks& blocks,
                      const double* y,
                      const double* factors,
                      double* x,
                      std::optional<dense::Variant> variant = {});

// dots(i) = sum over c of y(i, c) x(c), with x at the places of the links.
void MultiplyVector(const LeadingBlocks& blocks,
                    const double* y,
                    const double* x,
                    double* dots,
                    std::optional<dense::Variant> variant = {});

// reduced -= W^T Y at the places of all pairs.
void SubtractShares(const LeadingBlocks& blocks,
                    const double* w,
                    const double* y,
                    double* reduced,
                    std::optional<dense::Variant> variant = {});

// cross = -Y Q with Q read at the places of all pairs.
void MultiplyByInverse(const LeadingBlocks& blocks,
                       const double* y,
                       const double* inverse,
                       double* cross,
                       std::optional<dense::Variant> variant = {});

// half = -Y H with H + H^T = Q, which reads every pair one way: -Y Q Y^T = half Y^T + Y half^T.
void MultiplyByHalfInverse(const LeadingBlocks& blocks,
                           const double* y,
                           const double* inverse,
                           double* half,
                           std::optional<dense::Variant> variant = {});

// own = block - half Y^T - Y half^T, symmetric, n by n.
void SubtractBothProducts(std::uint32_t n,
                          std::size_t width,
                          const double* half,
                          const double* y,
                          const double* block,
                          double* own,
                          std::optional<dense::Variant> variant = {});

// own(i) = diagonal(i) - 2 half(i) y(i)^T: the diagonal of the same alone.
void SubtractDiagonalProducts(std::uint32_t n,
                              std::size_t width,
                              const double* half,
                              const double* y,
                              const double* diagonal,
                              double* own,
                              std::optional<dense::Variant> variant = {});

// One block that an observation adds to, by rows: the run of its columns that gives the rows and
// the one that gives the columns.
struct ProductBlock {
  double* to;
  std::size_t stride;
  std::uint32_t firstRow;
  std::uint32_t rows;
  std::uint32_t firstColumn;
  std::uint32_t columns;
};

// An observation of up to three components r: rows a(r) of the design matrix, `stride` from row to
// row, and weights.
struct ProductRows {
  std::uint32_t components;
  const double* a;
  std::size_t stride;
  const double* weights;
};

// to(p, q) += sum over r of weight(r) a(r, p) a(r, q)
void AddProducts(std::span<const ProductBlock> blocks,
                 const ProductRows& rows,
                 std::optional<dense::Variant> variant = {});

// The blocks of one leading group of n unknowns that an observation adds to, by rows: its own, n by
// n, and its couplings with up to kMostCouplings other groups, n by the other's size.
struct LeadingProducts {
  static constexpr std::uint32_t kMostCouplings = 3;
  struct Coupling {
    double* to;
    std::uint32_t first;  // of the group's run of columns
    std::uint32_t size;
  };

  std::uint32_t n;
  std::uint32_t first;  // of its run of columns
  double* own;
  double* rhs;
  std::uint32_t couplings;
  std::array<Coupling, kMostCouplings> coupling;
};

// own += sum over r of weight(r) a(r) a(r)^T, the couplings likewise, and
// rhs += sum over r of weight(r) a(r) misclosure(r)
void AddToLeading(const LeadingProducts& products,
                  const ProductRows& rows,
                  const double* misclosures,
                  std::optional<dense::Variant> variant = {});

// The equations of several observations one below the other: `count` rows of `width` columns, and
// what they add up to: normals(p, q) = sum over k of weight(k) a(k, p) a(k, q) for q <= p. What
// stands elsewhere in the first rows of `normals` is undefined; of `a` as many columns are read.
struct GatheredRows {
  static constexpr std::uint32_t kMost = 64;
  static constexpr std::uint32_t kMostColumns = 32;
  static constexpr std::uint32_t kStride = 40;

  std::uint32_t count = 0;
  std::uint32_t width = 0;
  std::array<double, kMost> weights{};
  std::array<double, std::size_t{kMost} * kStride> a{};
  std::array<double, std::size_t{kStride} * kStride> normals{};
};
void ComputeNormals(GatheredRows& rows, std::optional<dense::Variant> variant = {});

// A block of the cofactors, by rows, for two runs of an observation's columns.
struct FormBlock {
  const double* from;
  std::size_t stride;
  std::uint32_t firstRow;
  std::uint32_t rows;
  std::uint32_t firstColumn;
  std::uint32_t columns;
  double factor;  // 2 for a block that stands for its transpose as well
};

// forms(r) = sum over the blocks of factor * a(r, rows) block a(r, columns)^T, for up to three
// components r.
void ComputeForms(std::span<const FormBlock> blocks,
                  std::uint32_t components,
                  const double* a,
                  std::size_t width,
                  double* forms,
                  std::optional<dense::Variant> variant = {});

}  // namespace vermo
