// Line coordinates find their image, and what forbids them is told by its own code.

#include "adjustment/blunder_round_info.h"
#include "checks/failure_codes.h"
#include "network/network_scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vermo::test {
namespace {

// A line seen on image 10 of camera 1.
struct LineScene : TestBundel {
  LineScene() {
    Ior(1);
    DataLinie linie;
    linie.SetPoints({-1.0, 0.0, -10.0}, {1.0, 0.0, -10.0});
    linie.SetId(1);
    linie.SetActive(true);
    fLinien.Add(linie);
  }
  MessungLinko& Linko(std::uint32_t imageId) {
    MessungLinko linko;
    linko.SetLinienNummer(1);
    linko.SetBildNummer(imageId);
    linko.SetActive(true);
    return fLinko.Add(linko);
  }
};

TEST(LinkLinko, IdOfImageAndPairFails) {
  LineScene job;
  job.Eor(10, 1);
  job.Pair(10, 10, 10);
  job.Linko(10);
  EXPECT_EQ(job.CalcBundle(), failure::kDoubleData);
}

TEST(LinkLinko, ImageWithAProjectionFails) {
  LineScene job;
  job.Projektion(7);
  job.Eor(10, 1, 7);
  job.Linko(10);
  EXPECT_EQ(job.CalcBundle(), failure::kLineCoordsWithPrincipalPoint);
}

TEST(LinkLinko, PairWhoseBaseHasAProjectionFails) {
  LineScene job;
  job.Projektion(7);
  job.Eor(10, 1);
  job.Eor(11, 1, 7);
  job.Pair(12, 10, 11);
  job.Linko(12);
  EXPECT_EQ(job.CalcBundle(), failure::kLineCoordsWithPrincipalPoint);
}

TEST(LinkLinko, ProjectionOfTheOtherImageOfAPairDoesNotMatter) {
  LineScene job;
  job.Projektion(7);
  DataEor& eor = job.Eor(10, 1, 7);
  DataEor& base = job.Eor(11, 1);
  job.Pair(12, 10, 11);
  MessungLinko& linko = job.Linko(12);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_THAT(eor.Messungen(), testing::ElementsAre(&linko));
  EXPECT_EQ(linko.EorBasis(), &base);
}

TEST(LinkLinko, PairWithoutItsBaseIsNoImage) {
  LineScene job;
  job.Eor(10, 1);
  job.Pair(12, 10, 99);
  MessungLinko& linko = job.Linko(12);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_FALSE(linko.IsActive());
  EXPECT_THAT(job.observationWarnings, testing::ElementsAre(&linko));
}

TEST(LinkLinko, PairWithoutItsFirstImageIsNoImage) {
  LineScene job;
  job.Eor(11, 1);
  job.Pair(12, 99, 11);
  MessungLinko& linko = job.Linko(12);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(linko.EorBasis(), nullptr);
  EXPECT_FALSE(linko.IsActive());
}

TEST(LinkLinko, InactiveCameraSwitchesTheObservationOff) {
  LineScene job;
  job.Eor(10, 1);
  job.fIors.Find(1)->SetActive(false);
  MessungLinko& linko = job.Linko(10);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_FALSE(linko.IsActive());
  EXPECT_THAT(job.observationWarnings, testing::ElementsAre(&linko));
}

// Warnings are for those who ask for them.
TEST(BundelVerband, WarningsOfAPlainNetworkLeaveNoTrace) {
  PlainNetwork network;
  MessungStrecke strecke;
  strecke.SetActive(true);
  DataObko point;
  network.WarnObservationWithoutData(strecke);
  network.WarnDataWithoutSubData(point);
  EXPECT_TRUE(strecke.IsActive());
}

class OpenRun final : public KLBundel {
 public:
  using KLBundel::KLBundel;
  using KLBundel::OnIterationWithBlunders;
};

TEST(KLBundel, AnIterationWithItsOutliersCarriesTheS0ThatWasGivenAndStopsNothing) {
  const ProtocolFile file;
  OpenRun run(file.Name());
  run.fNetworkSettings.SetS0Apriori(0.25);
  BlunderRoundInfo info{};
  info.s0APriori = -1.0;
  EXPECT_FALSE(run.OnIterationWithBlunders(info));
  EXPECT_EQ(info.s0APriori, 0.25);
}

}  // namespace
}  // namespace vermo::test
