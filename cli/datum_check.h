#pragma once

#include "job_file.h"

#include <string>

namespace cardo {

// Whether the datum of a network is determined, and not twice, as the library's check of the
// settings sees it. It counts elements and looks at no geometry.
struct DatumCheck {
  // The library's verdict, 0 if it does not object.
  int verdict = 0;
  // What the check counts.
  int fixedPoints = 0;
  int fixedImages = 0;
  int protectedPoints = 0;     // with protected measured coordinates
  int protectedDistances = 0;  // between different pairs of points
  int orientations = 0;        // relative orientations whose base image is fixed
  // What it leaves out, because the outlier test may do so.
  int otherMeasured = 0;
  int otherDistances = 0;

  [[nodiscard]] bool Objects() const noexcept { return verdict != 0; }
};

// The job has its records and its parameters, and has not been run.
[[nodiscard]] DatumCheck CheckDatum(void* job);

// The verdict on one line: "the scale is not determined".
[[nodiscard]] std::string DatumVerdict(int verdict);

// The verdict, what was counted and, if the check objects, what would cure it, in lines for the
// terminal.
[[nodiscard]] std::string DescribeDatum(const DatumCheck& check, const JobFile& job);

}  // namespace cardo
