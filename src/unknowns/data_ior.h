#pragma once

#include "unknowns/data.h"

#include <array>
#include <bitset>
#include <cstdint>

namespace vermo {

// Normalising radius of the radial distortion with the powers that the image model needs.
struct NormalisingRadius {
  double r0 = 0.0;
  double squared = 0.0;
  double fourth = 0.0;
  double sixth = 0.0;

  static constexpr NormalisingRadius Of(double r0) noexcept {
    const double squared = r0 * r0;
    return {r0, squared, squared * squared, squared * squared * squared};
  }
};

// A camera: principal distance, principal point, distortion, and which of these are estimated.
// The unknowns are the estimated parameters in their order, in scaled units: an increment times
// the parameter's factor is the change of the parameter.
class DataIor final : public Data {
 public:
  enum Parameter : unsigned { kCk, kXh, kYh, kA1, kA2, kA3, kB1, kB2, kC1, kC2, kAz1, kAz2, kAz3 };
  static constexpr std::size_t kParameters = 13;
  using ParameterValues = std::array<double, kParameters>;
  using Mask = std::bitset<kParameters>;

  // Change of the parameter per unit of its unknown.
  static constexpr ParameterValues kUnknownScale = {
      1.0, 1.0, 1.0, 1e-4, 1e-6, 1e-8, 1e-4, 1e-4, 1e-4, 1e-4, 1e-4, 1e-6, 1e-8};

  // Also needs at least one estimated parameter.
  [[nodiscard]] bool IsVariable() const override { return Data::IsVariable() && fMask.any(); }
  [[nodiscard]] std::uint32_t UnknownCount() const override;
  void ApplySolution(std::span<const double> solution) override;
  // Throws KlException -13001 on a negative variance.
  void StoreAccuracy(const NormalSystem& cofactors, double s0) override;
  [[nodiscard]] std::string GetIdentText() const override;
  [[nodiscard]] std::string GetDescription() const override;

  [[nodiscard]] std::uint32_t Id() const noexcept { return fId; }
  void SetId(std::uint32_t id) noexcept { fId = id; }

  [[nodiscard]] const ParameterValues& Calibration() const noexcept { return fCalibration; }
  void SetParameter(Parameter parameter, double value) noexcept { fCalibration[parameter] = value; }

  [[nodiscard]] const NormalisingRadius& R0() const noexcept { return fR0; }
  void SetR0(double r0) noexcept { fR0 = NormalisingRadius::Of(r0); }

  // Which parameters are estimated while the camera is variable.
  [[nodiscard]] const Mask& ParameterMask() const noexcept { return fMask; }
  void SetParameterMask(const Mask& mask) noexcept { fMask = mask; }

  // Standard deviations in the units of the parameters.
  [[nodiscard]] const ParameterValues& Sigma() const noexcept { return fSigma; }
  // Correlation of two estimated parameters, 0 for others.
  [[nodiscard]] double Correlation(unsigned i, unsigned j) const noexcept {
    return fCorrelation[i * kParameters + j];
  }

 private:
  std::uint32_t fId = 0xFFFFFFFF;
  ParameterValues fCalibration{};
  std::array<double, kParameters * kParameters> fCorrelation{};
  NormalisingRadius fR0;
  ParameterValues fSigma{};
  Mask fMask{0x31F};  // Ck, Xh, Yh, A1, A2, C1, C2
};

}  // namespace vermo
