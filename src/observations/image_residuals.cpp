#include "observations/image_residuals.h"

#include "observations/messung_biko.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_ior.h"
#include "unknowns/doppel_orientierung.h"

namespace vermo {
namespace {

template <typename Counts>
ImageResiduals CollectResiduals(const Data& group, std::uint32_t id, Counts counts) {
  ImageResiduals result;
  result.id = id;
  double sumX = 0.0;
  double sumY = 0.0;
  for (const LinkedObservation* linked : group.Messungen()) {
    if (linked->Kind() != MessungKind::Biko || !linked->IsUsed()) continue;
    const auto& biko = static_cast<const MessungBiko&>(*linked);
    if (!counts(biko)) continue;
    const double vx = biko.Wert(0).Residuum();
    const double vy = biko.Wert(1).Residuum();
    sumX += vx * vx;
    sumY += vy * vy;
    KeepLarger(result.maxVx, vx);
    KeepLarger(result.maxVy, vy);
    ++result.rays;
  }
  if (result.rays > 0) {
    result.rmsVx = std::sqrt(sumX / result.rays);
    result.rmsVy = std::sqrt(sumY / result.rays);
  }
  return result;
}

bool EveryRay(const MessungBiko& /*biko*/) { return true; }

}  // namespace

ImageResiduals ResidualsOf(const DataEor& image) {
  return CollectResiduals(image, image.Id(), [&image](const MessungBiko& biko) {
    return biko.BildNummer() == image.Id();
  });
}

ImageResiduals ResidualsOf(const DoppelOrientierung& pair) {
  return CollectResiduals(pair, pair.Id(), EveryRay);
}

ImageResiduals ResidualsOf(const DataIor& camera) {
  return CollectResiduals(camera, camera.Id(), EveryRay);
}

}  // namespace vermo
