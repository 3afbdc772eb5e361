#pragma once

#include "console.h"

#include <string>
#include <vector>

namespace cardo {

// cardo-bundle check
struct CheckOptions {
  std::string job;
  std::vector<std::string> settings;  // name=value
};

// Reads the job folder and tells whether its datum is determined, and not twice, and what would
// cure it. Answers an ExitStatus: kExitRunFailed if the check objects.
[[nodiscard]] int Check(const CheckOptions& options, const Console& console);

}  // namespace cardo
