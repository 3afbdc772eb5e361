#pragma once

#include "checks/failure_codes.h"
#include "checks/kl_exception.h"
#include "linalg/normal_system.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace vermo {

// Covariance of the N unknowns from column first on, by rows: s0 squared times their cofactors,
// the whole block and not only its diagonal. Throws KlException -13001 on a negative variance.
template <std::size_t N>
[[nodiscard]] std::array<double, N * N> CovarianceBlock(const NormalSystem& cofactors,
                                                        std::int32_t first,
                                                        double s0) {
  ostra_bundle::Matrix block;
  const auto column = static_cast<std::uint32_t>(first);
  constexpr auto kSize = static_cast<std::uint32_t>(N);
  cofactors.CofactorBlock(block, column, kSize, column, kSize);
  std::array<double, N * N> covariance;
  for (std::size_t i = 0; i < N; ++i)
    for (std::size_t j = 0; j < N; ++j)
      covariance[N * i + j] =
          s0 * s0 * block.At(static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(j));
  for (std::size_t i = 0; i < N; ++i)
    if (covariance[N * i + i] < 0.0) throw KlException(failure::kNegativeVariance);
  return covariance;
}

// sqrt(g C transpose(g)): the standard deviation of a value with derivatives g.
template <std::size_t N>
[[nodiscard]] double PropagatedSigma(const std::array<double, N>& g,
                                     const std::array<double, N * N>& covariance) noexcept {
  double variance = 0.0;
  for (std::size_t i = 0; i < N; ++i)
    for (std::size_t j = 0; j < N; ++j) variance += g[i] * covariance[N * i + j] * g[j];
  return std::sqrt(std::max(0.0, variance));
}

}  // namespace vermo
