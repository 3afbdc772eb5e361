#pragma once

#include "linalg/design_row.h"

#include <array>
#include <cstdint>
#include <span>

namespace vermo {

// Linearised equations of one observation: working memory that the engine hands to one
// observation after another, without heap storage of its own.
//   misclosures  l_i = measured - computed, in the unit of the observation
//   weights      effective weight of component i
//   rows         row i: (column, d computed_i / d unknown); equal columns add up
struct EquationBlock {
  static constexpr std::uint32_t kLargestDimension = 3;

  std::array<DesignRow, kLargestDimension> rows;
  std::array<double, kLargestDimension> misclosures;
  std::array<double, kLargestDimension> weights;
  std::uint32_t rowCount = 0;
  std::uint32_t count = 0;  // of misclosures and weights

  // Empty misclosures and weights, and dimension empty rows.
  void Reset(std::uint32_t dimension) noexcept {
    for (std::uint32_t i = 0; i < dimension; ++i) rows[i].clear();
    rowCount = dimension;
    count = 0;
  }

  // The rows of the components that were appended.
  [[nodiscard]] std::span<DesignRow> FilledRows() noexcept { return std::span(rows).first(count); }

  void Append(double misclosure, double weight) noexcept {
    misclosures[count] = misclosure;
    weights[count] = weight;
    ++count;
  }
};

}  // namespace vermo
