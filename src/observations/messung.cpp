#include "observations/messung.h"

#include "linalg/normal_system.h"

#include <algorithm>

namespace vermo {

void Messung::PrepareObservation(const NetworkSettings& /*settings*/) {}

void Messung::AddToNormals(NormalSystem& system, EquationBlock& equations) {
  if (!IsActive() || !ObservationEquations(equations) || IsAusreisser()) return;
  for (std::uint32_t i = 0; i < equations.count; ++i) {
    equations.rows[i].SortByColumn();
    system.AddEquation(equations.rows[i], equations.weights[i], equations.misclosures[i]);
  }
}

void Messung::ComputeRedundancy(const NormalSystem& cofactors, EquationBlock& equations) {
  const std::span<MessungWert> werte = CollectComponents();
  for (MessungWert& wert : werte) wert.SetRedundanz(1.0);
  if (!IsActive()) {
    for (MessungWert& wert : werte) wert.ResetValues();
    return;
  }
  if (IsAusreisser() || !ObservationEquations(equations)) return;
  for (std::uint32_t i = 0; i < equations.count; ++i) {
    equations.rows[i].SortByColumn();
    const double r = 1.0 - equations.weights[i] * cofactors.CofactorForm(equations.rows[i]);
    werte[i].SetRedundanz(std::clamp(r, 0.0, 1.0));
  }
}

}  // namespace vermo
