#include "linalg/envelope_system.h"

#include <algorithm>
#include <cassert>

namespace vermo {

void EnvelopeSystem::Reset(std::uint32_t unknowns, std::uint32_t multipliers) {
  fUnknowns = unknowns;
  const std::uint32_t size = unknowns + multipliers;
  fNormal.Resize(size);
  // An empty system has an empty right-hand side, and that is no failure here.
  if (fRhs.Size() != size) static_cast<void>(fRhs.Allocate(size));
  fRhs.Fill(0.0);
}

void EnvelopeSystem::AddEquation(const DesignRow& row, double weight, double misclosure) {
  if (row.empty()) return;
  const std::uint32_t smallest = row[0].column;
  for (std::uint32_t i = 0; i < row.size(); ++i) {
    const DesignEntry& entry = row[i];
    const double t = weight * entry.coefficient;
    CEnvelopeRow& target = fNormal.Row(entry.column);
    target.Widen(smallest, entry.column - smallest + 1);
    double* const elements = target.Elements().data();
    const std::uint32_t first = target.First();
    // Equal columns stand next to each other: all of them count, also those behind i.
    for (std::uint32_t j = 0; j < row.size() && row[j].column <= entry.column; ++j)
      elements[row[j].column - first] += row[j].coefficient * t;
    fRhs[entry.column] += t * misclosure;
  }
}

void EnvelopeSystem::WidenRow(std::uint32_t row, std::uint32_t first) {
  fNormal.Row(row).Widen(first, row - first + 1);
}

void EnvelopeSystem::StoreElement(std::uint32_t row, std::uint32_t column, double value) {
  assert(fNormal.Row(row).Stores(column));
  fNormal.Row(row).Element(column) = value;
}

void EnvelopeSystem::FactorizeAndSolve(bool pivotSearch) {
  Factorize(fNormal, fFactor, fPivotInverse, pivotSearch, fWorkspace);
  SolveInto(fSolution, fFactor, fPivotInverse, fRhs);
}

std::span<const double> EnvelopeSystem::DiagonalCofactors() {
  fDiagonal.resize(Size());
  DiagonalOfInverse(fFactor, fPivotInverse, fDiagonal);
  return fDiagonal;
}

void EnvelopeSystem::InvertCofactors() {
  ComputeInverse(fNormal, fFactor, fPivotInverse, fUnknowns);
}

double EnvelopeSystem::Cofactor(std::uint32_t row, std::uint32_t column) const {
  return fNormal.At(std::max(row, column), std::min(row, column));
}

double EnvelopeSystem::CofactorForm(const DesignRow& row) const {
  double sum = 0.0;
  for (std::uint32_t j = 0; j < row.size(); ++j)
    for (std::uint32_t k = 0; k < row.size(); ++k)
      sum += row[j].coefficient * Cofactor(row[j].column, row[k].column) * row[k].coefficient;
  return sum;
}

void EnvelopeSystem::CofactorBlock(ostra_bundle::Matrix& target,
                                   std::uint32_t firstRow,
                                   std::uint32_t rows,
                                   std::uint32_t firstColumn,
                                   std::uint32_t columns) const {
  InverseBlock(target, fFactor, fPivotInverse, firstRow, rows, firstColumn, columns);
}

}  // namespace vermo
