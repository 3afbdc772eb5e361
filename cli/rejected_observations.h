#pragma once

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace cardo {

// An observation that the run leaves marked as outlier.
struct RejectedObservation {
  std::string_view table;  // "image_coordinates"
  int row;                 // 1 for the first record of the table
  // What it refers to, by the name of the column: {"point", 3}, {"image", 7}.
  std::vector<std::pair<std::string_view, std::int32_t>> ids;
  // False mostly because the run left out a group that it needs: it has no results then.
  bool isActive;
  // Of every component, in the unit of the observation.
  std::vector<double> residuals;
  // Of every component; 0 without an outlier test.
  std::vector<double> testValues;

  [[nodiscard]] double LargestTestValue() const;
};

// All of a job, those with the largest test values first, equal ones in the order of their tables.
// Line image coordinates that the library does not give back are not among them.
[[nodiscard]] std::vector<RejectedObservation> RejectedObservations(void* job);

}  // namespace cardo
