#pragma once

#include "linalg/envelope_matrix.h"
#include "linalg/tensor_matrix.h"

#include <cstdint>
#include <span>
#include <vector>

namespace vermo {

// The solver on the envelope: a symmetric Gaussian elimination that keeps the transformation F
// itself, F N transpose(F) = D with D diagonal. So x = transpose(F) D^-1 F b, and any element of
// the inverse is one sparse sum. N may be indefinite: rows of multipliers have zero diagonals, and
// a pivot search by row addition deals with those.

// Working memory of Factorize, kept between calls.
struct FactorizeWorkspace {
  struct ColumnEntry {
    std::uint32_t row;
    double value;
  };
  std::vector<std::uint32_t> firstWithColumn;  // rows that begin at a column, as linked lists
  std::vector<std::uint32_t> nextWithColumn;
  std::vector<std::uint32_t> active;  // rows from the present one on that store its column
  std::vector<ColumnEntry> column;    // non-zero elements of the present column
  std::vector<ColumnEntry> factor;    // non-zero elements of the present row of F
};

// Replaces N by its pivots on the diagonal and zeros below, F by the transformation and D by the
// reciprocal signed pivots. Throws KlException -39007 for an empty column, an empty row of F or a
// pivot of magnitude below 1e-20; N, F and D are then left as far as they came.
void Factorize(CEnvelopeMatrix& n,
               CEnvelopeMatrix& f,
               CVektor& d,
               bool pivotSearch,
               FactorizeWorkspace& workspace);

// x = transpose(F) D F b, marked temporary. Throws -39004 if the sizes differ.
[[nodiscard]] CVektor Solve(const CEnvelopeMatrix& f, const CVektor& d, const CVektor& rhs);
// The same into a vector that keeps its buffer when it has the size.
void SolveInto(CVektor& solution, const CEnvelopeMatrix& f, const CVektor& d, const CVektor& rhs);

// Element (i, j) of the inverse: the sum over k of F(k, i) D_k F(k, j).
[[nodiscard]] double InverseElement(const CEnvelopeMatrix& f,
                                    const CVektor& d,
                                    std::uint32_t i,
                                    std::uint32_t j);

// All InverseElement(i, i), i below the size of diagonal, in one pass over the rows of F: the same
// terms in the same order.
void DiagonalOfInverse(const CEnvelopeMatrix& f, const CVektor& d, std::span<double> diagonal);

// Fills the target with rows r0 to r0 + rows - 1 and columns c0 to c0 + cols - 1 of the inverse.
void InverseBlock(ostra_bundle::Matrix& target,
                  const CEnvelopeMatrix& f,
                  const CVektor& d,
                  std::uint32_t r0,
                  std::uint32_t rows,
                  std::uint32_t c0,
                  std::uint32_t cols);

// Fills N, on its envelope and for rows below unknowns, with the inverse; all else in N becomes 0.
// Throws -39004 if the sizes differ.
void ComputeInverse(CEnvelopeMatrix& n,
                    const CEnvelopeMatrix& f,
                    const CVektor& d,
                    std::uint32_t unknowns);

}  // namespace vermo
