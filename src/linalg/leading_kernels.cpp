#include "linalg/leading_kernels.h"

#include <algorithm>
#include <functional>
#include <type_traits>
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

// A kernel is a structure whose operation Run is compiled once for each instruction set.

// to(i, j) -= sum over r of a(r, i) b(r, j) for K rows. A depth is a number or, where
// it is worth code of its own, a type that stands for one.
template <std::uint32_t N, std::uint32_t K, typename Depth>
[[gnu::always_inline]] inline void SubtractOuter(double* to,
                                                 std::size_t stride,
                                                 const double* a,
                                                 const double* b,
                                                 std::size_t width,
                                                 Depth depth,
                                                 std::uint32_t columns) {
  LanesOf<N> rows[6];
  for (std::uint32_t r = 0; r < depth; ++r) rows[r] = Load<N>(a + r * width).lanes;
  for (std::uint32_t j = 0; j < columns; ++j) {
    double* column = to + j * stride;
    LanesOf<N> sum = Load<N>(column).lanes;
    for (std::uint32_t r = 0; r < depth; ++r) sum -= rows[r] * b[r * width + j];
    Store<K, N>(column, sum);
  }
}

struct Shares {
  template <bool kRoundUp, typename Depth>
  [[gnu::always_inline]] static void Run(
      Depth depth, const LeadingBlocks& blocks, const double* w, const double* y, double* reduced) {
    const LeadingPair* pair = blocks.pair;
    for (std::uint32_t x = 0; x < blocks.links; ++x)
      for (std::uint32_t z = 0; z <= x; ++z, ++pair) {
        const LeadingRun& rows = blocks.link[pair->swapped ? z : x];
        const LeadingRun& columns = blocks.link[pair->swapped ? x : z];
        InPieces<kRoundUp>(rows.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
          SubtractOuter<N, K>(reduced + pair->offset + first,
                              pair->stride,
                              w + rows.first + first,
                              y + columns.first,
                              blocks.width,
                              depth,
                              columns.size);
        });
      }
  }
};

// cross(:, rows) -= Y(:, columns) Q^T for K rows
template <std::uint32_t N, std::uint32_t K, typename Depth>
[[gnu::always_inline]] inline void SubtractAlong(double* cross,
                                                 const double* y,
                                                 std::size_t width,
                                                 const double* q,
                                                 std::size_t stride,
                                                 Depth depth,
                                                 std::uint32_t columns) {
  LanesOf<N> sum[6];
  for (std::uint32_t r = 0; r < depth; ++r) sum[r] = Load<N>(cross + r * width).lanes;
  for (std::uint32_t j = 0; j < columns; ++j) {
    const LanesOf<N> column = Load<N>(q + j * stride).lanes;
    for (std::uint32_t r = 0; r < depth; ++r) sum[r] -= column * y[r * width + j];
  }
  for (std::uint32_t r = 0; r < depth; ++r) Store<K, N>(cross + r * width, sum[r]);
}

// cross(:, columns) -= Y(:, rows) Q for K columns
template <std::uint32_t N, std::uint32_t K, typename Depth>
[[gnu::always_inline]] inline void SubtractAcross(double* cross,
                                                  const double* y,
                                                  std::size_t width,
                                                  const double* q,
                                                  std::size_t stride,
                                                  Depth depth,
                                                  std::uint32_t rows) {
  LanesOf<N> sum[6];
  for (std::uint32_t r = 0; r < depth; ++r) sum[r] = Load<N>(cross + r * width).lanes;
  for (std::uint32_t i = 0; i < rows; ++i) {
    LanesOf<N> row{};
    for (std::uint32_t j = 0; j < K; ++j) row[j] = q[j * stride + i];
    for (std::uint32_t r = 0; r < depth; ++r) sum[r] -= row * y[r * width + i];
  }
  for (std::uint32_t r = 0; r < depth; ++r) Store<K, N>(cross + r * width, sum[r]);
}

struct Inverse {
  template <bool kRoundUp, typename Depth>
  [[gnu::always_inline]] static void Run(Depth depth,
                                         const LeadingBlocks& blocks,
                                         const double* y,
                                         const double* inverse,
                                         double* cross) {
    std::fill_n(cross, depth * blocks.width, 0.0);
    const LeadingPair* pair = blocks.pair;
    for (std::uint32_t x = 0; x < blocks.links; ++x)
      for (std::uint32_t z = 0; z <= x; ++z, ++pair) {
        const LeadingRun& rows = blocks.link[pair->swapped ? z : x];
        const LeadingRun& columns = blocks.link[pair->swapped ? x : z];
        const double* q = inverse + pair->offset;
        InPieces<kRoundUp>(rows.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
          SubtractAlong<N, K>(cross + rows.first + first,
                              y + columns.first,
                              blocks.width,
                              q + first,
                              pair->stride,
                              depth,
                              columns.size);
        });
        if (x == z) continue;
        InPieces<kRoundUp>(columns.size,
                           [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
                             SubtractAcross<N, K>(cross + columns.first + first,
                                                  y + rows.first,
                                                  blocks.width,
                                                  q + first * std::size_t{pair->stride},
                                                  pair->stride,
                                                  depth,
                                                  rows.size);
                           });
      }
  }
};

// sum(r) -= factor Y(r, columns) Q^T for the rows of one piece
template <std::uint32_t N, typename Depth>
[[gnu::always_inline]] inline void SubtractColumns(LanesOf<N>* sum,
                                                   double factor,
                                                   const double* y,
                                                   std::size_t width,
                                                   const double* q,
                                                   std::size_t stride,
                                                   Depth depth,
                                                   std::uint32_t columns) {
  for (std::uint32_t j = 0; j < columns; ++j) {
    const LanesOf<N> column = Load<N>(q + j * stride).lanes;
    for (std::uint32_t r = 0; r < depth; ++r) sum[r] -= column * (factor * y[r * width + j]);
  }
}

// A piece of `half` is summed up over all its pairs before it is stored; turned pairs, few or none,
// have come before.
struct Half {
  template <bool kRoundUp, typename Depth>
  [[gnu::always_inline]] static void Run(Depth depth,
                                         const LeadingBlocks& blocks,
                                         const double* y,
                                         const double* inverse,
                                         double* half) {
    const std::size_t width = blocks.width;
    std::fill_n(half, depth * width, 0.0);
    const LeadingPair* pair = blocks.pair;
    for (std::uint32_t x = 0; x < blocks.links; ++x)
      for (std::uint32_t z = 0; z <= x; ++z, ++pair) {
        if (!pair->swapped) continue;
        const LeadingRun& rows = blocks.link[z];
        const LeadingRun& columns = blocks.link[x];
        InPieces<kRoundUp>(rows.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
          SubtractAlong<N, K>(half + rows.first + first,
                              y + columns.first,
                              width,
                              inverse + pair->offset + first,
                              pair->stride,
                              depth,
                              columns.size);
        });
      }
    const LeadingPair* pairs = blocks.pair;
    for (std::uint32_t x = 0; x < blocks.links; pairs += ++x) {
      const LeadingRun& rows = blocks.link[x];
      InPieces<kRoundUp>(rows.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
        LanesOf<N> sum[6];
        double* piece = half + rows.first + first;
        for (std::uint32_t r = 0; r < depth; ++r) sum[r] = Load<N>(piece + r * width).lanes;
        for (std::uint32_t z = 0; z < x; ++z) {
          const LeadingRun& columns = blocks.link[z];
          if (!pairs[z].swapped)
            SubtractColumns<N>(sum,
                               1.0,
                               y + columns.first,
                               width,
                               inverse + pairs[z].offset + first,
                               pairs[z].stride,
                               depth,
                               columns.size);
        }
        // Of the pair with itself columns before the piece's eight count whole, the eight half.
        const std::uint32_t eight = first - first % 8;
        const std::uint32_t count = std::min(rows.size - eight, std::uint32_t{8});
        const double* own = inverse + pairs[x].offset + first;
        const std::size_t stride = pairs[x].stride;
        SubtractColumns<N>(sum, 1.0, y + rows.first, width, own, stride, depth, eight);
        SubtractColumns<N>(
            sum, 0.5, y + rows.first + eight, width, own + eight * stride, stride, depth, count);
        for (std::uint32_t r = 0; r < depth; ++r) Store<K, N>(piece + r * width, sum[r]);
      });
    }
  }
};

// own(i, k) = block(i, k) - half(i) y(k)^T - y(i) half(k)^T. Column c is summed up in lane c % 8.
struct Gram {
  template <bool /*kRoundUp*/, typename Depth>
  [[gnu::always_inline]] static void Run(Depth depth,
                                         std::size_t width,
                                         const double* half,
                                         const double* y,
                                         const double* block,
                                         double* own) {
    const std::size_t whole = width - width % 8;
    for (std::uint32_t i = 0; i < depth; ++i)
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
        for (std::size_t c = whole; c < width; ++c)
          lanes[c - whole] += hi[c] * yk[c] + yi[c] * hk[c];
        const std::size_t place = std::size_t{i} * depth + k;
        own[place] = own[std::size_t{k} * depth + i] = block[place] - SumOf(lanes);
      }
  }
};

// own(i) = diagonal(i) - 2 half(i) y(i)^T, summed up in the same lanes.
struct Diagonal {
  template <bool /*kRoundUp*/, typename Depth>
  [[gnu::always_inline]] static void Run(Depth depth,
                                         std::size_t width,
                                         const double* half,
                                         const double* y,
                                         const double* diagonal,
                                         double* own) {
    const std::size_t whole = width - width % 8;
    for (std::uint32_t i = 0; i < depth; ++i) {
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
};

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

struct IntoRuns {
  template <bool kRoundUp, typename Depth>
  [[gnu::always_inline]] static void Run(Depth depth,
                                         std::span<const LeadingRun> runs,
                                         double* blocks,
                                         const double* matrix,
                                         std::size_t width,
                                         const double* y) {
    for (const LeadingRun& run : runs)
      InPieces<kRoundUp>(run.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
        LanesOf<N> rows[6];
        for (std::uint32_t r = 0; r < depth; ++r)
          rows[r] = Load<N>(y + r * width + run.first + first).lanes;
        for (std::uint32_t i = 0; i < depth; ++i) {
          LanesOf<N> sum = rows[0] * matrix[std::size_t{i} * depth];
          for (std::uint32_t r = 1; r < depth; ++r)
            sum += rows[r] * matrix[std::size_t{i} * depth + r];
          Store<K, N>(blocks + run.place + i * std::size_t{run.size} + first, sum);
        }
      });
  }
};

struct Combine {
  template <bool kRoundUp>
  [[gnu::always_inline]] static void Run(const LeadingBlocks& blocks,
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
};

struct Vector {
  template <bool kRoundUp, typename Depth>
  [[gnu::always_inline]] static void Run(
      Depth depth, const LeadingBlocks& blocks, const double* y, const double* x, double* dots) {
    LanesOf<8> sums[6] = {};
    for (const LeadingRun& run : std::span(blocks.link, blocks.links))
      InPieces<kRoundUp>(run.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
        const LanesOf<N> piece = Load<N>(x + run.place + first).lanes;
        for (std::uint32_t i = 0; i < depth; ++i)
          AddPiece<K, kRoundUp, N>(
              sums[i], first, Load<N>(y + i * blocks.width + run.first + first).lanes * piece);
      });
    for (std::uint32_t i = 0; i < depth; ++i) {
      double lanes[8];
      Store<8, 8>(lanes, sums[i]);
      dots[i] = SumOf(lanes);
    }
  }
};

struct Forms {
  template <std::uint32_t C, bool kRoundUp>
  [[gnu::always_inline]] static void Run(std::span<const FormBlock> blocks,
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
};

struct Scattered {
  template <bool kRoundUp, typename Depth>
  [[gnu::always_inline]] static void Run(Depth depth,
                                         std::span<const LeadingRun> runs,
                                         const double* blocks,
                                         const double* matrix,
                                         std::size_t width,
                                         double* y) {
    for (const LeadingRun& run : runs)
      InPieces<kRoundUp>(run.size, [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
        LanesOf<N> rows[6];
        for (std::uint32_t r = 0; r < depth; ++r)
          rows[r] = Load<N>(blocks + run.place + r * std::size_t{run.size} + first).lanes;
        for (std::uint32_t i = 0; i < depth; ++i) {
          LanesOf<N> sum = rows[0] * matrix[std::size_t{i} * depth];
          for (std::uint32_t r = 1; r < depth; ++r)
            sum += rows[r] * matrix[std::size_t{i} * depth + r];
          Store<K, N>(y + i * width + run.first + first, sum);
        }
      });
  }
};

struct Products {
  template <std::uint32_t C, bool /*kRoundUp*/>
  [[gnu::always_inline]] static void Run(std::span<const ProductBlock> blocks,
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
};

template <std::uint32_t N>
using Constant = std::integral_constant<std::uint32_t, N>;

struct Leading {
  template <std::uint32_t C, bool kRoundUp>
  [[gnu::always_inline]] static void Run(const LeadingProducts& products,
                                         const ProductRows& rows,
                                         const double* misclosures) {
    if (products.n == 3)
      Add<C, kRoundUp>(Constant<3>{}, products, rows, misclosures);
    else if (products.n == 6)
      Add<C, kRoundUp>(Constant<6>{}, products, rows, misclosures);
    else
      Add<C, kRoundUp>(products.n, products, rows, misclosures);
  }

 private:
  template <std::uint32_t C, bool kRoundUp, typename Depth>
  [[gnu::always_inline]] static void Add(Depth n,
                                         const LeadingProducts& products,
                                         const ProductRows& rows,
                                         const double* misclosures) {
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
      InPieces<kRoundUp>(k == 0 ? n : coupling.size,
                         [&]<std::uint32_t N, std::uint32_t K>(std::uint32_t first) {
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
};

// Tiles of kRows rows and N columns are summed up in registers; those above the diagonal are left
// out.
struct Normals {
  template <bool kRoundUp>
  [[gnu::always_inline]] static void Run(GatheredRows& rows) {
    constexpr std::uint32_t N = kRoundUp ? 8 : 4;
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
};

// Nearly all leading groups are points.
template <typename Kernel>
struct ByDepth {
  template <bool kRoundUp, typename... Arguments>
  [[gnu::always_inline]] static void Run(std::uint32_t depth, Arguments... arguments) {
    if (depth == 3)
      Kernel::template Run<kRoundUp>(Constant<3>{}, arguments...);
    else
      Kernel::template Run<kRoundUp>(depth, arguments...);
  }
};

template <typename Kernel>
struct ByComponents {
  template <bool kRoundUp, typename... Arguments>
  [[gnu::always_inline]] static void Run(std::uint32_t components, Arguments... arguments) {
    if (components == 2)
      Kernel::template Run<2, kRoundUp>(arguments...);
    else if (components == 1)
      Kernel::template Run<1, kRoundUp>(arguments...);
    else
      Kernel::template Run<3, kRoundUp>(arguments...);
  }
};

// The compiler uses the registers of an instruction set in functions that name it themselves, with
// the whole kernel inlined.
template <typename Kernel, typename... Arguments>
[[gnu::noinline, gnu::flatten]] void RunPortable(Arguments... arguments) {
  Kernel::template Run<false>(arguments...);
}
#if defined(__x86_64__)
template <typename Kernel, typename... Arguments>
[[gnu::target("avx2,fma"), gnu::flatten]] void RunAvx2(Arguments... arguments) {
  Kernel::template Run<false>(arguments...);
}
template <typename Kernel, typename... Arguments>
[[gnu::target("avx512f,fma"), gnu::flatten]] void RunAvx512(Arguments... arguments) {
  Kernel::template Run<true>(arguments...);
}
#endif

Variant Best() noexcept {
  static const Variant best = dense::BestVariant();
  return best;
}

template <typename Kernel, typename... Arguments>
void Run([[maybe_unused]] std::optional<Variant> variant, Arguments... arguments) {
#if defined(__x86_64__)
  const Variant chosen = variant ? *variant : Best();
  if (chosen == Variant::Avx512) return RunAvx512<Kernel>(arguments...);
  if (chosen == Variant::Avx2) return RunAvx2<Kernel>(arguments...);
#endif
  RunPortable<Kernel>(arguments...);
}

}  // namespace

void MultiplyScattered(std::uint32_t n,
                       std::span<const LeadingRun> runs,
                       const double* blocks,
                       const double* matrix,
                       std::size_t width,
                       double* y,
                       std::optional<Variant> variant) {
  Run<ByDepth<Scattered>>(variant, n, runs, blocks, matrix, width, y);
}

void MultiplyIntoRuns(std::uint32_t n,
                      std::span<const LeadingRun> runs,
                      double* blocks,
                      const double* matrix,
                      std::size_t width,
                      const double* y,
                      std::optional<Variant> variant) {
  Run<ByDepth<IntoRuns>>(variant, n, runs, blocks, matrix, width, y);
}

void SubtractCombined(const LeadingBlocks& blocks,
                      const double* y,
                      const double* factors,
                      double* x,
                      std::optional<Variant> variant) {
  Run<Combine>(variant, std::cref(blocks), y, factors, x);
}

void MultiplyVector(const LeadingBlocks& blocks,
                    const double* y,
                    const double* x,
                    double* dots,
                    std::optional<Variant> variant) {
  Run<ByDepth<Vector>>(variant, blocks.n, std::cref(blocks), y, x, dots);
}

void AddProducts(std::span<const ProductBlock> blocks,
                 const ProductRows& rows,
                 std::optional<Variant> variant) {
  Run<ByComponents<Products>>(variant, rows.components, blocks, std::cref(rows));
}

void AddToLeading(const LeadingProducts& products,
                  const ProductRows& rows,
                  const double* misclosures,
                  std::optional<Variant> variant) {
  Run<ByComponents<Leading>>(
      variant, rows.components, std::cref(products), std::cref(rows), misclosures);
}

void ComputeNormals(GatheredRows& rows, std::optional<Variant> variant) {
  Run<Normals>(variant, std::ref(rows));
}

void SubtractShares(const LeadingBlocks& blocks,
                    const double* w,
                    const double* y,
                    double* reduced,
                    std::optional<Variant> variant) {
  Run<ByDepth<Shares>>(variant, blocks.n, std::cref(blocks), w, y, reduced);
}

void MultiplyByInverse(const LeadingBlocks& blocks,
                       const double* y,
                       const double* inverse,
                       double* cross,
                       std::optional<Variant> variant) {
  Run<ByDepth<Inverse>>(variant, blocks.n, std::cref(blocks), y, inverse, cross);
}

void MultiplyByHalfInverse(const LeadingBlocks& blocks,
                           const double* y,
                           const double* inverse,
                           double* half,
                           std::optional<Variant> variant) {
  Run<ByDepth<Half>>(variant, blocks.n, std::cref(blocks), y, inverse, half);
}

void SubtractBothProducts(std::uint32_t n,
                          std::size_t width,
                          const double* half,
                          const double* y,
                          const double* block,
                          double* own,
                          std::optional<Variant> variant) {
  Run<ByDepth<Gram>>(variant, n, width, half, y, block, own);
}

void SubtractDiagonalProducts(std::uint32_t n,
                              std::size_t width,
                              const double* half,
                              const double* y,
                              const double* diagonal,
                              double* own,
                              std::optional<Variant> variant) {
  Run<ByDepth<Diagonal>>(variant, n, width, half, y, diagonal, own);
}

void ComputeForms(std::span<const FormBlock> blocks,
                  std::uint32_t components,
                  const double* a,
                  std::size_t width,
                  double* forms,
                  std::optional<Variant> variant) {
  Run<ByComponents<Forms>>(variant, components, blocks, a, width, forms);
}

}  // namespace vermo
