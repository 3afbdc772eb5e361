#pragma once

#include "console.h"

#include <optional>
#include <string>
#include <vector>

namespace cardo {

// cardo-bundle adjust
struct AdjustOptions {
  std::string job;
  std::optional<std::string> output;
  std::optional<std::string> protocol;
  std::vector<std::string> settings;  // name=value
  bool quiet = false;
  bool timing = false;
};

// Reads the job folder, runs the adjustment and writes the results. Answers an ExitStatus.
// Results appear together or not at all.
[[nodiscard]] int Adjust(const AdjustOptions& options, const Console& console);

}  // namespace cardo
