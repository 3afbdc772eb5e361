#pragma once

#include "checks/failure_codes.h"
#include "checks/kl_exception.h"

#include <cstdint>

namespace vermo {

// Settings of a network that its groups and observations read: Connect of a group,
// PrepareObservation and SetWeights of an observation receive them.
class NetworkSettings {
 public:
  [[nodiscard]] bool TranslationDatum() const noexcept { return (fDatumFlags & kTranslation) != 0; }
  [[nodiscard]] bool RotationDatum() const noexcept { return (fDatumFlags & kRotation) != 0; }
  [[nodiscard]] bool ScaleDatum() const noexcept { return (fDatumFlags & kScale) != 0; }
  void SetTranslationDatum(bool on) noexcept { SetFlag(kTranslation, on); }
  void SetRotationDatum(bool on) noexcept { SetFlag(kRotation, on); }
  void SetScaleDatum(bool on) noexcept { SetFlag(kScale, on); }

  // Largest angle, in radians, between a measured ray and the ray of the approximate values.
  [[nodiscard]] double AngleLimit() const noexcept { return fAngleLimit; }
  void SetAngleLimit(double radians) noexcept { fAngleLimit = radians; }

  // A-priori standard deviation of unit weight. Throws KlException unless the value is above 0,
  // so also for a NaN; the stored value then stays.
  [[nodiscard]] double S0Apriori() const noexcept { return fS0Apriori; }
  void SetS0Apriori(double value) {
    if (!(value > 0.0)) throw KlException(failure::kS0Apriori);
    fS0Apriori = value;
  }

  // Two modes that nothing in the calculation reads; a value out of range stores 0.
  [[nodiscard]] std::uint32_t ModeA() const noexcept { return fModeA; }
  void SetModeA(std::uint32_t mode) noexcept { fModeA = mode < 2 ? mode : 0; }
  [[nodiscard]] std::uint32_t ModeB() const noexcept { return fModeB; }
  void SetModeB(std::uint32_t mode) noexcept { fModeB = mode < 3 ? mode : 0; }

 private:
  static constexpr std::uint32_t kTranslation = 1U << 0U;
  static constexpr std::uint32_t kRotation = 1U << 1U;
  static constexpr std::uint32_t kScale = 1U << 2U;

  void SetFlag(std::uint32_t flag, bool on) noexcept {
    fDatumFlags = on ? (fDatumFlags | flag) : (fDatumFlags & ~flag);
  }

  std::uint32_t fDatumFlags = 0;
  std::uint32_t fModeA = 0;
  std::uint32_t fModeB = 0;
  double fAngleLimit = 0.523599;
  double fS0Apriori = 0.005;
};

}  // namespace vermo
