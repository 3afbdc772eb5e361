#include "job_file.h"

#include "nearest_name.h"
#include "text_encoding.h"

#include <cerrno>
#include <cstdio>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>
// The parser asserts some of what it tells as a mistake a line later, and with NDEBUG lets the
// compiler rely on it: input is never asserted and never assumed.
#pragma push_macro("NDEBUG")
#undef NDEBUG
#define TOML_ASSERT(condition) static_cast<void>(0)
#include <toml++/toml.h>
#pragma pop_macro("NDEBUG")

namespace cardo {
namespace {

constexpr std::size_t kLargestFile = std::size_t{1} << 20U;

struct DisplayKey {
  const char* name;
  std::string JobFile::*value;
};

constexpr DisplayKey kDisplayKeys[] = {{"title", &JobFile::title},
                                       {"length_unit", &JobFile::lengthUnit},
                                       {"image_unit", &JobFile::imageUnit}};

Place PlaceOf(const toml::source_region& region) {
  return {JobFile::kName, region.begin.line, region.begin.column};
}

// The text as it stands in the file, for "found".
std::string SourceText(const toml::node& node) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  node.visit([&text](const auto& concrete) { text << concrete; });
  return text.str();
}

std::string Found(const toml::node& node) {
  if (const auto* string = node.as_string()) return Quoted(string->get());
  return Quoted(SourceText(node));
}

std::optional<std::string> ReadText(const std::filesystem::path& path, Diagnostics& diagnostics) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) {
    diagnostics.Add({JobFile::kName},
                    fmt::format("does not exist in {}, expected a job file there",
                                Quoted(path.parent_path().string())));
    return std::nullopt;
  }
  if (std::filesystem::is_directory(status)) {
    diagnostics.Add({JobFile::kName}, "is a folder, expected a file");
    return std::nullopt;
  }
  if (!std::filesystem::is_regular_file(status)) {
    diagnostics.Add({JobFile::kName}, "is a device or a pipe, expected a file");
    return std::nullopt;
  }
  errno = 0;
  std::ifstream stream(path, std::ios::binary);
  std::string text;
  if (stream) {
    text.resize(kLargestFile + 1);
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(stream.gcount()));
  }
  if (!stream.is_open() || stream.bad()) {
    diagnostics.Add({JobFile::kName}, "cannot be read: " + std::generic_category().message(errno));
    return std::nullopt;
  }
  if (text.size() > kLargestFile) {
    diagnostics.Add({JobFile::kName},
                    fmt::format("expected at most {} bytes, the file is larger", kLargestFile));
    return std::nullopt;
  }
  return text;
}

bool IsUtf8(std::string_view text, Diagnostics& diagnostics) {
  const std::string_view encoding = ForeignEncoding(text);
  if (!encoding.empty()) {
    diagnostics.Add({JobFile::kName, 1, 1},
                    fmt::format("the file is {}, expected UTF-8", encoding));
    return false;
  }
  const auto position = FindNoText(text);
  if (!position) return true;
  const std::string_view before = text.substr(0, *position);
  const std::size_t lineEnd = before.rfind('\n');
  const std::string_view line =
      lineEnd == std::string_view::npos ? before : before.substr(lineEnd + 1);
  std::size_t lineNumber = 1;
  for (const char c : before) lineNumber += c == '\n' ? 1 : 0;
  const auto byte = static_cast<unsigned char>(text[*position]);
  diagnostics.Add({JobFile::kName, lineNumber, CountCharacters(line) + 1},
                  byte < 0x80
                      ? fmt::format("expected text, found the control character 0x{:02X}", byte)
                      : fmt::format("expected UTF-8, found the byte 0x{:02X}", byte));
  return false;
}

// The words of a string or of an array of strings.
std::optional<std::vector<std::string>> WordsOf(const toml::node& node) {
  if (const auto* string = node.as_string()) return std::vector<std::string>{string->get()};
  const auto* array = node.as_array();
  if (array == nullptr) return std::nullopt;
  std::vector<std::string> words;
  for (const toml::node& element : *array) {
    const auto* string = element.as_string();
    if (string == nullptr) return std::nullopt;
    words.push_back(string->get());
  }
  return words;
}

bool FromNode(const Parameter& parameter, const toml::node& node, ParameterValue& value) {
  if (const auto* real = node.as_floating_point()) return FromReal(parameter, real->get(), value);
  if (const auto* integer = node.as_integer()) return FromInteger(parameter, integer->get(), value);
  if (const auto* boolean = node.as_boolean()) return FromSwitch(parameter, boolean->get(), value);
  // A list belongs to a set, and a set is always a list.
  if (node.is_array() != (parameter.kind == ParameterKind::kSet)) return false;
  const auto words = WordsOf(node);
  return words && FromWords(parameter, *words, value);
}

void ReadKey(const toml::key& key, const toml::node& node, JobFile& job, Diagnostics& diagnostics) {
  for (const DisplayKey& display : kDisplayKeys) {
    if (key.str() != display.name) continue;
    if (const auto* string = node.as_string()) {
      job.*display.value = string->get();
    } else {
      diagnostics.Add(PlaceOf(node.source()),
                      fmt::format("{} must be a text in quotes, found {}", key.str(), Found(node)));
    }
    return;
  }
  const Parameter* parameter = FindParameter(key.str());
  if (parameter == nullptr) {
    diagnostics.Add(
        PlaceOf(key.source()),
        fmt::format("unknown key {}{}", Quoted(key.str()), Suggestion(key.str(), JobFileKeys())));
    return;
  }
  ParameterValue value;
  if (!FromNode(*parameter, node, value)) {
    diagnostics.Add(
        PlaceOf(node.source()),
        fmt::format("{} must be {}, found {}", key.str(), Expectation(*parameter), Found(node)));
    return;
  }
  if (key.str() == "datum") job.datumPlace = PlaceOf(key.source());
  job.parameters[parameter->name] = value;
}

}  // namespace

std::vector<std::string> JobFileKeys() {
  std::vector<std::string> keys;
  for (const DisplayKey& display : kDisplayKeys) keys.emplace_back(display.name);
  for (std::string& name : ParameterNames()) keys.push_back(std::move(name));
  return keys;
}

JobFile ReadJobFile(const std::filesystem::path& path, Diagnostics& diagnostics) {
  JobFile job;
  const auto text = ReadText(path, diagnostics);
  if (!text || !IsUtf8(*text, diagnostics)) return job;
  try {
    const toml::table table = toml::parse(*text);
    for (const auto& [key, node] : table) ReadKey(key, node, job, diagnostics);
  } catch (const toml::parse_error& error) {
    diagnostics.Add(PlaceOf(error.source()), std::string(error.description()));
  }
  return job;
}

void ApplySetting(const std::string& setting, JobFile& job, Diagnostics& diagnostics) {
  const Place place{"--set"};
  const std::size_t equals = setting.find('=');
  if (equals == std::string::npos) {
    diagnostics.Add(place, fmt::format("expected name=value, found {}", Quoted(setting)));
    return;
  }
  const std::string name = setting.substr(0, equals);
  if (FindNoText(name)) {
    diagnostics.Add(place, fmt::format("expected name=value, found {}", Quoted(setting)));
    return;
  }
  const std::string text = setting.substr(equals + 1);
  if (FindNoText(text)) {
    diagnostics.Add(place, fmt::format("{} must be UTF-8, found {}", name, Quoted(text)));
    return;
  }
  for (const DisplayKey& display : kDisplayKeys) {
    if (name == display.name) {
      job.*display.value = text;
      return;
    }
  }
  const Parameter* parameter = FindParameter(name);
  if (parameter == nullptr) {
    diagnostics.Add(place,
                    fmt::format("unknown key {}{}", Quoted(name), Suggestion(name, JobFileKeys())));
    return;
  }
  ParameterValue value;
  if (!FromText(*parameter, text, value)) {
    diagnostics.Add(
        place, fmt::format("{} must be {}, found {}", name, Expectation(*parameter), Quoted(text)));
    return;
  }
  if (name == "datum") job.datumPlace = place;
  job.parameters[parameter->name] = value;
}

void CheckSettings(const JobFile& job, Diagnostics& diagnostics) {
  const double lower = std::get<double>(ValueOf(job.parameters, "dynamic_lower"));
  const double upper = std::get<double>(ValueOf(job.parameters, "dynamic_upper"));
  if (lower > upper) {
    diagnostics.Add({JobFile::kName},
                    fmt::format("dynamic_lower must not be above dynamic_upper, found \"{}\" and "
                                "\"{}\"",
                                lower,
                                upper));
  }
}

}  // namespace cardo
