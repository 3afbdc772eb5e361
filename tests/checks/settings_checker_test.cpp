#include "checks/settings_checker.h"

#include <gtest/gtest.h>

namespace vermo {
namespace {

void AddPoints(SettingsChecker& checker, int count) {
  for (int i = 0; i < count; ++i) checker.AddObjectPoint(std::to_string(i));
}

TEST(SettingsChecker, NothingToldIsOne) { EXPECT_EQ(SettingsChecker().ResultCode(), 0x1U); }

TEST(SettingsChecker, ControlPointsFixScaleThenRotation) {
  for (const auto& [points, verdict] : {std::pair{1, 16U}, {2, 4096U}, {3, 0U}, {4, 0U}}) {
    SettingsChecker checker;
    AddPoints(checker, points);
    EXPECT_EQ(checker.ResultCode(), verdict) << points;
    SettingsChecker measured;
    for (int i = 0; i < points; ++i) measured.AddMeasuredObjectPoint(std::to_string(i));
    EXPECT_EQ(measured.ResultCode(), verdict) << points;
  }
}

TEST(SettingsChecker, RequestsBesideControlDetermineTwice) {
  SettingsChecker translation;
  AddPoints(translation, 3);
  translation.SetTranslationFree();
  EXPECT_EQ(translation.ResultCode(), 1048576U);
  SettingsChecker rotation;
  AddPoints(rotation, 3);
  rotation.SetRotationFree();
  EXPECT_EQ(rotation.ResultCode(), 16777216U);
  SettingsChecker scale;
  AddPoints(scale, 3);
  scale.SetScaleFree();
  EXPECT_EQ(scale.ResultCode(), 65536U);
}

TEST(SettingsChecker, FixedImageLacksScaleOnly) {
  SettingsChecker checker;
  checker.AddExteriorOrientation("5");
  EXPECT_EQ(checker.ResultCode(), 16U);
  checker.AddDistance("1 - 2");
  EXPECT_EQ(checker.ResultCode(), 0U);
}

TEST(SettingsChecker, ScaleRequestAloneLeavesTranslationOpen) {
  SettingsChecker checker;
  checker.SetScaleFree();
  EXPECT_EQ(checker.ResultCode(), 256U);
}

TEST(SettingsChecker, AllThreeRequestsAloneAreAllowed) {
  SettingsChecker checker;
  checker.SetScaleFree();
  checker.SetTranslationFree();
  EXPECT_EQ(checker.ResultCode(), 4096U);
  checker.SetRotationFree();
  EXPECT_EQ(checker.ResultCode(), 0U);
}

TEST(SettingsChecker, BaseOfARelativeOrientationIsNoSecondDatum) {
  SettingsChecker checker;
  checker.AddExteriorOrientation("5");
  checker.AddRelativeOrientation("", 5);
  checker.SetTranslationFree();
  EXPECT_EQ(checker.ResultCode(), 0U);
  checker.SetRotationFree();
  EXPECT_EQ(checker.ResultCode(), 0U);
  checker.AddExteriorOrientation("6");
  EXPECT_EQ(checker.ResultCode(), 1048576U);
}

TEST(SettingsChecker, RelativeOrientationsShareOneEntryAndTheLastStands) {
  SettingsChecker checker;
  checker.AddExteriorOrientation("5");
  checker.AddExteriorOrientation("6");
  checker.AddRelativeOrientation("", 5);
  checker.AddRelativeOrientation("", 6);
  checker.SetTranslationFree();
  // 5 counts again, since the entry holds 6 alone.
  EXPECT_EQ(checker.ResultCode(), 1048576U);
}

TEST(SettingsChecker, RelativeOrientationAloneGivesScale) {
  SettingsChecker checker;
  checker.AddRelativeOrientation("", 5);
  EXPECT_EQ(checker.ResultCode(), 256U);
}

TEST(SettingsChecker, SameElementTwiceCountsOnce) {
  SettingsChecker checker;
  checker.AddObjectPoint("1");
  checker.AddObjectPoint("1");
  EXPECT_EQ(checker.ResultCode(), 16U);
}

}  // namespace
}  // namespace vermo
