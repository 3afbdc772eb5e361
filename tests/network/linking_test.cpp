// The stages that turn ids into links and decide which observations can take part.

#include "checks/failure_codes.h"
#include "network/network_scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vermo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<LinkedObservation*> LinksOf(const Data& group) {
  return {group.Messungen().begin(), group.Messungen().end()};
}

// --- images -----------------------------------------------------------------

TEST(LinkEorCameras, ImagesGetTheirCameraAndProjection) {
  TestBundel job;
  job.Ior(1);
  DataIor& ior = job.Ior(2);
  DataProjektion& projektion = job.Projektion(7);
  DataEor& eor = job.Eor(10, 2, 7);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(eor.Ior(), &ior);
  EXPECT_EQ(eor.Projektion(), &projektion);
}

TEST(LinkEorCameras, MissingOnesAreNoErrorAndBringNoWarning) {
  TestBundel job;
  DataEor& eor = job.Eor(10, 2, 7);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(eor.Ior(), nullptr);
  EXPECT_EQ(eor.Projektion(), nullptr);
  EXPECT_THAT(job.dataWarnings, IsEmpty());
}

TEST(LinkEorCameras, InactiveCameraIsLinkedAllTheSame) {
  TestBundel job;
  DataIor& ior = job.Ior(1);
  ior.SetActive(false);
  DataEor& eor = job.Eor(10, 1);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(eor.Ior(), &ior);
}

TEST(LinkEorCameras, TheIdWithoutMeaningLinksNothing) {
  TestBundel job;
  job.Ior(kNoId);
  job.Projektion(kNoId);
  DataEor& eor = job.Eor(10, kNoId, kNoId);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(eor.Ior(), nullptr);
  EXPECT_EQ(eor.Projektion(), nullptr);
}

// --- groups that refer to groups ----------------------------------------------

TEST(CheckGroupLinks, CompletePairBringsNoWarning) {
  TestBundel job;
  job.Eor(10, 1);
  job.Eor(11, 1).SetActive(false);
  job.Pair(20, 11, 10);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_THAT(job.dataWarnings, IsEmpty());
}

TEST(CheckGroupLinks, EitherImageMissingBringsOneWarning) {
  TestBundel job;
  job.Eor(10, 1);
  DoppelOrientierung& withoutEor = job.Pair(20, 99, 10);
  DoppelOrientierung& withoutBase = job.Pair(21, 10, 99);
  DoppelOrientierung& withoutBoth = job.Pair(22, 98, 99);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_THAT(job.dataWarnings, ElementsAre(&withoutEor, &withoutBase, &withoutBoth));
  EXPECT_TRUE(withoutEor.IsActive());
}

TEST(CheckGroupLinks, PointGetsItsReferenceImage) {
  TestBundel job;
  const DataEor& eor = job.Eor(10, 1);
  DataObko& point = job.Point(1);
  point.SetReferenceEorId(10);
  DataObko& free = job.Point(2);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(point.ReferenceEor(), &eor);
  EXPECT_EQ(free.ReferenceEor(), nullptr);
  EXPECT_TRUE(point.IsActive());
}

TEST(CheckGroupLinks, MissingReferenceImageTakesThePointOut) {
  TestBundel job;
  DataObko& point = job.Point(1);
  point.SetReferenceEorId(10);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_FALSE(point.IsActive());
  EXPECT_EQ(point.ReferenceEor(), nullptr);
  EXPECT_THAT(job.dataWarnings, ElementsAre(&point));
}

TEST(CheckGroupLinks, InactiveReferenceImageTakesThePointOut) {
  TestBundel job;
  job.Eor(10, 1).SetActive(false);
  DataObko& point = job.Point(1);
  point.SetReferenceEorId(10);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_FALSE(point.IsActive());
  EXPECT_EQ(point.ReferenceEor(), nullptr);
  EXPECT_THAT(job.dataWarnings, ElementsAre(&point));
}

TEST(CheckGroupLinks, PairsAreWarnedAboutBeforePoints) {
  TestBundel job;
  DataObko& point = job.Point(1);
  point.SetReferenceEorId(99);
  DoppelOrientierung& pair = job.Pair(20, 98, 99);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_THAT(job.dataWarnings, ElementsAre(&pair, &point));
}

TEST(CheckGroupLinks, PointTakenOutTakesItsObservationsAlong) {
  TestBundel job;
  job.Point(1).SetReferenceEorId(99);
  job.Point(2);
  MessungStrecke& strecke = job.Strecke(1, 2);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_FALSE(strecke.IsActive());
}

// --- image coordinates --------------------------------------------------------

// One image coordinate of a point on an image with camera and projection.
struct LinkBikoTest : testing::Test {
  TestBundel job;
  DataIor& ior = job.Ior(1);
  DataProjektion& projektion = job.Projektion(7);
  DataEor& eor = job.Eor(10, 1, 7);
  DataObko& point = job.Point(5);
  MessungBiko& biko = job.Biko(5, 10);

  void ExpectOut() {
    EXPECT_EQ(job.LinkOnly(), 0);
    EXPECT_FALSE(biko.IsActive());
    EXPECT_THAT(job.observationWarnings, ElementsAre(&biko));
  }
};

using LinkBiko = LinkBikoTest;

TEST_F(LinkBiko, CompleteChainIsLinkedBothWays) {
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_TRUE(biko.IsActive());
  EXPECT_EQ(biko.Punkt(), &point);
  EXPECT_EQ(biko.GetEor(), &eor);
  EXPECT_EQ(biko.EorBasis(), nullptr);
  EXPECT_EQ(biko.GetIor(), &ior);
  EXPECT_EQ(biko.Projektion(), &projektion);
  EXPECT_THAT(LinksOf(point), ElementsAre(&biko));
  EXPECT_THAT(LinksOf(eor), ElementsAre(&biko));
  EXPECT_THAT(LinksOf(ior), ElementsAre(&biko));
  EXPECT_THAT(LinksOf(projektion), ElementsAre(&biko));
  EXPECT_THAT(job.observationWarnings, IsEmpty());
}

TEST_F(LinkBiko, ProjectionIsNoCondition) {
  eor.SetProjektionId(kNoId);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_TRUE(biko.IsActive());
  EXPECT_EQ(biko.Projektion(), nullptr);
  EXPECT_THAT(LinksOf(projektion), IsEmpty());
}

TEST_F(LinkBiko, InactivePointTakesItOut) {
  point.SetActive(false);
  ExpectOut();
}

TEST_F(LinkBiko, InactiveImageTakesItOut) {
  eor.SetActive(false);
  ExpectOut();
}

TEST_F(LinkBiko, InactiveCameraTakesItOut) {
  ior.SetActive(false);
  ExpectOut();
}

TEST_F(LinkBiko, InactiveProjectionTakesItOut) {
  projektion.SetActive(false);
  ExpectOut();
}

TEST_F(LinkBiko, MissingCameraTakesItOut) {
  eor.SetIorId(99);
  ExpectOut();
  EXPECT_THAT(LinksOf(eor), ElementsAre(&biko));
}

TEST_F(LinkBiko, MissingPointTakesItOut) {
  biko.SetNummer(99);
  ExpectOut();
  EXPECT_EQ(biko.Punkt(), nullptr);
  EXPECT_EQ(biko.GetEor(), &eor);
}

TEST_F(LinkBiko, MissingImageTakesItOut) {
  biko.SetBildNummer(99);
  ExpectOut();
  EXPECT_EQ(biko.GetEor(), nullptr);
  EXPECT_THAT(LinksOf(point), ElementsAre(&biko));
}

TEST_F(LinkBiko, LostObservationIsStillLinkedToWhatThereIs) {
  projektion.SetActive(false);
  ExpectOut();
  EXPECT_THAT(LinksOf(point), ElementsAre(&biko));
  EXPECT_THAT(LinksOf(projektion), ElementsAre(&biko));
}

TEST_F(LinkBiko, InactiveOneIsLinkedAndNotWarnedAbout) {
  biko.SetActive(false);
  eor.SetActive(false);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_FALSE(biko.IsActive());
  EXPECT_EQ(biko.GetEor(), &eor);
  EXPECT_THAT(LinksOf(point), ElementsAre(&biko));
  EXPECT_THAT(job.observationWarnings, IsEmpty());
}

TEST_F(LinkBiko, InactiveOneWithACompleteChainStaysInactive) {
  biko.SetActive(false);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_FALSE(biko.IsActive());
}

TEST_F(LinkBiko, OutlierIsLinkedAndStaysOutlier) {
  biko.SetAusreisser();
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_TRUE(biko.IsActive());
  EXPECT_TRUE(biko.IsAusreisser());
  EXPECT_THAT(LinksOf(point), ElementsAre(&biko));
}

TEST_F(LinkBiko, GroupsListTheirObservationsInContainerOrder) {
  MessungBiko& second = job.Biko(5, 10);
  MessungBiko& third = job.Biko(5, 10);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_THAT(LinksOf(point), ElementsAre(&biko, &second, &third));
}

TEST_F(LinkBiko, LaterPointOfAnIdGetsTheObservation) {
  DataObko& later = job.Point(5);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(biko.Punkt(), &later);
  EXPECT_THAT(LinksOf(point), IsEmpty());
}

TEST_F(LinkBiko, IdOfImageAndPairFails) {
  job.Pair(10, 10, 10);
  EXPECT_EQ(job.CalcBundle(), failure::kDoubleData);
  EXPECT_THAT(LinksOf(point), IsEmpty());
}

TEST_F(LinkBiko, DoubleIdThatNoObservationUsesIsNotNoticed) {
  job.Eor(11, 1);
  job.Pair(11, 10, 10);
  EXPECT_EQ(job.LinkOnly(), 0);
}

TEST_F(LinkBiko, DoubleIdFailsForAnInactiveObservationToo) {
  biko.SetActive(false);
  job.Pair(10, 10, 10);
  EXPECT_EQ(job.CalcBundle(), failure::kDoubleData);
}

// An image coordinate on a relative orientation, each image with a camera and a projection.
struct LinkPairTest : testing::Test {
  TestBundel job;
  DataIor& baseIor = job.Ior(1);
  DataIor& otherIor = job.Ior(2);
  DataProjektion& baseProjektion = job.Projektion(7);
  DataProjektion& otherProjektion = job.Projektion(8);
  DataEor& base = job.Eor(10, 1, 7);
  DataEor& other = job.Eor(11, 2, 8);
  DoppelOrientierung& pair = job.Pair(20, 11, 10);
  DataObko& point = job.Point(5);
  MessungBiko& biko = job.Biko(5, 20);
};

using LinkPair = LinkPairTest;

TEST_F(LinkPair, BothImagesTakeTheirRoles) {
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_TRUE(biko.IsActive());
  EXPECT_EQ(biko.GetEor(), &other);
  EXPECT_EQ(biko.EorBasis(), &base);
  EXPECT_THAT(LinksOf(pair), ElementsAre(&biko));
  EXPECT_THAT(LinksOf(other), ElementsAre(&biko));
  EXPECT_THAT(LinksOf(base), ElementsAre(&biko));
}

TEST_F(LinkPair, CameraAndProjectionAreThoseOfTheBase) {
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(biko.GetIor(), &baseIor);
  EXPECT_EQ(biko.Projektion(), &baseProjektion);
  EXPECT_THAT(LinksOf(baseIor), ElementsAre(&biko));
  EXPECT_THAT(LinksOf(baseProjektion), ElementsAre(&biko));
  EXPECT_THAT(LinksOf(otherIor), IsEmpty());
  EXPECT_THAT(LinksOf(otherProjektion), IsEmpty());
}

TEST_F(LinkPair, BaseWithoutProjectionMeansNone) {
  base.SetProjektionId(kNoId);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(biko.Projektion(), nullptr);
  EXPECT_TRUE(biko.IsActive());
}

TEST_F(LinkPair, CameraOfTheOtherImageIsNoCondition) {
  other.SetIorId(99);
  otherProjektion.SetActive(false);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_TRUE(biko.IsActive());
}

TEST_F(LinkPair, InactiveCameraOfTheBaseTakesItOut) {
  baseIor.SetActive(false);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_FALSE(biko.IsActive());
}

TEST_F(LinkPair, InactiveOtherImageTakesItOut) {
  other.SetActive(false);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_FALSE(biko.IsActive());
  EXPECT_THAT(job.observationWarnings, ElementsAre(&biko));
}

TEST_F(LinkPair, InactiveBaseIsNoticedByTheFirstBuildOnly) {
  base.SetActive(false);
  bool linked = false;
  job.onRunStart = [&] { linked = biko.IsActive(); };
  EXPECT_EQ(job.CalcBundle(), failure::kNoMessungen);
  EXPECT_TRUE(linked);
  EXPECT_FALSE(biko.IsActive());
  EXPECT_THAT(job.observationWarnings, IsEmpty());
}

TEST_F(LinkPair, ActiveFlagOfThePairDoesNotMatter) {
  pair.SetActive(false);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_TRUE(biko.IsActive());
}

TEST_F(LinkPair, MissingImageOfThePairLeavesTheObservationWithoutOrientation) {
  pair.SetIds(20, 11, 99);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(biko.GetEor(), nullptr);
  EXPECT_EQ(biko.EorBasis(), nullptr);
  EXPECT_EQ(biko.GetIor(), nullptr);
  EXPECT_FALSE(biko.IsActive());
  EXPECT_THAT(LinksOf(pair), IsEmpty());
  EXPECT_THAT(LinksOf(other), IsEmpty());
  EXPECT_THAT(LinksOf(point), ElementsAre(&biko));
  EXPECT_THAT(job.observationWarnings, ElementsAre(&biko));
  EXPECT_THAT(job.dataWarnings, ElementsAre(&pair));
}

TEST_F(LinkPair, OwnRaysOfItsImagesDoNotReachThePair) {
  MessungBiko& own = job.Biko(5, 11);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(own.GetEor(), &other);
  EXPECT_EQ(own.EorBasis(), nullptr);
  EXPECT_EQ(own.GetIor(), &otherIor);
  EXPECT_THAT(LinksOf(pair), ElementsAre(&biko));
  EXPECT_THAT(LinksOf(other), ElementsAre(&biko, &own));
}

// --- measured object coordinates ----------------------------------------------

TEST(LinkObko, FindsItsPoint) {
  TestBundel job;
  DataObko& point = job.Point(5);
  MessungObko& obko = job.Obko(5);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(obko.Punkt(), &point);
  EXPECT_EQ(obko.Bezug(), nullptr);
  EXPECT_TRUE(obko.IsActive());
  EXPECT_THAT(LinksOf(point), ElementsAre(&obko));
  EXPECT_THAT(job.observationWarnings, IsEmpty());
}

TEST(LinkObko, MissingPointEndsTheStage) {
  TestBundel job;
  DataObko& point = job.Point(5);
  MessungObko& before = job.Obko(5);
  MessungObko& lost = job.Obko(99);
  MessungObko& behind = job.Obko(5);
  MessungObko& behindToo = job.Obko(98);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_TRUE(before.IsActive());
  EXPECT_FALSE(lost.IsActive());
  EXPECT_THAT(job.observationWarnings, ElementsAre(&lost));
  EXPECT_THAT(LinksOf(point), ElementsAre(&before));
  // Those behind are untouched.
  EXPECT_EQ(behind.Punkt(), nullptr);
  EXPECT_TRUE(behind.IsActive());
  EXPECT_TRUE(behindToo.IsActive());
}

TEST(LinkObko, InactivePointEndsTheStage) {
  TestBundel job;
  job.Point(4).SetActive(false);
  job.Point(5);
  MessungObko& lost = job.Obko(4);
  MessungObko& behind = job.Obko(5);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(lost.Punkt(), nullptr);
  EXPECT_FALSE(lost.IsActive());
  EXPECT_EQ(behind.Punkt(), nullptr);
  EXPECT_THAT(job.observationWarnings, ElementsAre(&lost));
}

TEST(LinkObko, ThoseBehindTheEndAreNotUsedByTheAdjustment) {
  TestBundel job;
  job.Point(5);
  job.Obko(5);
  job.Obko(99);
  MessungObko& behind = job.Obko(5, {1000.0, 1000.0, 1000.0});
  EXPECT_EQ(job.CalcBundle(), 0);
  EXPECT_EQ(job.Statistics().fBeobachtungen, 3U);
  EXPECT_FALSE(behind.IsActive());
}

TEST(LinkObko, StageEndsForItselfOnly) {
  TestBundel job;
  job.Point(5);
  job.Point(6);
  job.Obko(99);
  MessungStrecke& strecke = job.Strecke(5, 6);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_TRUE(strecke.IsConnected());
  EXPECT_TRUE(strecke.IsActive());
}

TEST(LinkObko, InactiveOneIsSkippedWithoutAnyLink) {
  TestBundel job;
  DataObko& point = job.Point(5);
  MessungObko& inactive = job.Obko(5);
  inactive.SetActive(false);
  job.Obko(99).SetActive(false);
  MessungObko& behind = job.Obko(5);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(inactive.Punkt(), nullptr);
  EXPECT_THAT(LinksOf(point), ElementsAre(&behind));
  EXPECT_THAT(job.observationWarnings, IsEmpty());
}

TEST(LinkObko, NamedImageIsLinked) {
  TestBundel job;
  DataEor& eor = job.Eor(10, 1);
  DataObko& point = job.Point(5);
  MessungObko& obko = job.Obko(5);
  obko.SetBezugNummer(10);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_TRUE(obko.IsActive());
  EXPECT_EQ(obko.Bezug(), &eor);
  EXPECT_THAT(LinksOf(eor), ElementsAre(&obko));
  EXPECT_THAT(LinksOf(point), ElementsAre(&obko));
}

TEST(LinkObko, MissingOrInactiveImageTakesItOutAndTheStageGoesOn) {
  TestBundel job;
  DataEor& inactive = job.Eor(10, 1);
  inactive.SetActive(false);
  DataObko& point = job.Point(5);
  MessungObko& withInactive = job.Obko(5);
  withInactive.SetBezugNummer(10);
  MessungObko& withMissing = job.Obko(5);
  withMissing.SetBezugNummer(99);
  MessungObko& behind = job.Obko(5);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_FALSE(withInactive.IsActive());
  EXPECT_EQ(withInactive.Bezug(), nullptr);
  EXPECT_FALSE(withMissing.IsActive());
  EXPECT_TRUE(behind.IsActive());
  EXPECT_THAT(job.observationWarnings, ElementsAre(&withInactive, &withMissing));
  EXPECT_THAT(LinksOf(inactive), IsEmpty());
  EXPECT_THAT(LinksOf(point), ElementsAre(&withInactive, &withMissing, &behind));
}

// --- distances ----------------------------------------------------------------

struct LinkStreckenTest : testing::Test {
  TestBundel job;
  DataObko& first = job.Point(1);
  DataObko& second = job.Point(2);
  MessungStrecke& strecke = job.Strecke(1, 2);
};

using LinkStrecken = LinkStreckenTest;

TEST_F(LinkStrecken, BothPointsAreLinked) {
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_TRUE(strecke.IsActive());
  EXPECT_TRUE(strecke.IsConnected());
  EXPECT_THAT(LinksOf(first), ElementsAre(&strecke));
  EXPECT_THAT(LinksOf(second), ElementsAre(&strecke));
}

TEST_F(LinkStrecken, EitherPointInactiveTakesItOut) {
  MessungStrecke& reversed = job.Strecke(2, 1);
  second.SetActive(false);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_FALSE(strecke.IsActive());
  EXPECT_FALSE(reversed.IsActive());
  EXPECT_THAT(job.observationWarnings, ElementsAre(&strecke, &reversed));
  EXPECT_THAT(LinksOf(second), ElementsAre(&strecke, &reversed));
}

TEST_F(LinkStrecken, EitherPointMissingTakesItOutAndTheStageGoesOn) {
  MessungStrecke& withoutFirst = job.Strecke(99, 2);
  MessungStrecke& withoutSecond = job.Strecke(1, 99);
  MessungStrecke& behind = job.Strecke(1, 2);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_FALSE(withoutFirst.IsActive());
  EXPECT_FALSE(withoutFirst.IsConnected());
  EXPECT_FALSE(withoutSecond.IsActive());
  EXPECT_TRUE(behind.IsActive());
  EXPECT_THAT(job.observationWarnings, ElementsAre(&withoutFirst, &withoutSecond));
  EXPECT_THAT(LinksOf(first), ElementsAre(&strecke, &withoutSecond, &behind));
  EXPECT_THAT(LinksOf(second), ElementsAre(&strecke, &withoutFirst, &behind));
}

TEST_F(LinkStrecken, InactiveOneIsLinkedAndNotWarnedAbout) {
  strecke.SetActive(false);
  first.SetActive(false);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_FALSE(strecke.IsActive());
  EXPECT_TRUE(strecke.IsConnected());
  EXPECT_THAT(LinksOf(first), ElementsAre(&strecke));
  EXPECT_THAT(job.observationWarnings, IsEmpty());
}

TEST(Linking, ImageCoordinatesAreWarnedAboutBeforeTheOthers) {
  TestBundel job;
  MessungStrecke& strecke = job.Strecke(98, 99);
  MessungObko& obko = job.Obko(99);
  MessungBiko& biko = job.Biko(99, 99);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_THAT(job.observationWarnings, ElementsAre(&biko, &obko, &strecke));
}

}  // namespace
}  // namespace vermo::test
