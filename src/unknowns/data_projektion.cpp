#include "unknowns/data_projektion.h"

#include "checks/failure_codes.h"
#include "checks/kl_exception.h"
#include "checks/language.h"

#include <cmath>

namespace vermo {

std::uint32_t DataProjektion::UnknownCount() const {
  return IsVariable() ? static_cast<std::uint32_t>(fMask.count()) : 0;
}

void DataProjektion::ApplySolution(std::span<const double> solution) {
  if (!HasColumns()) return;
  const std::span<const double> increments = Increments(solution);
  std::size_t next = 0;
  for (unsigned v = 0; v < kValues; ++v)
    if (fMask[v]) fValues[v] += increments[next++];
}

void DataProjektion::StoreAccuracy(const NormalSystem& cofactors, double s0) {
  if (!HasColumns()) return;
  std::uint32_t next = 0;
  for (unsigned v = 0; v < kValues; ++v) {
    if (!fMask[v]) continue;
    const double variance = Variance(cofactors, s0, next++);
    if (variance < 0.0) throw KlException(failure::kNegativeVariance);
    fSigma[v] = std::sqrt(variance);
  }
}

std::string DataProjektion::GetIdentText() const { return std::to_string(fId); }

std::string DataProjektion::GetDescription() const {
  return ByLanguage("Projektion ", "Projection ") + GetIdentText();
}

}  // namespace vermo
