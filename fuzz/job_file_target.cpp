// The job file, and settings of the command line that override it.
//
// Lines that begin with '!' are settings; all others are the job file.
#include "bundle_job.h"
#include "diagnostics.h"
#include "fuzz_targets.h"
#include "job_file.h"
#include "message_rules.h"
#include "parameters.h"
#include "require.h"
#include "scratch_folder.h"

#include <string>
#include <string_view>
#include <vector>

namespace cardo::fuzz {

int FuzzJobFile(const std::uint8_t* data, std::size_t size) {
  static const ScratchFolder folder;
  std::string file;
  std::vector<std::string> settings;
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    const std::string_view line = rest.substr(0, end);
    if (line.starts_with('!')) {
      settings.emplace_back(line.substr(1));
    } else {
      file += line;
      if (end != std::string_view::npos) file += '\n';
    }
    rest = end == std::string_view::npos ? std::string_view{} : rest.substr(end + 1);
  }
  folder.Write(JobFile::kName, file);
  Diagnostics diagnostics;
  JobFile job = ReadJobFile(folder.Path() / JobFile::kName, diagnostics);
  for (const std::string& setting : settings) ApplySetting(setting, job, diagnostics);
  if (diagnostics.IsEmpty()) CheckSettings(job, diagnostics);
  RequireUsefulMessages(diagnostics);
  // What the readers let pass is for the library to take.
  const BundleJob bundle;
  if (diagnostics.IsEmpty()) ApplyParameters(bundle.Handle(), job.parameters);
  return 0;
}

}  // namespace cardo::fuzz
