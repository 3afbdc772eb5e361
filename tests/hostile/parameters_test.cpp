// Every selector takes every bad value of both types, and the network runs with it.

#include "hostile/complete_network.h"

#include <array>
#include <cfloat>
#include <climits>
#include <cmath>
#include <limits>

namespace hostile {
namespace {

constexpr std::array kInts{INT_MIN, INT_MIN + 1, -2,     -1,     0,      1,      2,       3,
                           4,       5,           6,      200,    0x101,  0x102,  0x104,   0x100,
                           0x700,   0x3800,      0x4000, 0x7F00, 0x6F00, 0x0800, 0x10000, INT_MAX};
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr std::array kDoubles{kNaN,
                              -kNaN,
                              kInfinity,
                              -kInfinity,
                              0.0,
                              -0.0,
                              5e-324,
                              DBL_MIN,
                              DBL_MAX,
                              -DBL_MAX,
                              1e-300,
                              1e300,
                              1e-160,
                              1e154,
                              1.0,
                              -1.0,
                              1e-12,
                              1e12};
// One before the first selector and some behind the last.
constexpr int kFirst = -1;
constexpr int kLast = 25;

constexpr bool IsIntSelector(int which) {
  return (which >= 3 && which <= 6) || which == 11 || which == 15 || which == 16 || which == 18 ||
         which == 19;
}
constexpr bool IsDoubleSelector(int which) {
  return which == 1 || which == 2 || (which >= 7 && which <= 10) || which == 12 || which == 17 ||
         which == 20;
}

class EveryParameter : public ::testing::TestWithParam<int> {};

TEST_P(EveryParameter, SurvivesEveryInteger) {
  const int which = GetParam();
  for (const int value : kInts) {
    SCOPED_TRACE(value);
    Job job;
    job.Feed(CompleteNetwork());
    const int status = XYZ_SetParam(job.Handle(), static_cast<eXYZ_Parameter>(which), value);
    if (!IsIntSelector(which)) {
      EXPECT_EQ(status, 13);
      // The pivot search works all the same.
      if (which != eXYZ_ParamPivotSearch) continue;
    } else if (which == eXYZ_ParamBlunderTest) {
      EXPECT_EQ(status, value >= 0 && value <= 2 ? 0 : 6);
    } else if (which == eXYZ_ParamLanguage) {
      EXPECT_EQ(status, value == 1 || value == 2 ? 0 : 6);
    } else if (which == eXYZ_ParamDatum) {
      const bool whole = ((value & 0x700) == 0 || (value & 0x700) == 0x700) &&
                         ((value & 0x3800) == 0 || (value & 0x3800) == 0x3800);
      EXPECT_EQ(status, whole ? 0 : 6);
    } else {
      EXPECT_EQ(status, 0);
    }
    SurviveRuns(job);
  }
}

TEST_P(EveryParameter, SurvivesEveryDouble) {
  const int which = GetParam();
  for (const double value : kDoubles) {
    SCOPED_TRACE(value);
    Job job;
    job.Feed(CompleteNetwork());
    const auto parameter = static_cast<eXYZ_Parameter>(which);
    if (which == eXYZ_ParamS0Apriori && !(value > 0.0)) {
      double before = 0.0;
      double after = 0.0;
      EXPECT_EQ(XYZ_GetParam(job.Handle(), parameter, &before), 0);
      int code = 0;
      try {
        XYZ_SetParam(job.Handle(), parameter, value);
      } catch (const vermo::KlException& failure) {
        code = failure.GetCode();
      }
      EXPECT_EQ(code, -35001);
      EXPECT_EQ(XYZ_GetParam(job.Handle(), parameter, &after), 0);
      EXPECT_EQ(before, after);
    } else {
      const bool known = IsDoubleSelector(which);
      EXPECT_EQ(XYZ_SetParam(job.Handle(), parameter, value), known ? 0 : 13);
      if (!known) continue;
    }
    SurviveRuns(job);
  }
}

INSTANTIATE_TEST_SUITE_P(Selectors, EveryParameter, ::testing::Range(kFirst, kLast + 1));

// The limit of iterations is compared as unsigned: a negative one is as good as none. The window of
// the progress watch still ends what gets nowhere, whatever its length is compared to.
TEST(IterationLimit, OfMinusOneLeavesTheEndToTheProgressWatch) {
  Job job;
  Records bad = CompleteNetwork();
  job.Feed(bad);
  // Never reached.
  ASSERT_EQ(XYZ_SetParam(job.Handle(), eXYZ_ParamConvergenceLimit, 0.0), 0);
  const Outcome run = job.Calc(UINT_MAX);
  EXPECT_EQ(run.status, 20);
  EXPECT_LT(run.iterations, 100);
}

// Without watch and without limit it is the progress function that ends a run.
TEST(IterationLimit, AndWatchOfMinusOneLeaveTheEndToTheProgressFunction) {
  Job job;
  job.Feed(CompleteNetwork());
  ASSERT_EQ(XYZ_SetParam(job.Handle(), eXYZ_ParamConvergenceLimit, 0.0), 0);
  ASSERT_EQ(XYZ_SetParam(job.Handle(), eXYZ_ParamProgressWindow, -1), 0);
  ASSERT_EQ(XYZ_SetParam(job.Handle(), eXYZ_ParamMaxIterations, -1), 0);
  int calls = 0;
  const auto stopAtThousand = [](void*, sXYZ_CBProgressInfo*, void* user) {
    return ++*static_cast<int*>(user) >= 1000 ? 1 : 0;
  };
  ASSERT_EQ(XYZ_SetProgressCallback(job.Handle(), stopAtThousand, &calls), 0);
  EXPECT_EQ(XYZ_CalcBundle(job.Handle()), 8);
  EXPECT_EQ(calls, 1000);
  job.ReadBack();
}

// Both ends of the dynamic range, the damping and both tests of outliers, with a gross error in.
TEST(OutlierTest, SurvivesEveryPairOfItsParameters) {
  Records bad = CompleteNetwork();
  bad.rays[7].X += 0.5;
  bad.rays[20].Y -= 0.1;
  constexpr std::array kEnds{
      kNaN, kInfinity, -kInfinity, 0.0, 5e-324, DBL_MAX, -DBL_MAX, 1.0, -1.0};
  for (const int test : {1, 2})
    for (const double lower : kEnds)
      for (const double upper : kEnds) {
        SCOPED_TRACE(std::to_string(test) + ", " + std::to_string(lower) + " to " +
                     std::to_string(upper));
        Job job;
        job.Feed(bad);
        ASSERT_EQ(XYZ_SetParam(job.Handle(), eXYZ_ParamBlunderTest, test), 0);
        ASSERT_EQ(XYZ_SetParam(job.Handle(), eXYZ_ParamDynamicLower, lower), 0);
        ASSERT_EQ(XYZ_SetParam(job.Handle(), eXYZ_ParamDynamicUpper, upper), 0);
        ASSERT_EQ(XYZ_SetParam(job.Handle(), eXYZ_ParamDamping, upper), 0);
        job.Calc();
        job.ReadBack();
      }
}

}  // namespace
}  // namespace hostile
