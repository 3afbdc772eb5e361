#include "observations/messung_wert.h"

#include <gtest/gtest.h>

namespace vermo::test {
namespace {

TEST(MessungWert, StartsWithUnitWeightAndZeros) {
  const MessungWert wert;
  EXPECT_EQ(wert.Residuum(), 0.0);
  EXPECT_EQ(wert.Redundanz(), 0.0);
  EXPECT_EQ(wert.Testwert(), 0.0);
  EXPECT_EQ(wert.Gewicht(), 1.0);
  EXPECT_EQ(wert.EffectiveWeight(), 1.0);
}

TEST(MessungWert, WeightedSquareIsThatOfTheResidual) {
  MessungWert wert;
  wert.SetResiduum(-3.0);
  wert.SetGewicht(0.5);
  EXPECT_EQ(wert.EffectiveWeight(), 0.5);
  EXPECT_EQ(wert.WeightedSquare(), 4.5);
}

TEST(MessungWert, ResetLeavesTheWeightAlone) {
  MessungWert wert;
  wert.SetResiduum(1.0);
  wert.SetRedundanz(0.5);
  wert.SetTestwert(2.0);
  wert.SetGewicht(4.0);
  wert.ResetValues();
  EXPECT_EQ(wert.Residuum(), 0.0);
  EXPECT_EQ(wert.Redundanz(), 0.0);
  EXPECT_EQ(wert.Testwert(), 0.0);
  EXPECT_EQ(wert.EffectiveWeight(), 4.0);
}

}  // namespace
}  // namespace vermo::test
