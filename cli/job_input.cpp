#include "job_input.h"

#include "exit_status.h"

#include <filesystem>
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <system_error>

namespace cardo {
namespace fs = std::filesystem;

void Poll(const Console& console) {
  if (console.IsCancelled()) throw Cancelled();
}

JobFile ReadSettings(const std::string& folder,
                     const std::vector<std::string>& settings,
                     Diagnostics& diagnostics) {
  std::error_code error;
  if (!fs::is_directory(folder, error)) {
    diagnostics.Add({folder},
                    fs::exists(folder, error) ? "is a file, expected a job folder"
                                              : "does not exist, expected a job folder");
    return {};
  }
  JobFile file = ReadJobFile(fs::path(folder) / JobFile::kName, diagnostics);
  for (const std::string& setting : settings) ApplySetting(setting, file, diagnostics);
  CheckSettings(file, diagnostics);
  return file;
}

int TellMistakes(const Diagnostics& diagnostics, const Console& console) {
  for (const Diagnostic& diagnostic : diagnostics.List()) {
    fmt::print(console.err, "{}\n", ToString(diagnostic));
  }
  return kExitBadInput;
}

}  // namespace cardo
