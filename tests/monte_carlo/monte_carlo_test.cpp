// The numbers that a run tells of its own accuracy, held against truth: networks whose true values
// are known are adjusted under many draws of noise, and what scatters is compared with what was
// told, within the interval that the number of draws allows. Seeds are fixed.
//
// To first order and for normal noise, with x the deviation of an unknown from its true value, s
// its standard deviation as told, S0 that of the run and s0 the one given, r the redundancy, v a
// residual, sigma the standard deviation of its observation and q its redundancy number:
//   z = x / (s s0 / S0)     is N(0, 1), as s s0 / S0 does not depend on the draw
//   (x / s)^2               is F(1, r), of mean r / (r - 2), as x and S0 are independent
//   (S0 / s0)^2             is chi^2(r) / r, of mean 1 and variance 2 / r
//   z = v / (sigma sqrt(q)) is N(0, 1)
// Draws are independent of each other: the mean of z^2 over n of them is chi^2(n) / n, that of
// (S0 / s0)^2 is chi^2(n r) / (n r), and that of (x / s)^2 has its mean, variance and skewness
// known (confidence.h).
//
// The mean of z^2 over the m members of a class, such as all coordinates of all points, is that of
// m dependent chi^2(1): its variance is 2 / m^2 times the sum of the squared correlations of all
// pairs. It is taken as chi^2(f) / f of that variance, f = m^2 / sum rho^2, with the correlations
// from the draws; their squares are too large by about 1 / n, which widens the interval. S0 being
// independent of all members, the mean of (x / s)^2 is taken as F(f, r).

#include "monte_carlo/confidence.h"
#include "monte_carlo/scene.h"
#include "reference/tau_reference.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace monte_carlo {
namespace {

constexpr std::size_t kAllDraws = 4000;
#ifdef CARDO_FEW_DRAWS
// A sanitizer looks for mistakes of the program, and a draw takes five times as long there. The
// intervals are wider then; that the numbers are true is for the build without it to show.
constexpr std::size_t kDraws = kAllDraws / 8;
#else
constexpr std::size_t kDraws = kAllDraws;
#endif
// The probability that a network fails although the library tells the truth, before its seed was
// fixed: shared evenly by all single numbers, and once more by the classes and S0.
constexpr double kSingleRisk = 5e-4;
constexpr double kClassRisk = 5e-4;
// What the curvature of the observation equations may use up of an interval: with so little of it
// "to first order" is as good as exact.
constexpr double kCurvatureShare = 0.1;
constexpr std::size_t kCurvatureDraws = 200;

struct Means {
  double z = 0.0;
  double square = 0.0;     // of z
  double told = 0.0;       // of (x / s)^2
  double curvature = 0.0;  // part of the mean square that is not of first order
};

struct Class {
  std::string kind;
  bool isResidual = false;
  std::vector<std::size_t> members;
  std::vector<double> products;  // sums of z_i z_j, j <= i, row by row
  Means means;

  void Add(const std::vector<double>& z) {
    std::size_t k = 0;
    for (std::size_t i = 0; i < members.size(); ++i)
      for (std::size_t j = 0; j <= i; ++j) products[k++] += z[members[i]] * z[members[j]];
  }

  // f of the chi^2(f) / f that the mean over all members is taken as.
  [[nodiscard]] double Freedom() const {
    const auto variance = [this](std::size_t i) { return products[i * (i + 1) / 2 + i]; };
    double sum = 0.0;
    std::size_t k = 0;
    for (std::size_t i = 0; i < members.size(); ++i)
      for (std::size_t j = 0; j <= i; ++j, ++k)
        sum += (i == j ? 1.0 : 2.0) * products[k] * products[k] / (variance(i) * variance(j));
    return static_cast<double>(members.size() * members.size()) / sum;
  }
};

// The mean of z is normal of variance 1 / kDraws.
Interval OfNormalMean(double risk) {
  const double bound = reference::NormalDeviate(risk) / std::sqrt(static_cast<double>(kDraws));
  return {-bound, bound};
}

class Study {
 public:
  Study(const Experiment& experiment, std::uint64_t seed)
      : fExperiment(experiment), fSeed(seed), fSingles(experiment.Names().size()) {
    for (std::size_t i = 0; i < fSingles.size(); ++i) {
      const Name& name = experiment.Names()[i];
      auto found = std::find_if(
          fClasses.begin(), fClasses.end(), [&](const Class& c) { return c.kind == name.kind; });
      if (found == fClasses.end())
        found = fClasses.insert(found, {name.kind, name.isResidual, {}, {}, {}});
      found->members.push_back(i);
      fUnknowns += name.isResidual ? 0 : 1;
    }
    for (Class& c : fClasses) c.products.resize(c.members.size() * (c.members.size() + 1) / 2);
  }

  void Draw() {
    for (std::size_t draw = 0; draw < kDraws; ++draw) {
      const Outcome outcome = Run(draw, 1.0);
      ASSERT_EQ(outcome.status, 0) << "draw " << draw;
      if (draw == 0) fRedundancy = outcome.redundancy;
      ASSERT_EQ(outcome.redundancy, fRedundancy);
      ASSERT_NEAR(outcome.redundancySum, fRedundancy, 1e-3);
      const double ratio = outcome.s0 / S0Apriori();
      fS0Square += ratio * ratio / kDraws;
      fS0Variance += std::pow(ratio * ratio - 1.0, 2.0) / kDraws;
      const std::vector<double> z = Normalised(outcome);
      for (std::size_t i = 0; i < z.size(); ++i) {
        ASSERT_TRUE(std::isfinite(z[i])) << Where(i);
        fSingles[i].z += z[i] / kDraws;
        fSingles[i].square += z[i] * z[i] / kDraws;
        fSingles[i].told += z[i] * z[i] / (ratio * ratio) / kDraws;
      }
      for (Class& c : fClasses) c.Add(z);
      if (draw < kCurvatureDraws) AddCurvature(draw, outcome);
    }
    for (Class& c : fClasses)
      for (const std::size_t i : c.members) {
        const auto size = static_cast<double>(c.members.size());
        c.means.z += fSingles[i].z / size;
        c.means.square += fSingles[i].square / size;
        c.means.told += fSingles[i].told / size;
        c.means.curvature += fSingles[i].curvature / size;
      }
  }

  void ExpectSpreadAsTold() const {
    // The mean and the mean square of each, and the square by the S0 of the run of the unknowns.
    const double risk = kSingleRisk / static_cast<double>(fUnknowns + 2 * fSingles.size());
    const Interval mean = OfNormalMean(risk);
    const Interval square = IntervalOfMean(OfChiSquare(1.0), kDraws, risk);
    const Interval told = IntervalOfMean(OfF(1.0, fRedundancy), kDraws, risk);
    for (std::size_t i = 0; i < fSingles.size(); ++i) {
      Expect(fSingles[i].z, mean, "mean of " + Where(i));
      Expect(fSingles[i].square, square, "with the given S0, " + Where(i));
      if (!IsResidual(i)) Expect(fSingles[i].told, told, "as told, " + Where(i));
      ExpectFlat(fSingles[i].curvature, square, Where(i));
    }
    for (const Class& c : fClasses) {
      const Interval classSquare = OfSquare(c);
      Expect(c.means.square, classSquare, "with the given S0, " + c.kind);
      if (!c.isResidual) Expect(c.means.told, OfTold(c), "as told, " + c.kind);
      ExpectFlat(c.means.curvature, classSquare, c.kind);
    }
  }

  void ExpectUnbiasedS0() const {
    Expect(fS0Square, OfS0Square(), "mean of S0^2");
    Expect(fS0Variance, OfS0Variance(), "variance of S0^2");
    ExpectFlat(fS0Curvature, OfS0Square(), "S0^2");
  }

  void Print(const char* name) const {
    std::printf("\n%s: redundancy %d, %zu draws\n", name, fRedundancy, kDraws);
    std::printf("  %-34s %8.4f  [%6.4f, %6.4f]%38s curvature %8.1e\n",
                "S0^2 / s0^2",
                fS0Square,
                OfS0Square().low,
                OfS0Square().high,
                "",
                fS0Curvature);
    std::printf("  %-34s %8.4f  [%6.4f, %6.4f]\n",
                "its variance over 2 / r",
                fS0Variance * fRedundancy / 2.0,
                OfS0Variance().low * fRedundancy / 2.0,
                OfS0Variance().high * fRedundancy / 2.0);
    for (const Class& c : fClasses) {
      const Interval square = OfSquare(c);
      double low = 1e300;
      double high = 0.0;
      for (const std::size_t i : c.members) {
        low = std::min(low, fSingles[i].square);
        high = std::max(high, fSingles[i].square);
      }
      std::printf("  %-29s %4zu %8.4f  [%6.4f, %6.4f]  each %6.4f to %6.4f ",
                  c.kind.c_str(),
                  c.members.size(),
                  c.means.square,
                  square.low,
                  square.high,
                  low,
                  high);
      if (c.isResidual)
        std::printf("%12s", "");
      else
        std::printf(" told %6.4f", c.means.told * (fRedundancy - 2) / fRedundancy);
      std::printf(" curvature %8.1e\n", c.means.curvature);
    }
  }

 private:
  [[nodiscard]] double S0Apriori() const { return fExperiment.Truth().network.s0Apriori; }
  [[nodiscard]] bool IsResidual(std::size_t i) const { return fExperiment.Names()[i].isResidual; }
  [[nodiscard]] std::string Where(std::size_t i) const {
    return fExperiment.Names()[i].kind + " " + fExperiment.Names()[i].place;
  }

  [[nodiscard]] Outcome Run(std::size_t draw, double multiple) const {
    return fExperiment.Run(WithNoise(fExperiment.Truth(), fSeed * 1'000'003 + draw, multiple));
  }

  [[nodiscard]] std::vector<double> Normalised(const Outcome& outcome) const {
    std::vector<double> z(outcome.deviations.size());
    for (std::size_t i = 0; i < z.size(); ++i) {
      const Deviation& d = outcome.deviations[i];
      z[i] = d.value / d.sigma * (IsResidual(i) ? 1.0 : outcome.s0 / S0Apriori());
    }
    return z;
  }

  // The mean square of a deviation is that of first order times 1 + c e^2 for noise of the size e,
  // odd powers vanishing in the mean. The same draws with twice the noise, over the same standard
  // deviations, show 1 + 4 c e^2: a third of the difference is what the curvature adds here.
  void AddCurvature(std::size_t draw, const Outcome& once) {
    const Outcome twice = Run(draw, 2.0);
    ASSERT_EQ(twice.status, 0);
    const auto share = [](double one, double two) {
      return (two * two / 4.0 - one * one) / 3.0 / static_cast<double>(kCurvatureDraws);
    };
    for (std::size_t i = 0; i < fSingles.size(); ++i) {
      const double sigma = once.deviations[i].sigma * (IsResidual(i) ? 1.0 : S0Apriori() / once.s0);
      fSingles[i].curvature +=
          share(once.deviations[i].value / sigma, twice.deviations[i].value / sigma);
    }
    fS0Curvature += share(once.s0 / S0Apriori(), twice.s0 / S0Apriori());
  }

  // Comparisons by class: two for unknowns, one for residuals, two for S0.
  [[nodiscard]] double ClassRisk() const {
    std::size_t comparisons = 2;
    for (const Class& c : fClasses) comparisons += c.isResidual ? 1 : 2;
    return kClassRisk / static_cast<double>(comparisons);
  }
  [[nodiscard]] Interval OfSquare(const Class& c) const {
    return IntervalOfMean(OfChiSquare(c.Freedom()), kDraws, ClassRisk());
  }
  [[nodiscard]] Interval OfTold(const Class& c) const {
    return IntervalOfMean(OfF(c.Freedom(), fRedundancy), kDraws, ClassRisk());
  }
  [[nodiscard]] Interval OfS0Square() const {
    return IntervalOfMean(OfChiSquare(fRedundancy), kDraws, ClassRisk());
  }
  [[nodiscard]] Interval OfS0Variance() const {
    return IntervalOfMean(OfSquaredExcess(fRedundancy), kDraws, ClassRisk());
  }

  static void Expect(double value, const Interval& interval, const std::string& what) {
    EXPECT_TRUE(interval.Contains(value))
        << what << ": " << value << " is not in [" << interval.low << ", " << interval.high << "]";
  }
  static void ExpectFlat(double curvature, const Interval& interval, const std::string& what) {
    EXPECT_LT(std::fabs(curvature), kCurvatureShare * (interval.high - interval.low) / 2.0)
        << "curvature of " << what;
  }

  const Experiment& fExperiment;
  std::uint64_t fSeed;
  std::vector<Means> fSingles;
  std::vector<Class> fClasses;
  std::size_t fUnknowns = 0;
  int fRedundancy = 0;
  double fS0Square = 0.0, fS0Variance = 0.0, fS0Curvature = 0.0;
};

// Rotation types and units that the angles are read in.
enum AngleFormat : std::uint32_t { kAirGon = 0x201, kArcDegrees = 0x402, kTtgRadians = 0x104 };

void ExpectTrueNumbers(const Scene& scene, std::uint64_t seed, AngleFormat angles = kAirGon) {
  const Experiment experiment(scene, angles);
  Study study(experiment, seed);
  ASSERT_NO_FATAL_FAILURE(study.Draw());
  study.Print(::testing::UnitTest::GetInstance()->current_test_info()->name());
  study.ExpectSpreadAsTold();
  study.ExpectUnbiasedS0();
}

TEST(TrueNumbers, StandardDeviationTenPercentOffIsMissedInOneOfAHundred) {
  // Told 1.1 times too large, the mean square is chi^2(n) / n over 1.21. No network here makes more
  // than 600 comparisons.
  const Interval square = IntervalOfMean(OfChiSquare(1.0), kAllDraws, kSingleRisk / 600.0);
  constexpr double n = kAllDraws;
  EXPECT_LT(1.0 - ChiSquareProbability(square.low * 1.21 * n, n), 0.01);
  EXPECT_LT(ChiSquareProbability(square.high * 0.81 * n, n), 0.01);
}

TEST(TrueNumbers, FixedControl) { ExpectTrueNumbers(MakeScene({.seed = 201, .points = 10}), 1); }

TEST(TrueNumbers, MeasuredControlAndDistances) {
  Scene scene =
      MakeScene({.seed = 202, .points = 12, .mask = 0x1, .fixedControl = false, .distances = 3});
  // The weights belong to another S0 than the noise of the images.
  scene.network.s0Apriori = 0.02;
  ExpectTrueNumbers(scene, 2, kArcDegrees);
}

TEST(TrueNumbers, FreeNetwork) {
  ExpectTrueNumbers(MakeScene({.seed = 203, .points = 12, .freeNetwork = true}), 3, kTtgRadians);
}

TEST(TrueNumbers, FreeNetworkWithItsScaleFromDistances) {
  ExpectTrueNumbers(MakeScene({.seed = 204, .points = 12, .distances = 3, .freeNetwork = true}), 4);
}

TEST(TrueNumbers, SelfCalibrationWithDistortion) {
  // All ten parameters of one camera: with twice this noise the curvature would show.
  ExpectTrueNumbers(MakeScene({.seed = 205,
                               .images = 6,
                               .points = 16,
                               .mask = 0xF77,
                               .distortion = true,
                               .r0 = 5.0,
                               .noise = 0.0005}),
                    5);
}

TEST(TrueNumbers, TwoCamerasWithDepthDependentDistortion) {
  ExpectTrueNumbers(MakeScene({.seed = 206,
                               .cameras = 2,
                               .images = 6,
                               .points = 14,
                               .ck = 30.0,
                               .mask = 0x3001,
                               .distortion = true}),
                    6);
}

TEST(TrueNumbers, LinesSeenInImages) {
  ExpectTrueNumbers(
      MakeScene({.seed = 207, .points = 9, .mask = 0x17, .distortion = true}, {.lines = true}), 7);
}

TEST(TrueNumbers, LinesSeenThroughRelativeOrientations) {
  ExpectTrueNumbers(
      MakeScene({.seed = 208, .images = 3, .points = 8, .relative = true}, {.lines = true}), 8);
}

TEST(TrueNumbers, PointsOnPlanesAndLines) {
  ExpectTrueNumbers(
      MakeScene({.seed = 209, .points = 16, .bodyPoints = true}, {.constraints = true}), 9);
}

TEST(TrueNumbers, RelativeOrientationsAndBodyPoints) {
  ExpectTrueNumbers(MakeScene({.seed = 210,
                               .images = 3,
                               .points = 10,
                               .mask = 0x1,
                               .relative = true,
                               .bodyPoints = true,
                               .measuredInImages = true}),
                    10);
}

TEST(TrueNumbers, ProjectionsBesideAFixedCamera) {
  ExpectTrueNumbers(MakeScene({.seed = 211,
                               .points = 12,
                               .freeCameras = false,
                               .distortion = true,
                               .projections = true}),
                    11);
}

TEST(TrueNumbers, ProjectionsBesideAFreeCamera) {
  ExpectTrueNumbers(MakeScene({.seed = 212,
                               .images = 6,
                               .points = 12,
                               .mask = 0x117,
                               .distortion = true,
                               .projections = true}),
                    12);
}

TEST(TrueNumbers, EverythingAtOnce) {
  ExpectTrueNumbers(MakeScene({.seed = 213,
                               .cameras = 2,
                               .points = 16,
                               .mask = 0x13,
                               .distortion = true,
                               .r0 = 4.0,
                               .fixedControl = false,
                               .relative = true,
                               .bodyPoints = true,
                               .measuredInImages = true,
                               .distances = 2},
                              {.lines = true, .constraints = true}),
                    13,
                    kTtgRadians);
}

}  // namespace
}  // namespace monte_carlo
