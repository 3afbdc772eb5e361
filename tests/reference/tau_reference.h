#pragma once

#include <algorithm>
#include <cmath>

// Distributions of the outlier test in extended precision, from the incomplete beta function and
// the error function. Shares no code with the library.
namespace reference {

// Regularised incomplete beta function I_x(a, b) by its continued fraction (Abramowitz and Stegun
// 26.5.8), evaluated by Lentz's method.
inline long double RegularizedBeta(long double x, long double a, long double b) {
  if (!(x > 0)) return 0;
  if (!(x < 1)) return 1;
  if (x > (a + 1) / (a + b + 2)) return 1 - RegularizedBeta(1 - x, b, a);
  const auto guarded = [](long double value) {
    return std::fabs(value) < 1e-300L ? 1e-300L : value;
  };
  long double c = 1;
  long double d = 1 / guarded(1 - (a + b) * x / (a + 1));
  long double fraction = d;
  for (int m = 1; m < 100000; ++m) {
    const long double even = m * (b - m) * x / ((a + 2 * m - 1) * (a + 2 * m));
    d = 1 / guarded(1 + even * d);
    c = guarded(1 + even / c);
    fraction *= d * c;
    const long double odd = -(a + m) * (a + b + m) * x / ((a + 2 * m) * (a + 2 * m + 1));
    d = 1 / guarded(1 + odd * d);
    c = guarded(1 + odd / c);
    fraction *= d * c;
    if (std::fabs(d * c - 1) < 1e-18L) break;
  }
  const long double logFactor =
      std::lgamma(a + b) - std::lgamma(a) - std::lgamma(b) + a * std::log(x) + b * std::log1p(-x);
  return std::exp(logFactor) * fraction / a;
}

// The value at which a falling function of positive values takes the given level.
template <typename Function>
long double Inverse(const Function& falling, long double level) {
  long double low = 0;
  long double high = 1;
  while (falling(high) > level && high < 1e15L) high *= 2;
  for (int i = 0; i < 200; ++i) {
    const long double middle = (low + high) / 2;
    (falling(middle) > level ? low : high) = middle;
  }
  return (low + high) / 2;
}

// P(|W| > z) of a standard normal W, and the z of that probability.
inline long double NormalTail(long double z) { return std::erfc(z / std::sqrt(2.0L)); }
inline double NormalDeviate(long double tail) {
  return static_cast<double>(Inverse(NormalTail, tail));
}

// P(|t| > value) of Student's t with f degrees of freedom, and its inverse.
inline long double StudentTail(long double value, long double f) {
  return RegularizedBeta(f / (f + value * value), f / 2, 0.5L);
}
inline double StudentDeviate(long double tail, long double f) {
  return static_cast<double>(Inverse([f](long double t) { return StudentTail(t, f); }, tail));
}

// A residual normalised with the S0 of its own network of redundancy r: its square over r is of
// the beta distribution (1/2, (r - 1) / 2). P(value is exceeded), and the inverse.
inline double TauTail(long double value, long double r) {
  return static_cast<double>(RegularizedBeta(1 - value * value / r, (r - 1) / 2, 0.5L));
}
inline double TauDeviate(long double tail, long double r) {
  const long double f = r - 1;
  const long double t = Inverse([f](long double x) { return StudentTail(x, f); }, tail);
  return static_cast<double>(std::sqrt(r * t * t / (f + t * t)));
}

// P(value is exceeded) when an error moves the residual by delta of its standard deviations. With
// W ~ N(delta, 1) and X ~ chi^2 of r - 1 degrees of freedom, independent,
//   T^2 = r W^2 / (W^2 + X) > value^2   <=>   |W| > value sqrt(X / (r - value^2)),
// integrated over sqrt(X) by Simpson's rule.
inline double TauPower(long double value, long double r, long double delta) {
  if (value * value >= r) return 0;
  const long double f = r - 1;
  const long double slope = value / std::sqrt(r - value * value);
  const auto integrand = [&](long double chi) {
    if (!(chi > 0)) return 0.0L;
    const long double logDensity =
        (f - 1) * std::log(chi) - chi * chi / 2 - std::lgamma(f / 2) - (f / 2 - 1) * std::log(2.0L);
    const long double limit = slope * chi;
    return std::exp(logDensity) *
           (std::erfc((limit - delta) / std::sqrt(2.0L)) +
            std::erfc((limit + delta) / std::sqrt(2.0L))) /
           2;
  };
  const long double from = std::max(0.0L, std::sqrt(f) - 10);
  constexpr int kSteps = 1000;
  const long double step = (std::sqrt(f) + 10 - from) / kSteps;
  long double sum = 0;
  for (int i = 0; i <= kSteps; ++i)
    sum += (i == 0 || i == kSteps ? 1 : i % 2 == 1 ? 4 : 2) * integrand(from + step * i);
  return static_cast<double>(sum * step / 3);
}

}  // namespace reference
