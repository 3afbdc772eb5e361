#include "unknowns/data_ior.h"

#include "checks/failure_codes.h"
#include "checks/kl_exception.h"
#include "checks/language.h"

#include <cmath>

namespace vermo {

std::uint32_t DataIor::UnknownCount() const {
  return IsVariable() ? static_cast<std::uint32_t>(fMask.count()) : 0;
}

void DataIor::ApplySolution(std::span<const double> solution) {
  if (!HasColumns()) return;
  const std::span<const double> increments = Increments(solution);
  std::size_t next = 0;
  for (unsigned p = 0; p < kParameters; ++p)
    if (fMask[p]) fCalibration[p] += increments[next++] * kUnknownScale[p];
}

void DataIor::StoreAccuracy(const NormalSystem& cofactors, double s0) {
  if (!HasColumns()) return;
  std::array<unsigned, kParameters> estimated{};
  std::uint32_t count = 0;
  for (unsigned p = 0; p < kParameters; ++p)
    if (fMask[p]) estimated[count++] = p;

  for (std::uint32_t i = 0; i < count; ++i) {
    const double variance = Variance(cofactors, s0, i);
    if (variance < 0.0) throw KlException(failure::kNegativeVariance);
    fSigma[estimated[i]] = std::sqrt(variance) * kUnknownScale[estimated[i]];
  }
  for (std::uint32_t i = 0; i < count; ++i)
    for (std::uint32_t j = 0; j < count; ++j) {
      const double product = OwnCofactor(cofactors, i, i) * OwnCofactor(cofactors, j, j);
      fCorrelation[estimated[i] * kParameters + estimated[j]] =
          product > 0.0 ? OwnCofactor(cofactors, i, j) / std::sqrt(product) : 0.0;
    }
}

std::string DataIor::GetIdentText() const { return std::to_string(fId); }

std::string DataIor::GetDescription() const {
  return ByLanguage("Innere Orientierung ", "Interior Orientation ") + GetIdentText();
}

}  // namespace vermo
