#pragma once

#include "linalg/normal_system.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace vermo::test {

// A full square matrix by rows.
struct SquareMatrix {
  std::uint32_t size = 0;
  std::vector<double> elements;

  SquareMatrix() = default;
  explicit SquareMatrix(std::uint32_t n) : size(n), elements(std::size_t{n} * n, 0.0) {}

  double& operator()(std::uint32_t i, std::uint32_t j) {
    return elements[std::size_t{i} * size + j];
  }
  double operator()(std::uint32_t i, std::uint32_t j) const {
    return elements[std::size_t{i} * size + j];
  }
};

// The row at full length; equal columns add up.
inline std::vector<double> Dense(const DesignRow& row, std::uint32_t unknowns) {
  std::vector<double> dense(unknowns, 0.0);
  for (const DesignEntry& entry : row) dense.at(entry.column) += entry.coefficient;
  return dense;
}

// A linear engine that only keeps what it gets, and answers cofactors from a given matrix.
class DenseSystem final : public NormalSystem {
 public:
  struct Equation {
    DesignRow row;
    double weight;
    double misclosure;
  };

  explicit DenseSystem(std::uint32_t unknowns)
      : normals(unknowns), rhs(unknowns, 0.0), cofactors(unknowns) {}
  // Answers these cofactors.
  explicit DenseSystem(SquareMatrix q) : DenseSystem(q.size) { cofactors = std::move(q); }

  SquareMatrix normals;
  std::vector<double> rhs;
  SquareMatrix cofactors;
  std::vector<Equation> equations;  // in the order in which they came
  unsigned otherCalls = 0;          // operations that no observation and no group may use

  void Reset(std::uint32_t unknowns, std::uint32_t /*multipliers*/) override {
    normals = SquareMatrix(unknowns);
    rhs.assign(unknowns, 0.0);
    ++otherCalls;
  }
  [[nodiscard]] std::uint32_t Unknowns() const override { return normals.size; }
  [[nodiscard]] std::uint32_t Size() const override { return normals.size; }

  void AddEquation(const DesignRow& row, double weight, double misclosure) override {
    equations.push_back({row, weight, misclosure});
    for (const DesignEntry& a : row) {
      for (const DesignEntry& b : row)
        normals(a.column, b.column) += weight * a.coefficient * b.coefficient;
      rhs.at(a.column) += weight * a.coefficient * misclosure;
    }
  }
  void WidenRow(std::uint32_t /*row*/, std::uint32_t /*first*/) override { ++otherCalls; }
  void StoreElement(std::uint32_t /*row*/, std::uint32_t /*column*/, double /*value*/) override {
    ++otherCalls;
  }
  void SetRhs(std::uint32_t /*row*/, double /*value*/) override { ++otherCalls; }
  [[nodiscard]] double Element(std::uint32_t row, std::uint32_t column) const override {
    return normals(row, column);
  }

  void FactorizeAndSolve(bool /*pivotSearch*/) override { ++otherCalls; }
  [[nodiscard]] std::span<const double> Rhs() const override { return rhs; }
  [[nodiscard]] std::span<const double> Solution() const override { return {}; }
  [[nodiscard]] std::span<const double> DiagonalCofactors() override { return {}; }

  void InvertCofactors() override { ++otherCalls; }
  [[nodiscard]] double Cofactor(std::uint32_t row, std::uint32_t column) const override {
    return cofactors(row, column);
  }
  [[nodiscard]] double CofactorForm(const DesignRow& row) const override {
    double sum = 0.0;
    for (const DesignEntry& a : row)
      for (const DesignEntry& b : row)
        sum += a.coefficient * cofactors(a.column, b.column) * b.coefficient;
    return sum;
  }
  void CofactorBlock(ostra_bundle::Matrix& target,
                     std::uint32_t firstRow,
                     std::uint32_t rows,
                     std::uint32_t firstColumn,
                     std::uint32_t columns) const override {
    target.Resize(rows, columns);
    target.Detach();
    for (std::uint32_t r = 0; r < rows; ++r)
      for (std::uint32_t c = 0; c < columns; ++c)
        target.At(r, c) = cofactors(firstRow + r, firstColumn + c);
  }
};

}  // namespace vermo::test
