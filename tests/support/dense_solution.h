#pragma once

#include "reference/real_matrix.h"
#include "support/system_tape.h"

#include <cmath>
#include <cstdint>
#include <vector>

namespace vermo::test {

using reference::Real;
using reference::RealMatrix;

// The bordered matrix of a tape and its right-hand side.
inline RealMatrix DenseMatrix(const SystemTape& tape, std::vector<Real>& rhs) {
  RealMatrix n(tape.Size());
  rhs.assign(tape.Size(), 0);
  for (const SystemTape::Observation& o : tape.observations)
    for (std::size_t r = 0; r < o.rows.size(); ++r)
      for (const DesignEntry& a : o.rows[r]) {
        const Real wa = Real{o.weights[r]} * a.coefficient;
        for (const DesignEntry& b : o.rows[r]) n[a.column][b.column] += wa * b.coefficient;
        rhs[a.column] += wa * o.misclosures[r];
      }
  for (const SystemTape::Stored& e : tape.elements)
    n[e.row][e.column] = n[e.column][e.row] = e.value;
  for (const auto& [row, value] : tape.rhs) rhs[row] = value;
  return n;
}

// An adjustment of one linearised system: what an engine must answer.
struct DenseSolution {
  RealMatrix n;
  std::vector<Real> rhs;
  RealMatrix q;
  std::vector<Real> x;
  Real s0 = 0;
  std::vector<Real> redundancy;  // of the components in their order

  explicit DenseSolution(const SystemTape& tape) {
    n = DenseMatrix(tape, rhs);
    q = reference::Inverse(n);
    x.assign(n.size, 0);
    for (std::uint32_t i = 0; i < n.size; ++i)
      for (std::uint32_t j = 0; j < n.size; ++j) x[i] += q[i][j] * rhs[j];
    Real sum = 0;
    for (const SystemTape::Observation& o : tape.observations)
      for (std::size_t r = 0; r < o.rows.size(); ++r) {
        Real v = -Real{o.misclosures[r]};
        Real form = 0;
        for (const DesignEntry& a : o.rows[r]) {
          v += a.coefficient * x[a.column];
          for (const DesignEntry& b : o.rows[r])
            form += a.coefficient * q[a.column][b.column] * b.coefficient;
        }
        sum += o.weights[r] * v * v;
        redundancy.push_back(1 - o.weights[r] * form);
      }
    const Real surplus = static_cast<Real>(redundancy.size()) + static_cast<Real>(tape.Size()) -
                         2 * static_cast<Real>(tape.Unknowns());
    s0 = surplus > 0 ? std::sqrt(sum / surplus) : 0;
  }
};

}  // namespace vermo::test
