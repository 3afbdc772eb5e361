#pragma once

#include "unknowns/data.h"

#include <cstdint>

namespace vermo {

// A relative orientation: a third image id for points seen on the image EorId relative to the
// image BaseEorId. It has no unknowns of its own; both images enter the equations.
class DoppelOrientierung final : public Data {
 public:
  [[nodiscard]] std::uint32_t UnknownCount() const override { return 0; }
  void ApplySolution(std::span<const double> /*solution*/) override {}
  void StoreAccuracy(const NormalSystem& /*cofactors*/, double /*s0*/) override {}
  // The empty text.
  [[nodiscard]] std::string GetIdentText() const override { return {}; }
  [[nodiscard]] std::string GetDescription() const override;

  [[nodiscard]] std::uint32_t Id() const noexcept { return fId; }
  [[nodiscard]] std::uint32_t EorId() const noexcept { return fEorId; }
  [[nodiscard]] std::uint32_t BaseEorId() const noexcept { return fBaseEorId; }
  void SetIds(std::uint32_t id, std::uint32_t eorId, std::uint32_t baseEorId) noexcept {
    fId = id;
    fEorId = eorId;
    fBaseEorId = baseEorId;
  }

 private:
  std::uint32_t fId = 0xFFFFFFFF;
  std::uint32_t fBaseEorId = 0xFFFFFFFF;
  std::uint32_t fEorId = 0xFFFFFFFF;
};

}  // namespace vermo
