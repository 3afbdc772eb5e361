#pragma once

#include <cstddef>
#include <vector>

namespace cardo::bench {

// A symmetric, positive definite matrix in blocks, stored where it is not zero and below its
// diagonal only; and its inverse in the same places.
class SparseSymmetric {
 public:
  // Block i of the diagonal has widths[i] rows; rows[c] lists those of the blocks in column c,
  // ascending, c itself first. All elements are 0.
  SparseSymmetric(const std::vector<int>& widths, std::vector<std::vector<int>> rows);

  // Place of a block of the pattern among those of its column, searched from a place on.
  [[nodiscard]] std::size_t Place(int row, std::size_t column, std::size_t from = 0) const;
  // First element of the block at a place; its columns lie Stride(column) elements apart. Blocks
  // of the diagonal are full.
  [[nodiscard]] double* Block(std::size_t column, std::size_t place);
  [[nodiscard]] int Stride(std::size_t column) const;

  // Replaces each element by that of the inverse; above the diagonal none is read. Throws
  // std::runtime_error if the matrix is not positive definite.
  void Invert();

 private:
  std::vector<std::vector<int>> fRows;
  std::vector<std::vector<int>> fOffsets;  // of a block's first element, as fRows
  // Columns of single elements, one behind the other.
  std::vector<int> fColumns, fIndices;
  std::vector<double> fValues;
  std::vector<int> fFirst;  // column of a block's first element
};

}  // namespace cardo::bench
