#include "unknowns/linked_observation.h"

#include "support/fake_observation.h"

#include <gtest/gtest.h>

namespace vermo::test {
namespace {

// The least an observation can be.
class BareObservation final : public LinkedObservation {
 public:
  BareObservation() : LinkedObservation(MessungKind::Strecke) {}
  [[nodiscard]] std::uint32_t Dimension() const noexcept override { return 1; }
};

TEST(LinkedObservation, StartsInactiveAndNotRejected) {
  const BareObservation observation;
  EXPECT_FALSE(observation.IsActive());
  EXPECT_FALSE(observation.IsAusreisser());
  EXPECT_FALSE(observation.IsUsed());
  EXPECT_EQ(observation.UsedCount(), 0U);
}

TEST(LinkedObservation, FlagsDoNotTouchEachOther) {
  BareObservation observation;
  observation.SetAusreisser();
  EXPECT_FALSE(observation.IsActive());
  observation.SetActive(true);
  EXPECT_TRUE(observation.IsAusreisser());
  observation.ClearAusreisser();
  EXPECT_TRUE(observation.IsActive());
  EXPECT_FALSE(observation.IsAusreisser());
  observation.SetAusreisser();
  observation.SetActive(false);
  EXPECT_TRUE(observation.IsAusreisser());
}

TEST(LinkedObservation, CountsItsComponentsOnlyWhenActiveAndNotRejected) {
  FakeObservation observation(MessungKind::Biko, 2);
  EXPECT_EQ(observation.UsedCount(), 2U);
  observation.SetAusreisser();
  EXPECT_EQ(observation.UsedCount(), 0U);
  observation.SetActive(false);
  EXPECT_EQ(observation.UsedCount(), 0U);
  observation.ClearAusreisser();
  EXPECT_EQ(observation.UsedCount(), 0U);
}

TEST(LinkedObservation, OtherThanAnImageCoordinateHasNoImagePoint) {
  BareObservation observation;
  observation.SetActive(true);
  ImagePointPair point{1.0, 2.0, 3.0, 4.0};
  EXPECT_FALSE(observation.EvaluateImagePoint(point));
  EXPECT_EQ(point.measuredX, 1.0);
  EXPECT_EQ(point.computedY, 4.0);
}

}  // namespace
}  // namespace vermo::test
