#include "unknowns/network_settings.h"

#include <gtest/gtest.h>
#include <limits>

namespace vermo::test {
namespace {

std::int32_t FailureOfS0(NetworkSettings& settings, double value) {
  try {
    settings.SetS0Apriori(value);
  } catch (const KlException& failure) {
    return failure.GetCode();
  }
  return 0;
}

TEST(NetworkSettings, StartsWithoutDatumAndWithTheStandardLimits) {
  const NetworkSettings settings;
  EXPECT_FALSE(settings.TranslationDatum());
  EXPECT_FALSE(settings.RotationDatum());
  EXPECT_FALSE(settings.ScaleDatum());
  EXPECT_EQ(settings.AngleLimit(), 0.523599);
  EXPECT_EQ(settings.S0Apriori(), 0.005);
  EXPECT_EQ(settings.ModeA(), 0U);
  EXPECT_EQ(settings.ModeB(), 0U);
}

TEST(NetworkSettings, DatumFlagsDoNotTouchEachOther) {
  NetworkSettings settings;
  settings.SetRotationDatum(true);
  EXPECT_FALSE(settings.TranslationDatum());
  EXPECT_TRUE(settings.RotationDatum());
  EXPECT_FALSE(settings.ScaleDatum());
  settings.SetTranslationDatum(true);
  settings.SetScaleDatum(true);
  settings.SetRotationDatum(false);
  EXPECT_TRUE(settings.TranslationDatum());
  EXPECT_FALSE(settings.RotationDatum());
  EXPECT_TRUE(settings.ScaleDatum());
}

TEST(NetworkSettings, RefusesAnS0NotAboveZeroAndKeepsTheOldOne) {
  NetworkSettings settings;
  settings.SetS0Apriori(0.25);
  for (const double value : {0.0, -0.0, -1.0, std::numeric_limits<double>::quiet_NaN()})
    EXPECT_EQ(FailureOfS0(settings, value), failure::kS0Apriori) << value;
  EXPECT_EQ(settings.S0Apriori(), 0.25);
  EXPECT_EQ(FailureOfS0(settings, std::numeric_limits<double>::denorm_min()), 0);
}

TEST(NetworkSettings, ModesOutOfRangeBecomeZero) {
  NetworkSettings settings;
  settings.SetModeA(1);
  settings.SetModeB(2);
  EXPECT_EQ(settings.ModeA(), 1U);
  EXPECT_EQ(settings.ModeB(), 2U);
  settings.SetModeA(2);
  settings.SetModeB(3);
  EXPECT_EQ(settings.ModeA(), 0U);
  EXPECT_EQ(settings.ModeB(), 0U);
}

}  // namespace
}  // namespace vermo::test
