#include "unknowns/local_frame.h"

#include <cmath>

namespace vermo {

ostra_bundle::Rotation3 LocalFrameAbout(const ostra_bundle::VektorD<3>& direction) {
  std::size_t smallest = std::fabs(direction[1]) < std::fabs(direction[0]) ? 1 : 0;
  if (std::fabs(direction[2]) < std::fabs(direction[smallest])) smallest = 2;
  ostra_bundle::VektorD<3> axis{0.0, 0.0, 0.0};
  axis[smallest] = 1.0;
  return ostra_bundle::FrameFromVectors(direction, axis);
}

}  // namespace vermo
