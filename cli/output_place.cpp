#include "output_place.h"

#include "job_file.h"

#include <algorithm>
#include <fmt/format.h>
#include <system_error>

namespace cardo {
namespace {

namespace fs = std::filesystem;

// The path without dots and links, as far as it exists.
fs::path Plain(const fs::path& path) {
  std::error_code error;
  // What does not exist would stay relative.
  const fs::path absolute = fs::absolute(path, error);
  fs::path plain = fs::weakly_canonical(absolute, error);
  if (error) plain = absolute.lexically_normal();
  // "results/" names the folder "results".
  return plain.has_filename() ? plain : plain.parent_path();
}

// The job file and the tables of a job folder.
std::vector<fs::path> InputsOf(const fs::path& job) {
  std::vector<fs::path> inputs = {job / JobFile::kName};
  std::error_code error;
  for (fs::directory_iterator entry(job, error), end; !error && entry != end;
       entry.increment(error)) {
    if (entry->path().extension() == ".csv") inputs.push_back(entry->path());
  }
  std::sort(inputs.begin(), inputs.end());
  return inputs;
}

// The input that is the same file, if there is one.
std::optional<fs::path> FindSame(const fs::path& file, const std::vector<fs::path>& inputs) {
  for (const fs::path& input : inputs) {
    std::error_code ignored;
    if (fs::equivalent(file, input, ignored)) return input;
  }
  return std::nullopt;
}

void CheckFiles(const std::vector<fs::path>& inputs,
                const fs::path& folder,
                const std::vector<std::string>& names,
                Diagnostics& diagnostics) {
  for (const std::string& name : names) {
    const auto input = FindSame(folder / name, inputs);
    if (!input) continue;
    diagnostics.Add({"--output"},
                    fmt::format("{} is {} of the job, results would replace it",
                                Quoted((folder / name).string()),
                                Quoted(input->filename().string())));
  }
}

void CheckFolder(const fs::path& job, const fs::path& folder, Diagnostics& diagnostics) {
  const Place place{"--output"};
  std::error_code ignored;
  if (Plain(folder) == Plain(job)) {
    diagnostics.Add(place, "must not be the job folder itself, results would replace its tables");
  } else if (fs::exists(folder / JobFile::kName, ignored)) {
    diagnostics.Add(place,
                    fmt::format("{} is a job folder, results would replace its tables",
                                Quoted(folder.string())));
  } else if (fs::exists(folder, ignored) && !fs::is_directory(folder, ignored)) {
    diagnostics.Add(place, fmt::format("{} must be a folder, is a file", Quoted(folder.string())));
  }
}

void CheckProtocol(const fs::path& job,
                   const OutputPlace& place,
                   const std::vector<std::string>& resultNames,
                   Diagnostics& diagnostics) {
  const fs::path& protocol = *place.protocol;
  const Place argument{"--protocol"};
  const std::string quoted = Quoted(protocol.string());
  std::error_code ignored;
  if (protocol.filename().empty() || fs::is_directory(protocol, ignored)) {
    diagnostics.Add(argument, fmt::format("{} must be a file, is a folder", quoted));
    return;
  }
  const fs::path plain = Plain(protocol);
  const std::string name = plain.filename().string();
  const bool hasInputName = name == JobFile::kName || plain.extension() == ".csv";
  if ((hasInputName && plain.parent_path() == Plain(job)) || FindSame(plain, InputsOf(job))) {
    diagnostics.Add(argument, fmt::format("{} is an input of the job", quoted));
    return;
  }
  if (hasInputName && fs::exists(plain.parent_path() / JobFile::kName, ignored)) {
    diagnostics.Add(argument, fmt::format("{} is an input of another job", quoted));
    return;
  }
  if (fs::exists(protocol, ignored) && !fs::is_regular_file(protocol, ignored)) {
    diagnostics.Add(argument, fmt::format("{} must be a file, is a device or a pipe", quoted));
    return;
  }
  if (plain.parent_path() == Plain(place.folder)) {
    if (std::find(resultNames.begin(), resultNames.end(), name) != resultNames.end()) {
      diagnostics.Add(argument, fmt::format("{} is the name of another result", quoted));
    }
    return;
  }
  if (!fs::is_directory(plain.parent_path(), ignored)) {
    diagnostics.Add(argument, fmt::format("{} must be in a folder that exists", quoted));
  }
}

}  // namespace

OutputPlace FindOutputPlace(const fs::path& job,
                            const std::optional<std::string>& output,
                            const std::optional<std::string>& protocol,
                            const std::vector<std::string>& resultNames,
                            Diagnostics& diagnostics) {
  OutputPlace place{output ? fs::path(*output) : job / kDefaultOutputFolder};
  if (place.folder.empty()) {
    diagnostics.Add({"--output"}, "must be a folder, found \"\"");
    return place;
  }
  CheckFolder(job, place.folder, diagnostics);
  std::vector<std::string> names = resultNames;
  if (!protocol) names.emplace_back(kProtocolName);
  if (diagnostics.IsEmpty()) CheckFiles(InputsOf(job), place.folder, names, diagnostics);
  if (protocol) {
    place.protocol = fs::path(*protocol);
    CheckProtocol(job, place, resultNames, diagnostics);
  }
  return place;
}

}  // namespace cardo
