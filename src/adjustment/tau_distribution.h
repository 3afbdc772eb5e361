#pragma once

#include <cstdint>

namespace vermo {

// Normal deviate that is exceeded with probability 1 - p, by the rational approximation 26.2.23
// of Abramowitz and Stegun (1964), whose error is below 4.5e-4. For the upper half only: 1 unless
// 0.5 < p <= 1; at 1 itself not a number.
[[nodiscard]] double NormalQuantile(double p) noexcept;

// Critical value of the tau distribution (Pope 1976): with probability p the largest of n
// normalised residuals |v| / (sigma sqrt(q)) of a network with redundancy r stays below it, where
// sigma is estimated by the same network. The test is corrected for the n residuals as if they
// were independent, Student's t is taken from its Cornish-Fisher expansion in 1 / (r - 1), and
//   tau = sqrt(r t^2 / (t^2 + r - 1)).
// 1 for a redundancy of 1 or less.
[[nodiscard]] double TauCritical(std::int32_t n, std::int32_t r, double p) noexcept;

}  // namespace vermo
