// What a run warns about, with the exact limits.

#include "checks/warnings.h"
#include "network/network_scene.h"
#include "observations/bedingung.h"

#include <cmath>
#include <cstdint>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace vermo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Warnings go where those of a run go; hooks and lists are open.
class WarnedBundel : public TestBundel {
 public:
  using KLBundel::OnGroupsDisabled;
  using KLBundel::OnGroupsEnabled;
  using TestBundel::fBedingungen;

  void WarnObservationWithoutData(Messung& observation) override {
    KLBundel::WarnObservationWithoutData(observation);
  }
  void WarnDataWithoutSubData(Data& group) override { KLBundel::WarnDataWithoutSubData(group); }

  [[nodiscard]] std::vector<std::int32_t> Codes() const {
    std::vector<std::int32_t> codes;
    for (std::size_t i = 0; i < Warnings().Size(); ++i)
      codes.push_back(Warnings().At(i)->GetCode());
    return codes;
  }
  // The warnings of one kind, in order.
  template <typename Warning>
  [[nodiscard]] std::vector<const Warning*> Of() const {
    std::vector<const Warning*> found;
    for (std::size_t i = 0; i < Warnings().Size(); ++i)
      if (const auto* warning = dynamic_cast<const Warning*>(Warnings().At(i)))
        found.push_back(warning);
    return found;
  }
};

// Redundancy numbers as a converged run leaves them; without an iteration they stay.
void SetRedundancies(Messung& observation, std::initializer_list<double> redundancies) {
  auto* wert = observation.CollectComponents().data();
  for (const double r : redundancies) (wert++)->SetRedundanz(r);
}

class ManyBlunders : public testing::Test {
 protected:
  // A point with so many used and rejected distances to points of their own.
  DataObko& PointWith(unsigned used, unsigned rejected) {
    DataObko& point = job.Point(1);
    for (unsigned i = 0; i < used + rejected; ++i) {
      job.Point(100 + i);
      MessungStrecke& distance = job.Strecke(1, 100 + i);
      SetRedundancies(distance, {0.5});
      if (i >= used) distance.SetAusreisser();
    }
    return point;
  }
  std::vector<std::pair<std::uint32_t, std::uint32_t>> CountsOf(const Data& group) {
    EXPECT_EQ(job.LinkOnly(), 0);
    std::vector<std::pair<std::uint32_t, std::uint32_t>> counts;
    for (const auto* warning : job.Of<WarningDataHasManyBlunder>())
      if (warning->fData == &group) counts.emplace_back(warning->fMessungen, warning->fAusreisser);
    return counts;
  }

  WarnedBundel job;
};

TEST_F(ManyBlunders, EightComponentsAndFourRejectedAreNotMany) {
  EXPECT_THAT(CountsOf(PointWith(8, 4)), IsEmpty());
}

TEST_F(ManyBlunders, EightComponentsAndFiveRejectedAreMany) {
  EXPECT_THAT(CountsOf(PointWith(8, 5)), ElementsAre(std::pair(8U, 5U)));
}

TEST_F(ManyBlunders, OneRejectedAloneIsMany) {
  EXPECT_THAT(CountsOf(PointWith(0, 1)), ElementsAre(std::pair(0U, 1U)));
}

TEST_F(ManyBlunders, GroupWithoutObservationsIsSilent) {
  EXPECT_THAT(CountsOf(PointWith(0, 0)), IsEmpty());
}

TEST_F(ManyBlunders, InactiveGroupIsSilent) {
  DataObko& point = PointWith(0, 3);
  job.onRunStart = [&point] { point.SetActive(false); };
  EXPECT_THAT(CountsOf(point), IsEmpty());
}

TEST_F(ManyBlunders, AllComponentsOfAllKindsCount) {
  DataObko& point = PointWith(2, 0);
  MessungObko& measured = job.Obko(1);
  SetRedundancies(measured, {0.5, 0.5, 0.5});
  measured.SetAusreisser();
  EXPECT_THAT(CountsOf(point), ElementsAre(std::pair(2U, 3U)));
}

class LowRedundancy : public testing::Test {
 protected:
  LowRedundancy() {
    job.Ior(1);
    job.Eor(10, 1);
    job.Point(5);
  }
  MessungBiko& RayWith(double rx, double ry) {
    MessungBiko& ray = job.Biko(5, 10);
    SetRedundancies(ray, {rx, ry});
    return ray;
  }
  std::vector<const Messung*> Warned() {
    EXPECT_EQ(job.LinkOnly(), 0);
    std::vector<const Messung*> warned;
    for (const auto* warning : job.Of<WarningObservationHasLessRedundancy>())
      warned.push_back(warning->fMessung);
    return warned;
  }

  WarnedBundel job;
};

TEST_F(LowRedundancy, BothComponentsWarnForThemselves) {
  const MessungBiko& ray = RayWith(0.05, 0.05);
  EXPECT_THAT(Warned(), ElementsAre(&ray, &ray));
}

TEST_F(LowRedundancy, ExactlyATenthIsEnough) {
  RayWith(0.1, 0.1);
  const MessungBiko& below = RayWith(std::nextafter(0.1, 0.0), 0.1);
  EXPECT_THAT(Warned(), ElementsAre(&below));
}

TEST_F(LowRedundancy, OutliersAndInactiveObservationsAreSilent) {
  RayWith(0.0, 0.0).SetAusreisser();
  RayWith(0.0, 0.0).SetActive(false);
  EXPECT_THAT(Warned(), IsEmpty());
}

TEST_F(LowRedundancy, KindsComeInTheOrderOfTheAdjustment) {
  MessungStrecke& distance = job.Strecke(5, 6);
  job.Point(6);
  SetRedundancies(distance, {0.0});
  MessungObko& measured = job.Obko(5);
  SetRedundancies(measured, {0.0, 1.0, 0.0});
  const MessungBiko& ray = RayWith(1.0, 0.0);
  EXPECT_THAT(Warned(), ElementsAre(&ray, &measured, &measured, &distance));
}

// A constraint with given multipliers.
class Strained final : public Bedingung {
 public:
  explicit Strained(std::vector<double> multipliers) : fMultipliers(std::move(multipliers)) {
    SetActive(true);
  }
  void StoreMultipliers(std::span<const double> /*solution*/) override {}
  [[nodiscard]] std::uint32_t ConstraintCount() const override { return 0; }
  void AddConstraintRows(NormalSystem& /*system*/) const override {}
  [[nodiscard]] std::vector<double> CollectMultipliers() const override { return fMultipliers; }
  [[nodiscard]] std::string GetDescription() const override { return "strained"; }

 private:
  std::vector<double> fMultipliers;
};

std::vector<const Bedingung*> WarnedConstraints(std::initializer_list<Strained*> constraints) {
  WarnedBundel job;
  job.onRunStart = [&] {
    job.fBedingungen.insert(job.fBedingungen.end(), constraints.begin(), constraints.end());
  };
  EXPECT_EQ(job.LinkOnly(), 0);
  std::vector<const Bedingung*> warned;
  for (const auto* warning : job.Of<WarningConstraintShouldBeFree>())
    warned.push_back(warning->fBedingung);
  return warned;
}

TEST(StrainedConstraint, ExactlyTheLimitIsSilent) {
  Strained exactly({0.00001, 0.00001});
  Strained above({std::nextafter(0.00001, 1.0)});
  EXPECT_THAT(WarnedConstraints({&exactly, &above}), ElementsAre(&above));
}

TEST(StrainedConstraint, NegativeMultipliersOfAnySizePass) {
  Strained negative({-1e-4, -1.0, -std::numeric_limits<double>::infinity()});
  EXPECT_THAT(WarnedConstraints({&negative}), IsEmpty());
}

TEST(StrainedConstraint, EachMultiplierWarns) {
  Strained three({1.0, -1.0, 2.0});
  Strained none({});
  EXPECT_THAT(WarnedConstraints({&none, &three}), ElementsAre(&three, &three));
}

TEST(StrainedConstraint, InactiveConstraintIsSilent) {
  Strained off({1.0});
  off.SetActive(false);
  EXPECT_THAT(WarnedConstraints({&off}), IsEmpty());
}

TEST(StrainedConstraint, NanIsSilent) {
  Strained nan({std::numeric_limits<double>::quiet_NaN()});
  EXPECT_THAT(WarnedConstraints({&nan}), IsEmpty());
}

TEST(WarningsOfARun, ChecksComeInTheirOrderBehindTheLinks) {
  WarnedBundel job;
  job.Point(1);
  job.Point(2);
  SetRedundancies(job.Strecke(1, 2), {0.0});
  job.Strecke(1, 2).SetAusreisser();
  job.Strecke(1, 99);
  job.Pair(20, 77, 78);
  Strained strained({1.0});
  job.onRunStart = [&] { job.fBedingungen.push_back(&strained); };
  EXPECT_EQ(job.LinkOnly(), 0);
  // Both points have one component and one that is rejected.
  EXPECT_THAT(job.Codes(), ElementsAre(103, 102, 104, 104, 105, 106));
}

TEST(WarningsOfARun, FailedRunKeepsWhatItHasRaisedAndChecksNoMore) {
  WarnedBundel job;
  job.Point(1);
  SetRedundancies(job.Obko(1), {0.0, 0.0, 0.0});
  job.Strecke(1, 99);
  job.onRunStart = [] { throw KlException(-4711); };
  EXPECT_EQ(job.CalcBundle(), -4711);
  EXPECT_THAT(job.Codes(), ElementsAre(102));
  EXPECT_THAT(job.protocol, Not(HasSubstr("Warnungen")));
}

TEST(WarningsOfARun, DisabledAndEnabledGroupsWarnBeforeTheyAreTold) {
  WarnedBundel job;
  DataObko& point = job.Point(1);
  DataEor& image = job.Eor(10, 1);
  const std::vector<Data*> both = {&point, &image};
  job.onRunStart = [&] {
    job.OnGroupsDisabled(both);
    job.OnGroupsEnabled(std::vector<Data*>{&image});
    job.OnGroupsEnabled({});
  };
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_THAT(job.Codes(), ElementsAre(101, 101, 107));
  EXPECT_EQ(job.Of<WarningDataDisabled>()[0]->fData, &point);
  EXPECT_EQ(job.Of<WarningDataDisabled>()[1]->fData, &image);
  EXPECT_EQ(job.Of<WarningDataEnabled>()[0]->fData, &image);
  EXPECT_THAT(job.protocol,
              HasSubstr("  101: Daten deaktiviert                   > Objektkoordinate 1\n"));
  EXPECT_THAT(job.protocol, HasSubstr("  107: ***\n"));
}

TEST(WarningsOfARun, SecondRunAddsToTheFirst) {
  WarnedBundel job;
  job.Point(1);
  SetRedundancies(job.Obko(1), {0.0, 1.0, 1.0});
  job.Strecke(1, 99);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_THAT(job.Codes(), ElementsAre(102, 105));
  const WarningItf* first = job.Warnings().At(0);
  // The distance is inactive by now.
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_THAT(job.Codes(), ElementsAre(102, 105, 105));
  EXPECT_EQ(job.Warnings().At(0), first);
}

}  // namespace
}  // namespace vermo::test
