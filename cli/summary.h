#pragma once

#include "active_groups.h"
#include "job_file.h"
#include "rejected_observations.h"
#include "run.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace cardo {

struct CameraParameterSummary {
  std::string name;
  double value;
  bool isEstimated;
  double sigma;  // 0 unless estimated
};

struct CorrelationSummary {
  std::string first, second;
  double value;
};

struct CameraSummary {
  std::int32_t id;
  std::vector<CameraParameterSummary> parameters;
  // Of all pairs of estimated parameters, the strongest first.
  std::vector<CorrelationSummary> correlations;
};

// Residuals of the used image coordinates of an image or a relative orientation, image units.
struct ImageSummary {
  std::int32_t id;
  int rays = 0;      // used
  int outliers = 0;  // marked
  double rmsX = 0.0, rmsY = 0.0;
  double largest = 0.0;  // of either component, with its sign
  std::int32_t largestPoint = -1;
};

struct PointSummary {
  std::int32_t id;
  int rays;
  double sx, sy, sz;
};

struct PointsSummary {
  int active = 0;
  int fixed = 0;
  int estimated = 0;
  double rmsSx = 0.0, rmsSy = 0.0, rmsSz = 0.0;  // over the estimated points
  // Points with the largest standard deviations of position.
  std::vector<PointSummary> worst;
};

// The results of a run in one place.
struct Summary {
  std::string title, lengthUnit, imageUnit;
  double s0Apriori = 0.0, s0 = 0.0;
  int observations = 0, unknowns = 0, constraints = 0, redundancy = 0;
  double redundancySum = 0.0;  // of the redundancy numbers
  int iterations = 0;
  int maxIterations = 0;
  // False if the limit of iterations came first: before the changes were small enough, so that
  // there are no valid standard deviations, or before the adjustment after an outlier test.
  bool converged = true;
  double norm = 0.0;
  // Over the threshold of the last outlier test, as the library counts them.
  int outliers = 0;
  int blunderRounds = 0;
  double criticalValue = 0.0;
  double seconds = 0.0;
  int activeCameras = 0, activeImages = 0, activePoints = 0;
  int cameras = 0, images = 0, points = 0;
  int imageCoordinates = 0, unusedImageCoordinates = 0;
  std::vector<CameraSummary> cameraList;
  std::vector<ImageSummary> imageList;
  PointsSummary pointSummary;
  std::vector<RejectedObservation> rejected;
  std::vector<RunWarning> warnings;
  std::vector<int> cutWarnings;
  // The library's verdict on the datum before the run, see DatumCheck.
  int datumVerdict = 0;
  // Groups that the job has active and the run left out.
  GroupIds lostGroups;
};

inline constexpr std::size_t kWorstPoints = 10;

// What the job was before the run.
struct BeforeRun {
  int datumVerdict = 0;
  GroupIds groups;  // active ones
};

[[nodiscard]] Summary Summarize(void* job,
                                const JobFile& file,
                                const BeforeRun& before,
                                const RunOutcome& outcome);

// For people.
[[nodiscard]] std::string SummaryText(const Summary& summary);
// For programs: one JSON object.
[[nodiscard]] std::string SummaryJson(const Summary& summary);

}  // namespace cardo
