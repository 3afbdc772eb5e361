#include "support/dense_system.h"
#include "support/elements_near.h"
#include "support/group_moves.h"
#include "support/plane_rotations.h"
#include "unknowns/data_eor.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>
#include <random>
#include <string>

namespace vermo::test {
namespace {

constexpr std::uint32_t kTypes[] = {1, 2, 4};

// The matrix of three angles a, b, c in the order of the record.
Matrix3 FromAngles(std::uint32_t type, const Vector3& angles) {
  const auto [a, b, c] = angles;
  if (type == 1) return OmegaPhiKappa(a, b, c);
  if (type == 2)
    return Product(Product(Product(AboutX(std::numbers::pi / 2.0), AboutY(b)), AboutX(a)),
                   AboutZ(c));
  return Product(Product(AboutY(c), AboutX(a)), AboutZ(b));
}

DataEor ImageWith(const Matrix3& rotation, bool variable = true) {
  DataEor image;
  image.fRotation = rotation;
  image.SetActive(true);
  image.SetVariable(variable);
  image.AssignUnknowns(0);
  return image;
}

// Cofactors of an image whose three rotations are strongly correlated: L L^T.
constexpr double kLower[3][3] = {{4e-4, 0.0, 0.0}, {-3e-4, 2e-4, 0.0}, {1e-4, 3e-4, 2.5e-4}};

DenseSystem CorrelatedRotations(double s0) {
  SquareMatrix q(6);
  for (std::uint32_t i = 0; i < 3; ++i)
    for (std::uint32_t j = 0; j < 3; ++j)
      for (std::uint32_t k = 0; k < 3; ++k)
        q(3 + i, 3 + j) += kLower[i][k] * kLower[j][k] / (s0 * s0);
  return DenseSystem(q);
}

Vector3 AnglesOf(const DataEor& image, std::uint32_t type) {
  DataEor::Angles angles{};
  EXPECT_TRUE(image.ToAngles(type, angles)) << type;
  return angles.values;
}

// Angles that each convention can tell: the middle one within a quarter turn. In the second
// convention the numerator T12 is right for |cos c| > |sin c| only.
std::vector<Vector3> TellableAngles(std::uint32_t type) {
  std::vector<Vector3> result;
  for (const double first : {-2.8, -0.7, 0.0, 0.4, 3.0})
    for (const double middle : {-1.4, -0.3, 0.0, 0.5, 1.2})
      for (const double last : {-3.0, -0.6, 0.0, 0.7, 2.6}) {
        if (type == 1)
          result.push_back({first, middle, last});
        else
          result.push_back({middle, first, last});
      }
  return result;
}

TEST(DataEorAngles, UnrotatedImageHasZeroAnglesOfTypeOne) {
  const DataEor image = ImageWith({1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0});
  EXPECT_EQ(AnglesOf(image, 1), (Vector3{0.0, 0.0, 0.0}));
  EXPECT_EQ(AnglesOf(image, 4), (Vector3{0.0, 0.0, 0.0}));
}

TEST(DataEorAngles, NearTheIdentityAnglesOfTypeOneAreSmall) {
  const Vector3 angles{1e-7, -2e-7, 3e-7};
  EXPECT_TRUE(ElementsNear(AnglesOf(ImageWith(FromAngles(1, angles)), 1), angles, 1e-15));
}

TEST(DataEorAngles, VariableImageGivesTheAnglesOfItsMatrixBack) {
  for (const std::uint32_t type : kTypes)
    for (const Vector3& angles : TellableAngles(type))
      // Rounding over the cosine of the middle angle, which is 0.17 at least.
      EXPECT_TRUE(ElementsNear(AnglesOf(ImageWith(FromAngles(type, angles)), type), angles, 1e-14))
          << "type " << type << ": " << angles[0] << ", " << angles[1] << ", " << angles[2];
}

TEST(DataEorAngles, FixedImageReadsTypeOneFromTheMatrixItself) {
  const Vector3 angles{0.4, -0.3, 0.7};
  const DataEor transposed = ImageWith(Transposed(FromAngles(1, angles)), false);
  EXPECT_TRUE(ElementsNear(AnglesOf(transposed, 1), angles, 1e-15));

  const Vector3 asStored = AnglesOf(ImageWith(FromAngles(1, angles), false), 1);
  const Matrix3 recomposed = FromAngles(1, asStored);
  EXPECT_TRUE(ElementsNear(recomposed, Transposed(FromAngles(1, angles)), 1e-15));
}

TEST(DataEorAngles, FixedImageReadsTheOtherTypesAsAVariableOne) {
  for (const std::uint32_t type : {2U, 4U}) {
    const Matrix3 rotation = FromAngles(type, {0.4, -0.3, 0.6});
    EXPECT_EQ(AnglesOf(ImageWith(rotation, false), type), AnglesOf(ImageWith(rotation), type));
  }
}

TEST(DataEorAngles, TypeTwoKeepsItsNumeratorWhereTheSineIsLarger) {
  for (const double c : {1.0, 1.7, -2.0, -0.9}) {
    const Vector3 given{0.4, -0.3, c};
    const Vector3 read = AnglesOf(ImageWith(FromAngles(2, given)), 2);
    // r = cos a cos c / sin c, where cos a sin c / sin c would give a back.
    const double r = std::cos(0.4) * std::cos(c) / std::sin(c);
    EXPECT_NEAR(read[0], std::atan2(std::sin(0.4), r), 1e-14) << c;
    EXPECT_GT(std::fabs(read[0] - 0.4), 0.01) << c;
    EXPECT_NEAR(read[1], -0.3, 1e-14) << c;
    EXPECT_NEAR(read[2], c, 1e-14) << c;
  }
}

TEST(DataEorAngles, TypeFourDividesByTheLargerOfCosineAndSine) {
  for (const double b : {0.2, 1.5, -1.5, 2.9})
    EXPECT_TRUE(ElementsNear(
        AnglesOf(ImageWith(FromAngles(4, {0.4, b, -0.6})), 4), Vector3{0.4, b, -0.6}, 1e-14))
        << b;
}

// M of a fixed image is its matrix, so the elements that decide can be set at will.
TEST(DataEorAngles, PhiNearARightAngleReadsOmegaFromTheLongerRowAndKappaAsZero) {
  Matrix3 m{};
  m[6] = 1.0;
  m[1] = 0.6, m[2] = 0.8, m[4] = 0.3, m[5] = -0.4;
  const Vector3 fromFirst = AnglesOf(ImageWith(m, false), 1);
  EXPECT_DOUBLE_EQ(fromFirst[0], std::atan2(0.8, 0.6));
  EXPECT_DOUBLE_EQ(fromFirst[1], std::numbers::pi / 2.0);
  EXPECT_EQ(fromFirst[2], 0.0);

  m[1] = 0.3, m[2] = 0.4, m[4] = 0.6, m[5] = -0.8;
  const Vector3 fromSecond = AnglesOf(ImageWith(m, false), 1);
  EXPECT_DOUBLE_EQ(fromSecond[0], std::atan2(-0.8, 0.6));
  EXPECT_DOUBLE_EQ(fromSecond[1], std::numbers::pi / 2.0);
  EXPECT_EQ(fromSecond[2], 0.0);
}

TEST(DataEorAngles, QuarterTurnOfPhiIsToldAsSuch) {
  const Matrix3 quarter{0.0, 0.0, 1.0, 0.0, 1.0, 0.0, -1.0, 0.0, 0.0};
  DataEor image = ImageWith(quarter);
  image.StoreAccuracy(CorrelatedRotations(1.0), 1.0);
  DataEor::Angles angles{};
  ASSERT_TRUE(image.ToAngles(1, angles));
  EXPECT_EQ(angles.values[0], 0.0);
  EXPECT_DOUBLE_EQ(angles.values[1], std::numbers::pi / 2.0);
  EXPECT_EQ(angles.values[2], 0.0);
  EXPECT_EQ(angles.sigmas[2], 0.0);
  EXPECT_TRUE(std::isfinite(angles.sigmas[0]));
}

TEST(DataEorAngles, LimitOfTheRightAngleIsOneHundredThousandthOfTheSine) {
  const double below = std::asin(1.0 - 1.01e-5);
  const double above = std::asin(1.0 - 0.99e-5);
  const Vector3 told = AnglesOf(ImageWith(FromAngles(1, {0.3, below, 0.2})), 1);
  // Rounding over the cosine of phi, 0.0045.
  EXPECT_NEAR(told[0], 0.3, 1e-12);
  EXPECT_NEAR(told[1], below, 1e-12);
  EXPECT_NEAR(told[2], 0.2, 1e-12);
  EXPECT_EQ(AnglesOf(ImageWith(FromAngles(1, {0.3, above, 0.2})), 1)[2], 0.0);
}

TEST(DataEorAngles, OtherTypesAreRefused) {
  const DataEor image = ImageWith(FromAngles(1, {0.1, 0.2, 0.3}));
  DataEor::Angles angles{};
  for (const std::uint32_t type : {0U, 3U, 5U, 0x101U, 0xFFFFFFFFU})
    EXPECT_FALSE(image.ToAngles(type, angles)) << type;
}

TEST(DataEorAngles, NotAFiniteMatrixFails) {
  for (const std::uint32_t type : kTypes) {
    Matrix3 rotation = FromAngles(1, {0.1, 0.2, 0.3});
    rotation.fill(std::numeric_limits<double>::quiet_NaN());
    DataEor::Angles angles{};
    EXPECT_FALSE(ImageWith(rotation).ToAngles(type, angles)) << type;
    EXPECT_FALSE(ImageWith(rotation, false).ToAngles(type, angles)) << type;
  }
}

TEST(DataEorAngles, NotAFiniteCovarianceFails) {
  SquareMatrix q(6);
  q(4, 4) = std::numeric_limits<double>::infinity();
  for (const std::uint32_t type : kTypes) {
    DataEor image = ImageWith(FromAngles(1, {0.1, 0.2, 0.3}));
    image.StoreAccuracy(DenseSystem(q), 1.0);
    DataEor::Angles angles{};
    EXPECT_FALSE(image.ToAngles(type, angles)) << type;
  }
}

TEST(DataEorAngles, DerivativeOverADenominatorOfZeroIsZero) {
  // R10, R11, R02 and R22 are 0: both arc tangents of the third convention are undetermined.
  DataEor image = ImageWith({1.0, 0.0, 0.0, 0.0, 0.0, -1.0, 0.0, 1.0, 0.0});
  image.StoreAccuracy(CorrelatedRotations(1.0), 1.0);
  DataEor::Angles angles{};
  ASSERT_TRUE(image.ToAngles(4, angles));
  EXPECT_DOUBLE_EQ(angles.values[0], std::numbers::pi / 2.0);
  EXPECT_GT(angles.sigmas[0], 0.0);
  EXPECT_EQ(angles.sigmas[1], 0.0);
  EXPECT_EQ(angles.sigmas[2], 0.0);
}

TEST(DataEorAngles, FixedImageHasNoStandardDeviations) {
  for (const std::uint32_t type : kTypes) {
    DataEor image = ImageWith(FromAngles(type, {0.1, 0.2, 0.3}));
    image.StoreAccuracy(CorrelatedRotations(1.0), 1.0);
    image.SetVariable(false);
    DataEor::Angles angles{};
    ASSERT_TRUE(image.ToAngles(type, angles));
    EXPECT_EQ(angles.sigmas, (Vector3{0.0, 0.0, 0.0}));
  }
}

TEST(DataEorAngles, SigmasPropagateTheWholeCovarianceOfTheRotations) {
  for (const std::uint32_t type : kTypes)
    for (const Vector3& angles :
         {Vector3{0.3, -0.4, 0.5}, Vector3{-1.2, 0.9, 2.9}, Vector3{0.2, 1.1, -2.0}}) {
      DataEor image = ImageWith(FromAngles(type, angles));
      constexpr double s0 = 0.25;
      image.StoreAccuracy(CorrelatedRotations(s0), s0);

      double jacobian[3][3];  // angle by rotation, the matrix moving as the adjustment moves it
      for (std::uint32_t k = 0; k < 3; ++k) {
        const Vector3 column =
            DerivativeBy(image, 3 + k, 1e-3, [&] { return AnglesOf(image, type); });
        for (unsigned i = 0; i < 3; ++i) jacobian[i][k] = column[i];
      }
      Vector3 expected{};
      for (unsigned i = 0; i < 3; ++i) {
        for (unsigned k = 0; k < 3; ++k) {  // length of row i of J L
          double element = 0.0;
          for (unsigned j = 0; j < 3; ++j) element += jacobian[i][j] * kLower[j][k];
          expected[i] += element * element;
        }
        expected[i] = std::sqrt(expected[i]);
      }
      DataEor::Angles told{};
      ASSERT_TRUE(image.ToAngles(type, told));
      // Sigmas of the order 1e-3 times the relative error of the differences, 1e-9.
      EXPECT_TRUE(ElementsNear(told.sigmas, expected, 1e-12)) << type << ": " << angles[0];
    }
}

TEST(DataEorAngles, SigmasAreTheSpreadOfAnglesOverDrawnRotations) {
  constexpr unsigned kDraws = 20000;
  for (const std::uint32_t type : kTypes) {
    DataEor image = ImageWith(FromAngles(type, {0.3, -0.5, 0.4}));
    image.StoreAccuracy(CorrelatedRotations(1.0), 1.0);
    DataEor::Angles told{};
    ASSERT_TRUE(image.ToAngles(type, told));

    std::mt19937_64 generator(4711 + type);
    std::normal_distribution<double> normal;
    Vector3 sum{};
    Vector3 squares{};
    for (unsigned draw = 0; draw < kDraws; ++draw) {
      const double n[3] = {normal(generator), normal(generator), normal(generator)};
      std::array<double, 6> solution{};
      for (unsigned i = 0; i < 3; ++i)
        for (unsigned k = 0; k < 3; ++k) solution[3 + i] += kLower[i][k] * n[k];
      DataEor drawn = image;
      drawn.ApplySolution(solution);
      const Vector3 angles = AnglesOf(drawn, type);
      for (unsigned i = 0; i < 3; ++i) {
        const double deviation = angles[i] - told.values[i];
        sum[i] += deviation;
        squares[i] += deviation * deviation;
      }
    }
    for (unsigned i = 0; i < 3; ++i) {
      const double mean = sum[i] / kDraws;
      const double spread = std::sqrt((squares[i] - sum[i] * mean) / (kDraws - 1));
      // The spread of n draws scatters by sigma / sqrt(2 n), their mean by sigma / sqrt(n): four
      // of those.
      EXPECT_NEAR(spread, told.sigmas[i], 4.0 * told.sigmas[i] / std::sqrt(2.0 * kDraws))
          << "type " << type << ", angle " << i;
      EXPECT_NEAR(mean, 0.0, 4.0 * told.sigmas[i] / std::sqrt(double{kDraws}))
          << "type " << type << ", angle " << i;
    }
  }
}

}  // namespace
}  // namespace vermo::test
