// Critical values of the outlier test against tables and against the exact distributions.

#include "adjustment/tau_distribution.h"

#include "reference/tau_reference.h"

#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <utility>

namespace vermo::test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();
// Error of the rational approximation 26.2.23, as Abramowitz and Stegun state it.
constexpr double kNormalError = 4.5e-4;

using Table = std::initializer_list<std::pair<double, double>>;

// Two-sided tail that one of n simultaneous tests has for itself.
long double Share(std::int32_t n, double p) { return (1.0L - p) / n; }

// The critical value that an exact Student quantile and a normal deviate off by `error` give.
double ExactTau(std::int32_t n, std::int32_t r, double p, double error = 0.0) {
  const double z = reference::NormalDeviate(Share(n, p)) + error;
  return reference::TauDeviate(reference::NormalTail(z), r);
}

TEST(TauReference, AgreesWithTablesOfStudentsT) {
  // Two-sided; three or four digits of any printed table.
  EXPECT_NEAR(reference::StudentDeviate(0.05L, 1), 12.7062, 5e-5);
  EXPECT_NEAR(reference::StudentDeviate(0.05L, 10), 2.2281, 5e-5);
  EXPECT_NEAR(reference::StudentDeviate(0.01L, 10), 3.1693, 5e-5);
  EXPECT_NEAR(reference::StudentDeviate(0.05L, 30), 2.0423, 5e-5);
  EXPECT_NEAR(reference::StudentDeviate(0.001L, 5), 6.8688, 5e-5);
}

TEST(TauReference, TailIsTheInverseOfTheDeviate) {
  for (const double r : {3.0, 10.0, 100.0, 5000.0})
    for (const double tail : {0.5, 0.05, 1e-3, 1e-6})
      EXPECT_NEAR(reference::TauTail(reference::TauDeviate(tail, r), r) / tail, 1.0, 1e-9)
          << "r " << r << ", tail " << tail;
}

TEST(TauReference, PowerWithoutErrorIsTheTail) {
  for (const double r : {3.0, 10.0, 45.0, 400.0})
    for (const double tau : {1.0, 1.6, 2.5, 3.4})
      EXPECT_NEAR(
          reference::TauPower(tau, r, 0), tau * tau < r ? reference::TauTail(tau, r) : 0.0, 1e-9)
          << "r " << r << ", value " << tau;
}

TEST(TauReference, PowerAgreesWithAdaptiveQuadrature) {
  // From a quadrature with 20 digits.
  EXPECT_NEAR(reference::TauPower(3.3, 45, 4), 0.600517480849, 1e-10);
  EXPECT_NEAR(reference::TauPower(2.5, 10, 3), 0.287259518837, 1e-10);
}

TEST(NormalQuantile, StaysWithinThePublishedErrorOfTabulatedDeviates) {
  for (const auto& [p, deviate] : Table{{0.75, 0.674490},
                                        {0.9, 1.281552},
                                        {0.95, 1.644854},
                                        {0.975, 1.959964},
                                        {0.99, 2.326348},
                                        {0.995, 2.575829},
                                        {0.999, 3.090232},
                                        {0.9999, 3.719016},
                                        {0.99999, 4.264891},
                                        {0.999999, 4.753424}})
    EXPECT_NEAR(NormalQuantile(p), deviate, kNormalError) << p;
}

TEST(NormalQuantile, StaysWithinThePublishedErrorEverywhere) {
  double worst = 0.0;
  const auto compare = [&worst](long double tail) {
    const double error = std::fabs(NormalQuantile(static_cast<double>(1 - tail / 2)) -
                                   reference::NormalDeviate(tail));
    EXPECT_LT(error, kNormalError) << "two-sided tail " << tail;
    worst = std::max(worst, error);
  };
  for (int i = 1; i < 1000; ++i) compare(i / 1000.0L);
  // Down to where 1 - p has six digits left.
  for (long double tail = 1e-3L; tail > 1e-10L; tail /= 2) compare(tail);
  // The published error is reached: it is this approximation and no better one.
  EXPECT_GT(worst, 4.4e-4);
}

TEST(NormalQuantile, EvaluatesTheConstantsAsPrinted) {
  // The rational function in 40 digits.
  EXPECT_NEAR(NormalQuantile(0.975), 1.9603949169253401, 1e-13);
  EXPECT_NEAR(NormalQuantile(0.9975), 2.8073947229117151, 1e-13);
}

TEST(NormalQuantile, LowerHalfAndImpossibleProbabilitiesGiveOne) {
  for (const double p : {0.5, 0.3, 0.0, -0.0, -1.0, -kInfinity, kNaN})
    EXPECT_EQ(NormalQuantile(p), 1.0) << p;
  for (const double p : {std::nextafter(1.0, 2.0), 1.5, kInfinity})
    EXPECT_EQ(NormalQuantile(p), 1.0) << p;
}

TEST(NormalQuantile, JustAboveTheMiddleIsZeroWithinThePublishedError) {
  EXPECT_NEAR(NormalQuantile(std::nextafter(0.5, 1.0)), 0.0, kNormalError);
}

TEST(NormalQuantile, CertaintyHasNoDeviate) { EXPECT_TRUE(std::isnan(NormalQuantile(1.0))); }

TEST(TauCritical, WithoutRedundancyIsOne) {
  for (const std::int32_t r : {0, -1, -1000, std::numeric_limits<std::int32_t>::min()})
    for (const std::int32_t n : {1, 50, kLargest})
      EXPECT_EQ(TauCritical(n, r, 0.95), 1.0) << n << ' ' << r;
}

TEST(TauCritical, WithRedundancyOneIsExactlyOne) {
  // A single redundancy: every normalised residual is S0 itself.
  for (const std::int32_t n : {1, 2, 3, 7, 100, 4148, 1000000})
    for (const double p : {0.5, 0.9, 0.95, 0.99})
      EXPECT_EQ(TauCritical(n, 1, p), 1.0) << n << ' ' << p;
}

TEST(TauCritical, AgreesWithTheTableOfThompson) {
  // The rejection limits of a single sample of N at 5 %, N = r + 1, relate the deviation to its
  // standard deviation without sqrt(1 - 1 / N): tau sqrt((N - 1) / N). The last printed digit adds
  // half a unit to the error of the deviate, which grows no further on its way to tau.
  for (const auto& [size, limit] : Table{{10, 1.7984},
                                         {11, 1.8153},
                                         {12, 1.8290},
                                         {15, 1.8579},
                                         {20, 1.8853},
                                         {30, 1.9114},
                                         {50, 1.9314},
                                         {100, 1.9459}}) {
    const double tau = TauCritical(1, static_cast<std::int32_t>(size) - 1, 0.95);
    EXPECT_NEAR(tau * std::sqrt((size - 1.0) / size), limit, kNormalError + 5e-5) << size;
  }
}

TEST(TauCritical, ErrsByItsTwoApproximationsAndNoMore) {
  // The normal deviate may be off by the published error. What the expansion of Student's t lacks
  // is its next term (27 z^11 + 339 z^9 + 930 z^7 - 1782 z^5 - 765 z^3 + 17955 z) / 368640 f^5,
  // and from f = 9 on less than a half of that in further terms.
  for (const std::int32_t n : {1, 8, 96, 1000, 4148, 100000})
    for (const std::int32_t r : {10, 11, 15, 20, 45, 100, 1000, 3726, 1000000}) {
      const double f = r - 1.0;
      const double z = reference::NormalDeviate(Share(n, 0.95));
      const double z2 = z * z;
      const double next = z *
                          (((((27 * z2 + 339) * z2 + 930) * z2 - 1782) * z2 - 765) * z2 + 17955) /
                          368640 / std::pow(f, 5);
      // d tau / d t.
      const double t = reference::StudentDeviate(Share(n, 0.95), f);
      const double slope = std::sqrt(f + 1) * f / std::pow(f + t * t, 1.5);
      const double missing = 1.5 * std::fabs(next) * slope + 1e-9;
      const double tau = TauCritical(n, r, 0.95);
      EXPECT_GE(tau, ExactTau(n, r, 0.95, -kNormalError) - missing) << n << ' ' << r;
      EXPECT_LE(tau, ExactTau(n, r, 0.95, kNormalError) + missing) << n << ' ' << r;
    }
}

TEST(TauCritical, ErrsByLessThanAFourHundredthForSmallRedundancy) {
  // There the expansion of t itself is far off, but tau hardly depends on t: it comes close to
  // sqrt(r), which it cannot pass.
  for (const std::int32_t n : {1, 2, 8, 96, 1000, 30000, 1000000})
    for (std::int32_t r = 2; r < 10; ++r) {
      const double tau = TauCritical(n, r, 0.95);
      EXPECT_NEAR(tau, ExactTau(n, r, 0.95), 0.0025) << n << ' ' << r;
      EXPECT_LT(tau, std::sqrt(r)) << n << ' ' << r;
    }
}

TEST(TauCritical, EvaluatesTheExpansionAsPrinted) {
  // The printed constants and terms in 40 digits. 1 - 0.05 / 2 n rounds to 1e-16, which the
  // steep end of the quantile enlarges to some 1e-13 n.
  EXPECT_NEAR(TauCritical(1, 2, 0.95), 1.4087179451688938, 1e-13);
  EXPECT_NEAR(TauCritical(10, 3, 0.95), 1.7220702031219236, 1e-12);
  EXPECT_NEAR(TauCritical(100, 5, 0.95), 2.1935252759591843, 1e-11);
  EXPECT_NEAR(TauCritical(1000, 10, 0.95), 2.9191314806078969, 1e-10);
  EXPECT_NEAR(TauCritical(4000, 3500, 0.95), 4.363590195183289, 4e-10);
}

TEST(TauCritical, SharesTheRiskAmongTheObservations) {
  for (const std::int32_t r : {2, 5, 45, 1000})
    for (const std::int32_t n : {2, 10, 96})
      EXPECT_NEAR(TauCritical(n, r, 0.95), TauCritical(1, r, 1.0 - 0.05 / n), 1e-11)
          << n << ' ' << r;
}

TEST(TauCritical, GrowsWithTheNumberOfObservations) {
  for (const std::int32_t r : {2, 3, 10, 100, 3726}) {
    double last = 0.0;
    for (std::int32_t n = 1; n <= 1 << 20; n *= 2) {
      const double tau = TauCritical(n, r, 0.95);
      EXPECT_GT(tau, last) << n << ' ' << r;
      last = tau;
    }
  }
}

TEST(TauCritical, GrowsWithTheProbability) {
  double last = 0.0;
  for (const double p : {0.5, 0.8, 0.9, 0.95, 0.99, 0.999}) {
    const double tau = TauCritical(96, 45, p);
    EXPECT_GT(tau, last) << p;
    last = tau;
  }
}

TEST(TauCritical, GrowsWithTheRedundancy) {
  for (const std::int32_t n : {1, 96, 4148}) {
    double last = 0.0;
    for (std::int32_t r = 1; r < 1000000; r += 1 + r / 3) {
      const double tau = TauCritical(n, r, 0.95);
      EXPECT_GT(tau, last) << n << ' ' << r;
      last = tau;
    }
  }
}

TEST(TauCritical, BecomesTheNormalDeviate) {
  // Their difference is t - z - (t^3 - t) / 2 f, of the order z^3 / 4 f.
  for (const std::int32_t n : {1, 96, 4148, 1000000}) {
    const double z = NormalQuantile(1.0 - 0.05 / (2.0 * n));
    EXPECT_NEAR(TauCritical(n, kLargest, 0.95), z, z * z * z / kLargest) << n;
  }
}

TEST(TauCritical, WithoutObservationsTakesTheDeviateOne) {
  // The risk of no observation is infinite, and such a probability gives the deviate 1. For f = 1
  // the expansion at 1 is 1 + 2/4 + 24/96 + 24/384 - 528/92160.
  const double t = 1.0 + 2.0 / 4.0 + 24.0 / 96.0 + 24.0 / 384.0 - 528.0 / 92160.0;
  EXPECT_NEAR(TauCritical(0, 2, 0.95), std::sqrt(2.0 * t * t / (t * t + 1.0)), 1e-15);
}

}  // namespace
}  // namespace vermo::test
