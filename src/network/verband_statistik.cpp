#include "network/verband_statistik.h"

#include "network/bundel_verband.h"

#include <cmath>

namespace vermo {
CameraFigures VerbandStatistik::CameraCounts() const {
  CameraFigures result;
  for (const DataIor& ior : fVerband->fIors)
    if (ior.IsActive()) ++(ior.IsVariable() ? result.variable : result.fixed);
  return result;
}

DistanceFigures VerbandStatistik::DistanceStatistics() const {
  DistanceFigures result;
  double sum = 0.0;
  for (const MessungStrecke& strecke : fVerband->fStrecken) {
    if (!strecke.IsUsed()) continue;
    const double v = strecke.Wert(0).Residuum();
    sum += v * v;
    KeepLarger(result.largest, v);
    ++result.count;
  }
  if (result.count > 0) result.rms = std::sqrt(sum / result.count);
  return result;
}

ObjectPointFigures VerbandStatistik::ObjectPointStatistics() const {
  ObjectPointFigures result;
  std::uint64_t rays = 0;
  for (const DataObko& point : fVerband->fObkos) {
    if (!point.IsActive()) continue;
    rays += point.RayCount();
    if (!point.IsVariable()) {
      ++result.fixed;
      continue;
    }
    ++result.estimated;
    for (unsigned i = 0; i < 3; ++i) {
      const double sigma = point.Sigma()[i];
      result.rms[i] += sigma * sigma;
      KeepLarger(result.largest[i], sigma);
    }
  }
  if (result.estimated > 0)
    for (double& rms : result.rms) rms = std::sqrt(rms / result.estimated);
  const std::uint32_t points = result.fixed + result.estimated;
  if (points > 0) result.meanRays = static_cast<double>(rays) / points;
  return result;
}

ImageFigures VerbandStatistik::ImageStatistics() const {
  ImageFigures result;
  std::uint64_t rays = 0;
  const auto add = [&](const auto& image) {
    if (!image.IsActive()) return;
    const ImageResiduals& row = result.rows.emplace_back(ResidualsOf(image));
    rays += row.rays;
    ++result.count;
    if (row.rays < result.fewest) {
      result.fewest = row.rays;
      result.fewestId = row.id;
    }
  };
  for (const DataEor& eor : fVerband->fEors) add(eor);
  for (const DoppelOrientierung& pair : fVerband->fDoppelOrientierungen) add(pair);
  if (result.count > 0) result.meanRays = static_cast<double>(rays) / result.count;
  return result;
}

}  // namespace vermo
