// Dense vectors and matrices where they are constant, moved from or not numbers.

#include "checks/failure_codes.h"
#include "checks/kl_exception.h"
#include "linalg/matrix_dense.h"
#include "linalg/vektor.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <utility>

namespace vermo {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

CMatrix& Filled(CMatrix& matrix) {
  for (std::uint32_t r = 0; r < matrix.Rows(); ++r)
    for (std::uint32_t c = 0; c < matrix.Cols(); ++c) matrix.At(r, c) = 10.0 * r + c;
  return matrix;
}

TEST(CMatrixSlice, ConstantElementsHaveTheSameBounds) {
  CMatrix elements(2, 3);
  const CMatrixSlice& matrix = Filled(elements);
  EXPECT_EQ(matrix.At(1, 2), 12.0);
  EXPECT_EQ(matrix.At(0, 1), 1.0);
  // One past the end stays in the memory of the matrix.
  EXPECT_EQ(matrix.At(2, 3), 0.0);
  for (const auto& [row, column] : {std::pair{3U, 0U}, {0U, 4U}, {3U, 4U}}) try {
      static_cast<void>(matrix.At(row, column));
      ADD_FAILURE() << row << ' ' << column;
    } catch (const KlException& failure) {
      EXPECT_EQ(failure.GetCode(), failure::kMatrixIndex);
    }
}

TEST(CMatrixSlice, DeterminantOfNotANumberIsZeroWithoutFailure) {
  CMatrix matrix(2, 2);
  Filled(matrix).At(0, 0) = kNaN;
  EXPECT_EQ(matrix.Determinant(), 0.0);
}

TEST(CVektor, MovingTakesTheBufferAndLeavesNothing) {
  CVektor source;
  ASSERT_EQ(source.Allocate(2), 0);
  source[0] = 3.0;
  source[1] = 4.0;
  const double* buffer = source.Span().data();
  CVektor target(std::move(source));
  EXPECT_EQ(target.Span().data(), buffer);
  EXPECT_EQ(target.Norm(), 5.0);
  EXPECT_EQ(source.Size(), 0U);  // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
  CVektor& same = target;
  target = std::move(same);
  EXPECT_EQ(target.Size(), 2U);
  EXPECT_EQ(target.Span().data(), buffer);
}

TEST(CVektor, CopyOfAnEmptyVectorIsEmpty) {
  const CVektor empty;
  const CVektor copy(empty);  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(copy.Size(), 0U);
}

}  // namespace
}  // namespace vermo
