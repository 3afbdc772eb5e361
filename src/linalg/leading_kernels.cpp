#include "linalg/leading_kernels.h"

#include <algorithm>
#include <initializer_list>

namespace vermo {
namespace {

using dense::Variant;

// N doubles side by side.
template <std::uint32_t N>
struct Lanes {
  typedef double Type
      __attribute__((vector_size(N * sizeof(double)), aligned(alignof(double)), may_alias));
};
template <std::uint32_t N>
using LanesOf = typename Lanes<N>::Type;

// The unknowns of a link are taken in pieces of a size that the compiler knows. Pieces are
// independent: a result does not depend on how they are cut.
template <typename Piece>
[[gnu::always_inline]] inline void InPieces(std::uint32_t size, Piece piece) {
  std::uint32_t first = 0;
  for (; size - first >= 8; first += 8) piece.template operator()<8>(first);
  if (size - first >= 4) {
    piece.template operator()<4>(first);
    first += 4;
  }
  if (size - first >= 2) {
    piece.template operator()<2>(first);
    first += 2;
  }
  if (size - first == 1) piece.template operator()<1>(first);
}

// to(i, j) -= sum over r of a(r, i) b(r, j) for i < N. A depth D of 0 stands for one that is known
// at run time only.
template <std::uint32_t D, std::uint32_t N>
[[gnu::always_inline]] inline void SubtractOuter(double* to,
                                                 std::size_t stride,
                                                 const double* a,
                                                 const double* b,
                                                 std::size_t width,
                                                 std::uint32_t depth,
                                                 std::uint32_t columns) {
  using V = LanesOf<N>;
  const std::uint32_t d = D == 0 ? depth : D;
  V rows[6];
  for (std::uint32_t r = 0; r < d; ++r) rows[r] = *reinterpret_cast<const V*>(a + r * width);
  for (std::uint32_t j = 0; j < columns; ++j) {
    V* column = reinterpret_cast<V*>(to + j * stride);
    V sum = *column;
    for (std::uint32_t r = 0; r < d; ++r) sum -= rows[r] * b[r * width + j];
    *column = sum;
  }
}

template <std::uint32_t D>
[[gnu::always_inline]] inline void SharesBody(const LeadingBlocks& blocks,
                                              const double* w,
                                              const double* y,
                                              double* reduced) {
  const LeadingPair* pair = blocks.pair;
  for (std::uint32_t x = 0; x < blocks.links; ++x)
    for (std::uint32_t z = 0; z <= x; ++z, ++pair) {
      const LeadingLink& rows = blocks.link[pair->swapped ? z : x];
      const LeadingLink& columns = blocks.link[pair->swapped ? x : z];
      InPieces(rows.size, [&]<std::uint32_t N>(std::uint32_t first) {
        SubtractOuter<D, N>(reduced + pair->offset + first,
                            pair->stride,
                            w + rows.first + first,
                            y + columns.first,
                            blocks.width,
                            blocks.n,
                            columns.size);
      });
    }
}

// cross(:, rows) -= Y(:, columns) Q^T for N rows
template <std::uint32_t D, std::uint32_t N>
[[gnu::always_inline]] inline void SubtractAlong(double* cross,
                                                 const double* y,
                                                 std::size_t width,
                                                 const double* q,
                                                 std::size_t stride,
                                                 std::uint32_t depth,
                                                 std::uint32_t columns) {
  using V = LanesOf<N>;
  const std::uint32_t d = D == 0 ? depth : D;
  V sum[6];
  for (std::uint32_t r = 0; r < d; ++r) sum[r] = *reinterpret_cast<const V*>(cross + r * width);
  for (std::uint32_t j = 0; j < columns; ++j) {
    const V column = *reinterpret_cast<const V*>(q + j * stride);
    for (std::uint32_t r = 0; r < d; ++r) sum[r] -= column * y[r * width + j];
  }
  for (std::uint32_t r = 0; r < d; ++r) *reinterpret_cast<V*>(cross + r * width) = sum[r];
}

// cross(:, columns) -= Y(:, rows) Q for N columns
template <std::uint32_t D, std::uint32_t N>
[[gnu::always_inline]] inline void SubtractAcross(double* cross,
                                                  const double* y,
                                                  std::size_t width,
                                                  const double* q,
                                                  std::size_t stride,
                                                  std::uint32_t depth,
                                                  std::uint32_t rows) {
  using V = LanesOf<N>;
  const std::uint32_t d = D == 0 ? depth : D;
  V sum[6];
  for (std::uint32_t r = 0; r < d; ++r) sum[r] = *reinterpret_cast<const V*>(cross + r * width);
  for (std::uint32_t i = 0; i < rows; ++i) {
    V row;
    for (std::uint32_t j = 0; j < N; ++j) row[j] = q[j * stride + i];
    for (std::uint32_t r = 0; r < d; ++r) sum[r] -= row * y[r * width + i];
  }
  for (std::uint32_t r = 0; r < d; ++r) *reinterpret_cast<V*>(cross + r * width) = sum[r];
}

template <std::uint32_t D>
[[gnu::always_inline]] inline void InverseBody(const LeadingBlocks& blocks,
                                               const double* y,
                                               const double* inverse,
                                               double* cross) {
  std::fill_n(cross, blocks.n * blocks.width, 0.0);
  const LeadingPair* pair = blocks.pair;
  for (std::uint32_t x = 0; x < blocks.links; ++x)
    for (std::uint32_t z = 0; z <= x; ++z, ++pair) {
      const LeadingLink& rows = blocks.link[pair->swapped ? z : x];
      const LeadingLink& columns = blocks.link[pair->swapped ? x : z];
      const double* q = inverse + pair->offset;
      InPieces(rows.size, [&]<std::uint32_t N>(std::uint32_t first) {
        SubtractAlong<D, N>(cross + rows.first + first,
                            y + columns.first,
                            blocks.width,
                            q + first,
                            pair->stride,
                            blocks.n,
                            columns.size);
      });
      if (x == z) continue;
      InPieces(columns.size, [&]<std::uint32_t N>(std::uint32_t first) {
        SubtractAcross<D, N>(cross + columns.first + first,
                             y + rows.first,
                             blocks.width,
                             q + first * std::size_t{pair->stride},
                             pair->stride,
                             blocks.n,
                             rows.size);
      });
    }
}

[[gnu::always_inline]] inline void Shares(const LeadingBlocks& blocks,
                                          const double* w,
                                          const double* y,
                                          double* reduced) {
  if (blocks.n == 3)
    SharesBody<3>(blocks, w, y, reduced);
  else
    SharesBody<0>(blocks, w, y, reduced);
}

[[gnu::always_inline]] inline void Inverse(const LeadingBlocks& blocks,
                                           const double* y,
                                           const double* inverse,
                                           double* cross) {
  if (blocks.n == 3)
    InverseBody<3>(blocks, y, inverse, cross);
  else
    InverseBody<0>(blocks, y, inverse, cross);
}

template <std::uint32_t D>
[[gnu::always_inline]] inline void RowsBody(
    std::uint32_t depth, std::size_t width, const double* inverse, const double* w, double* y) {
  const std::uint32_t d = D == 0 ? depth : D;
  InPieces(static_cast<std::uint32_t>(width), [&]<std::uint32_t N>(std::uint32_t first) {
    using V = LanesOf<N>;
    V rows[6];
    for (std::uint32_t r = 0; r < d; ++r)
      rows[r] = *reinterpret_cast<const V*>(w + r * width + first);
    for (std::uint32_t i = 0; i < d; ++i) {
      V sum = rows[0] * inverse[std::size_t{i} * d];
      for (std::uint32_t r = 1; r < d; ++r) sum += rows[r] * inverse[std::size_t{i} * d + r];
      *reinterpret_cast<V*>(y + i * width + first) = sum;
    }
  });
}

[[gnu::always_inline]] inline void Rows(
    std::uint32_t n, std::size_t width, const double* inverse, const double* w, double* y) {
  if (n == 3)
    RowsBody<3>(n, width, inverse, w, y);
  else
    RowsBody<0>(n, width, inverse, w, y);
}

template <std::uint32_t C>
[[gnu::always_inline]] inline void ProductsBody(std::span<const ProductBlock> blocks,
                                                const double* weighted,
                                                const double* a,
                                                std::size_t width) {
  for (const ProductBlock& block : blocks)
    InPieces(block.columns, [&]<std::uint32_t N>(std::uint32_t first) {
      using V = LanesOf<N>;
      V columns[C];
      for (std::uint32_t r = 0; r < C; ++r)
        columns[r] = *reinterpret_cast<const V*>(a + r * width + block.firstColumn + first);
      for (std::uint32_t p = 0; p < block.rows; ++p) {
        V* to = reinterpret_cast<V*>(block.to + p * block.stride + first);
        V sum = *to;
        for (std::uint32_t r = 0; r < C; ++r)
          sum += columns[r] * weighted[r * width + block.firstRow + p];
        *to = sum;
      }
    });
}

[[gnu::always_inline]] inline void Products(std::span<const ProductBlock> blocks,
                                            std::uint32_t components,
                                            const double* weighted,
                                            const double* a,
                                            std::size_t width) {
  if (components == 2)
    ProductsBody<2>(blocks, weighted, a, width);
  else if (components == 1)
    ProductsBody<1>(blocks, weighted, a, width);
  else
    ProductsBody<3>(blocks, weighted, a, width);
}

using ProductBlocks = std::span<const ProductBlock>;

struct Kernels {
  void (*rows)(std::uint32_t, std::size_t, const double*, const double*, double*);
  void (*products)(ProductBlocks, std::uint32_t, const double*, const double*, std::size_t);
  void (*shares)(const LeadingBlocks&, const double*, const double*, double*);
  void (*inverse)(const LeadingBlocks&, const double*, const double*, double*);
};

void RowsPortable(
    std::uint32_t n, std::size_t width, const double* inverse, const double* w, double* y) {
  Rows(n, width, inverse, w, y);
}
void ProductsPortable(
    ProductBlocks blocks, std::uint32_t n, const double* weighted, const double* a, std::size_t w) {
  Products(blocks, n, weighted, a, w);
}
void SharesPortable(const LeadingBlocks& blocks,
                    const double* w,
                    const double* y,
                    double* reduced) {
  Shares(blocks, w, y, reduced);
}
void InversePortable(const LeadingBlocks& blocks,
                     const double* y,
                     const double* inverse,
                     double* cross) {
  Inverse(blocks, y, inverse, cross);
}
#if defined(__x86_64__)
[[gnu::target("avx2")]] void RowsAvx2(
    std::uint32_t n, std::size_t width, const double* inverse, const double* w, double* y) {
  Rows(n, width, inverse, w, y);
}
[[gnu::target("avx2")]] void ProductsAvx2(
    ProductBlocks blocks, std::uint32_t n, const double* weighted, const double* a, std::size_t w) {
  Products(blocks, n, weighted, a, w);
}
[[gnu::target("avx2")]] void SharesAvx2(const LeadingBlocks& blocks,
                                        const double* w,
                                        const double* y,
                                        double* reduced) {
  Shares(blocks, w, y, reduced);
}
[[gnu::target("avx2")]] void InverseAvx2(const LeadingBlocks& blocks,
                                         const double* y,
                                         const double* inverse,
                                         double* cross) {
  Inverse(blocks, y, inverse, cross);
}
[[gnu::target("avx512f")]] void RowsAvx512(
    std::uint32_t n, std::size_t width, const double* inverse, const double* w, double* y) {
  Rows(n, width, inverse, w, y);
}
[[gnu::target("avx512f")]] void ProductsAvx512(
    ProductBlocks blocks, std::uint32_t n, const double* weighted, const double* a, std::size_t w) {
  Products(blocks, n, weighted, a, w);
}
[[gnu::target("avx512f")]] void SharesAvx512(const LeadingBlocks& blocks,
                                             const double* w,
                                             const double* y,
                                             double* reduced) {
  Shares(blocks, w, y, reduced);
}
[[gnu::target("avx512f")]] void InverseAvx512(const LeadingBlocks& blocks,
                                              const double* y,
                                              const double* inverse,
                                              double* cross) {
  Inverse(blocks, y, inverse, cross);
}
#endif

Kernels KernelsOf(Variant variant) noexcept {
#if defined(__x86_64__)
  if (variant == Variant::Avx512) return {RowsAvx512, ProductsAvx512, SharesAvx512, InverseAvx512};
  if (variant == Variant::Avx2) return {RowsAvx2, ProductsAvx2, SharesAvx2, InverseAvx2};
#endif
  static_cast<void>(variant);
  return {RowsPortable, ProductsPortable, SharesPortable, InversePortable};
}

const Kernels& Best() noexcept {
  static const Kernels best = [] {
    for (const Variant variant : {Variant::Avx512, Variant::Avx2})
      if (dense::IsAvailable(variant)) return KernelsOf(variant);
    return KernelsOf(Variant::Portable);
  }();
  return best;
}

}  // namespace

void MultiplyRows(
    std::uint32_t n, std::size_t width, const double* inverse, const double* w, double* y) {
  Best().rows(n, width, inverse, w, y);
}

void MultiplyRows(Variant variant,
                  std::uint32_t n,
                  std::size_t width,
                  const double* inverse,
                  const double* w,
                  double* y) {
  KernelsOf(variant).rows(n, width, inverse, w, y);
}

void AddProducts(ProductBlocks blocks,
                 std::uint32_t components,
                 const double* weighted,
                 const double* a,
                 std::size_t width) {
  Best().products(blocks, components, weighted, a, width);
}

void AddProducts(Variant variant,
                 ProductBlocks blocks,
                 std::uint32_t components,
                 const double* weighted,
                 const double* a,
                 std::size_t width) {
  KernelsOf(variant).products(blocks, components, weighted, a, width);
}

void SubtractShares(const LeadingBlocks& blocks,
                    const double* w,
                    const double* y,
                    double* reduced) {
  Best().shares(blocks, w, y, reduced);
}

void MultiplyByInverse(const LeadingBlocks& blocks,
                       const double* y,
                       const double* inverse,
                       double* cross) {
  Best().inverse(blocks, y, inverse, cross);
}

void SubtractShares(Variant variant,
                    const LeadingBlocks& blocks,
                    const double* w,
                    const double* y,
                    double* reduced) {
  KernelsOf(variant).shares(blocks, w, y, reduced);
}

void MultiplyByInverse(Variant variant,
                       const LeadingBlocks& blocks,
                       const double* y,
                       const double* inverse,
                       double* cross) {
  KernelsOf(variant).inverse(blocks, y, inverse, cross);
}

}  // namespace vermo
