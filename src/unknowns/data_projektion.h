#pragma once

#include "unknowns/data.h"

#include <array>
#include <bitset>
#include <cstdint>

namespace vermo {

// Principal distance and principal point of one image, used there in place of the camera's.
// The unknowns are the three values, unscaled.
class DataProjektion final : public Data {
 public:
  enum Value : unsigned { kCk, kXh, kYh };
  static constexpr unsigned kValues = 3;

  [[nodiscard]] std::uint32_t UnknownCount() const override;
  void ApplySolution(std::span<const double> solution) override;
  // Throws KlException -13001 on a negative variance.
  void StoreAccuracy(const NormalSystem& cofactors, double s0) override;
  [[nodiscard]] std::string GetIdentText() const override;
  [[nodiscard]] std::string GetDescription() const override;

  [[nodiscard]] std::uint32_t Id() const noexcept { return fId; }
  void SetId(std::uint32_t id) noexcept { fId = id; }

  [[nodiscard]] const std::array<double, kValues>& Values() const noexcept { return fValues; }
  void SetValues(double ck, double xh, double yh) noexcept { fValues = {ck, xh, yh}; }
  [[nodiscard]] const std::array<double, kValues>& Sigma() const noexcept { return fSigma; }
  // Whether the value is estimated while the projection is variable.
  [[nodiscard]] bool IsEstimated(unsigned value) const { return fMask[value]; }

 private:
  std::array<double, kValues> fSigma{};
  std::uint32_t fId = 0xFFFFFFFF;
  std::array<double, kValues> fValues{};
  std::bitset<kValues> fMask{7};  // the estimated values; always all three
};

}  // namespace vermo
