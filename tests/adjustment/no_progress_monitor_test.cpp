#include "adjustment/no_progress_monitor.h"

#include <gtest/gtest.h>
#include <limits>

namespace vermo {
namespace {

TEST(NoProgressMonitor, ShortHistoryAlwaysPasses) {
  NoProgressMonitor monitor(3, 0.5);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(monitor.Feed(1.0, 1.0)) << i;
  EXPECT_FALSE(monitor.Feed(1.0, 1.0));
}

TEST(NoProgressMonitor, WindowZeroAlwaysPasses) {
  NoProgressMonitor monitor(0, 0.5);
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(monitor.Feed(1.0, 1.0)) << i;
}

TEST(NoProgressMonitor, NegativeWindowAlwaysPasses) {
  for (const std::int32_t window : {-1, -2, std::numeric_limits<std::int32_t>::min()}) {
    NoProgressMonitor monitor(window, 0.5);
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(monitor.Feed(1.0, 1.0)) << window << ' ' << i;
  }
}

TEST(NoProgressMonitor, EitherFigureIsEnough) {
  NoProgressMonitor byS0(1, 0.5);
  EXPECT_TRUE(byS0.Feed(1.0, 1.0));
  EXPECT_TRUE(byS0.Feed(0.4, 9.0));
  NoProgressMonitor byChange(1, 0.5);
  EXPECT_TRUE(byChange.Feed(1.0, 1.0));
  EXPECT_TRUE(byChange.Feed(9.0, 0.4));
  NoProgressMonitor byNone(1, 0.5);
  EXPECT_TRUE(byNone.Feed(1.0, 1.0));
  EXPECT_FALSE(byNone.Feed(0.6, 0.6));
}

TEST(NoProgressMonitor, TheRatioItselfIsNotEnough) {
  NoProgressMonitor monitor(1, 0.5);
  EXPECT_TRUE(monitor.Feed(1.0, 1.0));
  EXPECT_FALSE(monitor.Feed(0.5, 0.5));
}

TEST(NoProgressMonitor, OnlyTheEndsOfTheWindowAreCompared) {
  NoProgressMonitor monitor(2, 0.5);
  EXPECT_TRUE(monitor.Feed(1.0, 1.0));
  EXPECT_TRUE(monitor.Feed(100.0, 100.0));
  // 0.4 of the oldest; the entry between does not matter.
  EXPECT_TRUE(monitor.Feed(0.4, 0.4));
  // The first entry has left the window: 40 is below half of 100.
  EXPECT_TRUE(monitor.Feed(40.0, 40.0));
  EXPECT_FALSE(monitor.Feed(0.3, 0.3));
}

TEST(NoProgressMonitor, OldestValueZeroPassesWithAPositiveRatio) {
  NoProgressMonitor positive(1, 0.5);
  EXPECT_TRUE(positive.Feed(0.0, 1.0));
  EXPECT_TRUE(positive.Feed(1e9, 1.0));
  NoProgressMonitor zero(1, 0.0);
  EXPECT_TRUE(zero.Feed(0.0, 0.0));
  EXPECT_FALSE(zero.Feed(0.0, 0.0));
}

TEST(NoProgressMonitor, NegativeRatioNeverPassesOnceTheWindowIsFull) {
  NoProgressMonitor monitor(1, -0.5);
  EXPECT_TRUE(monitor.Feed(1.0, 1.0));
  EXPECT_FALSE(monitor.Feed(1e-9, 1e-9));
}

TEST(NoProgressMonitor, FigureThatIsNotANumberIsNoProgress) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  NoProgressMonitor monitor(1, 0.5);
  EXPECT_TRUE(monitor.Feed(nan, nan));
  EXPECT_FALSE(monitor.Feed(nan, nan));
  EXPECT_FALSE(monitor.Feed(0.1, 0.1));
  EXPECT_TRUE(monitor.Feed(nan, 0.01));
}

TEST(NoProgressMonitor, ClearForgetsTheHistory) {
  NoProgressMonitor monitor(1, 0.5);
  EXPECT_TRUE(monitor.Feed(1.0, 1.0));
  monitor.Clear();
  EXPECT_TRUE(monitor.Feed(1.0, 1.0));
  EXPECT_FALSE(monitor.Feed(1.0, 1.0));
}

}  // namespace
}  // namespace vermo
