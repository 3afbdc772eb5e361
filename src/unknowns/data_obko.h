#pragma once

#include "linalg/tensors.h"
#include "unknowns/data.h"

#include <cstdint>

namespace vermo {

class DataEor;

// An object point: three unknowns X, Y, Z, unscaled. A point may be given in the frame of an
// image; it then moves with that image.
class DataObko final : public Data {
 public:
  using Vector = ostra_bundle::VektorD<3>;

  // Sets initial and current coordinates alike.
  void SetCoordinates(const Vector& coordinates) noexcept;

  void ResetUnknowns() override;
  [[nodiscard]] std::uint32_t UnknownCount() const override { return IsVariable() ? 3 : 0; }
  void ApplySolution(std::span<const double> solution) override;
  // A negative variance counts as 0.
  void StoreAccuracy(const NormalSystem& cofactors, double s0) override;
  [[nodiscard]] std::string GetIdentText() const override;
  [[nodiscard]] std::string GetDescription() const override;

  // Marked as datum point and active.
  [[nodiscard]] bool IsReferencePoint() const {
    return (fPointFlags & kReference) != 0 && IsActive();
  }
  void SetReferencePoint(bool on) noexcept { SetPointFlag(kReference, on); }

  // The ray rule found enough rays, or has not looked.
  [[nodiscard]] bool HasEnoughRays() const noexcept { return (fPointFlags & kEnoughRays) != 0; }
  void SetEnoughRays(bool on) noexcept { SetPointFlag(kEnoughRays, on); }

  [[nodiscard]] bool IsExemptFromRayRule() const noexcept { return (fPointFlags & kExempt) != 0; }
  void SetExemptFromRayRule(bool on) noexcept { SetPointFlag(kExempt, on); }

  // Image coordinates on the point that take part now.
  [[nodiscard]] std::uint32_t RayCount() const { return CountMessungen(MessungKind::Biko); }
  // Whether they are at least so many.
  [[nodiscard]] bool HasRays(std::uint32_t atLeast) const noexcept {
    return HasMessungen(MessungKind::Biko, atLeast);
  }
  // Their number at the last accuracy computation.
  [[nodiscard]] std::uint32_t StoredRayCount() const noexcept { return fRayCount; }

  // Current coordinates in the object frame.
  [[nodiscard]] Vector WorldCoordinates() const noexcept;

  [[nodiscard]] std::uint32_t Id() const noexcept { return fId; }
  void SetId(std::uint32_t id) noexcept { fId = id; }
  [[nodiscard]] std::uint32_t ReferenceEorId() const noexcept { return fReferenceEorId; }
  void SetReferenceEorId(std::uint32_t id) noexcept { fReferenceEorId = id; }
  [[nodiscard]] const DataEor* ReferenceEor() const noexcept { return fReferenceEor; }
  void SetReferenceEor(const DataEor* eor) noexcept { fReferenceEor = eor; }

  [[nodiscard]] const Vector& Initial() const noexcept { return fInitial; }
  [[nodiscard]] const Vector& Current() const noexcept { return fCurrent; }
  [[nodiscard]] const Vector& Sigma() const noexcept { return fSigma; }

 private:
  static constexpr std::uint32_t kReference = 1U << 0U;
  static constexpr std::uint32_t kEnoughRays = 1U << 1U;
  static constexpr std::uint32_t kExempt = 1U << 2U;

  void SetPointFlag(std::uint32_t flag, bool on) noexcept {
    fPointFlags = on ? (fPointFlags | flag) : (fPointFlags & ~flag);
  }

  std::uint32_t fId = 0;
  std::uint32_t fReferenceEorId = 0xFFFFFFFF;
  const DataEor* fReferenceEor = nullptr;  // set by the run, not owned
  std::uint32_t fPointFlags = 0;
  Vector fInitial{};
  Vector fCurrent{};
  Vector fSigma{};
  std::uint32_t fRayCount = 0;
};

}  // namespace vermo
