#include "linalg/tensors.h"

#include "linalg/tensor_exception.h"
#include "linalg/tensor_matrix.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <numbers>
#include <utility>

namespace ostra_bundle {
namespace {

Rotation3 About(unsigned axis, double t) {
  const double c = std::cos(t);
  const double s = std::sin(t);
  if (axis == 0) return {1.0, 0.0, 0.0, 0.0, c, -s, 0.0, s, c};
  if (axis == 1) return {c, 0.0, s, 0.0, 1.0, 0.0, -s, 0.0, c};
  return {c, -s, 0.0, s, c, 0.0, 0.0, 0.0, 1.0};
}

void ExpectNear(const Rotation3& a, const Rotation3& b, double tolerance) {
  for (unsigned i = 0; i < 9; ++i) EXPECT_NEAR(a[i], b[i], tolerance) << i;
}

TEST(Vectors, PlainOperations) {
  const VektorD<3> a{1.0, 2.0, 3.0};
  const VektorD<3> b{-2.0, 0.5, 4.0};
  EXPECT_EQ(Add(a, b)[0], -1.0);
  EXPECT_EQ(Subtract(a, b)[2], -1.0);
  EXPECT_EQ(Scale(a, 2.0)[1], 4.0);
  EXPECT_EQ(Dot(a, b), 11.0);
  const VektorD<3> c = Cross(a, b);
  EXPECT_EQ(c[0], 6.5);
  EXPECT_EQ(c[1], -10.0);
  EXPECT_EQ(c[2], 4.5);
  EXPECT_DOUBLE_EQ(Length({2.0, 3.0, 6.0}), 7.0);
}

TEST(Vectors, NormalizeRefusesLengthZeroOnly) {
  VektorD<3> zero{0.0, 0.0, 0.0};
  EXPECT_THROW(Normalize(zero), TensorExceptDivisionByZero);
  EXPECT_THROW(Normalize(zero), TensorException);
  EXPECT_DOUBLE_EQ(Normalized({0.0, 1e-100, 0.0})[1], 1.0);
}

TEST(Vectors, ElementwiseSqrtRefusesNegativeElements) {
  const VektorD<3> roots = ElementwiseSqrt({4.0, 9.0, 0.0});
  EXPECT_EQ(roots[0], 2.0);
  EXPECT_EQ(roots[1], 3.0);
  EXPECT_EQ(roots[2], 0.0);
  for (std::size_t i = 0; i < 3; ++i) {
    VektorD<3> v{1.0, 1.0, 1.0};
    v[i] = -1e-300;
    EXPECT_THROW(static_cast<void>(ElementwiseSqrt(v)), TensorExceptSquareRootOfNegative) << i;
  }
}

TEST(Vectors, AngleBetweenIsExactForSmallAndLargeAngles) {
  EXPECT_NEAR(AngleBetween({1.0, 0.0, 0.0}, {5.0, 5e-9, 0.0}), 1e-9, 1e-23);
  EXPECT_NEAR(AngleBetween({1.0, 0.0, 0.0}, {0.0, 0.0, 3.0}), std::numbers::pi / 2.0, 1e-15);
  EXPECT_NEAR(AngleBetween({1.0, 0.0, 0.0}, {-2.0, 0.0, 0.0}), std::numbers::pi, 1e-15);
}

TEST(Rotations, MatrixOperations) {
  const Rotation3 a{1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 8.0, 9.0};
  const Rotation3 b{9.0, 8.0, 7.0, 6.0, 5.0, 4.0, 3.0, 2.0, 1.0};
  EXPECT_EQ(Multiply(a, b), (Rotation3{30, 24, 18, 84, 69, 54, 138, 114, 90}));
  EXPECT_EQ(Transpose(a)[1], 4.0);
  EXPECT_EQ(Subtract(a, b)[0], -8.0);
  EXPECT_EQ(Scale(a, 3.0)[8], 27.0);
  EXPECT_EQ(MultiplyVector(a, {1.0, 0.0, -1.0})[2], -2.0);
  EXPECT_EQ(MultiplyTransposed(a, {1.0, 0.0, -1.0})[2], -6.0);
}

TEST(Rotations, SkewIsTheVectorProduct) {
  const VektorD<3> v{1.0, 2.0, 3.0};
  const VektorD<3> x{-2.0, 0.5, 4.0};
  const VektorD<3> expected = Cross(v, x);
  const VektorD<3> product = MultiplyVector(Skew(v), x);
  for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(product[i], expected[i]);
  EXPECT_EQ(SkewTransposed(v), Transpose(Skew(v)));
}

TEST(Rotations, AnglesTurnAboutTheAxesInOrder) {
  ExpectNear(RotationFromAngles(0.3, -0.4, 1.1),
             Multiply(Multiply(About(0, 0.3), About(1, -0.4)), About(2, 1.1)),
             1e-15);
}

TEST(Rotations, QuaternionOfTheRealUnitIsTheUnitMatrix) {
  EXPECT_EQ(RotationFromQuaternion(0.0, 0.0, 0.0, 1.0), (Rotation3{1, 0, 0, 0, 1, 0, 0, 0, 1}));
  EXPECT_THROW(static_cast<void>(RotationFromQuaternion(0.0, 0.0, 0.0, 0.0)),
               TensorExceptDivisionByZero);
}

TEST(Rotations, QuaternionTurnsAboutItsVectorByTwiceTheHalfAngle) {
  const double t = 0.7;
  ExpectNear(RotationFromQuaternion(0.0, 3.0 * std::sin(t / 2.0), 0.0, 3.0 * std::cos(t / 2.0)),
             About(1, t),
             1e-15);
}

TEST(Rotations, FrameHasTheDirectionAsThirdRowAndIsARotation) {
  const Rotation3 frame = FrameFromVectors({1.0, 2.0, 2.0}, {1.0, 0.0, 0.0});
  EXPECT_NEAR(frame[6], 1.0 / 3.0, 1e-15);
  ExpectNear(Multiply(frame, Transpose(frame)), {1, 0, 0, 0, 1, 0, 0, 0, 1}, 1e-15);
  const VektorD<3> first{frame[0], frame[1], frame[2]};
  const VektorD<3> second{frame[3], frame[4], frame[5]};
  EXPECT_NEAR(Cross(first, second)[2], frame[8], 1e-15);
  // The second row lies across p and q: u x q.
  EXPECT_EQ(frame[3], 0.0);
  EXPECT_GT(frame[4], 0.0);
  EXPECT_THROW(static_cast<void>(FrameFromVectors({1.0, 0.0, 0.0}, {2.0, 0.0, 0.0})),
               TensorExceptDivisionByZero);
}

TEST(AnglesFromRotation, UnitMatrixGivesZeros) {
  const auto angles = AnglesFromRotation({1, 0, 0, 0, 1, 0, 0, 0, 1});
  for (const double angle : angles) EXPECT_EQ(angle, 0.0);
}

TEST(AnglesFromRotation, GivesTheAnglesBackFromTheTransposedMatrix) {
  for (const double a : {-1.2, 0.0, 0.4, 1.5})
    for (const double b : {-1.3, -0.2, 0.0, 0.9})
      for (const double c : {-3.0, -0.5, 0.0, 2.0}) {
        const auto angles = AnglesFromRotation(Transpose(RotationFromAngles(a, b, c)));
        EXPECT_NEAR(angles[0], a, 1e-10);
        EXPECT_NEAR(angles[1], b, 1e-10);
        EXPECT_NEAR(angles[2], c, 1e-10);
      }
}

TEST(AnglesFromRotation, PiItselfStaysBecauseTheLimitLiesAboveIt) {
  const auto angles = AnglesFromRotation(Transpose(RotationFromAngles(std::numbers::pi, 0.0, 0.0)));
  EXPECT_NEAR(angles[0], std::numbers::pi, 1e-9);
}

TEST(AnglesFromRotation, GimbalPositionPutsAllIntoTheFirstAngle) {
  const Rotation3 m = Transpose(RotationFromAngles(0.3, std::numbers::pi / 2.0, 0.5));
  const auto angles = AnglesFromRotation(m);
  EXPECT_EQ(angles[2], 0.0);
  EXPECT_NEAR(angles[1], std::numbers::pi / 2.0, 1e-7);
}

TEST(RelationD, ForwardAndBackAreInverse) {
  RelationD<3> relation;
  const VektorD<3> x{1.0, 2.0, 3.0};
  for (unsigned i = 0; i < 3; ++i) {
    EXPECT_EQ(relation.Forward(x)[i], x[i]);
    EXPECT_EQ(relation.Back(x)[i], x[i]);
  }
  relation.fRotation = RotationFromAngles(0.3, -0.4, 1.1);
  relation.fTranslation = {5.0, -6.0, 7.0};
  const VektorD<3> back = relation.Back(relation.Forward(x));
  for (unsigned i = 0; i < 3; ++i) EXPECT_NEAR(back[i], x[i], 1e-14);
}

Matrix Numbered(std::uint32_t rows, std::uint32_t cols) {
  Matrix matrix(rows, cols);
  for (std::uint32_t r = 0; r < rows; ++r)
    for (std::uint32_t c = 0; c < cols; ++c) matrix.At(r, c) = 10.0 * r + c;
  return matrix;
}

double Read(const Matrix& matrix, std::uint32_t r, std::uint32_t c) { return matrix.At(r, c); }

TEST(Matrix, SharesUntilOneDetaches) {
  Matrix a = Numbered(2, 3);
  Matrix b(a);
  EXPECT_EQ(&a.At(0, 0), &b.At(0, 0));
  b.Detach();
  b.At(1, 2) = 99.0;
  EXPECT_EQ(Read(a, 1, 2), 12.0);
  EXPECT_EQ(Read(b, 1, 2), 99.0);
  EXPECT_EQ(Read(b, 1, 1), 11.0);
}

TEST(Matrix, WritersByNameDetachThemselves) {
  const Matrix a = Numbered(2, 2);
  Matrix b(a);
  b.Fill(5.0);
  EXPECT_EQ(Read(a, 0, 1), 1.0);
  Matrix c(a);
  c.CopyBlock(Numbered(1, 1));
  EXPECT_EQ(Read(c, 0, 1), 1.0);
  EXPECT_EQ(Read(a, 1, 1), 11.0);
}

TEST(Matrix, AssignmentSharesAndSelfAssignmentKeeps) {
  Matrix a = Numbered(2, 2);
  Matrix b;
  b = a;
  EXPECT_EQ(&a.At(0, 0), &b.At(0, 0));
  const Matrix& alias = a;
  a = alias;
  EXPECT_EQ(Read(a, 1, 1), 11.0);
  Matrix empty;
  b = empty;
  EXPECT_TRUE(b.IsEmpty());
  EXPECT_EQ(Read(a, 1, 1), 11.0);
}

TEST(Matrix, ResizeToThePresentShapeKeepsTheContents) {
  Matrix a = Numbered(2, 3);
  a.Resize(2, 3);
  EXPECT_EQ(Read(a, 1, 2), 12.0);
  a.Resize(2, 4);
  EXPECT_EQ(a.Rows(), 2U);
  EXPECT_EQ(a.Cols(), 4U);
  a.Resize(3, 2);
  EXPECT_EQ(a.Rows(), 3U);
  a.Resize(0, 4);
  EXPECT_TRUE(a.IsEmpty());
  EXPECT_EQ(Matrix(0, 5).Cols(), 0U);
}

TEST(Matrix, MultiplyChecksDimensionsAndAllowsAnEmptyLeft) {
  Matrix a = Numbered(2, 3);
  const Matrix product = Matrix::Multiply(a, Numbered(3, 2));
  EXPECT_EQ(Read(product, 0, 0), 0.0 * 0 + 1.0 * 10 + 2.0 * 20);
  EXPECT_EQ(Read(product, 1, 1), 10.0 * 1 + 11.0 * 11 + 12.0 * 21);
  EXPECT_THROW(static_cast<void>(Matrix::Multiply(a, a)), TensorExceptDimension);
  EXPECT_TRUE(Matrix::Multiply(Matrix(), a).IsEmpty());
}

TEST(Matrix, CopyBlockRefusesALargerSource) {
  Matrix a = Numbered(2, 2);
  a.CopyBlock(Numbered(1, 2));
  EXPECT_EQ(Read(a, 0, 1), 1.0);
  EXPECT_THROW(a.CopyBlock(Numbered(3, 1)), TensorExceptDimension);
  EXPECT_THROW(a.CopyBlock(Numbered(1, 3)), TensorExceptDimension);
}

TEST(Matrix, AssignmentOfTheSameViewKeepsItsShareOfTheBuffer) {
  Matrix a = Numbered(2, 2);
  const Matrix& alias = a;
  a = alias;
  Matrix b = a;
  b = a;
  // One count too few would end the buffer with the first of the two.
  b.Release();
  EXPECT_TRUE(b.IsEmpty());
  EXPECT_EQ(Read(a, 1, 1), 11.0);
  // And with one too many it would never be the matrix's own again.
  const double* before = &a.At(0, 0);
  a.Detach();
  EXPECT_EQ(&a.At(0, 0), before);
}

TEST(Matrix, DetachOfNothingAndOfAnUnsharedBufferIsNoAction) {
  Matrix empty;
  empty.Detach();
  EXPECT_TRUE(empty.IsEmpty());
  Matrix a = Numbered(2, 3);
  const double* before = &a.At(0, 0);
  a.Detach();
  EXPECT_EQ(&a.At(0, 0), before);
}

using Sizes = std::pair<std::uint32_t, std::uint32_t>;

TEST(MatrixBuffer, AllocateTakesTheShapeAndReplacesWhatWasThere) {
  const auto buffer = std::make_unique<Matrix::Implementation>();
  EXPECT_EQ(buffer->fRefCount, 1U);
  EXPECT_EQ(buffer->Dimensions(), Sizes(0, 0));
  EXPECT_EQ(buffer->fData, nullptr);
  buffer->Allocate({2, 3});
  EXPECT_EQ(buffer->Dimensions(), Sizes(2, 3));
  std::fill_n(buffer->fData, 6, 1.0);
  buffer->Allocate({4, 5});
  EXPECT_EQ(buffer->Dimensions(), Sizes(4, 5));
  std::fill_n(buffer->fData, 20, 1.0);
}

TEST(MatrixBuffer, AShapeThatNoMemoryHoldsLeavesTheBufferAsItWas) {
  Matrix::Implementation buffer;
  buffer.Allocate({2, 3});
  buffer.fData[5] = 7.0;
  constexpr std::uint32_t kMost = 0xFFFFFFFF;
  EXPECT_THROW(buffer.Allocate({kMost, kMost}), std::bad_alloc);
  EXPECT_EQ(buffer.Dimensions(), Sizes(2, 3));
  EXPECT_EQ(buffer.fData[5], 7.0);
}

TEST(MatrixBuffer, ReleaseAndAShapeWithoutElementsLeaveNothing) {
  for (const Sizes& none : {Sizes(0, 0), Sizes(0, 3), Sizes(2, 0)}) {
    Matrix::Implementation buffer;
    buffer.Allocate({2, 3});
    buffer.Allocate(none);
    EXPECT_EQ(buffer.Dimensions(), Sizes(0, 0));
    EXPECT_EQ(buffer.fData, nullptr);
  }
  Matrix::Implementation buffer;
  buffer.Allocate({2, 3});
  buffer.Release();
  EXPECT_EQ(buffer.Dimensions(), Sizes(0, 0));
  buffer.Release();
  EXPECT_EQ(buffer.fData, nullptr);
}

TEST(MatrixTaged, TagsAreResetByEveryNewShape) {
  MatrixTaged m;
  m.SetIdentity(3);
  m.SetColumnTag(1, 7);
  m.SetRowTag(0, 8);
  EXPECT_EQ(m.GetColumnTag(1), 7);
  m.Assign(Numbered(2, 4));
  EXPECT_EQ(m.ColumnCount(), 4U);
  EXPECT_EQ(m.RowCount(), 2U);
  for (std::uint32_t c = 0; c < 4; ++c) EXPECT_EQ(m.GetColumnTag(c), -1);
  m.SetColumnTag(3, 5);
  m.Resize(2, 4);
  EXPECT_EQ(m.GetColumnTag(3), -1);
}

TEST(MatrixTaged, ProductTakesRowTagsFromTheLeftAndColumnTagsFromTheRight) {
  MatrixTaged a;
  a.Assign(Numbered(2, 3));
  a.SetRowTag(1, 11);
  a.SetColumnTag(0, 12);
  MatrixTaged b;
  b.Assign(Numbered(3, 2));
  b.SetColumnTag(1, 13);
  a.Multiply(a, b);
  EXPECT_EQ(a.GetRowTag(1), 11);
  EXPECT_EQ(a.GetColumnTag(1), 13);
  EXPECT_EQ(a.GetColumnTag(0), -1);
  EXPECT_EQ(a.GetMatrix().Cols(), 2U);
}

TEST(MatrixTaged, AppendedColumnsStandSideBySideWithTheirTags) {
  MatrixTaged a;
  a.Assign(Numbered(2, 3));
  for (std::uint32_t c = 0; c < 3; ++c) a.SetColumnTag(c, static_cast<std::int32_t>(100 + c));
  a.SetRowTag(0, 4);
  MatrixTaged b;
  b.Assign(Numbered(2, 6));
  b.SetColumnTag(0, 200);
  MatrixTaged joined;
  joined.AppendColumns(a, b);
  EXPECT_EQ(joined.ColumnCount(), 9U);
  EXPECT_EQ(joined.GetColumnTag(2), 102);
  EXPECT_EQ(joined.GetColumnTag(3), 200);
  EXPECT_EQ(joined.GetRowTag(0), -1);
  EXPECT_EQ(Read(joined.GetMatrix(), 1, 4), 11.0);
  MatrixTaged flat;
  flat.Assign(Numbered(1, 2));
  joined.AppendColumns(a, flat);
  EXPECT_EQ(Read(joined.GetMatrix(), 0, 4), Read(flat.GetMatrix(), 0, 1));
  // Rows that the second one does not have are zero there.
  EXPECT_EQ(Read(joined.GetMatrix(), 1, 3), 0.0);
  EXPECT_EQ(Read(joined.GetMatrix(), 1, 4), 0.0);
  MatrixTaged tall;
  tall.Assign(Numbered(3, 1));
  EXPECT_THROW(joined.AppendColumns(a, tall), TensorExceptDimension);
}

}  // namespace
}  // namespace ostra_bundle
