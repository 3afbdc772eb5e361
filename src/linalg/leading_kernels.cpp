#include "linalg/leading_kernels.h"

#include <algorithm>
#include <utility>

namespace vermo {
namespace {

using dense::Variant;

// In an order that vectors of any length can take.
double SumOf(const double (&lanes)[8]) noexcept {
  return ((lanes[0] + lanes[4]) + (lanes[2] + lanes[6])) +
         ((lanes[1] + lanes[5]) + (lanes[3] + lanes[7]));
}

// N doubles side by side.
template <std::uint32_t N>
struct Lanes {
  typedef double Type __attribute__((vector_size(N * sizeof(double)), may_alias));
};
template <std::uint32_t N>
using LanesOf = typename Lanes<N>::Type;

// The unknowns of a link are taken in pieces of a size that the compiler knows. Pieces are
// independent: a result does not depend on how they are cut. Where lanes are plenty (kRoundUp) a
// remainder is one piece of K unknowns in N lanes; the lanes beyond are read, computed and dropped.
template <bool kRoundUp, typename Piece>
[[gnu::always_inline]] inline void InPieces(std::uint32_t size, Piece piece) {
  std::uint32_t first = 0;
  for (; size - first >= 8; first += 8) piece.template operator()<8, 8>(first);
  if constexpr (kRoundUp) {
    switch (size - first) {
      case 7:
        return piece.template operator()<8, 7>(first);
      case 6:
        return piece.template operator()<8, 6>(first);
      case 5:
        return piece.template operator()<8, 5>(first);
      case 4:
        return piece.template operator()<4, 4>(first);
      case 3:
        return piece.template operator()<4, 3>(first);
      case 2:
        return piece.template operator()<2, 2>(first);
      case 1:
        return piece.template operator()<1, 1>(first);
      default:
        return;
    }
  }
  if (size - first >= 4) {
    piece.template operator()<4, 4>(first);
    first += 4;
  }
  if (size - first >= 2) {
    piece.template operator()<2, 2>(first);
    first += 2;
  }
  if (size - first == 1) piece.template operator()<1, 1>(first);
}

// Lanes among other doubles, with no more alignment than those have. It belongs to the structure
// and not to the type of the lanes: compilers differ in whether references keep it.
template <std::uint32_t N>
struct [[gnu::packed, gnu::may_alias]] Unaligned {
  LanesOf<N> lanes;
};

template <std::uint32_t N>
[[gnu::always_inline]] inline const Unaligned<N>& Load(const double* from) {
  return *reinterpret_cast<const Unaligned<N>*>(from);
}

// The first K of N lanes.
template <std::uint32_t K, std::uint32_t N>
[[gnu::always_inline]] inline void Store(double* to, const LanesOf<N>& lanes) {
  if constexpr (K == N)
    reinterpret_cast<Unaligned<N>*>(to)->lanes = lanes;
  else
    __builtin_memcpy(to, &lanes, K * sizeof(double));
}

// to(i, j) -= sum over r of a(r, i) b(r, j) for K rows. A depth D of 0 stands for one that is
// known at run time only.
template <std::uint32_t D, std::uint32_t N, std::uint32_t K>
[[gnu::always_inline]] inline void SubtractOuter(double* to,
                                                 std::size_t stride,
                                                 const double* a,
                                                 const double* b,
                                                 std::size_t width,
                                                 std::uint32_t depth,
                                                 std::uint32_t columns) {
  const std::uint32_t d = D == 0 ? depth : D;
  LanesOf<N> rows[6];
  for (std::uint32_t r = 0; r < d; ++r) rows[r] = Load<N>(a + r * width).lanes;
  for (std::uint32_t j = 0; j < columns; ++j) {
    double* column = to + j * stride;
    LanesOf<N> sum = Load<N>(column).lanes;
    for (std::uint32_t r = 0; r < d; ++r) sum -= rows[r] * b[r * width + j];
    Store<K, N>(column, sum);
  }
}

template <std::uint32_t D, bool kRoundUp>
[[gnu::always_inline]] inline void SharesBody(const LeadingBlocks& blocks,
                                              const double* w,
                                              const double* y,
                                              double* reduced) {
  const LeadingPair* pair = blocks.pair;
  for (std::uint32_t x = 0; x < blocks.links; ++x)
    for (std::uint32_t z = 0; z <= x; ++z, ++pair) {
      const LeadingRun& rows = blocks.link[pair->swapped ? z : x];
      const LeadingRun& columns = blocks.link[pair->swapped ? x : z];
      InPieces<kRoundUp>(rows.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
        SubtractOuter<D, N, K>(reduced + pair->offset + first,
                               pair->stride,
                               w + rows.first + first,
                               y + columns.first,
                               blocks.width,
                               blocks.n,
                               columns.size);
      });
    }
}

// cross(:, rows) -= Y(:, columns) Q^T for K rows
template <std::uint32_t D, std::uint32_t N, std::uint32_t K>
[[gnu::always_inline]] inline void SubtractAlong(double* cross,
                                                 const double* y,
                                                 std::size_t width,
                                                 const double* q,
                                                 std::size_t stride,
                                                 std::uint32_t depth,
                                                 std::uint32_t columns) {
  const std::uint32_t d = D == 0 ? depth : D;
  LanesOf<N> sum[6];
  for (std::uint32_t r = 0; r < d; ++r) sum[r] = Load<N>(cross + r * width).lanes;
  for (std::uint32_t j = 0; j < columns; ++j) {
    const LanesOf<N> column = Load<N>(q + j * stride).lanes;
    for (std::uint32_t r = 0; r < d; ++r) sum[r] -= column * y[r * width + j];
  }
  for (std::uint32_t r = 0; r < d; ++r) Store<K, N>(cross + r * width, sum[r]);
}

// cross(:, columns) -= Y(:, rows) Q for K columns
template <std::uint32_t D, std::uint32_t N, std::uint32_t K>
[[gnu::always_inline]] inline void SubtractAcross(double* cross,
                                                  const double* y,
                                                  std::size_t width,
                                                  const double* q,
                                                  std::size_t stride,
                                                  std::uint32_t depth,
                                                  std::uint32_t rows) {
  const std::uint32_t d = D == 0 ? depth : D;
  LanesOf<N> sum[6];
  for (std::uint32_t r = 0; r < d; ++r) sum[r] = Load<N>(cross + r * width).lanes;
  for (std::uint32_t i = 0; i < rows; ++i) {
    LanesOf<N> row{};
    for (std::uint32_t j = 0; j < K; ++j) row[j] = q[j * stride + i];
    for (std::uint32_t r = 0; r < d; ++r) sum[r] -= row * y[r * width + i];
  }
  for (std::uint32_t r = 0; r < d; ++r) Store<K, N>(cross + r * width, sum[r]);
}

template <std::uint32_t D, bool kRoundUp>
[[gnu::always_inline]] inline void InverseBody(const LeadingBlocks& blocks,
                                               const double* y,
                                               const double* inverse,
                                               double* cross) {
  std::fill_n(cross, blocks.n * blocks.width, 0.0);
  const LeadingPair* pair = blocks.pair;
  for (std::uint32_t x = 0; x < blocks.links; ++x)
    for (std::uint32_t z = 0; z <= x; ++z, ++pair) {
      const LeadingRun& rows = blocks.link[pair->swapped ? z : x];
      const LeadingRun& columns = blocks.link[pair->swapped ? x : z];
      const double* q = inverse + pair->offset;
      InPieces<kRoundUp>(rows.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
        SubtractAlong<D, N, K>(cross + rows.first + first,
                               y + columns.first,
                               blocks.width,
                               q + first,
                               pair->stride,
                               blocks.n,
                               columns.size);
      });
      if (x == z) continue;
      InPieces<kRoundUp>(columns.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
        SubtractAcross<D, N, K>(cross + columns.first + first,
                                y + rows.first,
                                blocks.width,
                                q + first * std::size_t{pair->stride},
                                pair->stride,
                                blocks.n,
                                rows.size);
      });
    }
}

// sum(r) -= factor Y(r, columns) Q^T for the rows of one piece
template <std::uint32_t D, std::uint32_t N>
[[gnu::always_inline]] inline void SubtractColumns(LanesOf<N>* sum,
                                                   double factor,
                                                   const double* y,
                                                   std::size_t width,
                                                   const double* q,
                                                   std::size_t stride,
                                                   std::uint32_t depth,
                                                   std::uint32_t columns) {
  const std::uint32_t d = D == 0 ? depth : D;
  for (std::uint32_t j = 0; j < columns; ++j) {
    const LanesOf<N> column = Load<N>(q + j * stride).lanes;
    for (std::uint32_t r = 0; r < d; ++r) sum[r] -= column * (factor * y[r * width + j]);
  }
}

// A piece of `half` is summed up over all its pairs before it is stored; turned pairs, few or none,
// have come before.
template <std::uint32_t D, bool kRoundUp>
[[gnu::always_inline]] inline void HalfBody(const LeadingBlocks& blocks,
                                            const double* y,
                                            const double* inverse,
                                            double* half) {
  const std::uint32_t d = D == 0 ? blocks.n : D;
  const std::size_t width = blocks.width;
  std::fill_n(half, blocks.n * width, 0.0);
  const LeadingPair* pair = blocks.pair;
  for (std::uint32_t x = 0; x < blocks.links; ++x)
    for (std::uint32_t z = 0; z <= x; ++z, ++pair) {
      if (!pair->swapped) continue;
      const LeadingRun& rows = blocks.link[z];
      const LeadingRun& columns = blocks.link[x];
      InPieces<kRoundUp>(rows.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
        SubtractAlong<D, N, K>(half + rows.first + first,
                               y + columns.first,
                               width,
                               inverse + pair->offset + first,
                               pair->stride,
                               blocks.n,
                               columns.size);
      });
    }
  const LeadingPair* pairs = blocks.pair;
  for (std::uint32_t x = 0; x < blocks.links; pairs += ++x) {
    const LeadingRun& rows = blocks.link[x];
    InPieces<kRoundUp>(rows.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
      LanesOf<N> sum[6];
      double* piece = half + rows.first + first;
      for (std::uint32_t r = 0; r < d; ++r) sum[r] = Load<N>(piece + r * width).lanes;
      for (std::uint32_t z = 0; z < x; ++z) {
        const LeadingRun& columns = blocks.link[z];
        if (!pairs[z].swapped)
          SubtractColumns<D, N>(sum,
                                1.0,
                                y + columns.first,
                                width,
                                inverse + pairs[z].offset + first,
                                pairs[z].stride,
                                blocks.n,
                                columns.size);
      }
      // Of the pair with itself columns before the piece's eight count whole, the eight half.
      const std::uint32_t eight = first - first % 8;
      const std::uint32_t count = std::min(rows.size - eight, std::uint32_t{8});
      const double* own = inverse + pairs[x].offset + first;
      const std::size_t stride = pairs[x].stride;
      SubtractColumns<D, N>(sum, 1.0, y + rows.first, width, own, stride, blocks.n, eight);
      SubtractColumns<D, N>(
          sum, 0.5, y + rows.first + eight, width, own + eight * stride, stride, blocks.n, count);
      for (std::uint32_t r = 0; r < d; ++r) Store<K, N>(piece + r * width, sum[r]);
    });
  }
}

// own(i, k) = block(i, k) - half(i) y(k)^T - y(i) half(k)^T. Column c is summed up in lane c % 8.
template <std::uint32_t D>
[[gnu::always_inline]] inline void GramBody(std::uint32_t depth,
                                            std::size_t width,
                                            const double* half,
                                            const double* y,
                                            const double* block,
                                            double* own) {
  const std::uint32_t d = D == 0 ? depth : D;
  const std::size_t whole = width - width % 8;
  for (std::uint32_t i = 0; i < d; ++i)
    for (std::uint32_t k = 0; k <= i; ++k) {
      const double* hi = half + i * width;
      const double* hk = half + k * width;
      const double* yi = y + i * width;
      const double* yk = y + k * width;
      LanesOf<8> sum{};
      for (std::size_t c = 0; c < whole; c += 8)
        sum += Load<8>(hi + c).lanes * Load<8>(yk + c).lanes +
               Load<8>(yi + c).lanes * Load<8>(hk + c).lanes;
      double lanes[8];
      Store<8, 8>(lanes, sum);
      for (std::size_t c = whole; c < width; ++c) lanes[c - whole] += hi[c] * yk[c] + yi[c] * hk[c];
      const std::size_t place = std::size_t{i} * d + k;
      own[place] = own[std::size_t{k} * d + i] = block[place] - SumOf(lanes);
    }
}

// own(i) = diagonal(i) - 2 half(i) y(i)^T, summed up in the same lanes.
template <std::uint32_t D>
[[gnu::always_inline]] inline void DiagonalBody(std::uint32_t depth,
                                                std::size_t width,
                                                const double* half,
                                                const double* y,
                                                const double* diagonal,
                                                double* own) {
  const std::uint32_t d = D == 0 ? depth : D;
  const std::size_t whole = width - width % 8;
  for (std::uint32_t i = 0; i < d; ++i) {
    const double* h = half + i * width;
    const double* v = y + i * width;
    LanesOf<8> sum{};
    for (std::size_t c = 0; c < whole; c += 8) sum += Load<8>(h + c).lanes * Load<8>(v + c).lanes;
    double lanes[8];
    Store<8, 8>(lanes, sum);
    for (std::size_t c = whole; c < width; ++c) lanes[c - whole] += h[c] * v[c];
    own[i] = diagonal[i] - 2.0 * SumOf(lanes);
  }
}

// sum += the first K lanes of a piece
template <std::uint32_t K, std::uint32_t N>
[[gnu::always_inline]] inline void AddWidened(LanesOf<8>& sum, const LanesOf<N>& piece) {
  const auto add = [&]<int... I>(std::integer_sequence<int, I...>) {
    sum += __builtin_shufflevector(
        piece, LanesOf<N>{}, (I < static_cast<int>(K) ? I : static_cast<int>(N))...);
  };
  add(std::make_integer_sequence<int, 8>{});
}

// The same for the piece of a run that begins at its element `first`.
template <std::uint32_t K, bool kRoundUp, std::uint32_t N>
[[gnu::always_inline]] inline void AddPiece(LanesOf<8>& sum,
                                            std::uint32_t first,
                                            const LanesOf<N>& piece) {
  if constexpr (kRoundUp || N == 8)
    AddWidened<K, N>(sum, piece);
  else
    for (std::uint32_t k = 0; k < K; ++k) sum[(first + k) % 8] += piece[k];
}

template <std::uint32_t D, bool kRoundUp>
[[gnu::always_inline]] inline void IntoRunsBody(std::uint32_t depth,
                                                std::span<const LeadingRun> runs,
                                                double* blocks,
                                                const double* matrix,
                                                std::size_t width,
                                                const double* y) {
  const std::uint32_t d = D == 0 ? depth : D;
  for (const LeadingRun& run : runs)
    InPieces<kRoundUp>(run.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
      LanesOf<N> rows[6];
      for (std::uint32_t r = 0; r < d; ++r)
        rows[r] = Load<N>(y + r * width + run.first + first).lanes;
      for (std::uint32_t i = 0; i < d; ++i) {
        LanesOf<N> sum = rows[0] * matrix[std::size_t{i} * d];
        for (std::uint32_t r = 1; r < d; ++r) sum += rows[r] * matrix[std::size_t{i} * d + r];
        Store<K, N>(blocks + run.place + i * std::size_t{run.size} + first, sum);
      }
    });
}

template <bool kRoundUp>
[[gnu::always_inline]] inline void CombineBody(const LeadingBlocks& blocks,
                                               const double* y,
                                               const double* factors,
                                               double* x) {
  for (const LeadingRun& run : std::span(blocks.link, blocks.links))
    InPieces<kRoundUp>(run.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
      const double* from = y + run.first + first;
      double* to = x + run.place + first;
      LanesOf<N> sum = Load<N>(from).lanes * factors[0];
      for (std::uint32_t i = 1; i < blocks.n; ++i)
        sum += Load<N>(from + i * blocks.width).lanes * factors[i];
      Store<K, N>(to, Load<N>(to).lanes - sum);
    });
}

template <std::uint32_t D, bool kRoundUp>
[[gnu::always_inline]] inline void VectorBody(const LeadingBlocks& blocks,
                                              const double* y,
                                              const double* x,
                                              double* dots) {
  const std::uint32_t d = D == 0 ? blocks.n : D;
  LanesOf<8> sums[6] = {};
  for (const LeadingRun& run : std::span(blocks.link, blocks.links))
    InPieces<kRoundUp>(run.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
      const LanesOf<N> piece = Load<N>(x + run.place + first).lanes;
      for (std::uint32_t i = 0; i < d; ++i)
        AddPiece<K, kRoundUp, N>(
            sums[i], first, Load<N>(y + i * blocks.width + run.first + first).lanes * piece);
    });
  for (std::uint32_t i = 0; i < d; ++i) {
    double lanes[8];
    Store<8, 8>(lanes, sums[i]);
    dots[i] = SumOf(lanes);
  }
}

template <std::uint32_t C, bool kRoundUp>
[[gnu::always_inline]] inline void FormsBody(std::span<const FormBlock> blocks,
                                             const double* a,
                                             std::size_t width,
                                             double* forms) {
  LanesOf<8> sums[C] = {};
  for (const FormBlock& block : blocks) {
    const double* rows = a + block.firstRow;
    const double* columns = a + block.firstColumn;
    InPieces<kRoundUp>(block.columns, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
      LanesOf<N> parts[C] = {};
      for (std::uint32_t p = 0; p < block.rows; ++p) {
        const LanesOf<N> q = Load<N>(block.from + p * block.stride + first).lanes;
        for (std::uint32_t r = 0; r < C; ++r) parts[r] += q * rows[r * width + p];
      }
      for (std::uint32_t r = 0; r < C; ++r) {
        parts[r] *= Load<N>(columns + r * width + first).lanes * block.factor;
        AddPiece<K, kRoundUp, N>(sums[r], first, parts[r]);
      }
    });
  }
  for (std::uint32_t r = 0; r < C; ++r) {
    double lanes[8];
    Store<8, 8>(lanes, sums[r]);
    forms[r] = SumOf(lanes);
  }
}

template <std::uint32_t D, bool kRoundUp>
[[gnu::always_inline]] inline void ScatteredBody(std::uint32_t depth,
                                                 std::span<const LeadingRun> runs,
                                                 const double* blocks,
                                                 const double* matrix,
                                                 std::size_t width,
                                                 double* y) {
  const std::uint32_t d = D == 0 ? depth : D;
  for (const LeadingRun& run : runs)
    InPieces<kRoundUp>(run.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
      LanesOf<N> rows[6];
      for (std::uint32_t r = 0; r < d; ++r)
        rows[r] = Load<N>(blocks + run.place + r * std::size_t{run.size} + first).lanes;
      for (std::uint32_t i = 0; i < d; ++i) {
        LanesOf<N> sum = rows[0] * matrix[std::size_t{i} * d];
        for (std::uint32_t r = 1; r < d; ++r) sum += rows[r] * matrix[std::size_t{i} * d + r];
        Store<K, N>(y + i * width + run.first + first, sum);
      }
    });
}

template <std::uint32_t C>
[[gnu::always_inline]] inline void ProductsBody(std::span<const ProductBlock> blocks,
                                                const ProductRows& rows) {
  double weights[C];
  for (std::uint32_t r = 0; r < C; ++r) weights[r] = rows.weights[r];
  for (const ProductBlock& block : blocks) {
    const double* left = rows.a + block.firstRow;
    const double* right = rows.a + block.firstColumn;
    InPieces<false>(block.columns, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
      LanesOf<N> columns[C];
      for (std::uint32_t r = 0; r < C; ++r)
        columns[r] = Load<N>(right + r * rows.stride + first).lanes * weights[r];
      for (std::uint32_t p = 0; p < block.rows; ++p) {
        double* to = block.to + p * block.stride + first;
        LanesOf<N> sum = Load<N>(to).lanes;
        for (std::uint32_t r = 0; r < C; ++r) sum += columns[r] * left[r * rows.stride + p];
        Store<K, N>(to, sum);
      }
    });
  }
}

template <std::uint32_t C, std::uint32_t D, bool kRoundUp>
[[gnu::always_inline]] inline void LeadingBody(const LeadingProducts& products,
                                               const ProductRows& rows,
                                               const double* misclosures) {
  const std::uint32_t n = D == 0 ? products.n : D;
  const double* own = rows.a + products.first;
  double left[C][6];
  for (std::uint32_t r = 0; r < C; ++r)
    for (std::uint32_t p = 0; p < n; ++p) left[r][p] = own[r * rows.stride + p] * rows.weights[r];
  for (std::uint32_t p = 0; p < n; ++p) {
    double sum = products.rhs[p];
    for (std::uint32_t r = 0; r < C; ++r) sum += left[r][p] * misclosures[r];
    products.rhs[p] = sum;
  }
  // The group's own block comes first.
  for (std::uint32_t k = 0; k <= products.couplings; ++k) {
    const LeadingProducts::Coupling& coupling = products.coupling[k == 0 ? 0 : k - 1];
    double* block = k == 0 ? products.own : coupling.to;
    const std::size_t stride = k == 0 ? n : coupling.size;
    const double* run = k == 0 ? own : rows.a + coupling.first;
    InPieces<kRoundUp>(
        k == 0 ? n : coupling.size,
        [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) __attribute__((always_inline)) {
          LanesOf<N> columns[C];
          for (std::uint32_t r = 0; r < C; ++r)
            columns[r] = Load<N>(run + r * rows.stride + first).lanes;
          for (std::uint32_t p = 0; p < n; ++p) {
            double* to = block + p * stride + first;
            LanesOf<N> sum = Load<N>(to).lanes;
            for (std::uint32_t r = 0; r < C; ++r) sum += columns[r] * left[r][p];
            Store<K, N>(to, sum);
          }
        });
  }
}

// Tiles of kRows rows and N columns are summed up in registers; those above the diagonal are left
// out.
template <std::uint32_t N>
[[gnu::always_inline]] inline void NormalsBody(GatheredRows& rows) {
  constexpr std::uint32_t kRows = 6;
  constexpr std::size_t kStride = GatheredRows::kStride;
  static_assert(GatheredRows::kMostColumns + 8 <= kStride);
  for (std::uint32_t column = 0; column < rows.width; column += N)
    for (std::uint32_t row = column; row < rows.width; row += kRows) {
      LanesOf<N> sums[kRows] = {};
      const double* a = rows.a.data();
      for (std::uint32_t k = 0; k < rows.count; ++k, a += kStride) {
        const LanesOf<N> weighted = Load<N>(a + column).lanes * rows.weights[k];
        for (std::uint32_t r = 0; r < kRows; ++r) sums[r] += weighted * a[row + r];
      }
      double* to = rows.normals.data() + row * kStride + column;
      for (std::uint32_t r = 0; r < kRows; ++r) Store<N, N>(to + r * kStride, sums[r]);
    }
}

// Depths and components that are worth code of their own, and all others.
template <bool kRoundUp>
[[gnu::always_inline]] inline void Scattered(std::uint32_t n,
                                             std::span<const LeadingRun> runs,
                                             const double* blocks,
                                             const double* matrix,
                                             std::size_t width,
                                             double* y) {
  if (n == 3)
    ScatteredBody<3, kRoundUp>(n, runs, blocks, matrix, width, y);
  else
    ScatteredBody<0, kRoundUp>(n, runs, blocks, matrix, width, y);
}

template <bool kRoundUp>
[[gnu::always_inline]] inline void IntoRuns(std::uint32_t n,
                                            std::span<const LeadingRun> runs,
                                            double* blocks,
                                            const double* matrix,
                                            std::size_t width,
                                            const double* y) {
  if (n == 3)
    IntoRunsBody<3, kRoundUp>(n, runs, blocks, matrix, width, y);
  else
    IntoRunsBody<0, kRoundUp>(n, runs, blocks, matrix, width, y);
}

template <bool kRoundUp>
[[gnu::always_inline]] inline void Vector(const LeadingBlocks& blocks,
                                          const double* y,
                                          const double* x,
                                          double* dots) {
  if (blocks.n == 3)
    VectorBody<3, kRoundUp>(blocks, y, x, dots);
  else
    VectorBody<0, kRoundUp>(blocks, y, x, dots);
}

[[gnu::always_inline]] inline void Products(std::span<const ProductBlock> blocks,
                                            const ProductRows& rows) {
  if (rows.components == 2)
    ProductsBody<2>(blocks, rows);
  else if (rows.components == 1)
    ProductsBody<1>(blocks, rows);
  else
    ProductsBody<3>(blocks, rows);
}

template <std::uint32_t C, bool kRoundUp>
[[gnu::always_inline]] inline void LeadingOf(const LeadingProducts& products,
                                             const ProductRows& rows,
                                             const double* misclosures) {
  if (products.n == 3)
    LeadingBody<C, 3, kRoundUp>(products, rows, misclosures);
  else if (products.n == 6)
    LeadingBody<C, 6, kRoundUp>(products, rows, misclosures);
  else
    LeadingBody<C, 0, kRoundUp>(products, rows, misclosures);
}

template <bool kRoundUp>
[[gnu::always_inline]] inline void Leading(const LeadingProducts& products,
                                           const ProductRows& rows,
                                           const double* misclosures) {
  if (rows.components == 2)
    LeadingOf<2, kRoundUp>(products, rows, misclosures);
  else if (rows.components == 1)
    LeadingOf<1, kRoundUp>(products, rows, misclosures);
  else
    LeadingOf<3, kRoundUp>(products, rows, misclosures);
}

template <bool kRoundUp>
[[gnu::always_inline]] inline void Shares(const LeadingBlocks& blocks,
                                          const double* w,
                                          const double* y,
                                          double* reduced) {
  if (blocks.n == 3)
    SharesBody<3, kRoundUp>(blocks, w, y, reduced);
  else
    SharesBody<0, kRoundUp>(blocks, w, y, reduced);
}

template <bool kRoundUp>
[[gnu::always_inline]] inline void Inverse(const LeadingBlocks& blocks,
                                           const double* y,
                                           const double* inverse,
                                           double* cross) {
  if (blocks.n == 3)
    InverseBody<3, kRoundUp>(blocks, y, inverse, cross);
  else
    InverseBody<0, kRoundUp>(blocks, y, inverse, cross);
}

template <bool kRoundUp>
[[gnu::always_inline]] inline void Half(const LeadingBlocks& blocks,
                                        const double* y,
                                        const double* inverse,
                                        double* half) {
  if (blocks.n == 3)
    HalfBody<3, kRoundUp>(blocks, y, inverse, half);
  else
    HalfBody<0, kRoundUp>(blocks, y, inverse, half);
}

[[gnu::always_inline]] inline void Gram(std::uint32_t n,
                                        std::size_t width,
                                        const double* half,
                                        const double* y,
                                        const double* block,
                                        double* own) {
  if (n == 3)
    GramBody<3>(n, width, half, y, block, own);
  else
    GramBody<0>(n, width, half, y, block, own);
}

[[gnu::always_inline]] inline void Diagonal(std::uint32_t n,
                                            std::size_t width,
                                            const double* half,
                                            const double* y,
                                            const double* diagonal,
                                            double* own) {
  if (n == 3)
    DiagonalBody<3>(n, width, half, y, diagonal, own);
  else
    DiagonalBody<0>(n, width, half, y, diagonal, own);
}

template <bool kRoundUp>
[[gnu::always_inline]] inline void Forms(std::span<const FormBlock> blocks,
                                         std::uint32_t components,
                                         const double* a,
                                         std::size_t width,
                                         double* forms) {
  if (components == 2)
    FormsBody<2, kRoundUp>(blocks, a, width, forms);
  else if (components == 1)
    FormsBody<1, kRoundUp>(blocks, a, width, forms);
  else
    FormsBody<3, kRoundUp>(blocks, a, width, forms);
}

struct Kernels {
  void (*scattered)(std::uint32_t,
                    std::span<const LeadingRun>,
                    const double*,
                    const double*,
                    std::size_t,
                    double*);
  void (*intoRuns)(std::uint32_t,
                   std::span<const LeadingRun>,
                   double*,
                   const double*,
                   std::size_t,
                   const double*);
  void (*combine)(const LeadingBlocks&, const double*, const double*, double*);
  void (*vector)(const LeadingBlocks&, const double*, const double*, double*);
  void (*products)(std::span<const ProductBlock>, const ProductRows&);
  void (*leading)(const LeadingProducts&, const ProductRows&, const double*);
  void (*normals)(GatheredRows&);
  void (*shares)(const LeadingBlocks&, const double*, const double*, double*);
  void (*inverse)(const LeadingBlocks&, const double*, const double*, double*);
  void (*half)(const LeadingBlocks&, const double*, const double*, double*);
  void (*gram)(std::uint32_t, std::size_t, const double*, const double*, const double*, double*);
  void (*diagonal)(
      std::uint32_t, std::size_t, const double*, const double*, const double*, double*);
  void (*forms)(std::span<const FormBlock>, std::uint32_t, const double*, std::size_t, double*);
};

// All kernels for one instruction set. The compiler uses its registers in functions that name it
// themselves, so each variant is a set of functions of its own.
#define CARDO_KERNELS(Name, kRoundUp, ...)                                                         \
  struct Name {                                                                                    \
    __VA_ARGS__ static void ScatteredOf(std::uint32_t n,                                           \
                                        std::span<const LeadingRun> runs,                          \
                                        const double* blocks,                                      \
                                        const double* matrix,                                      \
                                        std::size_t width,                                         \
                                        double* y) {                                               \
      Scattered<kRoundUp>(n, runs, blocks, matrix, width, y);                                      \
    }                                                                                              \
    __VA_ARGS__ static void IntoRunsOf(std::uint32_t n,                                            \
                                       std::span<const LeadingRun> runs,                           \
                                       double* blocks,                                             \
                                       const double* matrix,                                       \
                                       std::size_t width,                                          \
                                       const double* y) {                                          \
      IntoRuns<kRoundUp>(n, runs, blocks, matrix, width, y);                                       \
    }                                                                                              \
    __VA_ARGS__ static void CombineOf(const LeadingBlocks& blocks,                                 \
                                      const double* y,                                             \
                                      const double* factors,                                       \
                                      double* x) {                                                 \
      CombineBody<kRoundUp>(blocks, y, factors, x);                                                \
    }                                                                                              \
    __VA_ARGS__ static void VectorOf(const LeadingBlocks& blocks,                                  \
                                     const double* y,                                              \
                                     const double* x,                                              \
                                     double* dots) {                                               \
      Vector<kRoundUp>(blocks, y, x, dots);                                                        \
    }                                                                                              \
    __VA_ARGS__ static void ProductsOf(std::span<const ProductBlock> blocks,                       \
                                       const ProductRows& rows) {                                  \
      Products(blocks, rows);                                                                      \
    }                                                                                              \
    __VA_ARGS__ static void LeadingOf(const LeadingProducts& products,                             \
                                      const ProductRows& rows,                                     \
                                      const double* misclosures) {                                 \
      Leading<kRoundUp>(products, rows, misclosures);                                              \
    }                                                                                              \
    __VA_ARGS__ static void NormalsOf(GatheredRows& rows) { NormalsBody<kRoundUp ? 8 : 4>(rows); } \
    __VA_ARGS__ static void SharesOf(const LeadingBlocks& blocks,                                  \
                                     const double* w,                                              \
                                     const double* y,                                              \
                                     double* reduced) {                                            \
      Shares<kRoundUp>(blocks, w, y, reduced);                                                     \
    }                                                                                              \
    __VA_ARGS__ static void InverseOf(const LeadingBlocks& blocks,                                 \
                                      const double* y,                                             \
                                      const double* inverse,                                       \
                                      double* cross) {                                             \
      Inverse<kRoundUp>(blocks, y, inverse, cross);                                                \
    }                                                                                              \
    __VA_ARGS__ static void HalfOf(const LeadingBlocks& blocks,                                    \
                                   const double* y,                                                \
                                   const double* inverse,                                          \
                                   double* half) {                                                 \
      Half<kRoundUp>(blocks, y, inverse, half);                                                    \
    }                                                                                              \
    __VA_ARGS__ static void GramOf(std::uint32_t n,                                                \
                                   std::size_t width,                                              \
                                   const double* half,                                             \
                                   const double* y,                                                \
                                   const double* block,                                            \
                                   double* own) {                                                  \
      Gram(n, width, half, y, block, own);                                                         \
    }                                                                                              \
    __VA_ARGS__ static void DiagonalOf(std::uint32_t n,                                            \
                                       std::size_t width,                                          \
                                       const double* half,                                         \
                                       const double* y,                                            \
                                       const double* diagonal,                                     \
                                       double* own) {                                              \
      Diagonal(n, width, half, y, diagonal, own);                                                  \
    }                                                                                              \
    __VA_ARGS__ static void FormsOf(std::span<const FormBlock> blocks,                             \
                                    std::uint32_t components,                                      \
                                    const double* a,                                               \
                                    std::size_t width,                                             \
                                    double* forms) {                                               \
      Forms<kRoundUp>(blocks, components, a, width, forms);                                        \
    }                                                                                              \
    static constexpr Kernels kAll = {ScatteredOf,                                                  \
                                     IntoRunsOf,                                                   \
                                     CombineOf,                                                    \
                                     VectorOf,                                                     \
                                     ProductsOf,                                                   \
                                     LeadingOf,                                                    \
                                     NormalsOf,                                                    \
                                     SharesOf,                                                     \
                                     InverseOf,                                                    \
                                     HalfOf,                                                       \
                                     GramOf,                                                       \
                                     DiagonalOf,                                                   \
                                     FormsOf};                                                     \
  }

CARDO_KERNELS(Portable, false, );
#if defined(__x86_64__)
CARDO_KERNELS(Avx2, false, [[gnu::target("avx2,fma")]]);
CARDO_KERNELS(Avx512, true, [[gnu::target("avx512f,fma")]]);
#endif
#undef CARDO_KERNELS

const Kernels& KernelsOf(Variant variant) noexcept {
#if defined(__x86_64__)
  if (variant == Variant::Avx512) return Avx512::kAll;
  if (variant == Variant::Avx2) return Avx2::kAll;
#endif
  static_cast<void>(variant);
  return Portable::kAll;
}

const Kernels& Best() noexcept {
  static const Kernels& best = KernelsOf(dense::BestVariant());
  return best;
}

const Kernels& Chosen(std::optional<Variant> variant) noexcept {
  return variant ? KernelsOf(*variant) : Best();
}

}  // namespace

void MultiplyScattered(std::uint32_t n,
                       std::span<const LeadingRun> runs,
                       const double* blocks,
                       const double* matrix,
                       std::size_t width,
                       double* y,
                       std::optional<Variant> variant) {
  Chosen(variant).scattered(n, runs, blocks, matrix, width, y);
}

void MultiplyIntoRuns(std::uint32_t n,
                      std::span<const LeadingRun> runs,
                      double* blocks,
                      const double* matrix,
                      std::size_t width,
                      const double* y,
                      std::optional<Variant> variant) {
  Chosen(variant).intoRuns(n, runs, blocks, matrix, width, y);
}

void SubtractCombined(const LeadingBlocks& blocks,
                      const double* y,
                      const double* factors,
                      double* x,
                      std::optional<Variant> variant) {
  Chosen(variant).combine(blocks, y, factors, x);
}

void MultiplyVector(const LeadingBlocks& blocks,
                    const double* y,
                    const double* x,
                    double* dots,
                    std::optional<Variant> variant) {
  Chosen(variant).vector(blocks, y, x, dots);
}

void AddProducts(std::span<const ProductBlock> blocks,
                 const ProductRows& rows,
                 std::optional<Variant> variant) {
  Chosen(variant).products(blocks, rows);
}

void AddToLeading(const LeadingProducts& products,
                  const ProductRows& rows,
                  const double* misclosures,
                  std::optional<Variant> variant) {
  Chosen(variant).leading(products, rows, misclosures);
}

void ComputeNormals(GatheredRows& rows, std::optional<Variant> variant) {
  Chosen(variant).normals(rows);
}

void SubtractShares(const LeadingBlocks& blocks,
                    const double* w,
                    const double* y,
                    double* reduced,
                    std::optional<Variant> variant) {
  Chosen(variant).shares(blocks, w, y, reduced);
}

void MultiplyByInverse(const LeadingBlocks& blocks,
                       const double* y,
                       const double* inverse,
                       double* cross,
                       std::optional<Variant> variant) {
  Chosen(variant).inverse(blocks, y, inverse, cross);
}

void MultiplyByHalfInverse(const LeadingBlocks& blocks,
                           const double* y,
                           const double* inverse,
                           double* half,
                           std::optional<Variant> variant) {
  Chosen(variant).half(blocks, y, inverse, half);
}

void SubtractBothProducts(std::uint32_t n,
                          std::size_t width,
                          const double* half,
                          const double* y,
                          const double* block,
                          double* own,
                          std::optional<Variant> variant) {
  Chosen(variant).gram(n, width, half, y, block, own);
}

void SubtractDiagonalProducts(std::uint32_t n,
                              std::size_t width,
                              const double* half,
                              const double* y,
                              const double* diagonal,
                              double* own,
                              std::optional<Variant> variant) {
  Chosen(variant).diagonal(n, width, half, y, diagonal, own);
}

void ComputeForms(std::span<const FormBlock> blocks,
                  std::uint32_t components,
                  const double* a,
                  std::size_t width,
                  double* forms,
                  std::optional<Variant> variant) {
  Chosen(variant).forms(blocks, components, a, width, forms);
}

}  // namespace vermo
