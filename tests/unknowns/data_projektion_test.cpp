#include "unknowns/data_projektion.h"

#include "checks/kl_exception.h"
#include "support/dense_system.h"
#include "support/language_guard.h"

#include <array>
#include <gtest/gtest.h>
#include <vector>

namespace vermo::test {
namespace {

using Triple = std::array<double, 3>;

DataProjektion VariableProjection() {
  DataProjektion projection;
  projection.SetValues(-30.0, 0.5, -0.25);
  projection.SetActive(true);
  projection.SetVariable(true);
  return projection;
}

TEST(DataProjektion, StartsWithZerosAndNoNumber) {
  const DataProjektion projection;
  EXPECT_EQ(projection.Id(), 0xFFFFFFFFU);
  EXPECT_EQ(projection.Values(), Triple{});
  EXPECT_EQ(projection.Sigma(), Triple{});
}

TEST(DataProjektion, HasThreeUnknownsOnlyWhenVariable) {
  DataProjektion projection = VariableProjection();
  EXPECT_EQ(projection.UnknownCount(), 3U);
  projection.SetVariable(false);
  EXPECT_EQ(projection.UnknownCount(), 0U);
}

TEST(DataProjektion, UnknownsAreTheValuesUnscaled) {
  DataProjektion projection = VariableProjection();
  projection.AssignUnknowns(1);
  projection.ApplySolution(std::vector<double>{9.0, 0.5, 0.25, 0.125, 9.0});
  EXPECT_EQ(projection.Values(), (Triple{-29.5, 0.75, -0.125}));
}

TEST(DataProjektion, SigmasAreTheRootsOfS0SquaredTimesTheCofactors) {
  DataProjektion projection = VariableProjection();
  projection.AssignUnknowns(1);
  DenseSystem system(4);
  system.cofactors(1, 1) = 4.0;
  system.cofactors(2, 2) = 0.0;
  system.cofactors(3, 3) = 0.25;
  projection.StoreAccuracy(system, 2.0);
  EXPECT_EQ(projection.Sigma(), (Triple{4.0, 0.0, 1.0}));
}

TEST(DataProjektion, NegativeVarianceEndsTheRun) {
  DataProjektion projection = VariableProjection();
  projection.AssignUnknowns(0);
  DenseSystem system(3);
  system.cofactors(1, 1) = -1e-300;
  try {
    projection.StoreAccuracy(system, 1.0);
    FAIL() << "no exception";
  } catch (const KlException& failure) {
    EXPECT_EQ(failure.GetCode(), -13001);
  }
}

TEST(DataProjektion, FixedOrInactiveProjectionIgnoresSolutionAndCofactors) {
  for (const bool active : {true, false}) {
    DataProjektion projection = VariableProjection();
    projection.SetActive(active);
    projection.SetVariable(!active);
    projection.AssignUnknowns(0);
    projection.ApplySolution(std::vector<double>{1.0, 1.0, 1.0});
    DenseSystem system(3);
    for (std::uint32_t i = 0; i < 3; ++i) system.cofactors(i, i) = -1.0;
    EXPECT_NO_THROW(projection.StoreAccuracy(system, 1.0));
    EXPECT_EQ(projection.Values(), (Triple{-30.0, 0.5, -0.25}));
    EXPECT_EQ(projection.Sigma(), Triple{});
  }
}

TEST(DataProjektion, DescribesItselfInBothLanguages) {
  DataProjektion projection;
  projection.SetId(8);
  EXPECT_EQ(projection.GetIdentText(), "8");
  {
    const LanguageGuard german(Language::German);
    EXPECT_EQ(projection.GetDescription(), "Projektion 8");
  }
  const LanguageGuard english(Language::English);
  EXPECT_EQ(projection.GetDescription(), "Projection 8");
}

}  // namespace
}  // namespace vermo::test
