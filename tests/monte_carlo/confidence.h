#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

// Confidence intervals of the mean of a number of draws.
namespace monte_carlo {

struct Interval {
  double low = 0.0;
  double high = 0.0;
  [[nodiscard]] bool Contains(double value) const { return value >= low && value <= high; }
};

// P(chi^2 of f degrees of freedom <= x), the regularised incomplete gamma function P(f / 2, x / 2)
// by its series (Abramowitz and Stegun 6.5.29).
inline double ChiSquareProbability(double x, double f) {
  if (!(x > 0.0)) return 0.0;
  const double a = f / 2.0;
  const double y = x / 2.0;
  double term = 1.0 / a;
  double sum = term;
  for (double n = a + 1.0; term > 1e-17 * sum; n += 1.0) {
    term *= y / n;
    sum += term;
  }
  return std::min(1.0, sum * std::exp(a * std::log(y) - y - std::lgamma(a)));
}

inline double ChiSquareQuantile(double probability, double f) {
  double low = 0.0;
  double high = f + 20.0 * std::sqrt(2.0 * f) + 200.0;
  for (int i = 0; i < 100; ++i) {
    const double middle = (low + high) / 2.0;
    (ChiSquareProbability(middle, f) < probability ? low : high) = middle;
  }
  return (low + high) / 2.0;
}

// Raw moments of one draw.
struct Moments {
  double first, second, third;

  [[nodiscard]] double Variance() const { return second - first * first; }
  [[nodiscard]] double Skewness() const {
    return (third - 3.0 * first * second + 2.0 * first * first * first) / std::pow(Variance(), 1.5);
  }
};

// Of chi^2(f) / f.
inline Moments OfChiSquare(double f) {
  return {1.0, 1.0 + 2.0 / f, (1.0 + 2.0 / f) * (1.0 + 4.0 / f)};
}

// Of the ratio (chi^2(f) / f) / (chi^2(r) / r) of independent numbers, r > 6: what chi^2(f) / f
// has, times those of r / chi^2(r).
inline Moments OfF(double f, double r) {
  const Moments above = OfChiSquare(f);
  const double first = r / (r - 2.0);
  const double second = first * r / (r - 4.0);
  const double third = second * r / (r - 6.0);
  return {above.first * first, above.second * second, above.third * third};
}

// Of (chi^2(r) / r - 1)^2, from the cumulants 2^(n-1) (n-1)! r of chi^2(r).
inline Moments OfSquaredExcess(double r) {
  const double k2 = 2.0 / r, k3 = 8.0 / (r * r), k4 = 48.0 / (r * r * r);
  const double k6 = 3840.0 / std::pow(r, 5.0);
  return {k2, k4 + 3.0 * k2 * k2, k6 + 15.0 * k4 * k2 + 10.0 * k3 * k3 + 15.0 * k2 * k2 * k2};
}

// Where the mean of independent draws lies but for the given probability, half of it on each side.
// The distribution of the mean is taken as that of a + b chi^2(f) of the same mean, variance and
// skewness. For draws that are themselves chi^2(k) / k this is exact: f is k times their number.
// For others the next term is the excess of the kurtosis over that of the chi-square, divided by
// the number of draws.
inline Interval IntervalOfMean(const Moments& draw, std::size_t draws, double risk) {
  const auto n = static_cast<double>(draws);
  const double skewness = draw.Skewness() / std::sqrt(n);
  const double f = 8.0 / (skewness * skewness);
  const double scale = std::sqrt(draw.Variance() / n / (2.0 * f));
  return {draw.first + scale * (ChiSquareQuantile(risk / 2.0, f) - f),
          draw.first + scale * (ChiSquareQuantile(1.0 - risk / 2.0, f) - f)};
}

}  // namespace monte_carlo
