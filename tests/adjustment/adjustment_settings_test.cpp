#include "adjustment/adjustment_settings.h"

#include <gtest/gtest.h>

namespace vermo {
namespace {

TEST(AdjustmentSettings, StartValues) {
  const AdjustmentSettings settings;
  EXPECT_EQ(settings.fFlags, 5U);
  EXPECT_TRUE(settings.BlunderTest());
  EXPECT_TRUE(settings.SolvabilityCheck());
  EXPECT_EQ(settings.fTestMethod, 1);
  EXPECT_EQ(settings.fS0Floor, 1e-5);
  EXPECT_EQ(settings.fS0Limit, 1e10);
  EXPECT_EQ(settings.fConvergenceLimit, 0.00032);
  EXPECT_EQ(settings.fDamping, 0.8);
  EXPECT_EQ(settings.fDynamicLower, 1.0);
  EXPECT_EQ(settings.fDynamicUpper, 4.0);
  EXPECT_EQ(settings.fMaxIterations, 200);
  EXPECT_EQ(settings.fSecondIterationLimit, 50);
  EXPECT_EQ(settings.fMinRays, 0);
  EXPECT_EQ(settings.fProgressWindow, 5);
  EXPECT_EQ(settings.fProgressTolerance, 0.5);
  EXPECT_EQ(settings.fPivotSearch, 1);
}

TEST(AdjustmentSettings, FlagsAreIndependentAndLeaveTheOthers) {
  AdjustmentSettings settings;
  settings.fFlags |= 1U << 1U;
  settings.SetBlunderTest(false);
  EXPECT_EQ(settings.fFlags, 6U);
  settings.SetSolvabilityCheck(false);
  EXPECT_EQ(settings.fFlags, 2U);
  settings.SetBlunderTest(true);
  EXPECT_EQ(settings.fFlags, 3U);
  settings.SetSolvabilityCheck(true);
  EXPECT_EQ(settings.fFlags, 7U);
}

TEST(AdjustmentSettings, DampingStaysBetweenZeroAndOne) {
  AdjustmentSettings settings;
  settings.SetDamping(-0.5);
  EXPECT_EQ(settings.fDamping, 0.0);
  settings.SetDamping(1.5);
  EXPECT_EQ(settings.fDamping, 1.0);
  settings.SetDamping(0.25);
  EXPECT_EQ(settings.fDamping, 0.25);
}

TEST(AdjustmentSettings, DynamicRangeIsLimitedAboveOnly) {
  AdjustmentSettings settings;
  settings.SetDynamicRange(-3.0, 2000.0);
  EXPECT_EQ(settings.fDynamicLower, -3.0);
  EXPECT_EQ(settings.fDynamicUpper, 1000.0);
  settings.SetDynamicRange(1500.0, 7.0);
  EXPECT_EQ(settings.fDynamicLower, 1000.0);
  EXPECT_EQ(settings.fDynamicUpper, 7.0);
}

}  // namespace
}  // namespace vermo
