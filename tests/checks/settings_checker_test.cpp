#include "checks/settings_checker.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

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

TEST(SettingsChecker, EveryRequestAndEveryElementAloneIsSomethingTold) {
  using Tell = void (*)(SettingsChecker&);
  const std::pair<Tell, std::uint32_t> told[] = {
      {[](SettingsChecker& checker) { checker.SetTranslationFree(); }, 0x10},
      {[](SettingsChecker& checker) { checker.SetRotationFree(); }, 0x10},
      {[](SettingsChecker& checker) { checker.SetScaleFree(); }, 0x100},
      {[](SettingsChecker& checker) { checker.AddDistance("1 - 2"); }, 0x100},
      {[](SettingsChecker& checker) { checker.AddObjectPoint("1"); }, 0x10},
      {[](SettingsChecker& checker) { checker.AddMeasuredObjectPoint("1"); }, 0x10},
      {[](SettingsChecker& checker) { checker.AddExteriorOrientation("1"); }, 0x10},
      {[](SettingsChecker& checker) { checker.AddRelativeOrientation("", 1); }, 0x100},
  };
  for (std::size_t i = 0; i < std::size(told); ++i) {
    SettingsChecker checker;
    told[i].first(checker);
    EXPECT_EQ(checker.ResultCode(), told[i].second) << i;
  }
}

// Each part of the datum by each of the elements that determine it, and by the request as well.
TEST(SettingsChecker, EachWayToDetermineAPartTwiceIsFound) {
  struct Case {
    int distances, points, measured, images, pairs;
    bool translation, rotation, scale;
    std::uint32_t verdict;
  };
  constexpr bool kFree = true;
  constexpr bool kNot = false;
  const Case cases[] = {
      // Scale.
      {1, 1, 0, 1, 0, kNot, kNot, kFree, 0x10000},
      {0, 2, 0, 1, 0, kNot, kNot, kFree, 0x10000},
      {0, 0, 2, 1, 0, kNot, kNot, kFree, 0x10000},
      {0, 0, 0, 2, 1, kNot, kNot, kFree, 0x10000},
      {0, 1, 1, 1, 0, kNot, kNot, kFree, 0},
      // Translation.
      {0, 1, 0, 0, 0, kFree, kFree, kFree, 0x100000},
      {0, 0, 1, 0, 0, kFree, kFree, kFree, 0x100000},
      {0, 0, 0, 1, 0, kFree, kFree, kFree, 0x100000},
      {1, 0, 0, 0, 0, kFree, kFree, kNot, 0},
      // Rotation.
      {0, 3, 0, 0, 0, kNot, kFree, kNot, 0x1000000},
      {0, 0, 3, 0, 0, kNot, kFree, kNot, 0x1000000},
      {1, 0, 0, 1, 0, kNot, kFree, kNot, 0x1000000},
      {0, 2, 2, 0, 0, kNot, kFree, kNot, 0},
      // The image is the base of a pair.
      {0, 0, 0, 1, 1, kFree, kFree, kNot, 0},
      {0, 0, 0, 2, 1, kNot, kFree, kNot, 0x1000000},
  };
  for (const Case& c : cases) {
    SettingsChecker checker;
    for (int i = 0; i < c.distances; ++i) checker.AddDistance(std::to_string(i));
    for (int i = 0; i < c.points; ++i) checker.AddObjectPoint(std::to_string(i));
    for (int i = 0; i < c.measured; ++i) checker.AddMeasuredObjectPoint(std::to_string(i));
    for (int i = 0; i < c.images; ++i) checker.AddExteriorOrientation(std::to_string(i));
    for (int i = 0; i < c.pairs; ++i) checker.AddRelativeOrientation(std::to_string(i), 0);
    if (c.translation) checker.SetTranslationFree();
    if (c.rotation) checker.SetRotationFree();
    if (c.scale) checker.SetScaleFree();
    EXPECT_EQ(checker.ResultCode(), c.verdict) << "case " << &c - &cases[0];
  }
}

TEST(SettingsChecker, ADerivedOneEndsThroughItsBase) {
  class Telling final : public SettingsChecker {
   public:
    explicit Telling(int& ends) : fEnds(&ends) {}
    ~Telling() override { ++*fEnds; }

   private:
    int* fEnds;
  };
  int ends = 0;
  std::unique_ptr<SettingsChecker> checker = std::make_unique<Telling>(ends);
  checker->AddObjectPoint("1");
  EXPECT_EQ(checker->ResultCode(), 0x10U);
  checker.reset();
  EXPECT_EQ(ends, 1);
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
