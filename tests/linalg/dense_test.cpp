#include "checks/kl_exception.h"
#include "linalg/matrix_dense.h"
#include "linalg/vektor.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <utility>
#include <vector>

namespace vermo {
namespace {

const double kNan = std::numeric_limits<double>::quiet_NaN();

template <typename Action>
std::int32_t CodeOf(Action action) {
  try {
    action();
  } catch (const KlException& failure) {
    return failure.GetCode();
  }
  return 0;
}

CVektor Vector(const std::vector<double>& elements) {
  CVektor vector;
  if (!elements.empty()) {
    EXPECT_EQ(vector.Allocate(static_cast<std::uint32_t>(elements.size())), 0);
  }
  for (std::uint32_t i = 0; i < elements.size(); ++i) vector[i] = elements[i];
  return vector;
}

TEST(CVektor, AllocateOfNothingLeavesAnEmptyVectorAndTellsSo) {
  CVektor vector = Vector({1.0});
  EXPECT_EQ(vector.Allocate(0), -2002);
  EXPECT_EQ(vector.Size(), 0U);
}

TEST(CVektor, CopyTakesElementsAndRefusesAnEmptySource) {
  const CVektor source = Vector({1.0, 2.0});
  CVektor copy;
  EXPECT_EQ(copy.Copy(source), 0);
  EXPECT_EQ(copy[1], 2.0);
  EXPECT_EQ(copy.Copy(CVektor()), -2002);
  EXPECT_EQ(copy.Size(), 0U);
}

TEST(CVektor, CopyFollowsTheStride) {
  double data[] = {1.0, 9.0, 2.0, 9.0, 3.0};
  const CVektorSlice slice(data, 3, 2);
  CVektor copy;
  EXPECT_EQ(copy.Copy(slice), 0);
  EXPECT_EQ(copy[2], 3.0);
}

TEST(CVektor, AssignmentOfAnEmptyVectorThrowsUnlessItIsTemporary) {
  CVektor target = Vector({1.0});
  const CVektor empty;
  EXPECT_EQ(CodeOf([&] { target = empty; }), -2002);
  CVektor temporary;
  temporary.SetTemporary(true);
  target = Vector({1.0});
  const CVektor& source = temporary;
  EXPECT_EQ(CodeOf([&] { target = source; }), 0);
  EXPECT_EQ(target.Size(), 0U);
}

TEST(CVektor, TemporaryGivesItsBufferAway) {
  CVektor source = Vector({1.0, 2.0});
  const double* data = source.Span().data();
  source.SetTemporary(true);
  CVektor target;
  const CVektor& constant = source;
  target = constant;
  EXPECT_EQ(target.Span().data(), data);
  EXPECT_EQ(source.Size(), 0U);
  EXPECT_TRUE(target.IsTemporary());
  const CVektor copy(target);
  EXPECT_EQ(copy.Span().data(), data);
  EXPECT_EQ(target.Size(), 0U);
}

TEST(CVektor, CopyAndAssignmentDuplicateWhatIsNotTemporary) {
  const CVektor source = Vector({1.0, 2.0});
  CVektor copy(source);
  copy[0] = 7.0;
  EXPECT_EQ(source[0], 1.0);
  CVektor assigned = Vector({9.0});
  assigned = source;
  assigned[1] = 8.0;
  EXPECT_EQ(assigned.Size(), 2U);
  EXPECT_EQ(assigned[0], 1.0);
  EXPECT_EQ(source[1], 2.0);
  CVektor self = Vector({4.0});
  const CVektor& alias = self;
  self = alias;
  EXPECT_EQ(self[0], 4.0);
}

TEST(CVektor, FreeReleases) {
  CVektor vector = Vector({1.0});
  vector.Free();
  EXPECT_EQ(vector.Size(), 0U);
}

TEST(CVektorSlice, EmptySliceHasNoLengthAndNoProduct) {
  CVektorSlice empty(nullptr, 0, 1);
  empty.Fill(1.0);
  EXPECT_EQ(empty.Norm(), 0.0);
  EXPECT_EQ(empty.Dot(empty), 0.0);
}

TEST(CVektorSlice, FillFollowsTheStride) {
  double data[] = {0.0, 1.0, 0.0, 1.0};
  CVektorSlice(data, 2, 2).Fill(5.0);
  EXPECT_EQ(data[0], 5.0);
  EXPECT_EQ(data[1], 1.0);
  EXPECT_EQ(data[2], 5.0);
}

TEST(CVektorSlice, NormAndDot) {
  const CVektor a = Vector({3.0, 0.0, 4.0});
  const CVektor b = Vector({1.0, 2.0, 0.5});
  EXPECT_DOUBLE_EQ(a.Norm(), 5.0);
  EXPECT_DOUBLE_EQ(a.Dot(b), 5.0);
  EXPECT_TRUE(std::isnan(Vector({1.0, kNan}).Norm()));
  EXPECT_EQ(CodeOf([&] { static_cast<void>(a.Dot(Vector({1.0}))); }), -2005);
}

TEST(CVektorSlice, OrthogonalizeTakesThePartAlongTheDirectionOut) {
  const CVektor a = Vector({2.0, 0.0});
  CVektor b = Vector({3.0, 4.0});
  a.Orthogonalize(b);
  EXPECT_DOUBLE_EQ(b[0], 0.0);
  EXPECT_DOUBLE_EQ(b[1], 4.0);
  CVektor shorter = Vector({1.0});
  EXPECT_EQ(CodeOf([&] { a.Orthogonalize(shorter); }), -2005);
  EXPECT_EQ(CodeOf([&] { Vector({1e-20, 0.0}).Orthogonalize(b); }), -2007);
  EXPECT_EQ(CodeOf([&] { Vector({1.1e-20, 0.0}).Orthogonalize(b); }), 0);
  EXPECT_EQ(CodeOf([&] { Vector({kNan, 0.0}).Orthogonalize(b); }), -2007);
}

TEST(CVektorSlice, NormalizeRefusesExactlyZeroOnly) {
  CVektor a = Vector({3.0, 4.0});
  a.Normalize();
  EXPECT_DOUBLE_EQ(a[1], 0.8);
  CVektor tiny = Vector({1e-100});
  EXPECT_EQ(CodeOf([&] { tiny.Normalize(); }), 0);
  EXPECT_EQ(tiny[0], 1.0);
  CVektor zero = Vector({0.0, 0.0});
  EXPECT_EQ(CodeOf([&] { zero.Normalize(); }), -2007);
}

void Assign(CMatrix& matrix, const std::vector<std::vector<double>>& rows) {
  ASSERT_EQ(matrix.Allocate(static_cast<std::uint32_t>(rows.size()),
                            static_cast<std::uint32_t>(rows[0].size())),
            0);
  for (std::uint32_t r = 0; r < rows.size(); ++r)
    for (std::uint32_t c = 0; c < rows[r].size(); ++c) matrix.At(r, c) = rows[r][c];
}

double DeterminantOf(const std::vector<std::vector<double>>& rows) {
  CMatrix matrix;
  Assign(matrix, rows);
  return matrix.Determinant();
}

TEST(CMatrix, AllocateOfMoreThanAnyMemoryHoldsLeavesAnEmptyMatrixAndTellsSo) {
  CMatrix matrix(2, 2);
  // The 32-bit product is 1, the number of elements nearly 2^64.
  EXPECT_EQ(matrix.Allocate(0xFFFFFFFF, 0xFFFFFFFF), -1001);
  EXPECT_EQ(matrix.Rows(), 0U);
  EXPECT_EQ(matrix.Cols(), 0U);
}

TEST(CMatrix, AllocationCodes) {
  CMatrix matrix;
  EXPECT_EQ(matrix.Allocate(0, 3), -1002);
  EXPECT_EQ(matrix.Allocate(65536, 65536), -1002);  // the product is 0 in 32 bits
  EXPECT_EQ(CodeOf([] { CMatrix(0, 1); }), -1002);
  EXPECT_EQ(matrix.Allocate(2, 3), 0);
  matrix.Free();
  EXPECT_EQ(matrix.Rows(), 0U);
}

TEST(CMatrix, CopyRefusesAnEmptySource) {
  CMatrix matrix;
  EXPECT_EQ(matrix.Copy(CMatrix()), -1002);
  EXPECT_EQ(CodeOf([&] { matrix.Assign(CMatrix()); }), -1002);
  CMatrix source;
  Assign(source, {{1.0, 2.0}});
  matrix.Assign(source);
  EXPECT_EQ(matrix.At(0, 1), 2.0);
}

TEST(CMatrixSlice, IndexOnePastTheEndPassesAndTwoFail) {
  CMatrix matrix;
  Assign(matrix, {{1.0, 2.0}, {3.0, 4.0}});
  EXPECT_EQ(CodeOf([&] { static_cast<void>(matrix.At(2, 0)); }), 0);
  EXPECT_EQ(CodeOf([&] { static_cast<void>(matrix.At(2, 2)); }), 0);
  EXPECT_EQ(CodeOf([&] { static_cast<void>(matrix.At(3, 0)); }), -1003);
  EXPECT_EQ(CodeOf([&] { static_cast<void>(matrix.At(0, 3)); }), -1003);
}

TEST(CMatrixSlice, SwapRowsGoesByTheRowCount) {
  CMatrix matrix;
  Assign(matrix, {{1.0, 2.0, 3.0}, {4.0, 5.0, 6.0}});
  matrix.SwapRows(0, 1);
  EXPECT_EQ(matrix.At(0, 0), 4.0);
  EXPECT_EQ(matrix.At(0, 1), 5.0);
  EXPECT_EQ(matrix.At(0, 2), 3.0);  // beyond the row count
  EXPECT_EQ(CodeOf([&] { matrix.SwapRows(2, 0); }), -1004);
}

// The value is the volume; the sign counts the swaps of the longest row to the front and nothing
// else.
TEST(CMatrixSlice, DeterminantIsTheVolumeWithTheSignOfTheSwaps) {
  EXPECT_NEAR(DeterminantOf({{3.0, 1.0}, {1.0, 2.0}}), 5.0, 1e-14);
  EXPECT_NEAR(DeterminantOf({{1.0, 2.0}, {3.0, 1.0}}), -5.0, 1e-14);
  EXPECT_NEAR(DeterminantOf({{0.0, 5.0}, {1.0, 0.0}}), 5.0, 1e-14);
  // Longest first: the third row, then of the two others, made orthogonal, the first.
  EXPECT_NEAR(
      std::fabs(DeterminantOf({{1.0, 2.0, 3.0}, {4.0, 5.0, 6.0}, {7.0, 8.0, 10.0}})), 3.0, 1e-12);
}

TEST(CMatrixSlice, RowsBelowTheSmallestLengthAreSingular) {
  EXPECT_EQ(DeterminantOf({{1e-15}}), 1e-15);
  EXPECT_EQ(DeterminantOf({{0.999e-15}}), 0.0);
}

TEST(CMatrixSlice, SingularMatrixHasDeterminantZeroWithoutFailure) {
  EXPECT_EQ(DeterminantOf({{1.0, 2.0}, {0.0, 0.0}}), 0.0);
  EXPECT_EQ(DeterminantOf({{0.0}}), 0.0);
  EXPECT_EQ(DeterminantOf({{1e-16, 0.0}, {0.0, 1e-16}}), 0.0);
}

TEST(CMatrixSlice, DeterminantNeedsAtLeastAsManyColumns) {
  CMatrix tall;
  Assign(tall, {{1.0}, {2.0}});
  EXPECT_EQ(CodeOf([&] { static_cast<void>(tall.Determinant()); }), -1004);
  EXPECT_EQ(CodeOf([] { static_cast<void>(CMatrix().Determinant()); }), -1004);
}

}  // namespace
}  // namespace vermo
