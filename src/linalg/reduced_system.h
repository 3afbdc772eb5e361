#pragma once

#include "linalg/elimination_order.h"
#include "linalg/indefinite_factor.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

namespace vermo {

// The symmetric system that is left when the leading groups are eliminated: square blocks, few of
// them not zero while images see only their neighbours. The blocks stand in two parts,
//
//        interior  root
//      | A         V^T |   A = L L^T   block-sparse, in an order that fills little; columns of
//      equal | V         R   |               structure form panels, and every panel holds its rows
//      of V
//                          S = R - V A^-1 V^T   dense, pivoted (IndefiniteFactor)
//
// so that what is not positive definite stands in the root: multipliers, and the last images of the
// order, without which a free network would leave A singular. A block of A whose pivots fail moves
// to the root.
//
//   panel of w columns          | L_JJ | w
//   (column-major)              | L_RJ | h: rows of later panels, then all rows of the root
class ReducedSystem {
 public:
  static constexpr std::uint32_t kNoBlock = std::numeric_limits<std::uint32_t>::max();

  // Where element (i, j) of a block stands in the values or in the inverse.
  struct Place {
    std::size_t offset;
    std::uint32_t rowStride;
    std::uint32_t columnStride;
  };

  // Lays the panels out for blocks of these sizes; isRoot marks what must stand in the root.
  void Arrange(const BlockPattern& pattern,
               const std::vector<std::uint32_t>& sizes,
               const std::vector<bool>& isRoot);

  // The block of rows a and columns b; it must be in the pattern or on the diagonal. Of a pair only
  // one place exists: that of (b, a) is its transpose.
  [[nodiscard]] Place PlaceOf(std::uint32_t a, std::uint32_t b) const;
  // Place of a block in the order of the elimination, counted in blocks of the interior and
  // unknowns of the root. Rows of a pair's place belong to the later block.
  [[nodiscard]] std::uint32_t Order(std::uint32_t block) const noexcept {
    return fPosition[block] != kNoBlock
               ? fPosition[block]
               : static_cast<std::uint32_t>(fBlockAt.size()) + fRootOffset[block];
  }
  // Whether block b follows a so that they have consecutive rows and columns wherever they meet
  // another block or each other.
  [[nodiscard]] bool AreNeighbours(std::uint32_t a, std::uint32_t b) const noexcept;
  // Whether the block has a place.
  [[nodiscard]] bool HasPlace(std::uint32_t a, std::uint32_t b) const;

  void Clear();
  [[nodiscard]] std::span<double> Values() noexcept { return fValues; }
  // Pivots of a block's unknowns must be above these.
  [[nodiscard]] std::span<double> Limits(std::uint32_t block) noexcept {
    return std::span(fLimits).subspan(fStart[block], fSizes[block]);
  }

  // Factorises the values in place. Returns kNoBlock, or the block of the interior whose pivot
  // failed. Throws KlException -39007 when the root is singular.
  std::uint32_t Factorize();
  // x := M^-1 x, x in the order of the elimination.
  void Solve(std::span<double> x) const;
  // Computes the blocks of the inverse that have a place (Erisman and Tinney 1975).
  void Invert();
  [[nodiscard]] std::span<const double> Inverse() const noexcept { return fInverse; }

  // First unknown of a block, counted in the order of the elimination: neighbours follow each
  // other.
  [[nodiscard]] std::uint32_t Start(std::uint32_t block) const noexcept { return fStart[block]; }
  [[nodiscard]] std::uint32_t Unknowns() const noexcept { return fUnknowns; }

 private:
  struct Row {
    std::uint32_t position;
    std::uint32_t offset;  // among the rows of its panel
    std::uint32_t size;
  };
  struct Panel {
    std::uint32_t firstPosition;
    std::uint32_t width;
    std::uint32_t height;      // w + h
    std::size_t values;        // offset of its first element
    std::vector<Row> rows;     // of later panels
    std::uint32_t rootOffset;  // first row of the root
    std::uint32_t first;       // unknown of the columns
  };

  void MakePanels(const EliminationOrder& order, std::uint32_t interior);
  // The first row of a position in a panel, its diagonal block included.
  [[nodiscard]] std::uint32_t RowIn(const Panel& panel,
                                    std::uint32_t panelIndex,
                                    std::uint32_t position) const;
  void UpdateLaterPanels(const Panel& panel);
  void GatherInverse(const Panel& panel, std::vector<double>& gathered) const;

  std::vector<std::uint32_t> fSizes;
  std::vector<std::uint32_t> fStart;
  std::uint32_t fUnknowns = 0;

  std::vector<std::uint32_t> fPosition;      // of a block in the interior, kNoBlock in the root
  std::vector<std::uint32_t> fBlockAt;       // of a position
  std::vector<std::uint32_t> fPanelOf;       // of a position
  std::vector<std::uint32_t> fColumnOffset;  // of a position in its panel
  std::vector<Panel> fPanels;
  std::vector<std::uint32_t> fRootOffset;  // of a block in the root
  std::uint32_t fRootStart = 0;            // first unknown of the root, which stands last
  std::uint32_t fRootSize = 0;
  std::size_t fRootValues = 0;

  std::vector<double> fValues;
  std::vector<double> fInverse;
  std::vector<double> fLimits;
  IndefiniteFactor fRoot;
  std::vector<double> fRootInverse;
  // Working memory.
  std::vector<double> fProduct, fGathered, fTransposed, fLower;
};

}  // namespace vermo
