#pragma once

#include "linalg/design_row.h"
#include "linalg/tensor_matrix.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vermo {

// How the columns of a system belong together: groups of unknowns, then constraints with their
// multipliers, each a run of consecutive columns.
struct SystemLayout {
  // First column of every group and constraint, ascending, and the number of columns at the end.
  std::vector<std::uint32_t> starts;
  // So many groups at the front seldom meet each other in an equation.
  std::uint32_t leading = 0;

  bool operator==(const SystemLayout&) const = default;
};

// What an adjustment needs of a linear engine: the bordered system
//
//   | N   B^T | | dx |   | n |
//   | B    0  | | k  | = | w |
//
// of u unknowns and b multipliers, assembled from equations and constraint rows, its solution and
// the elements of its inverse, the cofactors. Observations, groups and the protocol see engines
// through this alone. The order of one iteration: Reset, assembly, FactorizeAndSolve, diagonal
// cofactors; after convergence InvertCofactors, then single cofactors and forms.
class NormalSystem {
 public:
  virtual ~NormalSystem() = default;

  // Tells how the columns of the systems to come belong together; a hint.
  virtual void SetLayout(const SystemLayout& /*layout*/) {}
  // An empty system of so many unknowns and multipliers.
  virtual void Reset(std::uint32_t unknowns, std::uint32_t multipliers) = 0;
  [[nodiscard]] virtual std::uint32_t Unknowns() const = 0;
  // Unknowns and multipliers.
  [[nodiscard]] virtual std::uint32_t Size() const = 0;

  // Whether the places of elements are not known: Couple then spares an assembly that would only
  // learn them. Asked again after the Seal that ended the hints.
  [[nodiscard]] virtual bool WantsCouplings() const { return false; }
  // A hint between Reset and Seal of an assembly without equations: an observation will have
  // coefficients in the groups of these columns.
  virtual void Couple(std::span<const std::uint32_t> /*columns*/) {}
  // From the next Reset on the blocks of groups on the diagonal are enough: no factorisation will
  // follow. False when the engine makes no difference.
  virtual bool SetDiagonalOnly(bool /*on*/) { return false; }
  // Whether ReserveRow does anything.
  [[nodiscard]] virtual bool TakesReservations() const { return false; }
  // A hint before the assembly: elements of the row will lie from column first on. No element
  // comes to be by it.
  virtual void ReserveRow(std::uint32_t /*row*/, std::uint32_t /*first*/) {}
  // Adds one observation component: N += w a^T a, n += w a^T l. The row is sorted by column;
  // equal columns add up.
  virtual void AddEquation(const DesignRow& row, double weight, double misclosure) = 0;
  // Adds the components of one observation, rows in any order of columns, which may come back
  // sorted.
  virtual void AddEquations(std::span<DesignRow> rows,
                            const double* weights,
                            const double* misclosures) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
      rows[i].SortByColumn();
      AddEquation(rows[i], weights[i], misclosures[i]);
    }
  }
  // Makes the elements of a row from column first to the diagonal writable.
  virtual void WidenRow(std::uint32_t row, std::uint32_t first) = 0;
  // Stores, and does not add, a writable element at or left of the diagonal.
  virtual void StoreElement(std::uint32_t row, std::uint32_t column, double value) = 0;
  // Stores, and does not add, a small block at or left of the diagonal, values by rows: its rows
  // become writable from its first column on. Zeros among the values are elements, too.
  virtual void StoreBlock(std::uint32_t firstRow,
                          std::uint32_t rows,
                          std::uint32_t firstColumn,
                          std::uint32_t columns,
                          const double* values) {
    for (std::uint32_t r = 0; r < rows; ++r) {
      WidenRow(firstRow + r, firstColumn);
      for (std::uint32_t c = 0; c < columns; ++c)
        StoreElement(firstRow + r, firstColumn + c, *values++);
    }
  }
  virtual void SetRhs(std::uint32_t row, double value) = 0;
  // Ends an assembly. False when the engine met elements that it had no place for: it has one now,
  // and the assembly must be done again from Reset on.
  [[nodiscard]] virtual bool Seal() { return true; }
  // Element of the assembled system as it is stored, 0 where nothing is; until FactorizeAndSolve.
  [[nodiscard]] virtual double Element(std::uint32_t row, std::uint32_t column) const = 0;

  // The square block of the assembled system on the diagonal from row first on, by rows. Of two
  // elements that mirror each other the one of larger magnitude counts.
  virtual void DiagonalBlock(std::uint32_t first, std::uint32_t size, double* block) const {
    for (std::uint32_t i = 0; i < size; ++i)
      for (std::uint32_t j = 0; j <= i; ++j) {
        const double lower = Element(first + i, first + j);
        const double upper = Element(first + j, first + i);
        block[i * size + j] = block[j * size + i] =
            std::fabs(upper) > std::fabs(lower) ? upper : lower;
      }
  }

  // Whether InvertCofactors will likely be asked for behind the next FactorizeAndSolve. A hint: an
  // engine may compute in one pass what takes two. Results differ by rounding at most.
  virtual void ExpectInvertCofactors(bool /*expected*/) {}
  // Throws KlException -39007 for a singular system.
  virtual void FactorizeAndSolve(bool pivotSearch) = 0;
  [[nodiscard]] virtual std::span<const double> Rhs() const = 0;
  // Increments, multipliers behind them.
  [[nodiscard]] virtual std::span<const double> Solution() const = 0;
  // The diagonal of the inverse.
  [[nodiscard]] virtual std::span<const double> DiagonalCofactors() = 0;

  // Computes the cofactors of the unknowns that Cofactor and CofactorForm read.
  virtual void InvertCofactors() = 0;
  // A cofactor of two unknowns that share an observation or a group, else 0.
  [[nodiscard]] virtual double Cofactor(std::uint32_t row, std::uint32_t column) const = 0;
  // a Q a^T of a row sorted by column; cofactors that were not computed count as 0.
  [[nodiscard]] virtual double CofactorForm(const DesignRow& row) const = 0;
  // The same for the rows of one observation in any order of columns.
  virtual void CofactorForms(std::span<DesignRow> rows, double* forms) const {
    for (std::size_t i = 0; i < rows.size(); ++i) {
      rows[i].SortByColumn();
      forms[i] = CofactorForm(rows[i]);
    }
  }
  // Any block of the inverse; stays available until the next Reset.
  virtual void CofactorBlock(ostra_bundle::Matrix& target,
                             std::uint32_t firstRow,
                             std::uint32_t rows,
                             std::uint32_t firstColumn,
                             std::uint32_t columns) const = 0;

 protected:
  NormalSystem() = default;
  NormalSystem(NormalSystem&&) = default;
  NormalSystem& operator=(NormalSystem&&) = default;
};

}  // namespace vermo
