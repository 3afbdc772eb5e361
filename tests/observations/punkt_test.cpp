#include "observations/punkt.h"

#include <cmath>
#include <gtest/gtest.h>

namespace vermo::test {
namespace {

TEST(Punkt, HasNoNumberAtFirst) {
  EXPECT_EQ(Ident().Nummer(), 0xFFFFFFFFU);
  EXPECT_EQ(Punkt2S().Nummer(), 0xFFFFFFFFU);
  EXPECT_EQ(Punkt3S().Nummer(), 0xFFFFFFFFU);
}

TEST(Punkt, StandardDeviationsOfAnImagePointAreUnsetAtFirst) {
  Punkt2S punkt;
  EXPECT_TRUE(std::isnan(punkt.Sigma()[0]));
  EXPECT_TRUE(std::isnan(punkt.Sigma()[1]));
  punkt.SetSigma(0.25, 0.5);
  EXPECT_EQ(punkt.Sigma()[0], 0.25);
  EXPECT_EQ(punkt.Sigma()[1], 0.5);
}

}  // namespace
}  // namespace vermo::test
