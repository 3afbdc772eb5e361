#pragma once

#include "console.h"
#include "protocol_reader.h"
#include "timing.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace cardo {

struct RunOutcome {
  int status = 0;
  int iterations = 0;
  double seconds = 0.0;
  // Outlier tests, 0 if the job asks for none, and whether the last one changed marks: then the
  // limit of iterations kept the run from another adjustment, or S0 is nothing.
  int blunderRounds = 0;
  bool marksChanged = false;
  // Of a run that did not fail; see ProtocolReader.
  std::vector<RunWarning> warnings = {};
  std::vector<int> cutWarnings = {};
  // Bytes of the protocol; its file has as many unless it could not be written.
  std::uintmax_t protocolSize = 0;
  std::optional<ProtocolFailure> failure = {};
};

// Runs the job and shows a line per iteration if asked to. console.cancelled, looked at after
// each iteration, ends the run. Replaces the job's callbacks. Adds the times of the run's stages.
[[nodiscard]] RunOutcome Run(void* job, const Console& console, bool showProgress, Timing& timing);

}  // namespace cardo
