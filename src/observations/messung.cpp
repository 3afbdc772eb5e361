#include "observations/messung.h"

#include "linalg/normal_system.h"

#include <algorithm>

namespace vermo {

void Messung::PrepareObservation(const NetworkSettings& /*settings*/) {}

void Messung::AddToNormals(NormalSystem& system, EquationBlock& equations) {
  if (!IsActive() || !ObservationEquations(equations) || IsAusreisser()) return;
  system.AddEquations(
      equations.FilledRows(), equations.weights.data(), equations.misclosures.data());
}

void Messung::ComputeRedundancy(const NormalSystem& cofactors, EquationBlock& equations) {
  const std::span<MessungWert> werte = CollectComponents();
  for (MessungWert& wert : werte) wert.SetRedundanz(1.0);
  if (!IsActive()) {
    for (MessungWert& wert : werte) wert.ResetValues();
    return;
  }
  if (IsAusreisser() || !ObservationEquations(equations)) return;
  double forms[EquationBlock::kLargestDimension];
  cofactors.CofactorForms(equations.FilledRows(), forms);
  for (std::uint32_t i = 0; i < equations.count; ++i)
    werte[i].SetRedundanz(std::clamp(1.0 - equations.weights[i] * forms[i], 0.0, 1.0));
}

}  // namespace vermo
