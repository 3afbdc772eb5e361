#pragma once

#include <fstream>
#include <string>

namespace cardo::bench {

// The largest memory that this process has held, in MiB; 0 where the system does not tell.
inline double PeakMebibytes() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    double kibibytes = 0.0;
    if (word == "VmHWM:" && status >> kibibytes) return kibibytes / 1024.0;
  }
  return 0.0;
}

}  // namespace cardo::bench
