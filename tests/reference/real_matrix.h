#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

namespace reference {

using Real = long double;

// A square matrix by rows in extended precision.
struct RealMatrix {
  std::uint32_t size = 0;
  std::vector<Real> elements;

  explicit RealMatrix(std::uint32_t n = 0) : size(n), elements(std::size_t{n} * n, 0) {}
  Real* operator[](std::uint32_t row) { return elements.data() + std::size_t{row} * size; }
  const Real* operator[](std::uint32_t row) const {
    return elements.data() + std::size_t{row} * size;
  }
};

// Scales rows and columns of a symmetric matrix alike until their largest elements are near 1, and
// returns the factors. An empty row keeps the factor 1.
inline std::vector<Real> Equilibrate(RealMatrix& a) {
  std::vector<Real> scale(a.size, 1);
  std::vector<Real> factor(a.size);
  for (int sweep = 0; sweep < 8; ++sweep) {
    for (std::uint32_t i = 0; i < a.size; ++i) {
      Real largest = 0;
      for (std::uint32_t j = 0; j < a.size; ++j) largest = std::max(largest, std::fabs(a[i][j]));
      factor[i] = largest > 0 ? 1 / std::sqrt(largest) : 1;
      scale[i] *= factor[i];
    }
    for (std::uint32_t i = 0; i < a.size; ++i)
      for (std::uint32_t j = 0; j < a.size; ++j) a[i][j] *= factor[i] * factor[j];
  }
  return scale;
}

// Gauss-Jordan with row pivoting on the equilibrated matrix. Throws std::runtime_error for a pivot
// of the size of rounding.
inline RealMatrix Inverse(RealMatrix a) {
  const std::uint32_t n = a.size;
  const std::vector<Real> scale = Equilibrate(a);
  std::vector<std::uint32_t> exchanged(n);
  for (std::uint32_t k = 0; k < n; ++k) {
    std::uint32_t p = k;
    for (std::uint32_t i = k; i < n; ++i)
      if (std::fabs(a[i][k]) > std::fabs(a[p][k])) p = i;
    if (!(std::fabs(a[p][k]) > 1e-18L)) throw std::runtime_error("reference: singular");
    exchanged[k] = p;
    if (p != k) std::swap_ranges(a[k], a[k] + n, a[p]);
    const Real pivot = 1 / a[k][k];
    a[k][k] = 1;
    for (std::uint32_t j = 0; j < n; ++j) a[k][j] *= pivot;
    for (std::uint32_t i = 0; i < n; ++i) {
      const Real factor = a[i][k];
      if (i == k || factor == 0) continue;
      a[i][k] = 0;
      for (std::uint32_t j = 0; j < n; ++j) a[i][j] -= factor * a[k][j];
    }
  }
  for (std::uint32_t k = n; k-- > 0;)
    if (exchanged[k] != k)
      for (std::uint32_t i = 0; i < n; ++i) std::swap(a[i][k], a[i][exchanged[k]]);
  for (std::uint32_t i = 0; i < n; ++i)
    for (std::uint32_t j = 0; j < n; ++j) a[i][j] *= scale[i] * scale[j];
  return a;
}

}  // namespace reference
