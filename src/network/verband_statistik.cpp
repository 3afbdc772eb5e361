#include "network/verband_statistik.h"

#include "network/bundel_verband.h"

#include <cmath>

namespace vermo {
namespace {

void KeepLarger(double& largest, double candidate) {
  if (std::fabs(candidate) > std::fabs(largest)) largest = candidate;
}

template <typename Counts>
ImageResiduals CollectResiduals(const Data& group, std::uint32_t id, Counts counts) {
  ImageResiduals result;
  result.imageId = id;
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

}  // namespace

ImageResiduals ResidualsOf(const DataEor& image) {
  return CollectResiduals(image, image.Id(), [&image](const MessungBiko& biko) {
    return biko.BildNummer() == image.Id();
  });
}

ImageResiduals ResidualsOf(const DoppelOrientierung& pair) {
  return CollectResiduals(pair, pair.Id(), [](const MessungBiko&) { return true; });
}

VerbandStatistik::Cameras VerbandStatistik::CameraCounts() const {
  Cameras result;
  for (const DataIor& ior : fVerband->fIors)
    if (ior.IsActive()) ++(ior.IsVariable() ? result.variable : result.fixed);
  return result;
}

VerbandStatistik::Distances VerbandStatistik::DistanceStatistics() const {
  Distances result;
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

VerbandStatistik::ObjectPoints VerbandStatistik::ObjectPointStatistics() const {
  ObjectPoints result;
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

VerbandStatistik::Images VerbandStatistik::ImageStatistics() const {
  Images result;
  std::uint64_t rays = 0;
  const auto add = [&](const auto& image) {
    if (!image.IsActive()) return;
    const ImageResiduals& row = result.rows.emplace_back(ResidualsOf(image));
    rays += row.rays;
    ++result.count;
    if (row.rays < result.fewest) {
      result.fewest = row.rays;
      result.fewestId = row.imageId;
    }
  };
  for (const DataEor& eor : fVerband->fEors) add(eor);
  for (const DoppelOrientierung& pair : fVerband->fDoppelOrientierungen) add(pair);
  if (result.count > 0) result.meanRays = static_cast<double>(rays) / result.count;
  return result;
}

}  // namespace vermo
