#include "image_records.h"

#include "image_rotation.h"

#include <cstddef>

namespace cardo {

std::vector<sXYZ_ExteriorOrient2> ReadImagesAsMatrices(void* job) {
  std::vector<sXYZ_ExteriorOrient2> images(static_cast<std::size_t>(XYZ_GetExteriorOrientCnt(job)));
  int format = 0;
  XYZ_GetParam(job, eXYZ_ParamEorFormat, &format);
  XYZ_SetParam(job, eXYZ_ParamEorFormat, static_cast<int>(kMatrix | kDegrees));
  for (std::size_t i = 0; i < images.size(); ++i) {
    XYZ_GetExteriorOrientAt(job, static_cast<int>(i), &images[i]);
  }
  XYZ_SetParam(job, eXYZ_ParamEorFormat, format);
  return images;
}

}  // namespace cardo
