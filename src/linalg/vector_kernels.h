#pragma once

#include <cstddef>
#include <span>

namespace vermo {

// y += a x over the columns of x: the inner loop of the elimination.
inline void AddScaled(std::span<double> y, std::span<const double> x, double a) noexcept {
  double* const target = y.data();
  const double* const source = x.data();
  for (std::size_t i = 0; i < x.size(); ++i) target[i] += a * source[i];
}

}  // namespace vermo
