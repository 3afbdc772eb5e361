#include "linalg/tensor_matrix.h"

#include "linalg/tensor_exception.h"

namespace ostra_bundle {

Matrix::Implementation::~Implementation() { delete[] fData; }

std::pair<std::uint32_t, std::uint32_t> Matrix::Implementation::Dimensions() const noexcept {
  return {fRows, fCols};
}

void Matrix::Implementation::Allocate(std::pair<std::uint32_t, std::uint32_t> sizes) {
  if (sizes.first == 0 || sizes.second == 0) {
    Release();
    return;
  }
  auto* data = new double[std::size_t{sizes.first} * sizes.second];
  delete[] fData;
  fData = data;
  fRows = sizes.first;
  fCols = sizes.second;
}

void Matrix::Implementation::Release() noexcept {
  delete[] fData;
  fData = nullptr;
  fRows = fCols = 0;
}

Matrix::Matrix(std::uint32_t rows, std::uint32_t cols) { Resize(rows, cols); }

Matrix::Matrix(const Matrix& other) noexcept
    : fRows(other.fRows),
      fCols(other.fCols),
      fRowStride(other.fRowStride),
      fColStride(other.fColStride),
      fData(other.fData),
      fImplementation(other.fImplementation) {
  if (fImplementation != nullptr) ++fImplementation->fRefCount;
}

Matrix::~Matrix() { Release(); }

Matrix& Matrix::operator=(const Matrix& other) noexcept {
  const bool sameView = fImplementation == other.fImplementation && fData == other.fData &&
                        fRows == other.fRows && fCols == other.fCols &&
                        fRowStride == other.fRowStride && fColStride == other.fColStride;
  if (!sameView) {
    Matrix copy(other);
    Swap(copy);
  }
  return *this;
}

void Matrix::Release() noexcept {
  if (fImplementation != nullptr && --fImplementation->fRefCount == 0) delete fImplementation;
  fImplementation = nullptr;
  fData = nullptr;
  fRows = fCols = 0;
  fRowStride = fColStride = kNoStride;
}

void Matrix::Swap(Matrix& other) noexcept {
  std::swap(fRows, other.fRows);
  std::swap(fCols, other.fCols);
  std::swap(fRowStride, other.fRowStride);
  std::swap(fColStride, other.fColStride);
  std::swap(fData, other.fData);
  std::swap(fImplementation, other.fImplementation);
}

void Matrix::Detach() {
  if (fImplementation == nullptr || fImplementation->fRefCount < 2) return;
  Matrix own(fRows, fCols);
  for (std::uint32_t r = 0; r < fRows; ++r)
    for (std::uint32_t c = 0; c < fCols; ++c)
      own.At(r, c) = static_cast<const Matrix&>(*this).At(r, c);
  Swap(own);
}

void Matrix::Resize(std::uint32_t rows, std::uint32_t cols) {
  if (rows == 0 || cols == 0) {
    Release();
    return;
  }
  if (rows == fRows && cols == fCols) return;
  auto* implementation = new Implementation;
  try {
    implementation->Allocate({rows, cols});
  } catch (...) {
    delete implementation;
    throw;
  }
  Release();
  fImplementation = implementation;
  fData = implementation->fData;
  fRows = rows;
  fCols = cols;
  fRowStride = cols;
  fColStride = 1;
}

void Matrix::Fill(double value) {
  Detach();
  for (std::uint32_t r = 0; r < fRows; ++r)
    for (std::uint32_t c = 0; c < fCols; ++c) At(r, c) = value;
}

void Matrix::SetIdentity(std::uint32_t n) {
  Resize(n, n);
  Fill(0.0);
  for (std::uint32_t i = 0; i < n; ++i) At(i, i) = 1.0;
}

void Matrix::CopyBlock(const Matrix& source) {
  if (source.fRows > fRows || source.fCols > fCols) throw TensorExceptDimension();
  Detach();
  for (std::uint32_t r = 0; r < source.fRows; ++r)
    for (std::uint32_t c = 0; c < source.fCols; ++c) At(r, c) = source.At(r, c);
}

Matrix Matrix::Multiply(const Matrix& a, const Matrix& b) {
  if (a.fRows == 0) return {};
  if (a.fCols != b.fRows) throw TensorExceptDimension();
  Matrix product(a.fRows, b.fCols);
  for (std::uint32_t r = 0; r < product.fRows; ++r)
    for (std::uint32_t c = 0; c < product.fCols; ++c) {
      double sum = 0.0;
      for (std::uint32_t k = 0; k < a.fCols; ++k) sum += a.At(r, k) * b.At(k, c);
      product.At(r, c) = sum;
    }
  return product;
}

void MatrixTaged::Resize(std::uint32_t rows, std::uint32_t cols) {
  fMatrix.Resize(rows, cols);
  ResetTags();
}

void MatrixTaged::Assign(const Matrix& matrix) {
  fMatrix = matrix;
  ResetTags();
}

void MatrixTaged::SetIdentity(std::uint32_t n) {
  fMatrix.SetIdentity(n);
  ResetTags();
}

void MatrixTaged::ResetTags() {
  fColumnTags.assign(fMatrix.Cols(), kNoTag);
  fRowTags.assign(fMatrix.Rows(), kNoTag);
}

void MatrixTaged::Multiply(const MatrixTaged& a, const MatrixTaged& b) {
  // The operands may be this object.
  Matrix product = Matrix::Multiply(a.fMatrix, b.fMatrix);
  std::vector<std::int32_t> columnTags = b.fColumnTags;
  std::vector<std::int32_t> rowTags = a.fRowTags;
  fMatrix.Swap(product);
  fColumnTags.swap(columnTags);
  fRowTags.swap(rowTags);
}

void MatrixTaged::AppendColumns(const MatrixTaged& a, const MatrixTaged& b) {
  if (b.RowCount() > a.RowCount()) throw TensorExceptDimension();
  Matrix joined(a.RowCount(), a.ColumnCount() + b.ColumnCount());
  joined.Fill(0.0);
  for (std::uint32_t c = 0; c < a.ColumnCount(); ++c)
    for (std::uint32_t r = 0; r < a.RowCount(); ++r) joined.At(r, c) = a.fMatrix.At(r, c);
  for (std::uint32_t c = 0; c < b.ColumnCount(); ++c)
    for (std::uint32_t r = 0; r < b.RowCount(); ++r)
      joined.At(r, a.ColumnCount() + c) = b.fMatrix.At(r, c);
  std::vector<std::int32_t> columnTags = a.fColumnTags;
  columnTags.insert(columnTags.end(), b.fColumnTags.begin(), b.fColumnTags.end());
  fMatrix.Swap(joined);
  fColumnTags.swap(columnTags);
  fRowTags.assign(fMatrix.Rows(), kNoTag);
}

}  // namespace ostra_bundle
