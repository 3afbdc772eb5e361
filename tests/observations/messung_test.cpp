#include "observations/messung.h"

#include "linalg/envelope_system.h"
#include "observations/messung_obko.h"
#include "observations/messung_strecke.h"
#include "support/dense_system.h"
#include "unknowns/data_obko.h"
#include "unknowns/network_settings.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace vermo::test {
namespace {

// An observation of two components whose linearised equations are given.
class GivenMessung final : public TMessung<2> {
 public:
  GivenMessung() : TMessung(MessungKind::Strecke) { SetActive(true); }

  void SetWeights(const NetworkSettings& settings) override {
    for (std::uint32_t i = 0; i < 2; ++i) SetWeight(i, settings.S0Apriori(), 0.5);
  }
  [[nodiscard]] std::string GetDescription() const override { return "Given"; }
  [[nodiscard]] std::string GetIdentText() const override { return "1"; }
  bool ObservationEquations(EquationBlock& equations) override {
    ++evaluations;
    equations.Reset(Dimension());
    if (!IsActive() || !linked) return false;
    if (fails) throw std::runtime_error("model");
    for (std::uint32_t i = 0; i < 2; ++i) {
      for (const DesignEntry& entry : rows[i])
        equations.rows[i].push(entry.column, entry.coefficient);
      AppendComponent(equations, i, misclosures[i]);
    }
    return true;
  }
  [[nodiscard]] std::string GetProtocolLine() const override { return "\n"; }
  [[nodiscard]] bool IsConnected() const override { return linked; }
  [[nodiscard]] bool IsUsable() const override { return linked; }

  void SetWeightsTo(double first, double second) {
    CollectComponents()[0].SetGewicht(first);
    CollectComponents()[1].SetGewicht(second);
  }
  void SetRedundanzen(double first, double second) {
    CollectComponents()[0].SetRedundanz(first);
    CollectComponents()[1].SetRedundanz(second);
  }

  std::array<std::vector<DesignEntry>, 2> rows;
  std::array<double, 2> misclosures{};
  bool linked = true;
  bool fails = false;
  unsigned evaluations = 0;
};

GivenMessung TwoRows() {
  GivenMessung messung;
  messung.rows[0] = {{4, 2.0}, {1, -1.0}, {2, 0.5}};
  messung.rows[1] = {{0, 3.0}, {4, 1.5}};
  messung.misclosures = {0.25, -2.0};
  messung.SetWeightsTo(4.0, 0.5);
  return messung;
}

TEST(Messung, StartsUnnumberedUnprotectedAndInactive) {
  const MessungStrecke messung;
  EXPECT_EQ(messung.Ordinal(), -1);
  EXPECT_TRUE(messung.TakesPartInBlunderTest());
  EXPECT_FALSE(messung.IsActive());
  EXPECT_FALSE(messung.IsAusreisser());
}

TEST(Messung, ProtectionAndFlagsDoNotTouchEachOther) {
  MessungStrecke messung;
  messung.SetNoBlunderTest(true);
  EXPECT_FALSE(messung.TakesPartInBlunderTest());
  EXPECT_FALSE(messung.IsAusreisser());
  messung.SetAusreisser();
  messung.SetNoBlunderTest(false);
  EXPECT_TRUE(messung.TakesPartInBlunderTest());
  EXPECT_TRUE(messung.IsAusreisser());
}

TEST(Messung, UsedCountIsTheDimensionOfAnActiveObservationThatIsNotRejected) {
  GivenMessung messung;
  EXPECT_EQ(messung.Dimension(), 2U);
  EXPECT_EQ(messung.UsedCount(), 2U);
  messung.SetAusreisser();
  EXPECT_EQ(messung.UsedCount(), 0U);
  messung.ClearAusreisser();
  messung.SetActive(false);
  EXPECT_EQ(messung.UsedCount(), 0U);
}

TEST(Messung, WeightIsS0SquaredOverSigmaSquared) {
  GivenMessung messung;
  NetworkSettings settings;
  settings.SetS0Apriori(0.25);
  messung.SetWeights(settings);
  EXPECT_EQ(messung.Wert(0).Gewicht(), 0.25);
  EXPECT_EQ(messung.Wert(1).EffectiveWeight(), 0.25);
}

TEST(Messung, ComponentsAreHandedOutInOrder) {
  GivenMessung messung;
  const std::span<MessungWert> components = messung.CollectComponents();
  ASSERT_EQ(components.size(), 2U);
  EXPECT_EQ(&components[0], &messung.Wert(0));
  EXPECT_EQ(&components[1], &messung.Wert(1));
}

TEST(Messung, RedundancySumLeavesOutExactlyOne) {
  GivenMessung messung;
  messung.SetRedundanzen(0.25, 0.5);
  EXPECT_EQ(messung.RedundancySum(), 0.75);
  messung.SetRedundanzen(1.0, 0.5);
  EXPECT_EQ(messung.RedundancySum(), 0.5);
  messung.SetRedundanzen(1.0, 1.0);
  EXPECT_EQ(messung.RedundancySum(), 0.0);
  const double justBelow = std::nextafter(1.0, 0.0);
  messung.SetRedundanzen(1.0, justBelow);
  EXPECT_EQ(messung.RedundancySum(), justBelow);
}

TEST(Messung, RedundancySumOfAnOutlierIsZero) {
  GivenMessung messung;
  messung.SetRedundanzen(0.25, 0.5);
  messung.SetAusreisser();
  EXPECT_EQ(messung.RedundancySum(), 0.0);
}

TEST(MessungAddToNormals, AddsTheDenseProductsOfEveryComponent) {
  GivenMessung messung = TwoRows();
  DenseSystem system(5);
  EquationBlock block;
  messung.AddToNormals(system, block);

  const double a[2][5] = {{0.0, -1.0, 0.5, 0.0, 2.0}, {3.0, 0.0, 0.0, 0.0, 1.5}};
  const double p[] = {4.0, 0.5};
  const double l[] = {0.25, -2.0};
  for (std::uint32_t i = 0; i < 5; ++i) {
    double rhs = 0.0;
    for (unsigned k = 0; k < 2; ++k) rhs += a[k][i] * p[k] * l[k];
    EXPECT_DOUBLE_EQ(system.rhs[i], rhs) << i;
    for (std::uint32_t j = 0; j < 5; ++j) {
      double element = 0.0;
      for (unsigned k = 0; k < 2; ++k) element += a[k][i] * p[k] * a[k][j];
      EXPECT_DOUBLE_EQ(system.normals(i, j), element) << i << ", " << j;
    }
  }
  EXPECT_EQ(system.otherCalls, 0U);
}

TEST(MessungAddToNormals, HandsOverSortedRowsWithWeightAndMisclosure) {
  GivenMessung messung = TwoRows();
  messung.rows[0] = {{4, 2.0}, {1, 7.0}, {4, -1.0}, {1, 3.0}};
  DenseSystem system(5);
  EquationBlock block;
  messung.AddToNormals(system, block);
  ASSERT_EQ(system.equations.size(), 2U);
  const DesignRow& row = system.equations[0].row;
  ASSERT_EQ(row.size(), 4U);
  const DesignEntry expected[] = {{1, 3.0}, {1, 7.0}, {4, -1.0}, {4, 2.0}};
  for (std::uint32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(row[i].column, expected[i].column) << i;
    EXPECT_EQ(row[i].coefficient, expected[i].coefficient) << i;
  }
  EXPECT_EQ(system.equations[0].weight, 4.0);
  EXPECT_EQ(system.equations[0].misclosure, 0.25);
  EXPECT_EQ(system.equations[1].weight, 0.5);
  EXPECT_EQ(system.equations[1].misclosure, -2.0);
}

TEST(MessungAddToNormals, RepeatedColumnsWorkAsTheirSum) {
  GivenMessung parts = TwoRows();
  parts.rows[0] = {{1, 2.0}, {3, 1.0}, {1, -0.5}};
  GivenMessung sum = TwoRows();
  sum.rows[0] = {{1, 1.5}, {3, 1.0}};
  for (const bool envelope : {false, true}) {
    DenseSystem denseParts(5);
    DenseSystem denseSum(5);
    EnvelopeSystem envelopeParts;
    EnvelopeSystem envelopeSum;
    envelopeParts.Reset(5, 0);
    envelopeSum.Reset(5, 0);
    NormalSystem& first = envelope ? static_cast<NormalSystem&>(envelopeParts) : denseParts;
    NormalSystem& second = envelope ? static_cast<NormalSystem&>(envelopeSum) : denseSum;
    EquationBlock block;
    parts.AddToNormals(first, block);
    sum.AddToNormals(second, block);
    for (std::uint32_t i = 0; i < 5; ++i) {
      EXPECT_DOUBLE_EQ(first.Rhs()[i], second.Rhs()[i]) << i;
      for (std::uint32_t j = 0; j <= i; ++j)
        EXPECT_DOUBLE_EQ(first.Element(i, j), second.Element(i, j)) << i << ", " << j;
    }
  }
}

TEST(MessungAddToNormals, EmptyRowContributesNothing) {
  GivenMessung messung = TwoRows();
  messung.rows[0].clear();
  messung.rows[1].clear();
  DenseSystem system(5);
  EquationBlock block;
  messung.AddToNormals(system, block);
  for (const double element : system.normals.elements) EXPECT_EQ(element, 0.0);
  for (const double element : system.rhs) EXPECT_EQ(element, 0.0);
  EXPECT_EQ(messung.Wert(0).Residuum(), -0.25);
}

TEST(MessungAddToNormals, InactiveObservationIsNotEvenEvaluated) {
  GivenMessung messung = TwoRows();
  messung.SetActive(false);
  DenseSystem system(5);
  EquationBlock block;
  messung.AddToNormals(system, block);
  EXPECT_EQ(messung.evaluations, 0U);
  EXPECT_TRUE(system.equations.empty());
}

TEST(MessungAddToNormals, OutlierAddsNothingAndKeepsFreshResiduals) {
  GivenMessung messung = TwoRows();
  messung.SetAusreisser();
  DenseSystem system(5);
  EquationBlock block;
  messung.AddToNormals(system, block);
  EXPECT_TRUE(system.equations.empty());
  EXPECT_EQ(messung.Wert(0).Residuum(), -0.25);
  EXPECT_EQ(messung.Wert(1).Residuum(), 2.0);
  messung.misclosures = {1.0, 1.0};
  messung.AddToNormals(system, block);
  EXPECT_EQ(messung.Wert(0).Residuum(), -1.0);
}

TEST(MessungAddToNormals, WithoutLinksAddsNothing) {
  GivenMessung messung = TwoRows();
  messung.linked = false;
  DenseSystem system(5);
  EquationBlock block;
  messung.AddToNormals(system, block);
  EXPECT_TRUE(system.equations.empty());
}

TEST(MessungAddToNormals, FailureOfTheModelPassesThrough) {
  GivenMessung messung = TwoRows();
  messung.fails = true;
  DenseSystem system(5);
  EquationBlock block;
  EXPECT_THROW(messung.AddToNormals(system, block), std::runtime_error);
  EXPECT_THROW(messung.ComputeRedundancy(system, block), std::runtime_error);
  EXPECT_TRUE(system.equations.empty());
}

// Cofactors q on the whole diagonal.
DenseSystem DiagonalCofactors(double q) {
  DenseSystem system(5);
  for (std::uint32_t i = 0; i < 5; ++i) system.cofactors(i, i) = q;
  return system;
}

TEST(MessungComputeRedundancy, IsOneMinusTheWeightedForm) {
  GivenMessung messung = TwoRows();
  DenseSystem system = DiagonalCofactors(0.02);
  system.cofactors(1, 4) = system.cofactors(4, 1) = 0.01;
  EquationBlock block;
  messung.ComputeRedundancy(system, block);
  // Row 0: 0.02 (1 + 0.25 + 4) + 2 (-1 2 0.01); row 1: 0.02 (9 + 2.25).
  EXPECT_DOUBLE_EQ(messung.Wert(0).Redundanz(), 1.0 - 4.0 * (0.105 - 0.04));
  EXPECT_DOUBLE_EQ(messung.Wert(1).Redundanz(), 1.0 - 0.5 * 0.225);
  EXPECT_EQ(messung.Wert(0).Residuum(), -0.25);
}

TEST(MessungComputeRedundancy, IsClampedBetweenZeroAndOne) {
  GivenMessung messung = TwoRows();
  EquationBlock block;
  messung.ComputeRedundancy(DiagonalCofactors(10.0), block);
  EXPECT_EQ(messung.Wert(0).Redundanz(), 0.0);
  EXPECT_EQ(messung.Wert(1).Redundanz(), 0.0);
  messung.ComputeRedundancy(DiagonalCofactors(-1e-17), block);
  EXPECT_EQ(messung.Wert(0).Redundanz(), 1.0);
  messung.ComputeRedundancy(DiagonalCofactors(-10.0), block);
  EXPECT_EQ(messung.Wert(1).Redundanz(), 1.0);
}

TEST(MessungComputeRedundancy, InactiveObservationIsResetMarkedAsOutlierOrNot) {
  for (const bool isMarked : {false, true}) {
    GivenMessung messung = TwoRows();
    for (MessungWert& wert : messung.CollectComponents()) {
      wert.SetResiduum(1.0);
      wert.SetRedundanz(0.5);
      wert.SetTestwert(2.0);
    }
    messung.SetActive(false);
    if (isMarked) messung.SetAusreisser();
    EquationBlock block;
    messung.ComputeRedundancy(DiagonalCofactors(0.01), block);
    for (const MessungWert& wert : messung.CollectComponents()) {
      EXPECT_EQ(wert.Residuum(), 0.0);
      EXPECT_EQ(wert.Redundanz(), 0.0);
      EXPECT_EQ(wert.Testwert(), 0.0);
    }
    EXPECT_EQ(messung.Wert(0).Gewicht(), 4.0);
    EXPECT_EQ(messung.evaluations, 0U);
  }
}

TEST(MessungComputeRedundancy, OutlierKeepsOneAndItsOtherValues) {
  GivenMessung messung = TwoRows();
  messung.CollectComponents()[0].SetResiduum(3.0);
  messung.CollectComponents()[0].SetTestwert(2.0);
  messung.SetAusreisser();
  EquationBlock block;
  messung.ComputeRedundancy(DiagonalCofactors(0.01), block);
  EXPECT_EQ(messung.Wert(0).Redundanz(), 1.0);
  EXPECT_EQ(messung.Wert(1).Redundanz(), 1.0);
  EXPECT_EQ(messung.Wert(0).Residuum(), 3.0);
  EXPECT_EQ(messung.Wert(0).Testwert(), 2.0);
  EXPECT_EQ(messung.evaluations, 0U);
  EXPECT_EQ(messung.RedundancySum(), 0.0);
}

TEST(MessungComputeRedundancy, WithoutEquationsStaysOne) {
  GivenMessung messung = TwoRows();
  messung.linked = false;
  EquationBlock block;
  messung.ComputeRedundancy(DiagonalCofactors(0.01), block);
  EXPECT_EQ(messung.Wert(0).Redundanz(), 1.0);
  EXPECT_EQ(messung.Wert(1).Redundanz(), 1.0);
}

// Three points on a chain of distances a - b - c, each measured itself. The distance a - c was not
// part of the system, so the cofactors of a and c with each other lie outside the band.
TEST(MessungComputeRedundancy, CofactorsOutsideTheBandCountAsZero) {
  std::array<DataObko, 3> points;
  const double coordinates[3][3] = {{0.0, 0.0, 0.0}, {5.0, 1.0, 0.0}, {9.0, -1.0, 2.0}};
  std::uint32_t unknowns = 0;
  for (unsigned i = 0; i < 3; ++i) {
    points[i].SetCoordinates({coordinates[i][0], coordinates[i][1], coordinates[i][2]});
    points[i].SetActive(true);
    points[i].SetVariable(true);
    unknowns = points[i].AssignUnknowns(unknowns);
  }
  EnvelopeSystem system;
  system.Reset(unknowns, 0);
  EquationBlock block;
  for (DataObko& point : points) {
    MessungObko messung;
    for (unsigned k = 0; k < 3; ++k) messung[k] = point.Current()[k];
    messung.SetPunkt(&point);
    messung.SetActive(true);
    messung.AddToNormals(system, block);
  }
  const auto distance = [&](unsigned i, unsigned j) {
    MessungStrecke messung;
    messung.SetPunkte(&points[i], &points[j]);
    messung.SetActive(true);
    return messung;
  };
  distance(0, 1).AddToNormals(system, block);
  distance(1, 2).AddToNormals(system, block);
  system.FactorizeAndSolve(false);
  ostra_bundle::Matrix inverse;
  system.CofactorBlock(inverse, 0, unknowns, 0, unknowns);
  system.InvertCofactors();

  MessungStrecke across = distance(0, 2);
  across.CollectComponents()[0].SetGewicht(0.25);
  across.ComputeRedundancy(system, block);
  ASSERT_TRUE(across.ObservationEquations(block));
  const std::vector<double> a = Dense(block.rows[0], unknowns);
  double inBand = 0.0;
  double outside = 0.0;
  for (std::uint32_t i = 0; i < unknowns; ++i)
    for (std::uint32_t j = 0; j < unknowns; ++j) {
      const bool apart = (i < 3 && j >= 6) || (j < 3 && i >= 6);
      (apart ? outside : inBand) += a[i] * inverse.At(i, j) * a[j];
    }
  EXPECT_NEAR(across.Wert(0).Redundanz(), 1.0 - 0.25 * inBand, 1e-14);
  EXPECT_GT(std::fabs(outside), 1e-3);
}

}  // namespace
}  // namespace vermo::test
