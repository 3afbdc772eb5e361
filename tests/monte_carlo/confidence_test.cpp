// The intervals that the Monte Carlo tests rest on, against tables and against draws.

#include "monte_carlo/confidence.h"

#include "reference/network_builder.h"

#include <cmath>
#include <gtest/gtest.h>

namespace monte_carlo {
namespace {

TEST(Confidence, ChiSquareQuantilesAreThoseOfTables) {
  // Abramowitz and Stegun, table 26.8.
  EXPECT_NEAR(ChiSquareQuantile(0.95, 1.0), 3.84146, 5e-6);
  EXPECT_NEAR(ChiSquareQuantile(0.005, 10.0), 2.15586, 5e-6);
  EXPECT_NEAR(ChiSquareQuantile(0.999, 30.0), 59.7031, 5e-5);
  EXPECT_NEAR(ChiSquareQuantile(0.975, 100.0), 129.561, 5e-4);
}

TEST(Confidence, IntervalOfChiSquareDrawsIsExact) {
  const Interval interval = IntervalOfMean(OfChiSquare(1.0), 2000, 1e-5);
  // The probability near 1 is exact to 2e-12, its density there is 3e-7 in 2000 times the mean.
  EXPECT_NEAR(interval.low, ChiSquareQuantile(5e-6, 2000.0) / 2000.0, 1e-8);
  EXPECT_NEAR(interval.high, ChiSquareQuantile(1.0 - 5e-6, 2000.0) / 2000.0, 1e-8);
  const Interval ofS0 = IntervalOfMean(OfChiSquare(37.0), 1000, 1e-3);
  EXPECT_NEAR(ofS0.low, ChiSquareQuantile(5e-4, 37000.0) / 37000.0, 1e-8);
}

TEST(Confidence, MomentsAreThoseOfTheDistributions) {
  // Of F(1, r): mean r / (r - 2), variance 2 r^2 (r - 1) / ((r - 2)^2 (r - 4)), skewness
  // r sqrt(8 (r - 4)) / ((r - 6) sqrt(r - 1)).
  constexpr double r = 30.0;
  const Moments f = OfF(1.0, r);
  EXPECT_NEAR(f.first, r / (r - 2.0), 1e-12);
  EXPECT_NEAR(f.Variance(), 2.0 * r * r * (r - 1.0) / ((r - 2.0) * (r - 2.0) * (r - 4.0)), 1e-12);
  EXPECT_NEAR(
      f.Skewness(), r * std::sqrt(8.0 * (r - 4.0)) / ((r - 6.0) * std::sqrt(r - 1.0)), 1e-11);
  // Far redundancy leaves chi^2(1), whose skewness is sqrt(8).
  EXPECT_NEAR(OfF(1.0, 1e9).Skewness(), std::sqrt(8.0), 1e-6);
  EXPECT_NEAR(OfChiSquare(1.0).Skewness(), std::sqrt(8.0), 1e-12);
}

TEST(Confidence, MomentsOfTheSquaredExcessAreThoseOfDraws) {
  constexpr int kRedundancy = 20;
  constexpr int kDraws = 100000;
  reference::Random random(4711);
  double sum[3] = {}, squares[3] = {};
  for (int draw = 0; draw < kDraws; ++draw) {
    double square = 0.0;
    for (int i = 0; i < kRedundancy; ++i) square += std::pow(random.Normal(), 2.0) / kRedundancy;
    double power = 1.0;
    for (int k = 0; k < 3; ++k) {
      power *= std::pow(square - 1.0, 2.0);
      sum[k] += power;
      squares[k] += power * power;
    }
  }
  const Moments expected = OfSquaredExcess(kRedundancy);
  const double moments[3] = {expected.first, expected.second, expected.third};
  for (int k = 0; k < 3; ++k) {
    const double mean = sum[k] / kDraws;
    const double spread = std::sqrt((squares[k] / kDraws - mean * mean) / kDraws);
    EXPECT_NEAR(mean, moments[k], 4.0 * spread) << "power " << k + 1;
  }
}

}  // namespace
}  // namespace monte_carlo
