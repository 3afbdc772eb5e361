#include "linalg/dual3.h"

#include <cmath>
#include <gtest/gtest.h>

namespace ostra_bundle {
namespace {

// f of (x, y) at (3, 4), with both as variables.
constexpr double kX = 3.0;
constexpr double kY = 4.0;

Dual3 X() { return Dual3{kX, {1.0, 0.0, 0.0}}; }
Dual3 Y() { return Dual3{kY, {0.0, 1.0, 0.0}}; }

void Expect(const Dual3& f, double value, double byX, double byY) {
  EXPECT_DOUBLE_EQ(f.value, value);
  EXPECT_DOUBLE_EQ(f.derivative[0], byX);
  EXPECT_DOUBLE_EQ(f.derivative[1], byY);
  EXPECT_EQ(f.derivative[2], 0.0);
}

TEST(Dual3, ArithmeticFollowsTheRules) {
  Expect(X() + Y(), 7.0, 1.0, 1.0);
  Expect(X() - Y(), -1.0, 1.0, -1.0);
  Expect(X() * Y(), 12.0, 4.0, 3.0);
  Expect(X() / Y(), 0.75, 0.25, -3.0 / 16.0);
  Expect(-X(), -3.0, -1.0, 0.0);
  Expect(fabs(-X()), 3.0, 1.0, 0.0);
  Expect(fmod(X(), 2.0), 1.0, 1.0, 0.0);
}

TEST(Dual3, AnglesFollowTheRules) {
  Expect(sin(X()), std::sin(kX), std::cos(kX), 0.0);
  Expect(cos(X()), std::cos(kX), -std::sin(kX), 0.0);
  Expect(atan2(Y(), X()), std::atan2(kY, kX), -kY / 25.0, kX / 25.0);
}

TEST(Dual3, WhereThereIsNoDerivativeItIsZero) {
  const Dual3 zero = X() - X() * 1.0;
  Expect(atan2(zero, zero), 0.0, 0.0, 0.0);
  const Dual3 infinite = Y() / zero;
  EXPECT_TRUE(std::isinf(infinite.value));
  for (const double derivative : infinite.derivative) EXPECT_EQ(derivative, 0.0);
}

}  // namespace
}  // namespace ostra_bundle
