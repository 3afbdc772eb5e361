#pragma once

#include "linalg/vektor.h"

#include <cstdint>

namespace vermo {

// A strided view of a matrix; owns nothing.
class CMatrixSlice {
 public:
  virtual ~CMatrixSlice() = default;
  CMatrixSlice(const CMatrixSlice&) = default;
  CMatrixSlice& operator=(const CMatrixSlice&) = default;

  [[nodiscard]] std::uint32_t Rows() const noexcept { return fRows; }
  [[nodiscard]] std::uint32_t Cols() const noexcept { return fCols; }

  // -1003 unless row <= Rows() and column <= Cols(). The index one past the end passes; a matrix
  // that owns its elements keeps room for it, so that the access stays in memory of its own.
  [[nodiscard]] double& At(std::uint32_t row, std::uint32_t column);
  [[nodiscard]] double At(std::uint32_t row, std::uint32_t column) const;

  // Without a bounds test.
  [[nodiscard]] double Element(std::uint32_t row, std::uint32_t column) const noexcept {
    return fData[Offset(row, column)];
  }
  // View of a row; no bounds test.
  [[nodiscard]] CVektorSlice Row(std::uint32_t row) noexcept;

  // -1004 if the first index is not below Rows(); the second is not tested. Swaps the first
  // Rows() elements of the two rows: by the row count, which is the whole row of a square matrix
  // only. Never reaches past the elements of a row.
  void SwapRows(std::uint32_t first, std::uint32_t second);

  // By orthogonalising the rows, the longest first: sign times the product of their lengths.
  // -1004 with more rows than columns or without elements; 0 for a singular matrix.
  [[nodiscard]] double Determinant() const;

 protected:
  CMatrixSlice() = default;
  [[nodiscard]] std::size_t Offset(std::uint32_t row, std::uint32_t column) const noexcept {
    return std::size_t{row} * fRowStride + std::size_t{column} * fColStride;
  }

  double* fData = nullptr;
  std::uint32_t fRows = 0;
  std::uint32_t fCols = 0;
  std::uint32_t fRowStride = 0;
  std::uint32_t fColStride = 0;
};

// A matrix that owns its elements, by rows.
class CMatrix : public CMatrixSlice {
 public:
  CMatrix() = default;
  // Throws the code of Allocate if it is not 0.
  CMatrix(std::uint32_t rows, std::uint32_t cols);
  CMatrix(const CMatrix&) = delete;
  CMatrix& operator=(const CMatrix&) = delete;
  ~CMatrix() override;

  // Releases the buffer, all sizes and strides 0.
  void Free() noexcept;
  // Releases the buffer and allocates another, contents undefined. 0; -1002 if the 32-bit product
  // of rows and columns is 0; -1001 when the allocation fails.
  std::int32_t Allocate(std::uint32_t rows, std::uint32_t cols) noexcept;
  // A copy of shape and elements; the code of Allocate, so -1002 for an empty source.
  std::int32_t Copy(const CMatrixSlice& source) noexcept;
  // Copy, its code thrown if it is not 0.
  void Assign(const CMatrixSlice& source);
};

}  // namespace vermo
