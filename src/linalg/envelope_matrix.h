#pragma once

#include "linalg/vektor.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace vermo {

// One row of an envelope matrix: a contiguous span of columns. An element outside the span reads
// as 0 and is not writable. The buffer outlives its span and grows with slack on the side that is
// widened, so that widening step by step, and the next iteration, find it ready:
//
//   buffer   |....slack....|first ........ end|..slack..|
//            0             fOffset                      fCapacity
//
// A failed allocation throws ContainerException 2 and leaves the row as it was.
class CEnvelopeRow {
 public:
  [[nodiscard]] std::uint32_t First() const noexcept { return fFirst; }
  [[nodiscard]] std::uint32_t Count() const noexcept { return fCount; }
  // Behind the last column of the span.
  [[nodiscard]] std::uint32_t End() const noexcept { return fFirst + fCount; }
  [[nodiscard]] bool IsEmpty() const noexcept { return fCount == 0; }
  // Column minus first, as unsigned numbers: false on either side of the span.
  [[nodiscard]] bool Stores(std::uint32_t column) const noexcept {
    return column - fFirst < fCount;
  }

  [[nodiscard]] double At(std::uint32_t column) const noexcept {
    return Stores(column) ? *Place(column) : 0.0;
  }
  // The element of a column inside the span.
  [[nodiscard]] double& Element(std::uint32_t column) noexcept { return *Place(column); }

  [[nodiscard]] std::span<double> Elements() noexcept { return {fData.get() + fOffset, fCount}; }
  [[nodiscard]] std::span<const double> Elements() const noexcept {
    return {fData.get() + fOffset, fCount};
  }
  // The columns [first, end) of the span.
  [[nodiscard]] std::span<double> Columns(std::uint32_t first, std::uint32_t end) noexcept {
    return {Place(first), end - first};
  }
  [[nodiscard]] std::span<const double> Columns(std::uint32_t first,
                                                std::uint32_t end) const noexcept {
    return {Place(first), end - first};
  }

  // Makes the buffer large enough for so many elements. An empty row keeps its span empty; one
  // with elements is left alone.
  void Reserve(std::uint32_t count);
  // An empty span; the buffer stays.
  void Clear() noexcept { fCount = 0; }
  // The span becomes exactly [first, first + count): overlapping values are kept, new elements
  // are 0, elements outside are dropped.
  void Reshape(std::uint32_t first, std::uint32_t count);
  // The span becomes the union of itself and [first, first + count) with what lies between; new
  // elements are 0. An empty row takes the span as it is.
  void Widen(std::uint32_t first, std::uint32_t count);

 private:
  [[nodiscard]] double* Place(std::uint32_t column) const noexcept {
    return fData.get() + fOffset + (column - fFirst);
  }

  std::unique_ptr<double[]> fData;
  std::size_t fCapacity = 0;
  std::size_t fOffset = 0;
  std::uint32_t fCount = 0;
  std::uint32_t fFirst = 0;
};

// A symmetric matrix, lower triangle by rows. The element (i, j), j not above i, lies in row i.
class CEnvelopeMatrix {
 public:
  CEnvelopeMatrix() = default;
  virtual ~CEnvelopeMatrix() = default;
  CEnvelopeMatrix(CEnvelopeMatrix&&) = default;
  CEnvelopeMatrix& operator=(CEnvelopeMatrix&&) = default;

  [[nodiscard]] std::uint32_t Rows() const noexcept { return fSize; }
  // n empty rows; their buffers are kept.
  void Resize(std::uint32_t n);
  // The unit matrix: row k holds the single element 1 at column k.
  void SetIdentity(std::uint32_t n);
  // Writes the value into all stored elements.
  void Fill(double value) noexcept;

  [[nodiscard]] CEnvelopeRow& Row(std::uint32_t row) noexcept { return fRows[row]; }
  [[nodiscard]] const CEnvelopeRow& Row(std::uint32_t row) const noexcept { return fRows[row]; }

  // The stored element, 0 outside the span of the row.
  [[nodiscard]] double At(std::uint32_t row, std::uint32_t column) const noexcept {
    return fRows[row].At(column);
  }

  // The dense column i of the symmetric matrix: row i up to the diagonal, then column i of the
  // rows below. Marked temporary.
  [[nodiscard]] CVektor Column(std::uint32_t i) const;

 private:
  std::vector<CEnvelopeRow> fRows;  // at least fSize; those behind keep their buffers
  std::uint32_t fSize = 0;
};

}  // namespace vermo
