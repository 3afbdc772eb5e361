#include "checks/mat_exception.h"
#include "observations/mat_object.h"

#include <gtest/gtest.h>

namespace vermo {
namespace {

TEST(MatDistance3D, NeedsBothPoints) {
  const MatObjectInVektor3D origin({0.0, 0.0, 0.0}, -1);
  const MatObjectInVektor3D point({2.0, 3.0, 6.0}, -1);
  MatDistance3D distance;
  double value = -1.0;
  distance.SetLeft(&origin);
  EXPECT_THROW(distance.Value(value), MatException);
  EXPECT_EQ(value, -1.0);
  distance.SetRight(&point);
  distance.Value(value);
  EXPECT_EQ(value, 7.0);
}

}  // namespace
}  // namespace vermo
