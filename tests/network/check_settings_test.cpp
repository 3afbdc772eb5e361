// Which relative orientations carry a datum: those on a fixed image that takes part.

#include "network/network_scene.h"

#include <cstdint>
#include <gtest/gtest.h>

namespace vermo::test {
namespace {

constexpr auto kNothingTold = static_cast<std::uint32_t>(DatumVerdict::NothingTold);
// A relative orientation gives the scale: the translation is what is missed first.
constexpr auto kScaleOnly = static_cast<std::uint32_t>(DatumVerdict::TranslationUndetermined);

// A relative orientation on image 11.
struct PairScene : TestBundel {
  PairScene() { Pair(12, 10, 11); }
};

TEST(CheckSettings, RelativeOrientationOnAFixedImageCounts) {
  PairScene job;
  job.Eor(11, 1).SetVariable(false);
  EXPECT_EQ(job.CheckSettings(), kScaleOnly);
}

TEST(CheckSettings, RelativeOrientationOnAVariableImageDoesNot) {
  PairScene job;
  job.Eor(11, 1);
  EXPECT_EQ(job.CheckSettings(), kNothingTold);
}

TEST(CheckSettings, RelativeOrientationOnAnInactiveImageDoesNot) {
  PairScene job;
  DataEor& base = job.Eor(11, 1);
  base.SetVariable(false);
  base.SetActive(false);
  EXPECT_EQ(job.CheckSettings(), kNothingTold);
}

TEST(CheckSettings, RelativeOrientationOnAMissingImageDoesNot) {
  PairScene job;
  EXPECT_EQ(job.CheckSettings(), kNothingTold);
}

}  // namespace
}  // namespace vermo::test
