#include "unknowns/data_ior.h"

#include "checks/failure_codes.h"
#include "checks/kl_exception.h"
#include "support/dense_system.h"
#include "support/language_guard.h"

#include <cmath>
#include <gtest/gtest.h>
#include <vector>

namespace vermo::test {
namespace {

DataIor VariableCamera(unsigned long long mask) {
  DataIor camera;
  for (unsigned p = 0; p < DataIor::kParameters; ++p)
    camera.SetParameter(static_cast<DataIor::Parameter>(p), 100.0 + p);
  camera.SetParameterMask(mask);
  camera.SetActive(true);
  camera.SetVariable(true);
  return camera;
}

// Change of the parameter per unit of its unknown, in the order of the parameters.
constexpr double kFactors[] = {
    1.0, 1.0, 1.0, 0.0001, 1e-06, 1e-08, 0.0001, 0.0001, 0.0001, 0.0001, 0.0001, 1e-06, 1e-08};
constexpr unsigned long long kEveryParameter = 0x1FFF;

TEST(DataIor, StartsWithZerosAndSevenEstimatedParameters) {
  const DataIor camera;
  EXPECT_EQ(camera.Id(), 0xFFFFFFFFU);
  for (const double value : camera.Calibration()) EXPECT_EQ(value, 0.0);
  for (const double sigma : camera.Sigma()) EXPECT_EQ(sigma, 0.0);
  EXPECT_EQ(camera.R0().r0, 0.0);
  EXPECT_EQ(camera.ParameterMask().to_ulong(), 0x31FU);
}

TEST(DataIor, RadiusKeepsItsPowersTogether) {
  DataIor camera;
  camera.SetR0(3.0);
  EXPECT_EQ(camera.R0().r0, 3.0);
  EXPECT_EQ(camera.R0().squared, 9.0);
  EXPECT_EQ(camera.R0().fourth, 81.0);
  EXPECT_EQ(camera.R0().sixth, 729.0);
  camera.SetR0(0.0);
  EXPECT_EQ(camera.R0().sixth, 0.0);
}

TEST(DataIor, WithoutAnEstimatedParameterCountsAsFixed) {
  DataIor camera = VariableCamera(0);
  EXPECT_FALSE(camera.IsVariable());
  EXPECT_EQ(camera.UnknownCount(), 0U);
  EXPECT_EQ(camera.AssignUnknowns(5), 5U);
  EXPECT_EQ(camera.FirstUnknown(), -1);
  camera.SetParameterMask(1ULL << DataIor::kAz3);
  EXPECT_TRUE(camera.IsVariable());
  EXPECT_EQ(camera.UnknownCount(), 1U);
}

TEST(DataIor, CountsTheEstimatedParametersWhileVariable) {
  DataIor camera = VariableCamera(0x31F);
  EXPECT_EQ(camera.UnknownCount(), 7U);
  camera.SetParameterMask(kEveryParameter);
  EXPECT_EQ(camera.UnknownCount(), 13U);
  camera.SetVariable(false);
  EXPECT_FALSE(camera.IsVariable());
  EXPECT_EQ(camera.UnknownCount(), 0U);
}

TEST(DataIor, EachUnknownIsScaledByTheFactorOfItsParameter) {
  DataIor camera = VariableCamera(kEveryParameter);
  camera.AssignUnknowns(1);
  std::vector<double> solution(14, 1000.0);
  for (unsigned p = 0; p < DataIor::kParameters; ++p) solution[1 + p] = 2.0 + p;
  camera.ApplySolution(solution);
  for (unsigned p = 0; p < DataIor::kParameters; ++p)
    EXPECT_EQ(camera.Calibration()[p], 100.0 + p + (2.0 + p) * kFactors[p]) << p;
}

TEST(DataIor, OnlyEstimatedParametersTakeAPlace) {
  // Xh, A2, C1 and AZ3.
  DataIor camera = VariableCamera(1U << 1U | 1U << 4U | 1U << 8U | 1U << 12U);
  EXPECT_EQ(camera.AssignUnknowns(0), 4U);
  camera.ApplySolution(std::vector<double>{1.0, 2.0, 3.0, 4.0});
  for (unsigned p = 0; p < DataIor::kParameters; ++p) {
    double expected = 100.0 + p;
    if (p == DataIor::kXh) expected += 1.0;
    if (p == DataIor::kA2) expected += 2.0 * 1e-6;
    if (p == DataIor::kC1) expected += 3.0 * 0.0001;
    if (p == DataIor::kAz3) expected += 4.0 * 1e-8;
    EXPECT_EQ(camera.Calibration()[p], expected) << p;
  }
}

TEST(DataIor, FixedOrInactiveCameraIgnoresSolutionAndCofactors) {
  for (const bool active : {true, false}) {
    DataIor camera = VariableCamera(kEveryParameter);
    camera.SetActive(active);
    camera.SetVariable(!active);
    camera.AssignUnknowns(0);
    camera.ApplySolution(std::vector<double>(13, 1.0));
    DenseSystem system(13);
    for (std::uint32_t i = 0; i < 13; ++i) system.cofactors(i, i) = -1.0;
    EXPECT_NO_THROW(camera.StoreAccuracy(system, 1.0));
    for (unsigned p = 0; p < DataIor::kParameters; ++p) {
      EXPECT_EQ(camera.Calibration()[p], 100.0 + p);
      EXPECT_EQ(camera.Sigma()[p], 0.0);
    }
  }
}

TEST(DataIor, SigmasLandAtTheirParametersInItsUnits) {
  // Ck and Xh are off: the first unknown is Yh.
  DataIor camera = VariableCamera(1U << 2U | 1U << 3U | 1U << 5U);
  camera.AssignUnknowns(2);
  DenseSystem system(5);
  system.cofactors(2, 2) = 4.0;
  system.cofactors(3, 3) = 9.0;
  system.cofactors(4, 4) = 16.0;
  camera.StoreAccuracy(system, 0.5);
  for (unsigned p = 0; p < DataIor::kParameters; ++p) {
    double expected = 0.0;
    if (p == DataIor::kYh) expected = 1.0;
    if (p == DataIor::kA1) expected = 1.5 * 0.0001;
    if (p == DataIor::kA3) expected = 2.0 * 1e-8;
    EXPECT_DOUBLE_EQ(camera.Sigma()[p], expected) << p;
  }
}

TEST(DataIor, NegativeVarianceEndsTheRun) {
  DataIor camera = VariableCamera(0x7);
  camera.AssignUnknowns(0);
  DenseSystem system(3);
  system.cofactors(0, 0) = 1.0;
  system.cofactors(1, 1) = 0.0;
  system.cofactors(2, 2) = -1e-300;
  try {
    camera.StoreAccuracy(system, 1.0);
    FAIL() << "no exception";
  } catch (const KlException& failure) {
    EXPECT_EQ(failure.GetCode(), -13001);
  }
  system.cofactors(2, 2) = 0.0;
  EXPECT_NO_THROW(camera.StoreAccuracy(system, 1.0));
}

TEST(DataIor, CorrelationsAreCofactorsOverTheRootOfTheDiagonalProduct) {
  // Xh, A1 and C2.
  DataIor camera = VariableCamera(1U << 1U | 1U << 3U | 1U << 9U);
  camera.AssignUnknowns(1);
  DenseSystem system(4);
  const auto set = [&](std::uint32_t i, std::uint32_t j, double q) {
    system.cofactors(1 + i, 1 + j) = system.cofactors(1 + j, 1 + i) = q;
  };
  set(0, 0, 4.0);
  set(1, 1, 9.0);
  set(2, 2, 0.25);
  set(0, 1, -3.0);
  set(0, 2, 0.5);
  set(1, 2, 0.75);
  camera.StoreAccuracy(system, 7.0);  // no part of it
  const unsigned estimated[] = {1, 3, 9};
  const double expected[3][3] = {{1.0, -0.5, 0.5}, {-0.5, 1.0, 0.5}, {0.5, 0.5, 1.0}};
  for (unsigned i = 0; i < 3; ++i)
    for (unsigned j = 0; j < 3; ++j)
      EXPECT_DOUBLE_EQ(camera.Correlation(estimated[i], estimated[j]), expected[i][j]) << i << j;
  EXPECT_EQ(camera.Correlation(0, 1), 0.0);
  EXPECT_EQ(camera.Correlation(2, 2), 0.0);
}

TEST(DataIor, CorrelationIsZeroWhenADiagonalCofactorIsZero) {
  DataIor camera = VariableCamera(0x3);
  camera.AssignUnknowns(0);
  DenseSystem system(2);
  system.cofactors(0, 0) = 4.0;
  system.cofactors(0, 1) = system.cofactors(1, 0) = 0.5;
  camera.StoreAccuracy(system, 1.0);
  EXPECT_EQ(camera.Correlation(0, 0), 1.0);
  EXPECT_EQ(camera.Correlation(0, 1), 0.0);
  EXPECT_EQ(camera.Correlation(1, 1), 0.0);
}

TEST(DataIor, DescribesItselfInBothLanguages) {
  DataIor camera;
  camera.SetId(17);
  EXPECT_EQ(camera.GetIdentText(), "17");
  {
    const LanguageGuard german(Language::German);
    EXPECT_EQ(camera.GetDescription(), "Innere Orientierung 17");
  }
  const LanguageGuard english(Language::English);
  EXPECT_EQ(camera.GetDescription(), "Interior Orientation 17");
}

}  // namespace
}  // namespace vermo::test
