#include "observations/mat_object.h"

#include "support/dense_system.h"
#include "support/elements_near.h"
#include "support/group_moves.h"
#include "support/plane_rotations.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_obko.h"

#include <array>
#include <gtest/gtest.h>
#include <vector>

namespace vermo::test {
namespace {

using ostra_bundle::RelationD;
using ostra_bundle::VektorD;

Vector3 ValueOf(const MatObject<VektorD<3>>& node) {
  VektorD<3> value;
  node.Value(value);
  return {value[0], value[1], value[2]};
}

VectorJacobian JacobianOf(const MatObject<VektorD<3>>& node) {
  VectorJacobian jacobian;
  node.Derivatives(jacobian);
  return jacobian;
}

template <unsigned Rows, unsigned MaxColumns>
std::vector<std::int32_t> TagsOf(const TaggedJacobian<Rows, MaxColumns>& jacobian) {
  return {jacobian.tags, jacobian.tags + jacobian.columns};
}

RelationD<3> Relation() {
  RelationD<3> relation;
  relation.fRotation = OmegaPhiKappa(0.4, -0.2, 1.3);
  relation.fTranslation = {3.0, -5.0, 2.0};
  return relation;
}

constexpr VektorD<3> kPoint{1.5, -2.0, 4.0};

TEST(MatObject, LeafWithoutUnknownTagsItsColumnsWithMinusOne) {
  const MatObjectInVektor3D point;
  EXPECT_EQ(point.Index(), -1);
  EXPECT_EQ(TagsOf(JacobianOf(point)), (std::vector<std::int32_t>{-1, -1, -1}));

  const MatObjectInRelation3D relation;
  EXPECT_EQ(relation.Index(), -1);
  RelationJacobian jacobian;
  relation.Derivatives(jacobian);
  EXPECT_EQ(TagsOf(jacobian), std::vector<std::int32_t>(6, -1));
}

TEST(MatObject, PointLeafIsItsVectorWithTheUnitMatrix) {
  const MatObjectInVektor3D point(kPoint, 7);
  EXPECT_EQ(ValueOf(point), (Vector3{1.5, -2.0, 4.0}));
  const VectorJacobian jacobian = JacobianOf(point);
  EXPECT_EQ(TagsOf(jacobian), (std::vector<std::int32_t>{7, 8, 9}));
  for (unsigned i = 0; i < 3; ++i)
    for (unsigned c = 0; c < 3; ++c) EXPECT_EQ(jacobian.elements[i][c], i == c ? 1.0 : 0.0);
}

TEST(MatObject, RelationLeafStartsAsTheIdentity) {
  RelationD<3> value;
  value.fRotation.fill(5.0);
  MatObjectInRelation3D().Value(value);
  EXPECT_EQ(value.fRotation, (Matrix3{1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0}));
  for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(value.fTranslation[i], 0.0);
}

TEST(MatObject, TagsOfARelationCrossOver) {
  const MatObjectInRelation3D relation(Relation(), 10);
  RelationJacobian jacobian;
  relation.Derivatives(jacobian);
  // Columns: three rotations, which are numbered last, then three translations.
  EXPECT_EQ(TagsOf(jacobian), (std::vector<std::int32_t>{13, 14, 15, 10, 11, 12}));
}

TEST(MatObject, RelationJacobianIsTheTableOfItsElements) {
  const RelationD<3> value = Relation();
  const Matrix3& r = value.fRotation;
  RelationJacobian jacobian;
  MatObjectInRelation3D(value, 0).Derivatives(jacobian);
  const double expected[12][6] = {{0.0, r[6], -r[3], 0.0, 0.0, 0.0},
                                  {0.0, r[7], -r[4], 0.0, 0.0, 0.0},
                                  {0.0, r[8], -r[5], 0.0, 0.0, 0.0},
                                  {-r[6], 0.0, r[0], 0.0, 0.0, 0.0},
                                  {-r[7], 0.0, r[1], 0.0, 0.0, 0.0},
                                  {-r[8], 0.0, r[2], 0.0, 0.0, 0.0},
                                  {r[3], -r[0], 0.0, 0.0, 0.0, 0.0},
                                  {r[4], -r[1], 0.0, 0.0, 0.0, 0.0},
                                  {r[5], -r[2], 0.0, 0.0, 0.0, 0.0},
                                  {0.0, 0.0, 0.0, 1.0, 0.0, 0.0},
                                  {0.0, 0.0, 0.0, 0.0, 1.0, 0.0},
                                  {0.0, 0.0, 0.0, 0.0, 0.0, 1.0}};
  for (unsigned row = 0; row < 12; ++row)
    for (unsigned c = 0; c < 6; ++c)
      EXPECT_EQ(jacobian.elements[row][c], expected[row][c]) << row << ", " << c;
}

TEST(MatObject, SmallTurnAboutTheThirdAxisIsToldByTheThirdColumn) {
  const double c = 1e-4;
  RelationJacobian jacobian;
  MatObjectInRelation3D().Derivatives(jacobian);
  const Matrix3 turned = AboutZ(c);
  const Matrix3 unit{1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
  for (unsigned e = 0; e < 9; ++e)
    // The second order, c squared over two.
    EXPECT_NEAR(turned[e], unit[e] + c * jacobian.elements[e][2], 0.51e-8) << e;
}

TEST(MatObject, IdentityTransformsNothingInEitherDirection) {
  const MatObjectInRelation3D identity;
  const MatObjectInVektor3D point(kPoint, 3);
  MatTransformVektor3D forward;
  forward.SetLeft(&identity);
  forward.SetRight(&point);
  MatTransformBackVektor3D back;
  back.SetLeft(&identity);
  back.SetRight(&point);
  for (const MatObject<VektorD<3>>* node :
       std::initializer_list<const MatObject<VektorD<3>>*>{&forward, &back}) {
    EXPECT_EQ(ValueOf(*node), (Vector3{1.5, -2.0, 4.0}));
    const VectorJacobian jacobian = JacobianOf(*node);
    ASSERT_EQ(TagsOf(jacobian), (std::vector<std::int32_t>{-1, -1, -1, -1, -1, -1, 3, 4, 5}));
    for (unsigned i = 0; i < 3; ++i)
      for (unsigned c = 0; c < 3; ++c) EXPECT_EQ(jacobian.elements[i][6 + c], i == c ? 1.0 : 0.0);
  }
}

TEST(MatObject, BackUndoesForward) {
  const MatObjectInRelation3D relation(Relation(), -1);
  const MatObjectInVektor3D point(kPoint, -1);
  MatTransformVektor3D forward;
  forward.SetLeft(&relation);
  forward.SetRight(&point);
  MatTransformBackVektor3D back;
  back.SetLeft(&relation);
  back.SetRight(&forward);
  EXPECT_TRUE(ElementsNear(ValueOf(forward),
                           ForwardBy(Relation().fRotation, {3.0, -5.0, 2.0}, {1.5, -2.0, 4.0}),
                           5e-15));
  EXPECT_TRUE(ElementsNear(ValueOf(back), Vector3{1.5, -2.0, 4.0}, 5e-15));
}

// Groups behind the nodes, so that the unknowns move as the adjustment moves them.
class MatObjectChain : public testing::Test {
 protected:
  MatObjectChain() {
    fPoint.SetCoordinates(kPoint);
    fOther.SetCoordinates({-7.0, 1.0, 2.5});
    fBody.fRotation = OmegaPhiKappa(0.4, -0.2, 1.3);
    fBody.fTranslation = {3.0, -5.0, 2.0};
    fImage.fRotation = OmegaPhiKappa(-0.7, 0.5, 0.1);
    fImage.fTranslation = {-1.0, 4.0, 6.0};
    for (Data* group : std::initializer_list<Data*>{&fPoint, &fOther, &fBody, &fImage}) {
      group->SetActive(true);
      group->SetVariable(true);
      fUnknowns = group->AssignUnknowns(fUnknowns);
    }
  }

  // The point out of the body into the image, evaluated by what the test makes of it.
  template <typename Use>
  auto WithChain(Use&& use) const {
    const MatObjectInVektor3D point(fPoint.Current(), fPoint.FirstUnknown());
    const MatObjectInRelation3D body(fBody, fBody.FirstUnknown());
    const MatObjectInRelation3D image(fImage, fImage.FirstUnknown());
    MatTransformVektor3D toObject;
    toObject.SetLeft(&body);
    toObject.SetRight(&point);
    MatTransformBackVektor3D toImage;
    toImage.SetLeft(&image);
    toImage.SetRight(&toObject);
    return use(toImage);
  }

  // The distance of two points, both in the body when asked.
  template <typename Use>
  auto WithDistance(bool inBody, Use&& use) const {
    const MatObjectInVektor3D a(fPoint.Current(), fPoint.FirstUnknown());
    const MatObjectInVektor3D b(fOther.Current(), fOther.FirstUnknown());
    const MatObjectInRelation3D body(fBody, fBody.FirstUnknown());
    MatTransformVektor3D aToObject;
    aToObject.SetLeft(&body);
    aToObject.SetRight(&a);
    MatTransformVektor3D bToObject;
    bToObject.SetLeft(&body);
    bToObject.SetRight(&b);
    MatDistance3D distance;
    if (inBody) {
      distance.SetLeft(&aToObject);
      distance.SetRight(&bToObject);
    } else {
      distance.SetLeft(&aToObject);
      distance.SetRight(&b);
    }
    return use(distance);
  }

  DataObko fPoint;
  DataObko fOther;
  DataEor fBody;
  DataEor fImage;
  std::uint32_t fUnknowns = 0;
};

TEST_F(MatObjectChain, JacobianMatchesDifferencesForEveryGroup) {
  const VectorJacobian jacobian = WithChain([](const auto& root) { return JacobianOf(root); });
  // Relation before point at each node, rotations before translations at each relation.
  EXPECT_EQ(TagsOf(jacobian),
            (std::vector<std::int32_t>{15, 16, 17, 12, 13, 14, 9, 10, 11, 6, 7, 8, 0, 1, 2}));
  DesignRow rows[3];
  for (unsigned i = 0; i < 3; ++i) AppendToDesignRow(jacobian, i, rows[i]);

  const auto expectColumns = [&](auto& group) {
    for (std::uint32_t u = 0; u < group.UnknownCount(); ++u) {
      const Vector3 expected = DerivativeBy(group, u, 1e-3, [&] {
        return WithChain([](const auto& root) { return ValueOf(root); });
      });
      for (unsigned i = 0; i < 3; ++i)
        // Truncation of a rotation, ten lengths times h^4, and rounding over the step.
        EXPECT_NEAR(Dense(rows[i], fUnknowns)[static_cast<std::uint32_t>(group.FirstUnknown()) + u],
                    expected[i],
                    2e-11);
    }
  };
  expectColumns(fPoint);
  expectColumns(fBody);
  expectColumns(fImage);
}

TEST_F(MatObjectChain, DistanceMatchesDifferencesForEveryGroup) {
  ScalarJacobian jacobian;
  WithDistance(false, [&](const MatDistance3D& d) { d.Derivatives(jacobian); });
  EXPECT_EQ(TagsOf(jacobian), (std::vector<std::int32_t>{9, 10, 11, 6, 7, 8, 0, 1, 2, 3, 4, 5}));
  DesignRow row;
  AppendToDesignRow(jacobian, 0, row);
  const std::vector<double> dense = Dense(row, fUnknowns);
  const auto expectColumns = [&](auto& group) {
    for (std::uint32_t u = 0; u < group.UnknownCount(); ++u) {
      const std::array<double, 1> expected = DerivativeBy(group, u, 1e-3, [&] {
        std::array<double, 1> value{};
        WithDistance(false, [&](const MatDistance3D& d) { d.Value(value[0]); });
        return value;
      });
      EXPECT_NEAR(dense[static_cast<std::uint32_t>(group.FirstUnknown()) + u], expected[0], 2e-11)
          << u;
    }
  };
  expectColumns(fPoint);
  expectColumns(fOther);
  expectColumns(fBody);
}

TEST_F(MatObjectChain, RelationReachedByTwoPathsKeepsBothItsColumns) {
  ScalarJacobian jacobian;
  WithDistance(true, [&](const MatDistance3D& d) { d.Derivatives(jacobian); });
  EXPECT_EQ(TagsOf(jacobian),
            (std::vector<std::int32_t>{9, 10, 11, 6, 7, 8, 0, 1, 2, 9, 10, 11, 6, 7, 8, 3, 4, 5}));
  DesignRow row;
  AppendToDesignRow(jacobian, 0, row);
  EXPECT_EQ(row.size(), 18U);
  // Two points of one body keep their distance however the body moves.
  const std::vector<double> dense = Dense(row, fUnknowns);
  for (std::uint32_t column = 6; column < 12; ++column) EXPECT_NEAR(dense[column], 0.0, 1e-14);
}

TEST_F(MatObjectChain, ColumnsWithoutUnknownVanishFromTheRowAndZerosStay) {
  fBody.SetVariable(false);
  fBody.AssignUnknowns(0);
  const VectorJacobian jacobian = WithChain([](const auto& root) { return JacobianOf(root); });
  EXPECT_EQ(jacobian.columns, 15U);
  DesignRow row;
  AppendToDesignRow(jacobian, 0, row);
  EXPECT_EQ(row.size(), 9U);
  const Vector3 value = WithChain([](const auto& root) { return ValueOf(root); });
  const Vector3 expected = BackBy(fImage.fRotation,
                                  {-1.0, 4.0, 6.0},
                                  ForwardBy(fBody.fRotation, {3.0, -5.0, 2.0}, {1.5, -2.0, 4.0}));
  EXPECT_TRUE(ElementsNear(value, expected, 1e-14));

  DesignRow zeros;
  AppendToDesignRow(JacobianOf(MatObjectInVektor3D(kPoint, 4)), 1, zeros);
  ASSERT_EQ(zeros.size(), 3U);
  EXPECT_EQ(zeros[0].column, 4U);
  EXPECT_EQ(zeros[0].coefficient, 0.0);
  EXPECT_EQ(zeros[1].coefficient, 1.0);
}

TEST(MatObject, DistanceOfEqualPointsHasAZeroRow) {
  const MatObjectInVektor3D a(kPoint, 0);
  const MatObjectInVektor3D b(kPoint, 3);
  MatDistance3D distance;
  distance.SetLeft(&a);
  distance.SetRight(&b);
  double value = 1.0;
  distance.Value(value);
  EXPECT_EQ(value, 0.0);
  ScalarJacobian jacobian;
  distance.Derivatives(jacobian);
  ASSERT_EQ(jacobian.columns, 6U);
  for (unsigned c = 0; c < 6; ++c) EXPECT_EQ(jacobian.elements[0][c], 0.0);
}

TEST(MatObject, DistanceIsTheRootOfTheSumOfSquares) {
  const MatObjectInVektor3D a({1.0, 2.0, 3.0}, 0);
  const MatObjectInVektor3D b({3.0, 5.0, 9.0}, 3);
  MatDistance3D distance;
  distance.SetLeft(&a);
  distance.SetRight(&b);
  double value = 0.0;
  distance.Value(value);
  EXPECT_EQ(value, 7.0);
  ScalarJacobian jacobian;
  distance.Derivatives(jacobian);
  const double expected[] = {-2.0 / 7.0, -3.0 / 7.0, -6.0 / 7.0, 2.0 / 7.0, 3.0 / 7.0, 6.0 / 7.0};
  for (unsigned c = 0; c < 6; ++c) EXPECT_DOUBLE_EQ(jacobian.elements[0][c], expected[c]);
}

template <typename Node, typename Value>
std::int32_t FailureCode(const Node& node, Value value) {
  try {
    node.Value(value);
  } catch (const MatException& failure) {
    return failure.GetCode();
  }
  return 1;
}

TEST(MatObject, MissingOperandThrowsCodeZero) {
  const MatObjectInRelation3D relation;
  const MatObjectInVektor3D point(kPoint, -1);
  MatTransformVektor3D forward;
  MatTransformBackVektor3D back;
  MatDistance3D distance;
  EXPECT_EQ(FailureCode(forward, VektorD<3>{}), 0);
  EXPECT_EQ(FailureCode(back, VektorD<3>{}), 0);
  EXPECT_EQ(FailureCode(distance, 0.0), 0);
  forward.SetLeft(&relation);
  back.SetRight(&point);
  distance.SetRight(&point);
  EXPECT_EQ(FailureCode(forward, VektorD<3>{}), 0);
  EXPECT_EQ(FailureCode(back, VektorD<3>{}), 0);
  EXPECT_EQ(FailureCode(distance, 0.0), 0);
  forward.SetRight(&point);
  back.SetLeft(&relation);
  distance.SetLeft(&point);
  EXPECT_EQ(FailureCode(forward, VektorD<3>{}), 1);
  EXPECT_EQ(FailureCode(back, VektorD<3>{}), 1);
  EXPECT_EQ(FailureCode(distance, 0.0), 1);
}

TEST(MatObject, MissingOperandDeepInTheChainPassesThrough) {
  const MatObjectInRelation3D relation;
  const MatTransformVektor3D incomplete;
  MatTransformBackVektor3D root;
  root.SetLeft(&relation);
  root.SetRight(&incomplete);
  EXPECT_EQ(FailureCode(root, VektorD<3>{}), 0);
}

}  // namespace
}  // namespace vermo::test
