#include "unknowns/data_obko.h"
#include "unknowns/linked_observation.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <utility>

namespace vermo {
namespace {

class Observation final : public LinkedObservation {
 public:
  Observation() : LinkedObservation(MessungKind::Obko) {}
  [[nodiscard]] std::uint32_t Dimension() const noexcept override { return 1; }
};

TEST(Data, MovingTakesValuesFlagsAndLinks) {
  Observation observation;
  DataObko source;
  source.SetCoordinates({1.0, 2.0, 3.0});
  source.SetActive(true);
  source.SetVariable(true);
  source.SetFirstUnknown(6);
  source.SetOrdinal(4);
  source.AddMessung(&observation);
  const DataObko target(std::move(source));
  EXPECT_EQ(target.Current()[2], 3.0);
  EXPECT_TRUE(target.IsActive());
  EXPECT_TRUE(target.IsVariable());
  EXPECT_EQ(target.FirstUnknown(), 6);
  EXPECT_EQ(target.Ordinal(), 4);
  ASSERT_EQ(target.Messungen().size(), 1U);
  EXPECT_EQ(target.Messungen()[0], &observation);
}

}  // namespace
}  // namespace vermo
