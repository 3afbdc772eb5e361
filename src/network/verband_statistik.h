#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace vermo {

class BundelVerband;
class Data;
class DataEor;
class DoppelOrientierung;

// Residuals of the rays of one image; a ray is an image coordinate that takes part.
struct ImageResiduals {
  std::uint32_t imageId = 0xFFFFFFFF;
  std::uint32_t rays = 0;
  double rmsVx = 0.0, rmsVy = 0.0;  // 0 without rays
  double maxVx = 0.0, maxVy = 0.0;  // of largest magnitude, with its sign
};

// Of an orientation only its own rays: those that reach it through a relative pair are left out.
[[nodiscard]] ImageResiduals ResidualsOf(const DataEor& image);
// Of a relative orientation all its rays.
[[nodiscard]] ImageResiduals ResidualsOf(const DoppelOrientierung& pair);

// Figures of a network, computed on demand at its present state.
class VerbandStatistik {
 public:
  explicit VerbandStatistik(const BundelVerband& verband) noexcept : fVerband(&verband) {}

  struct Cameras {
    std::uint32_t fixed = 0;
    std::uint32_t variable = 0;
  };
  // Active cameras.
  [[nodiscard]] Cameras CameraCounts() const;

  struct Distances {
    double rms = 0.0;
    double largest = 0.0;  // of largest magnitude, with its sign; the earlier one of equals
    std::uint32_t count = 0;
  };
  // Residuals of the distances that take part.
  [[nodiscard]] Distances DistanceStatistics() const;

  struct ObjectPoints {
    std::array<double, 3> rms{};      // of the standard deviations of the estimated points
    std::array<double, 3> largest{};  // of largest magnitude
    std::uint32_t fixed = 0;
    std::uint32_t estimated = 0;
    double meanRays = 0.0;  // per active point
  };
  [[nodiscard]] ObjectPoints ObjectPointStatistics() const;

  struct Images {
    double meanRays = 0.0;  // per active image
    std::uint32_t fewestId = 0xFFFFFFFF;
    std::uint32_t fewest = 0xFFFFFFFF;  // rays of that image
    std::uint32_t count = 0;
    std::vector<ImageResiduals> rows;  // orientations, then relative orientations
  };
  [[nodiscard]] Images ImageStatistics() const;

 private:
  const BundelVerband* fVerband;
};

}  // namespace vermo
