#pragma once

#include <vector>
#include <xyz_api.h>

namespace cardo {

// All images of the job in their order, with their rotations as matrices: the one form that every
// image can be read in. The job's own format (parameter 18) is as before afterwards.
[[nodiscard]] std::vector<sXYZ_ExteriorOrient2> ReadImagesAsMatrices(void* job);

}  // namespace cardo
