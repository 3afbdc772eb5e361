#pragma once

#include "linalg/tensors.h"
#include "unknowns/data.h"

#include <array>
#include <cstdint>

namespace vermo {

// An infinite line: a base point and a unit direction. Four unknowns in the local frame whose
// third axis is the direction: shifts of the base point along the first two axes, then tilts of
// the direction about them. A tilt of t turns the direction by 2 t.
class DataLinie final : public Data {
 public:
  using Vector = ostra_bundle::VektorD<3>;
  static constexpr std::uint32_t kUnknowns = 4;

  // The line through two points. Throws KlException -42001 when they are closer than 1e-10; the
  // line is then unchanged.
  void SetPoints(const Vector& first, const Vector& second);

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
  [[nodiscard]] const Vector& Direction() const noexcept { return fDirection; }
  // Rows are the axes of the local frame.
  [[nodiscard]] const ostra_bundle::Rotation3& LocalFrame() const noexcept { return fLocalFrame; }
  // Standard deviations of the base point, object units, then of the direction.
  [[nodiscard]] const std::array<double, 6>& Sigma() const noexcept { return fSigma; }

 private:
  std::uint32_t fId = 0xFFFFFFFF;
  Vector fDirection{0.0, 0.0, 1.0};
  Vector fPoint{0.0, 0.0, 0.0};
  ostra_bundle::Rotation3 fLocalFrame{1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
  std::array<double, 6> fSigma{};
};

}  // namespace vermo
