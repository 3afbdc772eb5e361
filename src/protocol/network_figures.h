#pragma once

#include "observations/image_residuals.h"

#include <array>
#include <cstdint>
#include <vector>

namespace vermo {

// Figures of a whole network, as its summary tells them.

// Active cameras.
struct CameraFigures {
  std::uint32_t fixed = 0;
  std::uint32_t variable = 0;
};

// Residuals of the distances that take part.
struct DistanceFigures {
  double rms = 0.0;
  double largest = 0.0;  // of largest magnitude, with its sign; the earlier one of equals
  std::uint32_t count = 0;
};

// Active object points.
struct ObjectPointFigures {
  std::array<double, 3> rms{};      // of the standard deviations of the estimated points
  std::array<double, 3> largest{};  // of largest magnitude
  std::uint32_t fixed = 0;
  std::uint32_t estimated = 0;
  double meanRays = 0.0;  // per active point
};

// Active images.
struct ImageFigures {
  double meanRays = 0.0;  // per image
  std::uint32_t fewestId = 0xFFFFFFFF;
  std::uint32_t fewest = 0xFFFFFFFF;  // rays of that image
  std::uint32_t count = 0;
  std::vector<ImageResiduals> rows;  // orientations, then relative orientations
};

struct NetworkFigures {
  CameraFigures cameras;
  ObjectPointFigures objectPoints;
  DistanceFigures distances;
  ImageFigures images;
};

}  // namespace vermo
