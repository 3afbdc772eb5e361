#include "network/bundel_verband.h"

#include "network/network_scene.h"

#include <gtest/gtest.h>

namespace vermo::test {
namespace {

template <typename List, typename Group>
void AddTwoActiveOfThree(List& list, Group group) {
  for (const bool active : {true, false, true}) {
    group.SetActive(active);
    list.Add(group);
  }
}

TEST(BundelVerband, CountsActiveGroups) {
  PlainNetwork network;
  AddTwoActiveOfThree(network.fIors, DataIor());
  AddTwoActiveOfThree(network.fEors, DataEor());
  network.fEors.At(0).SetActive(false);
  AddTwoActiveOfThree(network.fObkos, DataObko());
  network.fObkos.At(1).SetActive(true);
  EXPECT_EQ(network.ActiveIorCount(), 2U);
  EXPECT_EQ(network.ActiveEorCount(), 1U);
  EXPECT_EQ(network.ActiveObkoCount(), 3U);
}

TEST(BundelVerband, EmptyNetworkCountsNothing) {
  const PlainNetwork network;
  EXPECT_EQ(network.ActiveIorCount(), 0U);
  EXPECT_EQ(network.ActiveEorCount(), 0U);
  EXPECT_EQ(network.ActiveObkoCount(), 0U);
}

}  // namespace
}  // namespace vermo::test
