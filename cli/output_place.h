#pragma once

#include "diagnostics.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace cardo {

// Where the results of a job go.
struct OutputPlace {
  std::filesystem::path folder;
  // Of the protocol, if it does not go to the folder.
  std::optional<std::filesystem::path> protocol = {};
};

inline constexpr const char* kDefaultOutputFolder = "results";
inline constexpr const char* kProtocolName = "protocol.htm";
inline constexpr const char* kFailedProtocolName = "protocol-failed.htm";
inline constexpr const char* kSummaryName = "summary.json";

// Checks that nothing of the job folder, or of another job folder, can be written over, under
// whatever name: through links, dots, or as another name of the same file.
// resultNames are the files that will be written into the folder.
[[nodiscard]] OutputPlace FindOutputPlace(const std::filesystem::path& job,
                                          const std::optional<std::string>& output,
                                          const std::optional<std::string>& protocol,
                                          const std::vector<std::string>& resultNames,
                                          Diagnostics& diagnostics);

}  // namespace cardo
