#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace vermo {

// Dense symmetric indefinite systems: P S A S P^T = L D L^T with 1 x 1 and 2 x 2 pivots after Bunch
// and Kaufman (1977), backward stable, on the matrix equilibrated by S, powers of two that bring
// the largest element of every row near 1: units do not matter to the choice of the pivots.
class IndefiniteFactor {
 public:
  // Factorises the lower triangle of an n x n column-major matrix. Throws KlException -39007 when a
  // pivot is exactly zero, as for an empty column.
  void Factorize(std::span<const double> matrix, std::uint32_t n);

  // x := A^-1 x
  void Solve(double* x) const;
  // The whole inverse, column-major, both triangles.
  void Inverse(std::vector<double>& inverse) const;

 private:
  [[nodiscard]] double& L(std::uint32_t i, std::uint32_t j) noexcept {
    return fMatrix[i + std::size_t{j} * fSize];
  }
  [[nodiscard]] double L(std::uint32_t i, std::uint32_t j) const noexcept {
    return fMatrix[i + std::size_t{j} * fSize];
  }
  void Equilibrate();
  // Exchanges rows and columns k and p of the part that is not eliminated yet, and the rows of L.
  void Exchange(std::uint32_t k, std::uint32_t p);
  void EliminateOne(std::uint32_t k);
  void EliminateTwo(std::uint32_t k);

  std::vector<double> fMatrix;  // L below the diagonal, D on it and, for 2 x 2 pivots, beside it
  std::vector<double> fScale;
  std::vector<std::uint32_t> fExchanges;
  std::vector<bool> fIsDouble;  // the pivot at k takes two columns
  std::uint32_t fSize = 0;
};

}  // namespace vermo
