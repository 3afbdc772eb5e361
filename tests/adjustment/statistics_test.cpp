// S0, redundancy and the measure of the increments.

#include "adjustment/fake_normal_system.h"
#include "adjustment/linear_network.h"

#include <cmath>
#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>
#include <utility>
#include <vector>

namespace vermo::test {
namespace {

// Statistics of given residuals, increments and cofactors.
struct StatisticsTest : testing::Test {
  FakeNormalSystem* system = new FakeNormalSystem;
  TestAdjustment adjustment{std::unique_ptr<NormalSystem>(system)};
  std::vector<std::unique_ptr<LinearMessung>> messungen;

  // A used observation of this residual.
  LinearMessung& Residual(double v, double weight = 1.0) {
    LinearMessung& messung = *messungen.emplace_back(
        std::make_unique<LinearMessung>(std::initializer_list<LinearMessung::Term>{}, -v, weight));
    messung.CollectComponents()[0].SetResiduum(v);
    return messung;
  }
  const AdjustmentStatistics& Compute(std::uint32_t unknowns, std::uint32_t constraints) {
    adjustment.messungen.clear();
    for (const auto& messung : messungen) adjustment.messungen.push_back(messung.get());
    adjustment.Collect();
    adjustment.ComputeStatistics(unknowns, constraints);
    return adjustment.Statistics();
  }
  double MeanChange(std::vector<double> solution, std::vector<double> cofactors) {
    const auto unknowns = static_cast<std::uint32_t>(solution.size());
    system->solution = std::move(solution);
    system->diagonalCofactors = std::move(cofactors);
    return Compute(unknowns, 0).fMittlereAenderung;
  }
};

using Statistics = StatisticsTest;

TEST_F(Statistics, S0IsTheRootOfTheWeightedSquaresOverTheRedundancy) {
  Residual(3.0, 4.0);
  Residual(-2.0, 7.0);
  Residual(0.0);
  system->solution = {0.0};
  system->diagonalCofactors = {1.0};
  const AdjustmentStatistics& statistics = Compute(1, 0);
  // (36 + 28) / 2
  EXPECT_DOUBLE_EQ(statistics.fS0, std::sqrt(32.0));
  EXPECT_EQ(statistics.fBeobachtungen, 3U);
  EXPECT_EQ(statistics.fUnbekannte, 1U);
  EXPECT_EQ(statistics.fBedingungsAnzahl, 0U);
  EXPECT_EQ(statistics.fRedundanz, 2);
  EXPECT_EQ(statistics.fGesamtRedundanz, 2.0);
}

TEST_F(Statistics, ConstraintsRaiseTheRedundancy) {
  Residual(3.0);
  system->solution = {0.0, 0.0};
  system->diagonalCofactors = {1.0, 1.0};
  const AdjustmentStatistics& statistics = Compute(2, 5);
  EXPECT_EQ(statistics.fBedingungsAnzahl, 5U);
  EXPECT_EQ(statistics.fRedundanz, 4);
  EXPECT_EQ(statistics.fS0, 1.5);
}

TEST_F(Statistics, RejectedAndInactiveObservationsDoNotCount) {
  Residual(2.0);
  Residual(100.0).SetAusreisser();
  Residual(100.0).SetActive(false);
  const AdjustmentStatistics& statistics = Compute(0, 0);
  EXPECT_EQ(statistics.fBeobachtungen, 1U);
  EXPECT_EQ(statistics.fS0, 2.0);
}

TEST_F(Statistics, S0IsZeroWithoutRedundancy) {
  Residual(3.0);
  system->solution = {1.0, 1.0};
  system->diagonalCofactors = {1.0, 1.0};
  EXPECT_EQ(Compute(1, 0).fS0, 0.0);
  EXPECT_EQ(adjustment.Statistics().fRedundanz, 0);
  EXPECT_EQ(Compute(2, 0).fS0, 0.0);
  EXPECT_EQ(adjustment.Statistics().fRedundanz, -1);
  EXPECT_EQ(adjustment.Statistics().fGesamtRedundanz, -1.0);
}

TEST_F(Statistics, MeanChangeDividesByTheCofactorItself) {
  for (int i = 0; i < 3; ++i) Residual(1.0);
  // The sign of a cofactor does not matter: terms 1/2 and 6.
  EXPECT_DOUBLE_EQ(MeanChange({2.0, 3.0}, {4.0, -0.5}), std::sqrt((0.25 + 36.0) / 2.0));
}

TEST_F(Statistics, CofactorZeroLeavesTheIncrementAsItIs) {
  for (int i = 0; i < 3; ++i) Residual(1.0);
  EXPECT_DOUBLE_EQ(MeanChange({3.0, 8.0}, {0.0, 2.0}), std::sqrt((9.0 + 16.0) / 2.0));
}

TEST_F(Statistics, S0ZeroLeavesTheIncrementsAsTheyAre) {
  Residual(5.0);
  EXPECT_EQ(MeanChange({3.0}, {1e-9}), 3.0);
}

TEST_F(Statistics, ProductThatUnderflowsCountsAsZero) {
  Residual(1e-150);
  Residual(0.0);
  // S0 squared is 1e-300; times 1e-30 it is 0.
  EXPECT_EQ(MeanChange({3.0}, {1e-30}), 3.0);
}

TEST_F(Statistics, WithoutUnknownsNothingChanges) {
  Residual(1.0);
  EXPECT_EQ(Compute(0, 0).fMittlereAenderung, 0.0);
}

TEST_F(Statistics, MultipliersDoNotEnterTheMeanChange) {
  Residual(1.0);
  Residual(0.0);
  system->solution = {2.0, 1e6};
  system->diagonalCofactors = {1.0, 1.0};
  EXPECT_EQ(Compute(1, 1).fMittlereAenderung, 2.0);
}

}  // namespace
}  // namespace vermo::test
