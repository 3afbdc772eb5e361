#include "unknowns/data_obko.h"

#include "checks/language.h"
#include "unknowns/data_eor.h"

#include <algorithm>
#include <cmath>

namespace vermo {

void DataObko::SetCoordinates(const Vector& coordinates) noexcept {
  fInitial = coordinates;
  fCurrent = coordinates;
}

void DataObko::ResetUnknowns() {
  Data::ResetUnknowns();
  fRayCount = 0;
  SetEnoughRays(true);
}

void DataObko::ApplySolution(std::span<const double> solution) {
  if (!HasColumns()) return;
  const std::span<const double> increments = Increments(solution);
  for (unsigned i = 0; i < 3; ++i) fCurrent[i] += increments[i];
}

void DataObko::StoreAccuracy(const NormalSystem& cofactors, double s0) {
  if (!HasColumns()) return;
  for (unsigned i = 0; i < 3; ++i) fSigma[i] = std::sqrt(std::max(0.0, Variance(cofactors, s0, i)));
  fRayCount = RayCount();
}

std::string DataObko::GetIdentText() const { return std::to_string(fId); }

std::string DataObko::GetDescription() const {
  return ByLanguage("Objektkoordinate ", "Object coordinate ") + GetIdentText();
}

DataObko::Vector DataObko::WorldCoordinates() const noexcept {
  return fReferenceEor == nullptr ? fCurrent : fReferenceEor->Forward(fCurrent);
}

}  // namespace vermo
