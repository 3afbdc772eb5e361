#include "support/dense_system.h"
#include "support/elements_near.h"
#include "support/group_moves.h"
#include "support/image_scene.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <utility>

namespace vermo::test {
namespace {

// Error of a five-point difference at the steps below: truncation of the order of (step / depth)^4
// or step^4, and rounding of a coordinate over the change that the step makes.
constexpr double kRelative = 1e-9;

constexpr double kLengthStep = 0.2;   // of a thousand millimetres
constexpr double kAngleStep = 2e-4;   // radians
constexpr double kCameraStep = 0.01;  // Ck, Xh, Yh
constexpr double kScaledStep = 1.0;   // one unit of a scaled unknown, in which the model is linear
constexpr double kOverDepthStep = 100.0;

double StepOf(const DataObko& /*point*/, std::uint32_t /*i*/) { return kLengthStep; }
double StepOf(const DataEor& /*image*/, std::uint32_t i) {
  return i < 3 ? kLengthStep : kAngleStep;
}
double StepOf(const DataProjektion& /*projection*/, std::uint32_t /*i*/) { return kCameraStep; }

struct Rows {
  std::vector<double> x, y;

  [[nodiscard]] Image Column(std::int32_t first, std::uint32_t i) const {
    const auto column = static_cast<std::size_t>(first) + i;
    return {x.at(column), y.at(column)};
  }
};

Rows RowsOf(ImageScene& scene) {
  EquationBlock equations;
  EXPECT_TRUE(scene.biko.ObservationEquations(equations));
  return {Dense(equations.rows[0], scene.unknowns), Dense(equations.rows[1], scene.unknowns)};
}

double Tolerance(const Image& column) {
  return kRelative * std::max(std::fabs(column[0]), std::fabs(column[1]));
}

// Rows against differences of the transcribed model. How the distortion depends on the depth is
// left out of the rows on purpose, so the distortion keeps seeing the depth it has here.
template <typename Group>
void ExpectRowsMatchDifferences(ImageScene& scene, const Rows& rows, Group& group) {
  const double depth = scene.InCamera()[2];
  ASSERT_GT(group.UnknownCount(), 0U);
  for (std::uint32_t i = 0; i < group.UnknownCount(); ++i) {
    const Image expected =
        DerivativeBy(group, i, StepOf(group, i), [&] { return scene.TranscribedAtDepth(depth); });
    EXPECT_TRUE(ElementsNear(rows.Column(group.FirstUnknown(), i), expected, Tolerance(expected)))
        << "unknown " << i;
  }
}

// The estimated parameters in the order of their unknowns. With a projection the coefficients of
// the distortion are taken without the factor Cp / Ck, and Ck, Xh and Yh of the camera write
// nothing.
void ExpectCameraMatchesDifferences(ImageScene& scene, const Rows& rows) {
  const bool projection = scene.biko.Projektion() != nullptr;
  const double factor =
      projection ? scene.projektion.Values()[0] / scene.ior.Calibration()[DataIor::kCk] : 1.0;
  std::uint32_t i = 0;
  for (unsigned p = 0; p < DataIor::kParameters; ++p) {
    if (!scene.ior.ParameterMask()[p]) continue;
    const double step = p <= DataIor::kYh    ? kCameraStep
                        : p >= DataIor::kAz1 ? kOverDepthStep
                                             : kScaledStep;
    const Image column = rows.Column(scene.ior.FirstUnknown(), i);
    Image difference = DerivativeBy(scene.ior, i, step, [&] { return scene.Transcribed(); });
    if (projection && p <= DataIor::kYh) {
      EXPECT_EQ(column, (Image{0.0, 0.0})) << p;
    } else {
      for (double& element : difference) element /= factor;
      EXPECT_TRUE(ElementsNear(column, difference, Tolerance(difference))) << "parameter " << p;
    }
    ++i;
  }
  EXPECT_EQ(i, scene.ior.UnknownCount());
}

// (relative pair, body-bound point, projection, sign of Ck, R0)
using Variant = std::tuple<bool, bool, bool, double, double>;

class MessungBikoVariants : public testing::TestWithParam<Variant> {
 protected:
  MessungBikoVariants() {
    const auto [relative, body, projection, sign, r0] = GetParam();
    if (relative) scene.RelativePair();
    if (body) scene.BodyBound();
    if (projection) scene.WithProjektion();
    scene.Ck(30.0 * sign, 33.0 * sign).R0(r0);
  }

  ImageScene scene;
};

TEST_P(MessungBikoVariants, ValueIsThatOfTheTranscribedModel) {
  const Image expected = scene.Transcribed();
  // Some dozen roundings of numbers up to a thousand, seen through a thirtieth.
  EXPECT_TRUE(ElementsNear(scene.Computed(), expected, 1e-13));
  const Image v = scene.Residuals();
  EXPECT_TRUE(ElementsNear(v, Image{expected[0] - 1.25, expected[1] + 0.5}, 1e-13));
  // The point lies where all terms matter.
  EXPECT_GT(std::fabs(expected[0]), 1.0);
  EXPECT_GT(std::fabs(expected[1]), 1.0);
}

TEST_P(MessungBikoVariants, RowsMatchCentralDifferences) {
  const Rows rows = RowsOf(scene);
  ExpectRowsMatchDifferences(scene, rows, scene.point);
  ExpectRowsMatchDifferences(scene, rows, scene.eor);
  if (scene.biko.EorBasis() != nullptr) ExpectRowsMatchDifferences(scene, rows, scene.basis);
  if (scene.point.ReferenceEor() != nullptr) ExpectRowsMatchDifferences(scene, rows, scene.body);
  if (scene.biko.Projektion() != nullptr) ExpectRowsMatchDifferences(scene, rows, scene.projektion);
  ExpectCameraMatchesDifferences(scene, rows);
  for (std::uint32_t column : {0U, 1U}) {
    EXPECT_EQ(rows.x[column], 0.0);
    EXPECT_EQ(rows.y[column], 0.0);
  }
}

// Without depth terms nothing is left out for point and images: the observation's own residuals
// are differenced.
TEST_P(MessungBikoVariants, WithoutDepthTermsRowsMatchDifferencesOfTheResiduals) {
  scene.WithoutDepthTerms();
  const Rows rows = RowsOf(scene);
  const auto expectColumns = [&](auto& group) {
    for (std::uint32_t i = 0; i < group.UnknownCount(); ++i) {
      const Image expected =
          DerivativeBy(group, i, StepOf(group, i), [&] { return scene.Residuals(); });
      EXPECT_TRUE(ElementsNear(rows.Column(group.FirstUnknown(), i), expected, Tolerance(expected)))
          << i;
    }
  };
  expectColumns(scene.point);
  expectColumns(scene.eor);
  if (scene.biko.EorBasis() != nullptr) expectColumns(scene.basis);
  if (scene.point.ReferenceEor() != nullptr) expectColumns(scene.body);
  if (scene.biko.Projektion() != nullptr) expectColumns(scene.projektion);
}

// With depth terms the whole derivative of x has -x (AZ1 D1 + AZ2 D2 + AZ3 D3) / Z^2 Cp / Ck dZ
// more than the row, and y alike.
TEST_P(MessungBikoVariants, RowsLeaveOutExactlyTheDepthInTheDistortion) {
  const Rows rows = RowsOf(scene);
  const ImageTranscription model = scene.Transcription();
  const Vector3 at = scene.InCamera();
  const Image ideal{model.p[0] * at[0] / at[2], model.p[0] * at[1] / at[2]};
  const double byDepth = -model.Depth(ideal[0], ideal[1]) / (at[2] * at[2]) * model.cp / model.p[0];
  ASSERT_GT(std::fabs(byDepth), 1e-9);
  for (std::uint32_t i = 0; i < 3; ++i) {
    const Image whole = DerivativeBy(scene.eor, i, kLengthStep, [&] { return scene.Residuals(); });
    const Vector3 moved = DerivativeBy(scene.eor, i, kLengthStep, [&] { return scene.InCamera(); });
    const Image row = rows.Column(scene.eor.FirstUnknown(), i);
    const Image leftOut{ideal[0] * byDepth * moved[2], ideal[1] * byDepth * moved[2]};
    EXPECT_TRUE(ElementsNear(Image{whole[0] - row[0], whole[1] - row[1]},
                             leftOut,
                             kRelative * std::max(std::fabs(row[0]), std::fabs(row[1]))))
        << i;
  }
}

std::string NameOf(const testing::TestParamInfo<Variant>& info) {
  const auto [relative, body, projection, sign, r0] = info.param;
  return std::string(relative ? "Relative" : "Single") + (body ? "Body" : "World") +
         (projection ? "Projection" : "Camera") + (sign < 0.0 ? "NegativeCk" : "PositiveCk") +
         (r0 == 0.0 ? "WithoutR0" : "WithR0");
}

INSTANTIATE_TEST_SUITE_P(All,
                         MessungBikoVariants,
                         testing::Combine(testing::Bool(),
                                          testing::Bool(),
                                          testing::Bool(),
                                          testing::Values(-1.0, 1.0),
                                          testing::Values(0.0, 6.0)),
                         NameOf);

// The scene tells the terms apart only when leaving one out would show.
TEST(MessungBikoDerivatives, EveryDistortionTermShowsInTheScene) {
  ImageScene scene;
  const Image whole = scene.Transcribed();
  for (unsigned p = DataIor::kA1; p < DataIor::kParameters; ++p) {
    const DataIor saved = scene.ior;
    scene.ior.SetParameter(static_cast<DataIor::Parameter>(p), 0.0);
    const Image without = scene.Transcribed();
    scene.ior = saved;
    EXPECT_GT(std::hypot(whole[0] - without[0], whole[1] - without[1]), 1e-4) << p;
  }
}

TEST(MessungBikoDerivatives, EachMaskBitWritesItsOwnColumnOnly) {
  for (unsigned p = 0; p < DataIor::kParameters; ++p) {
    ImageScene scene;
    scene.Mask(1ULL << p);
    ASSERT_EQ(scene.ior.UnknownCount(), 1U);
    ExpectCameraMatchesDifferences(scene, RowsOf(scene));
    const Image column = RowsOf(scene).Column(scene.ior.FirstUnknown(), 0);
    EXPECT_TRUE(column[0] != 0.0 || column[1] != 0.0) << p;
  }
}

TEST(MessungBikoDerivatives, EachMaskBitLeftOutClosesTheGap) {
  for (unsigned p = 0; p < DataIor::kParameters; ++p) {
    ImageScene scene;
    scene.Mask(0x1FFFULL & ~(1ULL << p));
    ASSERT_EQ(scene.ior.UnknownCount(), 12U);
    ExpectCameraMatchesDifferences(scene, RowsOf(scene));
  }
}

TEST(MessungBikoDerivatives, CkAndXhAloneTakeExactlyTwoColumns) {
  ImageScene scene;
  scene.Mask(0x3);
  const Rows rows = RowsOf(scene);
  ASSERT_EQ(scene.ior.UnknownCount(), 2U);
  ASSERT_EQ(scene.point.FirstUnknown(), scene.ior.FirstUnknown() + 2);
  ExpectCameraMatchesDifferences(scene, rows);
  ExpectRowsMatchDifferences(scene, rows, scene.point);
}

TEST(MessungBikoDerivatives, CameraWithoutEstimatedParameterHasNoColumns) {
  ImageScene scene;
  scene.Mask(0);
  EquationBlock equations;
  ASSERT_TRUE(scene.biko.ObservationEquations(equations));
  EXPECT_EQ(scene.ior.FirstUnknown(), -1);
  EXPECT_EQ(equations.rows[0].size(), 9U);
  EXPECT_EQ(equations.rows[1].size(), 9U);
}

TEST(MessungBikoDerivatives, AffinityActsOnTheFirstCoordinateOnly) {
  ImageScene scene;
  scene.Mask(1ULL << DataIor::kC1 | 1ULL << DataIor::kC2);
  const Rows rows = RowsOf(scene);
  const Vector3 at = scene.InCamera();
  const Image ideal{-30.0 * at[0] / at[2], -30.0 * at[1] / at[2]};
  const Image byC1 = rows.Column(scene.ior.FirstUnknown(), 0);
  const Image byC2 = rows.Column(scene.ior.FirstUnknown(), 1);
  EXPECT_NEAR(byC1[0], ideal[0] * 0.0001, 1e-17);
  EXPECT_NEAR(byC2[0], ideal[1] * 0.0001, 1e-17);
  EXPECT_EQ(byC1[1], 0.0);
  EXPECT_EQ(byC2[1], 0.0);
}

// With a projection the camera's principal distance still moves the image a little, through the
// distortion: the rows leave that out, and the columns stay without coefficient but in place.
TEST(MessungBikoDerivatives, ProjectionSilencesThePrincipalDistanceAndPointOfTheCamera) {
  ImageScene scene;
  scene.WithProjektion();
  EquationBlock equations;
  ASSERT_TRUE(scene.biko.ObservationEquations(equations));
  const auto first = static_cast<std::uint32_t>(scene.ior.FirstUnknown());
  for (const DesignRow* row : {&equations.rows[0], &equations.rows[1]}) {
    EXPECT_EQ(row->size(), 3U + 6U + 3U + 10U);
    for (const DesignEntry& entry : *row)
      EXPECT_FALSE(entry.column >= first && entry.column < first + 3) << entry.column;
  }
  const Image byCk = DerivativeBy(scene.ior, 0, kCameraStep, [&] { return scene.Transcribed(); });
  EXPECT_GT(std::fabs(byCk[0]), 1e-4);
}

TEST(MessungBikoDerivatives, DistortionColumnsAreTheSameWithAndWithoutAProjection) {
  ImageScene without;
  ImageScene with;
  with.WithProjektion();
  const Rows plain = RowsOf(without);
  const Rows projected = RowsOf(with);
  ASSERT_EQ(without.ior.FirstUnknown(), with.ior.FirstUnknown());
  for (std::uint32_t i = DataIor::kA1; i < DataIor::kParameters; ++i)
    EXPECT_EQ(plain.Column(without.ior.FirstUnknown(), i),
              projected.Column(with.ior.FirstUnknown(), i))
        << i;
}

TEST(MessungBikoDerivatives, FixedCameraUnderAVariableProjectionHasNoColumns) {
  ImageScene scene;
  scene.WithProjektion();
  scene.ior.SetVariable(false);
  scene.ior.AssignUnknowns(0);
  EquationBlock equations;
  ASSERT_TRUE(scene.biko.ObservationEquations(equations));
  EXPECT_EQ(equations.rows[0].size(), 3U + 6U + 3U);
  ExpectRowsMatchDifferences(scene, RowsOf(scene), scene.projektion);
}

TEST(MessungBikoDerivatives, FixedProjectionStillReplacesTheCamera) {
  ImageScene scene;
  scene.WithProjektion();
  scene.projektion.SetVariable(false);
  scene.projektion.AssignUnknowns(0);
  EquationBlock equations;
  ASSERT_TRUE(scene.biko.ObservationEquations(equations));
  EXPECT_EQ(equations.rows[0].size(), 3U + 6U + 10U);
  EXPECT_TRUE(ElementsNear(scene.Computed(), scene.Transcribed(), 1e-13));
}

TEST(MessungBikoDerivatives, RelativePairOfABodyBoundPointHoldsThreeOrientations) {
  ImageScene scene;
  scene.RelativePair().BodyBound();
  EquationBlock equations;
  ASSERT_TRUE(scene.biko.ObservationEquations(equations));
  EXPECT_EQ(equations.rows[0].size(), 3U + 3U * 6U + 13U);
  const Rows rows = RowsOf(scene);
  for (const DataEor* image : {&scene.eor, &scene.basis, &scene.body})
    for (std::uint32_t i = 0; i < 6; ++i) {
      const Image column = rows.Column(image->FirstUnknown(), i);
      EXPECT_TRUE(column[0] != 0.0 || column[1] != 0.0) << i;
    }
}

// A point in the frame of the very image it is seen in: the orientation's columns occur twice and
// cancel out.
TEST(MessungBikoDerivatives, PointBoundToItsOwnImageDoesNotMoveWithIt) {
  ImageScene scene;
  scene.point.SetCoordinates({200.0, -150.0, -1000.0});
  scene.point.SetReferenceEor(&scene.eor);
  EquationBlock equations;
  ASSERT_TRUE(scene.biko.ObservationEquations(equations));
  EXPECT_EQ(equations.rows[0].size(), 3U + 6U + 6U + 13U);
  const Rows rows = RowsOf(scene);
  for (std::uint32_t i = 0; i < 6; ++i)
    // Rounding of two coefficients up to 40 each.
    EXPECT_TRUE(ElementsNear(rows.Column(scene.eor.FirstUnknown(), i), Image{}, 1e-13)) << i;
}

TEST(MessungBikoDerivatives, FixedGroupsHaveNoColumnsButTheValueStays) {
  ImageScene scene;
  scene.RelativePair().BodyBound();
  const Image expected = scene.Computed();
  for (Data* group : scene.groups) {
    group->SetVariable(false);
    group->AssignUnknowns(0);
  }
  EquationBlock equations;
  ASSERT_TRUE(scene.biko.ObservationEquations(equations));
  EXPECT_TRUE(equations.rows[0].empty());
  EXPECT_TRUE(equations.rows[1].empty());
  EXPECT_EQ(equations.count, 2U);
  EXPECT_EQ(scene.Computed(), expected);
}

TEST(MessungBikoDerivatives, VariableGroupsThatAreNotNumberedHaveNoColumns) {
  ImageScene numbered;
  numbered.RelativePair().BodyBound().WithProjektion();
  const std::size_t all = numbered.groups.size();
  for (std::size_t left = 0; left < all; ++left) {
    ImageScene scene;
    scene.RelativePair().BodyBound().WithProjektion();
    EquationBlock with;
    ASSERT_TRUE(scene.biko.ObservationEquations(with));
    Data& group = *scene.groups[left];
    const auto first = static_cast<std::uint32_t>(group.FirstUnknown());
    group.SetFirstUnknown(Data::kNoColumn);
    EquationBlock without;
    ASSERT_TRUE(scene.biko.ObservationEquations(without));
    // What is left are the other groups' entries, in their order.
    std::vector<std::pair<std::uint32_t, double>> expected;
    for (const DesignEntry& entry : with.rows[0])
      if (entry.column - first >= group.UnknownCount())
        expected.emplace_back(entry.column, entry.coefficient);
    std::vector<std::pair<std::uint32_t, double>> found;
    for (const DesignEntry& entry : without.rows[0])
      found.emplace_back(entry.column, entry.coefficient);
    EXPECT_EQ(found, expected) << left;
    EXPECT_LT(expected.size(), with.rows[0].size()) << left;
  }
}

}  // namespace
}  // namespace vermo::test
