#pragma once

#include "linalg/envelope_matrix.h"
#include "linalg/envelope_solver.h"
#include "linalg/normal_system.h"
#include "linalg/vektor.h"

#include <vector>

namespace vermo {

// The engine on the envelope: rows widen while observations add to them, and the solver keeps the
// explicit transformation of the system. Buffers are reused from one iteration to the next.
class EnvelopeSystem final : public NormalSystem {
 public:
  void Reset(std::uint32_t unknowns, std::uint32_t multipliers) override;
  [[nodiscard]] std::uint32_t Unknowns() const override { return fUnknowns; }
  [[nodiscard]] std::uint32_t Size() const override { return fNormal.Rows(); }
  [[nodiscard]] bool TakesReservations() const override { return true; }
  void ReserveRow(std::uint32_t row, std::uint32_t first) override {
    fNormal.Row(row).Reserve(row - first + 1);
  }
  void AddEquation(const DesignRow& row, double weight, double misclosure) override;
  void WidenRow(std::uint32_t row, std::uint32_t first) override;
  void StoreElement(std::uint32_t row, std::uint32_t column, double value) override;
  void SetRhs(std::uint32_t row, double value) override { fRhs[row] = value; }
  [[nodiscard]] double Element(std::uint32_t row, std::uint32_t column) const override {
    return fNormal.At(row, column);
  }
  void FactorizeAndSolve(bool pivotSearch) override;
  [[nodiscard]] std::span<const double> Rhs() const override { return fRhs.Span(); }
  [[nodiscard]] std::span<const double> Solution() const override { return fSolution.Span(); }
  [[nodiscard]] std::span<const double> DiagonalCofactors() override;
  void InvertCofactors() override;
  [[nodiscard]] double Cofactor(std::uint32_t row, std::uint32_t column) const override;
  [[nodiscard]] double CofactorForm(const DesignRow& row) const override;
  void CofactorBlock(ostra_bundle::Matrix& target,
                     std::uint32_t firstRow,
                     std::uint32_t rows,
                     std::uint32_t firstColumn,
                     std::uint32_t columns) const override;

 private:
  // The normal matrix; after the factorisation its pivots, after the inversion the cofactors.
  CEnvelopeMatrix fNormal;
  CVektor fRhs;
  CVektor fSolution;
  CEnvelopeMatrix fFactor;  // the transformation
  CVektor fPivotInverse;
  std::uint32_t fUnknowns = 0;
  std::vector<double> fDiagonal;
  FactorizeWorkspace fWorkspace;
};

}  // namespace vermo
