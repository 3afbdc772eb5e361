#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cardo {

struct JobTables;

// What about a network can leave its normal equations without a solution, by the user's ids.
// Only what is active now counts, and observations that are active and no outliers.
struct NetworkSurvey {
  // Variable points seen by fewer than two images, not measured and not held by constraints.
  std::vector<std::int32_t> weakPoints;
  // Variable images with fewer than three points; a line counts as one from two coordinates on.
  std::vector<std::int32_t> weakImages;
  // Variable cameras whose images have no points.
  std::vector<std::int32_t> unusedCameras;
  // Variable lines seen in fewer than two images that have fewer than two points on them.
  std::vector<std::int32_t> weakLines;
  // Variable planes with fewer than three points on them.
  std::vector<std::int32_t> weakPlanes;
  // The library's verdict on the datum, 0 if it does not object.
  int verdict = 0;
  // Images of each part of the network; parts share no observation and no constraint. Parts without
  // images are not counted.
  std::vector<std::vector<std::int32_t>> parts;
  // Something holds the network in space: fixed points or images, or measured coordinates.
  bool hasControl = false;
  int fixedPoints = 0;
  int fixedImages = 0;
  int measuredPoints = 0;
  int distances = 0;
};

// What the library does not give back counts as it was read into the tables.
[[nodiscard]] NetworkSurvey SurveyNetwork(void* job, const JobTables& tables);

// "3, 7, 12 and 5 more"
[[nodiscard]] std::string ListOfIds(const std::vector<std::int32_t>& ids);

}  // namespace cardo
