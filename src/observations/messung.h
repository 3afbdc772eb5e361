#pragma once

#include "observations/equation_block.h"
#include "observations/messung_wert.h"
#include "unknowns/data.h"
#include "unknowns/linked_observation.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace vermo {

class NetworkSettings;
class NormalSystem;

// First columns of the groups that an observation is linked to. Left out are groups without
// columns and inactive ones, whose columns are those of an earlier numbering.
class GroupColumns {
 public:
  void clear() noexcept { fSize = 0; }
  void Add(const Data& group) noexcept {
    if (group.IsActive() && group.FirstUnknown() >= 0 && fSize < kCapacity)
      fColumns[fSize++] = static_cast<std::uint32_t>(group.FirstUnknown());
  }
  [[nodiscard]] const std::uint32_t* begin() const noexcept { return fColumns.data(); }
  [[nodiscard]] std::size_t size() const noexcept { return fSize; }

 private:
  static constexpr std::size_t kCapacity = 8;
  std::array<std::uint32_t, kCapacity> fColumns;
  std::size_t fSize = 0;
};

// An observation of one to three scalar components. A concrete class supplies its observation
// equation; normal equations and redundancy numbers are built from it here, once for all.
//
//   state     in the equations  residual            redundancy  test value
//   inactive  no                kept, reset by      0           0
//                               ComputeRedundancy
//   used      yes               each evaluation     computed    each test
//   outlier   no                each evaluation     1           each test
//
// An observation never holds a design matrix: it is evaluated afresh at the current values.
class Messung : public LinkedObservation {
 public:
  // Weight of every component: S0 a priori squared over its variance.
  virtual void SetWeights(const NetworkSettings& settings) = 0;

  // Label and numbers in the language of the moment, ISO 8859-1.
  [[nodiscard]] virtual std::string GetDescription() const = 0;
  // The numbers alone.
  [[nodiscard]] virtual std::string GetIdentText() const = 0;

  // Runs once before the first iteration.
  virtual void PrepareObservation(const NetworkSettings& settings);

  // Linearises at the current values of the linked groups. The block is first reset to
  // Dimension() empty rows, also when the result is false: not active, or a link is missing;
  // the residuals then keep their values. On true the block is filled, without columns for
  // groups that are not variable, and the residuals are v_i = -l_i. Rejected observations are
  // evaluated like the rest: that is how they find their way back. Lets exceptions of the model
  // pass.
  virtual bool ObservationEquations(EquationBlock& equations) = 0;

  // The groups that its equations may have coefficients in; asked of a connected observation only.
  // May leave some out: the engine then learns them from the equations.
  virtual void CollectColumns(GroupColumns& /*columns*/) const {}

  // Hints that it will be evaluated soon: first the observation itself, then its groups, which may
  // lie anywhere in memory.
  void Fetch() const noexcept {
    constexpr std::size_t kLine = 64;
    constexpr std::size_t kLines = 4;
    for (std::size_t k = 0; k < kLines; ++k)
      __builtin_prefetch(reinterpret_cast<const char*>(this) + k * kLine, 1);
  }
  virtual void FetchGroups() const {}

  // Sum of the redundancy numbers, 0 for an outlier. A component of exactly 1 is left out: that
  // value marks a component that no computation reached.
  [[nodiscard]] virtual double RedundancySum() const = 0;

  // Adds w a^T a and w a^T l of every component to the system. An outlier refreshes its
  // residuals and adds nothing. The block is working memory.
  virtual void AddToNormals(NormalSystem& system, EquationBlock& equations);

  // Redundancy numbers r = 1 - w a Q a^T, clamped into 0 to 1, at the current values. Outliers
  // keep 1; an inactive observation is reset. The block is working memory.
  virtual void ComputeRedundancy(const NormalSystem& cofactors, EquationBlock& equations);

  // One line of a table, line end included.
  [[nodiscard]] virtual std::string GetProtocolLine() const = 0;

  // All mandatory links are set.
  [[nodiscard]] virtual bool IsConnected() const = 0;
  // Connected, and every linked group that the observation needs is active.
  [[nodiscard]] virtual bool IsUsable() const = 0;

  // The components in order.
  [[nodiscard]] virtual std::span<MessungWert> CollectComponents() noexcept = 0;
  [[nodiscard]] virtual std::span<const MessungWert> CollectComponents() const noexcept = 0;

  // Protected observations are never rejected and do not lead an outlier test. One that came in
  // rejected can still be readmitted.
  [[nodiscard]] bool TakesPartInBlunderTest() const noexcept { return !fNoBlunderTest; }
  void SetNoBlunderTest(bool on) noexcept { fNoBlunderTest = on; }

  // Number printed beside the item: the caller's tag minus one, -1 when there is none.
  [[nodiscard]] std::int32_t Ordinal() const noexcept { return fOrdinal; }
  void SetOrdinal(std::int32_t ordinal) noexcept { fOrdinal = ordinal; }

  // What ends a row of a table: " ***" for an outlier, " ---" for a protected observation that is
  // none, else nothing.
  [[nodiscard]] std::string_view RowMark() const noexcept {
    if (IsAusreisser()) return " ***";
    return TakesPartInBlunderTest() ? "" : " ---";
  }

 protected:
  using LinkedObservation::LinkedObservation;

 private:
  std::int32_t fOrdinal = -1;
  bool fNoBlunderTest = false;
};

// An observation of N components.
template <std::uint32_t N>
class TMessung : public Messung {
 public:
  static_assert(N >= 1 && N <= EquationBlock::kLargestDimension);

  [[nodiscard]] std::uint32_t Dimension() const noexcept final { return N; }

  [[nodiscard]] double RedundancySum() const final {
    double sum = 0.0;
    if (IsAusreisser()) return sum;
    for (const MessungWert& wert : fWerte)
      if (wert.Redundanz() != 1.0) sum += wert.Redundanz();
    return sum;
  }

  [[nodiscard]] std::span<MessungWert> CollectComponents() noexcept final { return fWerte; }
  [[nodiscard]] std::span<const MessungWert> CollectComponents() const noexcept final {
    return fWerte;
  }

  [[nodiscard]] const MessungWert& Wert(std::uint32_t i) const noexcept { return fWerte[i]; }

 protected:
  using Messung::Messung;

  // Component i has been evaluated: its equation is complete and its residual known.
  void AppendComponent(EquationBlock& equations, std::uint32_t i, double misclosure) noexcept {
    equations.Append(misclosure, fWerte[i].EffectiveWeight());
    StoreResiduum(i, misclosure);
  }
  void StoreResiduum(std::uint32_t i, double misclosure) noexcept {
    fWerte[i].SetResiduum(-misclosure);
  }

  void SetWeight(std::uint32_t i, double s0, double sigma) noexcept {
    fWerte[i].SetGewicht(s0 * s0 / (sigma * sigma));
  }

 private:
  std::array<MessungWert, N> fWerte;
};

}  // namespace vermo
