#pragma once

#include "protocol/network_figures.h"

namespace vermo {

class BundelVerband;

// Figures of a network, computed on demand at its present state.
class VerbandStatistik {
 public:
  explicit VerbandStatistik(const BundelVerband& verband) noexcept : fVerband(&verband) {}

  // Active cameras.
  [[nodiscard]] CameraFigures CameraCounts() const;
  // Residuals of the distances that take part.
  [[nodiscard]] DistanceFigures DistanceStatistics() const;
  [[nodiscard]] ObjectPointFigures ObjectPointStatistics() const;
  [[nodiscard]] ImageFigures ImageStatistics() const;

 private:
  const BundelVerband* fVerband;
};

}  // namespace vermo
