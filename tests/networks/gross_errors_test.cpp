// Gross errors in seeded networks: how often the outlier test sees one, how often it sees one where
// there is none, and what becomes of the good observations beside it. Counts are held against the
// distributions that the test rests on, within four standard deviations; the networks are the same
// in every run.

#include "networks/library_run.h"
#include "reference/network_builder.h"
#include "reference/tau_reference.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

namespace {

using reference::Network;
using reference::Random;
using reference::Shape;

enum Method : int { kByRedundancy = 1, kByInnerReliability = 2 };

// Below it a component cannot be rejected.
constexpr double kTestable = 0.1;

struct Settings {
  Method method = kByInnerReliability;
  double damping = 0.0;  // every test value over the critical one is an outlier
  bool firstRoundOnly = true;
};

struct Outcome {
  // Of the first converged iteration, before anything was rejected.
  double s0 = 0.0;
  int observations = 0;
  int redundancy = 0;
  double tau = 0.0;  // critical value of the last round
  std::vector<sXYZ_PictureCoord> points;

  [[nodiscard]] std::set<std::size_t> Rejected() const {
    std::set<std::size_t> result;
    for (std::size_t i = 0; i < points.size(); ++i)
      if ((points[i].Flags & 0x10) != 0) result.insert(i);
    return result;
  }
};

struct Watch {
  bool firstRoundOnly = false;
  bool tested = false;
  sXYZ_CBProgressInfo before{};
};

// Keeps the figures of the last iteration in which nothing was over the threshold. Cancelling the
// one that follows a round leaves marks and test values of that round as they are.
int Follow(void* /*job*/, sXYZ_CBProgressInfo* info, void* userData) {
  auto& watch = *static_cast<Watch*>(userData);
  if (info->BlunderCount == 0) {
    watch.before = *info;
    return 0;
  }
  watch.tested = true;
  return watch.firstRoundOnly ? 1 : 0;
}

Outcome Adjust(const Network& network, const Settings& settings) {
  const Job job = MakeJob(network, 1e-5);
  void* handle = job.get();
  // Thousands of protocols that nobody reads.
  XYZ_SetNewProtocolFile(handle, "/dev/null");
  XYZ_SetParam(handle, eXYZ_ParamBlunderTest, settings.method);
  XYZ_SetParam(handle, eXYZ_ParamDamping, settings.damping);
  Watch watch{.firstRoundOnly = settings.firstRoundOnly};
  XYZ_SetProgressCallback(handle, Follow, &watch);
  const int status = XYZ_CalcBundle(handle);
  EXPECT_EQ(status, watch.tested && settings.firstRoundOnly ? eXYZ_CalcFailed : eXYZ_Ok);
  Outcome outcome;
  outcome.s0 = watch.before.S0;
  outcome.observations = watch.before.ObservationCount;
  outcome.redundancy = watch.before.ObservationCount - watch.before.UnknownCount;
  XYZ_GetResult(handle, eXYZ_ResultBlunderTestValue, &outcome.tau);
  outcome.points.resize(network.imagePoints.size());
  for (std::size_t i = 0; i < outcome.points.size(); ++i)
    EXPECT_EQ(XYZ_GetPictureCoordsAt(handle, static_cast<int>(i), &outcome.points[i]), 0);
  return outcome;
}

struct Residual {
  double v, sigma, q, t;
};

std::array<Residual, 2> Residuals(const sXYZ_PictureCoord& o) {
  return {Residual{o.Vx, o.Sx, o.Rx, o.Tx}, Residual{o.Vy, o.Sy, o.Ry, o.Ty}};
}

// Four images of ten points, four of them control: 80 observations, redundancy 37.
Shape Small(std::uint64_t seed) { return {.seed = seed, .images = 4, .points = 10, .mask = 0x1}; }

// Five images of twenty points: 200 observations, redundancy 121.
Shape Large(std::uint64_t seed) { return {.seed = seed, .images = 5, .points = 20, .mask = 0x1}; }

// An error of so many standard deviations in one coordinate of one image point.
struct Error {
  std::size_t place = 0;
  std::size_t axis = 0;
};

Error Plant(Network& network, std::uint64_t seed, double size) {
  Random random(seed * 7919);
  Error error;
  error.place = random.Below(static_cast<std::uint32_t>(network.imagePoints.size()));
  error.axis = random.Below(2);
  auto& o = network.imagePoints[error.place];
  const double sign = random.Below(2) == 0 ? 1.0 : -1.0;
  (error.axis == 0 ? o.X : o.Y) += sign * size * (error.axis == 0 ? o.Sx : o.Sy);
  return error;
}

void Reject(Network& network, const std::set<std::size_t>& places) {
  for (const std::size_t place : places) network.imagePoints[place].Flags |= 0x10;
}

// A count of independent events with their own probabilities.
class Expected {
 public:
  void Trial(double p, bool happened) { Trial(p, p, happened); }
  // With a probability that is only known to lie between two.
  void Trial(double low, double high, bool happened) {
    fLow += low;
    fHigh += high;
    fVariance += std::max(low * (1.0 - low), high * (1.0 - high));
    fCount += happened ? 1 : 0;
  }
  void Expect(const char* what) const {
    EXPECT_GE(fCount, fLow - 4.0 * std::sqrt(fVariance)) << what;
    EXPECT_LE(fCount, fHigh + 4.0 * std::sqrt(fVariance)) << what;
  }

 private:
  double fLow = 0.0, fHigh = 0.0, fVariance = 0.0;
  int fCount = 0;
};

// A count per network, of which networks are independent and the events within one are not.
class Clustered {
 public:
  void Network(double expected, int count) {
    const double excess = count - expected;
    fExpected += expected;
    fExcess += excess;
    fSquares += excess * excess;
  }
  void Expect() const {
    EXPECT_LE(std::fabs(fExcess), 4.0 * std::sqrt(fSquares)) << "of " << fExpected << " expected";
  }
  [[nodiscard]] double Total() const { return fExpected; }

 private:
  double fExpected = 0.0, fExcess = 0.0, fSquares = 0.0;
};

// First rounds of networks without a gross error.
const std::vector<Outcome>& CleanNetworks() {
  static const std::vector<Outcome> outcomes = [] {
    std::vector<Outcome> result;
    for (std::uint64_t seed = 1; seed <= 2400; ++seed)
      result.push_back(Adjust(Build(Small(seed)), {}));
    return result;
  }();
  return outcomes;
}

// --- The rule itself ---

TEST(GrossErrors, TestValueIsTheResidualOverItsStandardDeviation) {
  for (const Method method : {kByRedundancy, kByInnerReliability})
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
      Network network = Build(Small(seed));
      Plant(network, seed, 10.0);
      const Outcome outcome = Adjust(network, {.method = method});
      for (const auto& o : outcome.points)
        for (const Residual& c : Residuals(o)) {
          const double normal = std::fabs(c.v) * network.s0Apriori / c.sigma / outcome.s0;
          const double t = normal / (method == kByRedundancy ? c.q : std::sqrt(c.q));
          EXPECT_NEAR(c.t, t, 1e-9 * (1.0 + t)) << o.PointId << " in " << o.EorId;
        }
    }
}

TEST(GrossErrors, RejectedAreThoseWithATestableComponentAtTau) {
  for (const Method method : {kByRedundancy, kByInnerReliability})
    for (std::uint64_t seed = 1; seed <= 40; ++seed) {
      Network network = Build(Small(seed));
      Plant(network, seed, 8.0);
      const Outcome outcome = Adjust(network, {.method = method});
      std::set<std::size_t> expected;
      for (std::size_t i = 0; i < outcome.points.size(); ++i)
        for (const Residual& c : Residuals(outcome.points[i]))
          if (c.q > kTestable && c.t >= outcome.tau) expected.insert(i);
      EXPECT_EQ(outcome.Rejected(), expected) << "seed " << seed;
    }
}

TEST(GrossErrors, CriticalValueIsThatOfTheTauDistribution) {
  const Outcome outcome = Adjust(Build(Small(1)), {});
  EXPECT_EQ(outcome.observations, 80);
  EXPECT_EQ(outcome.redundancy, 37);
  // Within the error of the normal deviate that it is made from.
  EXPECT_NEAR(outcome.tau, reference::TauDeviate(0.05L / 80, 37), 4.5e-4);
}

// --- Without a gross error ---

TEST(GrossErrors, TestValuesOfGoodObservationsAreTauDistributed) {
  // One component of each network, so that the trials are independent.
  for (const double tail : {0.7, 0.5, 0.2, 0.05, 0.01}) {
    const double quantile = reference::TauDeviate(tail, 37);
    Expected count;
    std::uint64_t seed = 0;
    for (const Outcome& outcome : CleanNetworks()) {
      ASSERT_EQ(outcome.redundancy, 37);
      Random random(++seed * 104729);
      const auto& o =
          outcome.points[random.Below(static_cast<std::uint32_t>(outcome.points.size()))];
      count.Trial(tail, Residuals(o)[random.Below(2)].t > quantile);
    }
    count.Expect("components over a quantile");
  }
}

TEST(GrossErrors, OneGoodNetworkInTwentyHasAFalseAlarm) {
  // Each of n components exceeds tau with probability 0.05 / n, whatever the correlations are: so
  // many alarms per network are expected. The networks with any alarm are at most as many.
  Clustered alarms;
  Expected networks;
  for (const Outcome& outcome : CleanNetworks()) {
    int count = 0;
    int testable = 0;
    for (const auto& o : outcome.points)
      for (const Residual& c : Residuals(o)) {
        if (!(c.q > kTestable)) continue;
        ++testable;
        if (c.t >= outcome.tau) ++count;
      }
    const double expected = testable * reference::TauTail(outcome.tau, outcome.redundancy);
    EXPECT_NEAR(expected, 0.05 * testable / outcome.observations, 1e-3);
    alarms.Network(expected, count);
    networks.Trial(0.0, expected, !outcome.Rejected().empty());
  }
  alarms.Expect();
  networks.Expect("networks with a false alarm");
}

TEST(GrossErrors, DampingDoesNotLowerTheRiskOfAFalseAlarm) {
  // By default the threshold leaves tau only for test values over 2 tau. None exceeds sqrt(r),
  // which is less here: the same observations are rejected.
  for (std::uint64_t seed = 1; seed <= 200; ++seed) {
    const Outcome& plain = CleanNetworks()[seed - 1];
    ASSERT_LT(std::sqrt(plain.redundancy), 2.0 * plain.tau);
    const Outcome damped = Adjust(Build(Small(seed)), {.damping = 0.8});
    EXPECT_EQ(damped.Rejected(), plain.Rejected()) << "seed " << seed;
  }
}

TEST(GrossErrors, ByRedundancyFalseAlarmsFollowTheRedundancyNumbers) {
  // There T is the tau-distributed value over sqrt(q), so a component exceeds tau as often as its
  // tau-distributed value exceeds tau sqrt(q).
  Clustered alarms;
  for (std::uint64_t seed = 1; seed <= 200; ++seed) {
    const Outcome outcome = Adjust(Build(Small(seed)), {.method = kByRedundancy});
    double expected = 0.0;
    int count = 0;
    for (const auto& o : outcome.points)
      for (const Residual& c : Residuals(o)) {
        if (!(c.q > kTestable)) continue;
        expected += reference::TauTail(outcome.tau * std::sqrt(c.q), outcome.redundancy);
        if (c.t >= outcome.tau) ++count;
      }
    alarms.Network(expected, count);
  }
  alarms.Expect();
  // Far more than the 0.05 per network of the other method.
  EXPECT_GT(alarms.Total(), 200.0);
}

// --- With one gross error ---

// An error of k standard deviations moves the normalised residual by delta = k sqrt(q); together
// with S0, which it inflates, the test value follows the non-central tau distribution.
void ExpectDetection(Method method) {
  for (const double size : {3.0, 5.0, 7.0, 9.0, 12.0}) {
    Expected detected;
    for (std::uint64_t seed = 1; seed <= 160; ++seed) {
      const auto unique = static_cast<std::uint64_t>(size) * 1000 + seed;
      Network network = Build(Small(unique));
      const Error error = Plant(network, unique, size);
      const Outcome outcome = Adjust(network, {.method = method});
      const Residual c = Residuals(outcome.points[error.place])[error.axis];
      if (!(c.q > kTestable)) continue;
      const double root = std::sqrt(c.q);
      const double critical = outcome.tau * (method == kByRedundancy ? root : 1.0);
      detected.Trial(reference::TauPower(critical, outcome.redundancy, size * root),
                     c.t >= outcome.tau);
    }
    detected.Expect(std::to_string(size).c_str());
  }
}

TEST(GrossErrors, AreSeenAsOftenAsTheNonCentralDistributionSays) {
  ExpectDetection(kByInnerReliability);
}

TEST(GrossErrors, AreSeenAsOftenAsTheNonCentralDistributionSaysByRedundancy) {
  ExpectDetection(kByRedundancy);
}

TEST(GrossErrors, LargeOneIsAlwaysFoundAndLeavesWhatTheOthersAloneGive) {
  std::set<std::uint64_t> withNeighbours[2];
  for (const double damping : {0.0, 0.8})
    for (std::uint64_t seed = 1; seed <= 60; ++seed) {
      Network network = Build(Large(seed));
      const Error error = Plant(network, seed, 100.0);
      const auto first = Adjust(network, {.damping = damping}).Rejected();
      const auto last = Adjust(network, {.damping = damping, .firstRoundOnly = false}).Rejected();
      EXPECT_TRUE(first.contains(error.place)) << "seed " << seed;
      EXPECT_TRUE(last.contains(error.place)) << "seed " << seed;
      if (first.size() > 1) {
        withNeighbours[damping > 0.0 ? 1 : 0].insert(seed);
        continue;
      }
      // From its second round on the run is the one without the wrong observation.
      Reject(network, {error.place});
      const Outcome without = Adjust(network, {.damping = damping, .firstRoundOnly = false});
      EXPECT_EQ(last, without.Rejected()) << "seed " << seed;
    }
  // What damping is for: the wrong observation takes fewer good ones with it.
  EXPECT_GT(withNeighbours[0].size(), 30U);
  EXPECT_LT(withNeighbours[1].size(), 15U);
  EXPECT_TRUE(std::includes(withNeighbours[0].begin(),
                            withNeighbours[0].end(),
                            withNeighbours[1].begin(),
                            withNeighbours[1].end()));
}

// --- Good observations beside a gross error ---

// Variances of the misclosures of a rejected observation relative to its own, 1 + w a Q a with the
// cofactors of the others: an observation of hardly any weight has 1 - r = w a Q a.
std::array<double, 2> PredictionVariance(Network network, std::size_t place) {
  constexpr double kFaint = 1000.0;
  network.imagePoints[place].Sx *= kFaint;
  network.imagePoints[place].Sy *= kFaint;
  const Outcome outcome = Adjust(network, {});
  const auto& o = outcome.points[place];
  return {1.0 + (1.0 - o.Rx) * kFaint * kFaint, 1.0 + (1.0 - o.Ry) * kFaint * kFaint};
}

TEST(GrossErrors, GoodNeighbourComesBackAsOftenAsItsPredictionAllows) {
  // The error is so large that geometry alone decides whom it takes with it, not the noise of
  // these. The misclosure of the neighbour in the adjustment without both is normal with variance
  // c, and independent of that S0: over S0 and sqrt(c) it is Student's t. The neighbour stays out
  // when one of its two components reaches tau.
  Expected stays;
  int neighbours = 0;
  for (std::uint64_t seed = 1; seed <= 400; ++seed) {
    Network network = Build(Large(seed));
    const Error error = Plant(network, seed, 500.0);
    std::set<std::size_t> rejected = Adjust(network, {}).Rejected();
    ASSERT_TRUE(rejected.contains(error.place)) << "seed " << seed;
    if (rejected.size() != 2) continue;
    ++neighbours;
    const std::size_t neighbour =
        *rejected.begin() == error.place ? *rejected.rbegin() : *rejected.begin();
    Network without = network;
    Reject(without, {error.place});
    const std::array<double, 2> variance = PredictionVariance(without, neighbour);
    // The second round of the run.
    Reject(without, {neighbour});
    const Outcome second = Adjust(without, {});
    double p[2] = {};
    for (std::size_t axis = 0; axis < 2; ++axis)
      p[axis] = static_cast<double>(
          reference::StudentTail(second.tau / std::sqrt(variance[axis]), second.redundancy));
    stays.Trial(
        std::max(p[0], p[1]), std::min(1.0, p[0] + p[1]), second.Rejected().contains(neighbour));
  }
  EXPECT_GT(neighbours, 100);
  stays.Expect("neighbours that stay out");
}

TEST(GrossErrors, RunReadmitsTheNeighboursThatItsSecondRoundClears) {
  int cameBack = 0;
  int neighbours = 0;
  for (std::uint64_t seed = 1; seed <= 60; ++seed) {
    Network network = Build(Large(seed));
    const Error error = Plant(network, seed, 100.0);
    const std::set<std::size_t> first = Adjust(network, {}).Rejected();
    const std::set<std::size_t> last = Adjust(network, {.firstRoundOnly = false}).Rejected();
    Reject(network, first);
    const std::set<std::size_t> second = Adjust(network, {}).Rejected();
    for (const std::size_t place : first) {
      if (place == error.place) continue;
      ++neighbours;
      if (second.contains(place)) continue;
      ++cameBack;
      EXPECT_FALSE(last.contains(place)) << "seed " << seed << ", observation " << place;
    }
  }
  EXPECT_GT(neighbours, 30);
  EXPECT_GT(cameBack, neighbours / 2);
}

}  // namespace
