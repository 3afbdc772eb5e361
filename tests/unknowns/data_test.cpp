#include "unknowns/data.h"

#include "adjustment/adjustment_statistics.h"
#include "support/dense_system.h"
#include "support/fake_observation.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_ior.h"
#include "unknowns/data_obko.h"
#include "unknowns/data_projektion.h"
#include "unknowns/doppel_orientierung.h"
#include "unknowns/network_settings.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace vermo::test {
namespace {

// A group of so many unknowns that leaves everything else to its base.
class PlainGroup final : public Data {
 public:
  explicit PlainGroup(std::uint32_t unknowns) : fUnknowns(unknowns) {}

  [[nodiscard]] std::uint32_t UnknownCount() const override { return IsVariable() ? fUnknowns : 0; }
  void ApplySolution(std::span<const double> solution) override {
    if (!HasColumns()) return;
    const std::span<const double> own = Increments(solution);
    increments.assign(own.begin(), own.end());
  }
  void StoreAccuracy(const NormalSystem& cofactors, double s0) override {
    variance = HasColumns() ? Variance(cofactors, s0, fUnknowns - 1) : 0.0;
  }
  [[nodiscard]] std::string GetIdentText() const override { return "1"; }
  [[nodiscard]] std::string GetDescription() const override { return "Plain 1"; }

  std::vector<double> increments;
  double variance = 0.0;

 private:
  std::uint32_t fUnknowns;
};

void MakeVariable(Data& group) {
  group.SetActive(true);
  group.SetVariable(true);
}

TEST(Data, StartsInactiveFixedUnnumberedAndWithoutLinks) {
  const PlainGroup group(2);
  EXPECT_FALSE(group.IsActive());
  EXPECT_FALSE(group.IsVariable());
  EXPECT_EQ(group.FirstUnknown(), -1);
  EXPECT_EQ(group.Ordinal(), -1);
  EXPECT_TRUE(group.Messungen().empty());
}

TEST(Data, FlagsDoNotTouchEachOther) {
  PlainGroup group(2);
  group.SetVariable(true);
  EXPECT_FALSE(group.IsActive());
  group.SetActive(true);
  group.SetVariable(false);
  EXPECT_TRUE(group.IsActive());
  EXPECT_FALSE(group.IsVariable());
  group.SetVariable(true);
  group.SetActive(false);
  EXPECT_TRUE(group.IsVariable());
  group.SetActive(true);
  group.ClearFlags();
  EXPECT_FALSE(group.IsActive());
  EXPECT_FALSE(group.IsVariable());
}

TEST(Data, TakesColumnsOnlyWhenActiveAndVariable) {
  PlainGroup group(4);
  group.SetFirstUnknown(7);
  EXPECT_EQ(group.AssignUnknowns(3), 3U);
  EXPECT_EQ(group.FirstUnknown(), -1);
  group.SetActive(true);
  EXPECT_EQ(group.AssignUnknowns(3), 3U);
  EXPECT_EQ(group.FirstUnknown(), -1);
  group.SetVariable(true);
  EXPECT_EQ(group.AssignUnknowns(3), 7U);
  EXPECT_EQ(group.FirstUnknown(), 3);
  group.SetActive(false);
  EXPECT_EQ(group.AssignUnknowns(3), 3U);
  EXPECT_EQ(group.FirstUnknown(), -1);
}

TEST(Data, NumberingRunsOverTheListAndSkipsWhatHasNoColumns) {
  DataIor camera;  // seven parameters are estimated unless told otherwise
  DataEor image;
  DataObko fixedPoint;
  DataObko inactivePoint;
  DataProjektion projection;
  DoppelOrientierung relative;
  DataObko point;
  for (Data* group : std::initializer_list<Data*>{&camera, &image, &projection, &point})
    MakeVariable(*group);
  fixedPoint.SetActive(true);
  inactivePoint.SetVariable(true);
  relative.SetActive(true);

  std::uint32_t next = 0;
  for (Data* group : std::initializer_list<Data*>{
           &camera, &image, &fixedPoint, &inactivePoint, &projection, &relative, &point})
    next = group->AssignUnknowns(next);

  EXPECT_EQ(next, 7U + 6U + 3U + 3U);
  EXPECT_EQ(camera.FirstUnknown(), 0);
  EXPECT_EQ(image.FirstUnknown(), 7);
  EXPECT_EQ(fixedPoint.FirstUnknown(), -1);
  EXPECT_EQ(inactivePoint.FirstUnknown(), -1);
  EXPECT_EQ(projection.FirstUnknown(), 13);
  EXPECT_EQ(relative.FirstUnknown(), -1);
  EXPECT_EQ(point.FirstUnknown(), 16);
}

TEST(Data, ReadsItsOwnPartOfASolution) {
  PlainGroup group(2);
  MakeVariable(group);
  group.AssignUnknowns(1);
  group.ApplySolution(std::vector<double>{10.0, 11.0, 12.0, 13.0});
  EXPECT_EQ(group.increments, (std::vector<double>{11.0, 12.0}));
}

TEST(Data, VarianceIsS0SquaredTimesItsOwnCofactor) {
  PlainGroup group(2);
  MakeVariable(group);
  group.AssignUnknowns(1);
  DenseSystem system(4);
  for (std::uint32_t i = 0; i < 4; ++i) system.cofactors(i, i) = 1.0 + i;
  group.StoreAccuracy(system, 0.5);
  EXPECT_EQ(group.variance, 0.25 * 3.0);
}

TEST(Data, EachLinkAppendsTheObservationOnce) {
  PlainGroup group(2);
  FakeObservation twice(MessungKind::Strecke, 1);
  FakeObservation once(MessungKind::Strecke, 1);
  group.AddMessung(&twice);
  group.AddMessung(&once);
  group.AddMessung(&twice);
  ASSERT_EQ(group.Messungen().size(), 3U);
  EXPECT_EQ(group.Messungen()[0], &twice);
  EXPECT_EQ(group.Messungen()[1], &once);
  EXPECT_EQ(group.Messungen()[2], &twice);
  EXPECT_EQ(group.CountMessungen(MessungKind::Strecke), 3U);
}

// Every state of an observation, of two kinds with two and with three components.
class DataCounting : public testing::Test {
 protected:
  DataCounting() {
    for (FakeObservation* observation : All()) fGroup.AddMessung(observation);
    fBikoRejected.SetAusreisser();
    fBikoInactiveRejected.SetAusreisser();
    fBikoInactiveRejected.SetActive(false);
    fBikoInactive.SetActive(false);
    fObkoRejected.SetAusreisser();
  }

  std::vector<FakeObservation*> All() {
    return {&fBiko,
            &fBikoToo,
            &fBikoRejected,
            &fBikoInactive,
            &fBikoInactiveRejected,
            &fObko,
            &fObkoRejected};
  }

  PlainGroup fGroup{3};
  FakeObservation fBiko{MessungKind::Biko, 2};
  FakeObservation fBikoToo{MessungKind::Biko, 2};
  FakeObservation fBikoRejected{MessungKind::Biko, 2};
  FakeObservation fBikoInactive{MessungKind::Biko, 2};
  FakeObservation fBikoInactiveRejected{MessungKind::Biko, 2};
  FakeObservation fObko{MessungKind::Obko, 3};
  FakeObservation fObkoRejected{MessungKind::Obko, 3};
};

TEST_F(DataCounting, MessungenAreThoseOfOneKindThatAreActiveAndNotRejected) {
  EXPECT_EQ(fGroup.CountMessungen(MessungKind::Biko), 2U);
  EXPECT_EQ(fGroup.CountMessungen(MessungKind::Obko), 1U);
  EXPECT_EQ(fGroup.CountMessungen(MessungKind::Strecke), 0U);
  EXPECT_EQ(fGroup.CountMessungen(MessungKind::Linko), 0U);
}

TEST_F(DataCounting, AskedForANumberOfMessungenItTellsWhetherTheyAreThatMany) {
  for (const MessungKind kind :
       {MessungKind::Biko, MessungKind::Obko, MessungKind::Strecke, MessungKind::Linko})
    for (const std::uint32_t atLeast : {0U, 1U, 2U, 3U, 7U, 8U, 0xFFFFFFFFU})
      EXPECT_EQ(fGroup.HasMessungen(kind, atLeast), fGroup.CountMessungen(kind) >= atLeast)
          << atLeast;
}

TEST_F(DataCounting, MessungDimensionsRunOverAllKinds) {
  EXPECT_EQ(fGroup.CountMessungDimensions(), 2U + 2U + 3U);
}

TEST_F(DataCounting, AusreisserAreCountedWhetherActiveOrNot) {
  EXPECT_EQ(fGroup.CountAusreisser(MessungKind::Biko), 2U);
  EXPECT_EQ(fGroup.CountAusreisser(MessungKind::Obko), 1U);
  EXPECT_EQ(fGroup.CountAusreisser(MessungKind::Strecke), 0U);
}

TEST_F(DataCounting, AusreisserDimensionsNeedTheObservationToBeActive) {
  EXPECT_EQ(fGroup.CountAusreisserDimensions(), 2U + 3U);
}

TEST_F(DataCounting, CountsFollowTheFlags) {
  fBikoRejected.ClearAusreisser();
  EXPECT_EQ(fGroup.CountMessungen(MessungKind::Biko), 3U);
  EXPECT_EQ(fGroup.CountAusreisserDimensions(), 3U);
  fBiko.SetActive(false);
  EXPECT_EQ(fGroup.CountMessungen(MessungKind::Biko), 2U);
}

TEST(Data, ResetUnknownsForgetsTheColumnAndKeepsTheRest) {
  PlainGroup group(2);
  FakeObservation observation(MessungKind::Biko);
  MakeVariable(group);
  group.AddMessung(&observation);
  group.SetOrdinal(12);
  group.AssignUnknowns(5);
  group.ResetUnknowns();
  EXPECT_EQ(group.FirstUnknown(), -1);
  EXPECT_TRUE(group.IsActive());
  EXPECT_TRUE(group.IsVariable());
  EXPECT_EQ(group.Messungen().size(), 1U);
  EXPECT_EQ(group.Ordinal(), 12);
}

TEST(Data, NoGroupAddsToTheSystemOnItsOwn) {
  DataObko point;
  DataEor image;
  DataIor camera;
  DataProjektion projection;
  DoppelOrientierung relative;
  DenseSystem system(32);
  AdjustmentStatistics statistics;
  std::uint32_t next = 0;
  for (Data* group :
       std::initializer_list<Data*>{&point, &image, &camera, &projection, &relative}) {
    MakeVariable(*group);
    next = group->AssignUnknowns(next);
    group->AddToNormalEquations(system, statistics);
  }
  EXPECT_EQ(next, 19U);
  EXPECT_TRUE(system.equations.empty());
  EXPECT_EQ(system.otherCalls, 0U);
  const auto isZero = [](double element) { return element == 0.0; };
  EXPECT_TRUE(std::all_of(system.normals.elements.begin(), system.normals.elements.end(), isZero));
  EXPECT_TRUE(std::all_of(system.rhs.begin(), system.rhs.end(), isZero));
  EXPECT_EQ(statistics.fUnbekannte, 0U);
  EXPECT_EQ(statistics.fBeobachtungen, 0U);
}

TEST(Data, ConnectAndPrepareDerivativesOfTheBaseChangeNothing) {
  PlainGroup group(2);
  FakeObservation observation(MessungKind::Biko);
  MakeVariable(group);
  group.AddMessung(&observation);
  group.Connect(NetworkSettings());
  group.PrepareDerivatives();
  EXPECT_FALSE(observation.IsAusreisser());
  EXPECT_EQ(observation.evaluations, 0U);
  EXPECT_TRUE(group.IsActive());
}

TEST(Data, DoesNotOwnItsObservations) {
  FakeObservation observation(MessungKind::Biko);
  {
    auto group = std::make_unique<PlainGroup>(2);
    group->AddMessung(&observation);
    observation.SetAusreisser();
  }
  EXPECT_TRUE(observation.IsAusreisser());
  EXPECT_EQ(observation.Dimension(), 2U);
}

}  // namespace
}  // namespace vermo::test
