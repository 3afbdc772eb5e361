#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace ostra_bundle {

// A matrix of doubles that shares its buffer by reference count and copies on write. The count is
// plain: a matrix and its copies stay on one thread. Writers call Detach before they write
// through At.
class Matrix {
 public:
  Matrix() noexcept = default;
  // Contents undefined; empty when rows or columns are 0.
  Matrix(std::uint32_t rows, std::uint32_t cols);
  Matrix(const Matrix& other) noexcept;
  ~Matrix();
  // No action when both are the same view already.
  Matrix& operator=(const Matrix& other) noexcept;

  [[nodiscard]] std::uint32_t Rows() const noexcept { return fRows; }
  [[nodiscard]] std::uint32_t Cols() const noexcept { return fCols; }
  [[nodiscard]] bool IsEmpty() const noexcept { return fImplementation == nullptr; }

  // Gives up the share of the buffer; the matrix is empty then.
  void Release() noexcept;
  void Swap(Matrix& other) noexcept;
  // A buffer of its own.
  void Detach();

  [[nodiscard]] double& At(std::uint32_t row, std::uint32_t column) noexcept {
    assert(row < fRows && column < fCols);
    return fData[Offset(row, column)];
  }
  [[nodiscard]] double At(std::uint32_t row, std::uint32_t column) const noexcept {
    assert(row < fRows && column < fCols);
    return fData[Offset(row, column)];
  }

  // No action for the present shape; otherwise a new buffer, contents undefined, or none when
  // rows or columns are 0.
  void Resize(std::uint32_t rows, std::uint32_t cols);
  void Fill(double value);
  void SetIdentity(std::uint32_t n);
  // Copies the source into the top left. Throws TensorExceptDimension when it is larger.
  void CopyBlock(const Matrix& source);
  // a times b; empty when a has no rows. Throws TensorExceptDimension unless the columns of a
  // equal the rows of b.
  [[nodiscard]] static Matrix Multiply(const Matrix& a, const Matrix& b);

  // The shared buffer.
  class Implementation {
   public:
    Implementation() noexcept = default;
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;
    virtual ~Implementation();
    [[nodiscard]] virtual std::pair<std::uint32_t, std::uint32_t> Dimensions() const noexcept;
    // With both sizes non-zero a new buffer of that shape, contents undefined; otherwise none.
    virtual void Allocate(std::pair<std::uint32_t, std::uint32_t> sizes);
    virtual void Release() noexcept;

    std::uint32_t fRefCount = 1;
    std::uint32_t fRows = 0;
    std::uint32_t fCols = 0;
    double* fData = nullptr;
  };

 private:
  static constexpr std::uint32_t kNoStride = 0xFFFFFFFF;

  [[nodiscard]] std::size_t Offset(std::uint32_t row, std::uint32_t column) const noexcept {
    return std::size_t{row} * fRowStride + std::size_t{column} * fColStride;
  }

  std::uint32_t fRows = 0;
  std::uint32_t fCols = 0;
  std::uint32_t fRowStride = kNoStride;
  std::uint32_t fColStride = kNoStride;
  double* fData = nullptr;
  Implementation* fImplementation = nullptr;
};

// A Jacobian: a matrix whose columns carry the numbers of the unknowns they belong to, -1 for
// none. Rows carry tags, too.
class MatrixTaged {
 public:
  static constexpr std::int32_t kNoTag = -1;

  virtual ~MatrixTaged() = default;

  // All of these reset the tags.
  void Resize(std::uint32_t rows, std::uint32_t cols);
  void Assign(const Matrix& matrix);
  void SetIdentity(std::uint32_t n);
  void ResetTags();

  // No bounds test.
  void SetColumnTag(std::uint32_t column, std::int32_t tag) noexcept { fColumnTags[column] = tag; }
  [[nodiscard]] std::int32_t GetColumnTag(std::uint32_t column) const noexcept {
    return fColumnTags[column];
  }
  void SetRowTag(std::uint32_t row, std::int32_t tag) noexcept { fRowTags[row] = tag; }
  [[nodiscard]] std::int32_t GetRowTag(std::uint32_t row) const noexcept { return fRowTags[row]; }
  [[nodiscard]] std::uint32_t ColumnCount() const noexcept {
    return static_cast<std::uint32_t>(fColumnTags.size());
  }
  [[nodiscard]] std::uint32_t RowCount() const noexcept {
    return static_cast<std::uint32_t>(fRowTags.size());
  }

  [[nodiscard]] Matrix& GetMatrix() noexcept { return fMatrix; }
  [[nodiscard]] const Matrix& GetMatrix() const noexcept { return fMatrix; }

  // Becomes a times b, the chain rule: row tags of a, column tags of b.
  void Multiply(const MatrixTaged& a, const MatrixTaged& b);
  // Becomes a and b side by side with their column tags; row tags are reset. Throws
  // TensorExceptDimension when b has more rows than a.
  void AppendColumns(const MatrixTaged& a, const MatrixTaged& b);

 private:
  Matrix fMatrix;
  std::vector<std::int32_t> fColumnTags;
  std::vector<std::int32_t> fRowTags;
};

}  // namespace ostra_bundle
