// What groups are before anybody sets a value.

#include "unknowns/data_linie.h"
#include "unknowns/data_plane.h"

#include <array>
#include <gtest/gtest.h>

namespace vermo {
namespace {

TEST(DataLinie, StartsInTheOriginAlongTheThirdAxis) {
  const DataLinie line;
  for (unsigned i = 0; i < 3; ++i) {
    EXPECT_EQ(line.Point()[i], 0.0);
    EXPECT_EQ(line.Direction()[i], i == 2 ? 1.0 : 0.0);
  }
  for (unsigned i = 0; i < 9; ++i) EXPECT_EQ(line.LocalFrame()[i], i % 4 == 0 ? 1.0 : 0.0) << i;
  EXPECT_EQ(line.Sigma(), (std::array<double, 6>{}));
  EXPECT_EQ(line.Id(), 0xFFFFFFFFU);
}

TEST(DataPlane, StartsInTheOriginAcrossTheThirdAxis) {
  const DataPlane plane;
  for (unsigned i = 0; i < 3; ++i) {
    EXPECT_EQ(plane.Point()[i], 0.0);
    EXPECT_EQ(plane.Normal()[i], i == 2 ? 1.0 : 0.0);
  }
  for (unsigned i = 0; i < 9; ++i) EXPECT_EQ(plane.LocalFrame()[i], i % 4 == 0 ? 1.0 : 0.0) << i;
  EXPECT_EQ(plane.Sigma(), (std::array<double, 6>{}));
  EXPECT_EQ(plane.Id(), 0xFFFFFFFFU);
}

}  // namespace
}  // namespace vermo
