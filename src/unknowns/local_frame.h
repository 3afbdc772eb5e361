#pragma once

#include "linalg/tensors.h"

namespace vermo {

// A frame about a direction: its third row is the unit direction, the second lies across the
// direction and the axis on which the direction has its smallest component, the earlier one of
// equals. Throws TensorExceptDivisionByZero for a zero direction.
[[nodiscard]] ostra_bundle::Rotation3 LocalFrameAbout(const ostra_bundle::VektorD<3>& direction);

}  // namespace vermo
