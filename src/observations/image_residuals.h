#pragma once

#include <cmath>
#include <cstdint>

namespace vermo {

class DataEor;
class DataIor;
class DoppelOrientierung;

// Takes the residual over when its magnitude is larger; of equals the earlier one stays.
inline void KeepLarger(double& largest, double residual) noexcept {
  if (std::fabs(residual) > std::fabs(largest)) largest = residual;
}

// Residuals of the rays of one image or camera; a ray is an image coordinate that takes part.
struct ImageResiduals {
  std::uint32_t id = 0xFFFFFFFF;
  std::uint32_t rays = 0;
  double rmsVx = 0.0, rmsVy = 0.0;  // 0 without rays
  double maxVx = 0.0, maxVy = 0.0;  // of largest magnitude, with its sign
};

// Of an orientation only its own rays: those that reach it through a relative pair are left out.
[[nodiscard]] ImageResiduals ResidualsOf(const DataEor& image);
// Of a relative orientation all its rays.
[[nodiscard]] ImageResiduals ResidualsOf(const DoppelOrientierung& pair);
// Of a camera all its rays.
[[nodiscard]] ImageResiduals ResidualsOf(const DataIor& camera);

}  // namespace vermo
