#pragma once

#include "linalg/tensors.h"
#include "unknowns/data.h"

#include <array>
#include <cstdint>

namespace vermo {

// An infinite plane: a point and a unit normal. Three unknowns in the local frame whose third axis
// is the normal: tilts of the normal about the first two axes, then the shift of the point along
// the normal. A tilt of t turns the normal by 2 t.
class DataPlane final : public Data {
 public:
  using Vector = ostra_bundle::VektorD<3>;
  static constexpr std::uint32_t kUnknowns = 3;

  // The normal may have any length but 0, for which TensorExceptDivisionByZero is thrown.
  void SetPointAndNormal(const Vector& point, const Vector& normal);

  [[nodiscard]] std::uint32_t UnknownCount() const override { return IsVariable() ? kUnknowns : 0; }
  void ApplySolution(std::span<const double> solution) override;
  // Throws KlException -13001 on a negative variance.
  void StoreAccuracy(const NormalSystem& cofactors, double s0) override;
  // Rebuilds the local frame.
  void PrepareDerivatives() override;
  [[nodiscard]] std::string GetIdentText() const override;
  [[nodiscard]] std::string GetDescription() const override;

  [[nodiscard]] std::uint32_t Id() const noexcept { return fId; }
  void SetId(std::uint32_t id) noexcept { fId = id; }
  [[nodiscard]] const Vector& Point() const noexcept { return fPoint; }
  [[nodiscard]] const Vector& Normal() const noexcept { return fNormal; }
  // Rows are the axes of the local frame.
  [[nodiscard]] const ostra_bundle::Rotation3& LocalFrame() const noexcept { return fLocalFrame; }
  // Standard deviations of the point, object units, then of the normal.
  [[nodiscard]] const std::array<double, 6>& Sigma() const noexcept { return fSigma; }

 private:
  Vector fPoint{0.0, 0.0, 0.0};
  Vector fNormal{0.0, 0.0, 1.0};
  std::array<double, 6> fSigma{};
  std::uint32_t fId = 0xFFFFFFFF;
  ostra_bundle::Rotation3 fLocalFrame{1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
};

}  // namespace vermo
