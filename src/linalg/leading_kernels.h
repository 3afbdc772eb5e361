#pragma once

#include "linalg/dense_kernels.h"

#include <cstddef>
#include <cstdint>

namespace vermo {

// What one leading group does to the reduced system and takes from it. The group has n unknowns (at
// most 6) and links to trailing groups; W, Y and Q_ir are blocks of n rows by `width` columns, by
// rows, and a link owns a run of the columns.
struct LeadingLink {
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
  const LeadingLink* link;
  const LeadingPair* pair;
};

// reduced -= W^T Y at the places of all pairs.
void SubtractShares(const LeadingBlocks& blocks, const double* w, const double* y, double* reduced);

// cross = -Y Q with Q read at the places of all pairs.
void MultiplyByInverse(const LeadingBlocks& blocks,
                       const double* y,
                       const double* inverse,
                       double* cross);

// The variants behind them, for tests.
void SubtractShares(dense::Variant variant,
                    const LeadingBlocks& blocks,
                    const double* w,
                    const double* y,
                    double* reduced);
void MultiplyByInverse(dense::Variant variant,
                       const LeadingBlocks& blocks,
                       const double* y,
                       const double* inverse,
                       double* cross);

}  // namespace vermo
