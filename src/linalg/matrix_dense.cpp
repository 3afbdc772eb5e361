#include "linalg/matrix_dense.h"

#include "checks/failure_codes.h"
#include "checks/kl_exception.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

namespace vermo {
namespace {

// A longest row below this length makes a matrix singular.
constexpr double kSmallestRow = 1e-15;
constexpr std::size_t kMostElements = PTRDIFF_MAX / sizeof(double);

}  // namespace

double& CMatrixSlice::At(std::uint32_t row, std::uint32_t column) {
  if (row > fRows || column > fCols) throw KlException(failure::kMatrixIndex);
  return fData[Offset(row, column)];
}

double CMatrixSlice::At(std::uint32_t row, std::uint32_t column) const {
  if (row > fRows || column > fCols) throw KlException(failure::kMatrixIndex);
  return fData[Offset(row, column)];
}

CVektorSlice CMatrixSlice::Row(std::uint32_t row) noexcept {
  return {fData + std::size_t{row} * fRowStride, fCols, fColStride};
}

void CMatrixSlice::SwapRows(std::uint32_t first, std::uint32_t second) {
  if (first >= fRows) throw KlException(failure::kMatrixShape);
  const std::uint32_t count = std::min(fRows, fCols);
  CVektorSlice a = Row(first);
  CVektorSlice b = Row(second);
  for (std::uint32_t i = 0; i < count; ++i) std::swap(a[i], b[i]);
}

double CMatrixSlice::Determinant() const {
  if (fRows > fCols || fRows < 1) throw KlException(failure::kMatrixShape);
  CMatrix work;
  work.Assign(*this);
  double product = 1.0;
  for (std::uint32_t k = 0; k < fRows; ++k) {
    std::uint32_t longest = k;
    double norm = work.Row(k).Norm();
    for (std::uint32_t j = k + 1; j < fRows; ++j) {
      const double candidate = work.Row(j).Norm();
      if (candidate > norm) {
        norm = candidate;
        longest = j;
      }
    }
    if (norm < kSmallestRow) return 0.0;
    if (longest != k) {
      work.SwapRows(k, longest);
      product = -product;
    }
    const CVektorSlice direction = work.Row(k);
    for (std::uint32_t j = k + 1; j < fRows; ++j) {
      CVektorSlice row = work.Row(j);
      try {
        direction.Orthogonalize(row);
      } catch (const KlException&) {
        return 0.0;
      }
    }
  }
  for (std::uint32_t k = 0; k < fRows; ++k) product *= work.Row(k).Norm();
  return product;
}

CMatrix::CMatrix(std::uint32_t rows, std::uint32_t cols) {
  if (const std::int32_t code = Allocate(rows, cols); code != 0) throw KlException(code);
}

CMatrix::~CMatrix() { delete[] fData; }

void CMatrix::Free() noexcept {
  delete[] fData;
  fData = nullptr;
  fRows = fCols = fRowStride = fColStride = 0;
}

std::int32_t CMatrix::Allocate(std::uint32_t rows, std::uint32_t cols) noexcept {
  Free();
  const std::uint32_t product = rows * cols;
  if (product == 0) return failure::kMatrixEmpty;
  // One row and one element more than the matrix has: the index one past the end is allowed.
  const std::size_t guarded = (std::size_t{rows} + 1) * cols + 1;
  // Of more than an array can have new would throw, std::nothrow or not.
  if (guarded > kMostElements) return failure::kMatrixAllocation;
  fData = new (std::nothrow) double[guarded];
  if (fData == nullptr) return failure::kMatrixAllocation;
  std::fill(fData + std::size_t{rows} * cols, fData + guarded, 0.0);
  fRows = rows;
  fCols = cols;
  fRowStride = cols;
  fColStride = 1;
  return 0;
}

std::int32_t CMatrix::Copy(const CMatrixSlice& source) noexcept {
  if (const std::int32_t code = Allocate(source.Rows(), source.Cols()); code != 0) return code;
  for (std::uint32_t r = 0; r < fRows; ++r)
    for (std::uint32_t c = 0; c < fCols; ++c) fData[Offset(r, c)] = source.Element(r, c);
  return 0;
}

void CMatrix::Assign(const CMatrixSlice& source) {
  if (const std::int32_t code = Copy(source); code != 0) throw KlException(code);
}

}  // namespace vermo
