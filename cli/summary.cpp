#include "summary.h"

#include "camera_parameters.h"
#include "image_records.h"
#include "record_flags.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <xyz_api.h>

namespace cardo {
namespace {

int IntResult(void* job, eXYZ_Result which) {
  int value = 0;
  XYZ_GetResult(job, which, &value);
  return value;
}

double RealResult(void* job, eXYZ_Result which) {
  double value = 0.0;
  XYZ_GetResult(job, which, &value);
  return value;
}

// A run that ends at its limit of iterations is no failure. Whether it converged in the last of
// them shows in the redundancy numbers: they belong to the last system only then, and their sum
// is the redundancy.
bool HasConverged(const Summary& summary, const RunOutcome& outcome) {
  if (summary.iterations < summary.maxIterations) return true;
  if (outcome.blunderRounds > 0 && outcome.marksChanged) return false;
  constexpr double kHalfAnObservation = 0.5;
  return summary.iterations > 0 &&
         std::abs(summary.redundancySum - summary.redundancy) < kHalfAnObservation;
}

CameraSummary SummarizeCamera(const sXYZ_InteriorOrient& camera) {
  CameraSummary summary{camera.Id, {}, {}};
  const bool isVariable = (camera.Flags & (kActive | kFixed)) == kActive;
  for (std::size_t i = 0; i < kCameraParameters.size(); ++i) {
    const CameraParameter& parameter = kCameraParameters[i];
    const bool isEstimated = isVariable && (camera.ParameterMask & parameter.bit) != 0;
    summary.parameters.push_back({std::string(parameter.name),
                                  camera.*parameter.value,
                                  isEstimated,
                                  isEstimated ? camera.Sigma[i] : 0.0});
    for (std::size_t j = 0; j < i && isEstimated; ++j) {
      if (!summary.parameters[j].isEstimated) continue;
      summary.correlations.push_back({std::string(kCameraParameters[j].name),
                                      std::string(parameter.name),
                                      camera.Correlation[j][i]});
    }
  }
  std::stable_sort(summary.correlations.begin(),
                   summary.correlations.end(),
                   [](const CorrelationSummary& a, const CorrelationSummary& b) {
                     return std::abs(a.value) > std::abs(b.value);
                   });
  return summary;
}

void SummarizeCameras(void* job, Summary& summary) {
  auto camera = std::make_unique<sXYZ_InteriorOrient>();
  summary.cameras = XYZ_GetInteriorOrientCnt(job);
  for (int i = 0; i < summary.cameras; ++i) {
    if (XYZ_GetInteriorOrientAt(job, i, camera.get()) != eXYZ_Ok) continue;
    summary.cameraList.push_back(SummarizeCamera(*camera));
  }
}

void AddRay(const sXYZ_PictureCoord& ray, ImageSummary& image) {
  if ((ray.Flags & kOutlier) != 0) ++image.outliers;
  if (!IsUsed(ray.Flags)) return;
  ++image.rays;
  image.rmsX += ray.Vx * ray.Vx;
  image.rmsY += ray.Vy * ray.Vy;
  for (const double v : {ray.Vx, ray.Vy}) {
    if (image.largestPoint >= 0 && std::abs(v) <= std::abs(image.largest)) continue;
    image.largest = v;
    image.largestPoint = ray.PointId;
  }
}

void SummarizeImages(void* job, Summary& summary) {
  std::map<std::int32_t, std::size_t> indexOfId;
  const auto addImage = [&](std::int32_t id) {
    indexOfId[id] = summary.imageList.size();
    ImageSummary image{};
    image.id = id;
    summary.imageList.push_back(image);
  };
  summary.images = XYZ_GetExteriorOrientCnt(job);
  for (const sXYZ_ExteriorOrient2& image : ReadImagesAsMatrices(job)) addImage(image.Id);
  sXYZ_RelativeOrientation orientation{};
  for (int i = 0; i < XYZ_GetRelativeOrientationCnt(job); ++i) {
    if (XYZ_GetRelativeOrientationAt(job, i, &orientation) == eXYZ_Ok) addImage(orientation.Id);
  }
  sXYZ_PictureCoord ray{};
  summary.imageCoordinates = XYZ_GetPictureCoordCnt(job);
  for (int i = 0; i < summary.imageCoordinates; ++i) {
    if (XYZ_GetPictureCoordsAt(job, i, &ray) != eXYZ_Ok) continue;
    if (!IsUsed(ray.Flags)) ++summary.unusedImageCoordinates;
    const auto index = indexOfId.find(ray.EorId);
    if (index != indexOfId.end()) AddRay(ray, summary.imageList[index->second]);
  }
  for (ImageSummary& image : summary.imageList) {
    if (image.rays == 0) continue;
    image.rmsX = std::sqrt(image.rmsX / image.rays);
    image.rmsY = std::sqrt(image.rmsY / image.rays);
  }
}

void SummarizePoints(void* job, Summary& summary) {
  PointsSummary& points = summary.pointSummary;
  std::vector<PointSummary> estimated;
  sXYZ_ObjectCoord point{};
  summary.points = XYZ_GetObjectCoordCnt(job);
  for (int i = 0; i < summary.points; ++i) {
    if (XYZ_GetObjectCoordAt(job, i, &point) != eXYZ_Ok || (point.Flags & kActive) == 0) continue;
    ++points.active;
    if ((point.Flags & kFixed) != 0) {
      ++points.fixed;
      continue;
    }
    estimated.push_back({point.Id, point.RayCount, point.Sx, point.Sy, point.Sz});
    points.rmsSx += point.Sx * point.Sx;
    points.rmsSy += point.Sy * point.Sy;
    points.rmsSz += point.Sz * point.Sz;
  }
  points.estimated = static_cast<int>(estimated.size());
  if (estimated.empty()) return;
  for (double* rms : {&points.rmsSx, &points.rmsSy, &points.rmsSz}) {
    *rms = std::sqrt(*rms / points.estimated);
  }
  const auto square = [](const PointSummary& p) { return p.sx * p.sx + p.sy * p.sy + p.sz * p.sz; };
  const std::size_t shown = std::min(kWorstPoints, estimated.size());
  std::partial_sort(estimated.begin(),
                    estimated.begin() + static_cast<std::ptrdiff_t>(shown),
                    estimated.end(),
                    [&square](const PointSummary& a, const PointSummary& b) {
                      const double ofA = square(a);
                      const double ofB = square(b);
                      return ofA != ofB ? ofA > ofB : a.id < b.id;
                    });
  estimated.resize(shown);
  points.worst = std::move(estimated);
}

}  // namespace

Summary Summarize(void* job,
                  const JobFile& file,
                  const BeforeRun& before,
                  const RunOutcome& outcome) {
  Summary summary;
  summary.title = file.title;
  summary.lengthUnit = file.lengthUnit;
  summary.imageUnit = file.imageUnit;
  summary.s0Apriori = std::get<double>(ValueOf(file.parameters, "s0_apriori"));
  summary.maxIterations = std::get<int>(ValueOf(file.parameters, "max_iterations"));
  summary.iterations = outcome.iterations;
  summary.seconds = outcome.seconds;
  summary.s0 = RealResult(job, eXYZ_ResultS0);
  summary.observations = IntResult(job, eXYZ_ResultObservations);
  summary.unknowns = IntResult(job, eXYZ_ResultUnknowns);
  summary.constraints = IntResult(job, eXYZ_ResultConstraints);
  summary.redundancy = IntResult(job, eXYZ_ResultRedundancy);
  summary.redundancySum = RealResult(job, eXYZ_ResultRedundancyValue);
  summary.norm = RealResult(job, eXYZ_ResultNorm);
  summary.outliers = IntResult(job, eXYZ_ResultBlunderCount);
  summary.criticalValue = RealResult(job, eXYZ_ResultBlunderTestValue);
  summary.activeCameras = IntResult(job, eXYZ_ResultActiveIors);
  summary.activeImages = IntResult(job, eXYZ_ResultActiveEors);
  summary.activePoints = IntResult(job, eXYZ_ResultActiveObkos);
  summary.converged = HasConverged(summary, outcome);
  summary.blunderRounds = outcome.blunderRounds;
  summary.rejected = RejectedObservations(job);
  summary.warnings = outcome.warnings;
  summary.cutWarnings = outcome.cutWarnings;
  summary.datumVerdict = before.datumVerdict;
  summary.lostGroups = Without(before.groups, ActiveGroups(job));
  SummarizeCameras(job, summary);
  SummarizeImages(job, summary);
  SummarizePoints(job, summary);
  return summary;
}

}  // namespace cardo
