#pragma once

#include "console.h"
#include "timing.h"

#include <optional>
#include <string>

namespace cardo {

// Why a run failed, as its protocol says.
struct ProtocolFailure {
  int code;
  std::string text;  // UTF-8, often empty
};

// Finds the failure in the last part of a protocol, as the library hands it out (ISO 8859-1).
[[nodiscard]] std::optional<ProtocolFailure> FindFailure(const std::string& protocol);

struct RunOutcome {
  int status = 0;
  int iterations = 0;
  double seconds = 0.0;
  std::optional<ProtocolFailure> failure = {};
};

// Runs the job and shows a line per iteration if asked to. console.cancelled, looked at after
// each iteration, ends the run. Replaces the job's callbacks. Adds the times of the run's stages.
[[nodiscard]] RunOutcome Run(void* job, const Console& console, bool showProgress, Timing& timing);

}  // namespace cardo
