#pragma once

#include "diagnostics.h"
#include "parameters.h"

#include <filesystem>
#include <string>
#include <vector>

namespace cardo {

// What job.toml says.
struct JobFile {
  static constexpr const char* kName = "job.toml";

  std::string title;
  std::string lengthUnit;  // of object coordinates, for display
  std::string imageUnit;   // of image coordinates, for display
  ParameterValues parameters;
  Place datumPlace = {};  // of the key datum, for mistakes told later
};

// Every key that may stand in job.toml.
[[nodiscard]] std::vector<std::string> JobFileKeys();

// Mistakes go to the diagnostics; the rest is read all the same.
[[nodiscard]] JobFile ReadJobFile(const std::filesystem::path& path, Diagnostics& diagnostics);

// Lets a setting "name=value" of the command line override the job file.
void ApplySetting(const std::string& setting, JobFile& job, Diagnostics& diagnostics);

// Mistakes that show only when all settings are known.
void CheckSettings(const JobFile& job, Diagnostics& diagnostics);

}  // namespace cardo
