#pragma once

#include <cstdint>
#include <vector>

namespace vermo {

// Which blocks of a symmetric block matrix are not zero: for every block row the others that it
// meets, ascending.
using BlockPattern = std::vector<std::vector<std::uint32_t>>;

// An order of elimination and what it leaves: the blocks of column j of the factor, behind the
// diagonal, as positions in the order, ascending.
struct EliminationOrder {
  std::vector<std::uint32_t> order;  // position -> block
  BlockPattern structure;            // by position
};

// Minimum degree (Tinney and Walker 1967) with the degree counted in unknowns: the block that meets
// the fewest is eliminated next, which joins all that it meets. Columns of one chain of the
// elimination tree stand next to each other.
[[nodiscard]] EliminationOrder OrderByMinimumDegree(const BlockPattern& pattern,
                                                    const std::vector<std::uint32_t>& sizes);

}  // namespace vermo
