#pragma once

#include "reference/dense_adjustment.h"
#include "xyz_api.h"

namespace vermo::test {

// Calls take(records, set) for every list of the network, what others refer to first, with the
// library's function that takes a record of it.
template <typename Take>
void HandOver(const reference::Network& network, Take take) {
  take(network.cameras, XYZ_SetInteriorOrientation);
  take(network.images, XYZ_SetExteriorOrientation2);
  take(network.points, XYZ_SetObjectCoord);
  take(network.projections, XYZ_SetProjection);
  take(network.pairs, XYZ_SetRelativeOrientation);
  take(network.imagePoints, XYZ_SetPictureCoord);
  take(network.measured, XYZ_SetMeasuredObjectCoord);
  take(network.distances, XYZ_SetDistance);
}

// Its datum as eXYZ_ParamDatum takes it.
inline int DatumOf(const reference::Network& network) {
  return (network.datumTranslation ? 0x700 : 0) | (network.datumRotation ? 0x3800 : 0) |
         (network.datumScale ? 0x4000 : 0);
}

}  // namespace vermo::test
