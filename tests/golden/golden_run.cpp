#include "golden/golden_run.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <unistd.h>
#include <vector>

namespace golden {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// Hexadecimal floats show every bit of rounding: those of computed values are compared to seven
// digits, in whatever width.
std::string RoundedHexadecimals(const std::string& text) {
  static const std::regex kComputed(" *(-?0x1\\.[0-9a-f]{8,}p[+-][0-9]+)");
  std::string result;
  auto rest = text.cbegin();
  for (std::sregex_iterator match(text.begin(), text.end(), kComputed), end; match != end;
       ++match) {
    result.append(rest, match->prefix().second);
    char number[32];
    std::snprintf(number, sizeof number, " %.6e", std::strtod((*match)[1].str().c_str(), nullptr));
    result += number;
    rest = (*match)[0].second;
  }
  return result.append(rest, text.cend());
}

std::string ReadFile(const std::string& name) {
  std::ifstream file(name, std::ios_base::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace

ProtocolFile::ProtocolFile() {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string test = info->name();
  for (char& c : test)
    if (c == '/') c = '_';
  fName = (fs::temp_directory_path() / ("cardo_golden_" + test + "_" + std::to_string(::getpid())))
              .string();
}

ProtocolFile::~ProtocolFile() {
  std::error_code ignored;
  fs::remove(fName, ignored);
}

std::string ProtocolFile::Contents() const { return ReadFile(fName); }

void SetProcessLanguage(Language language) {
  const Job job(XYZ_CreateJob("unused.htm"));
  XYZ_SetParam(job.get(), eXYZ_ParamLanguage, language == Language::German ? 1 : 2);
}

void CollectText(void* /*job*/, char* text, void* userData) {
  *static_cast<std::string*>(userData) += text;
}

std::string Masked(const std::string& protocol) {
  // Weekday, day, month, year and time behind the labels of the first and the last line; the run
  // time; the three times of an iteration; and the multipliers of a datum without strain, which are
  // zero but for rounding.
  static const std::regex kDate(
      "(Ausgleichung: |adjustment: )( ?)[A-Z][a-z] ( ?)[^<\n]*?:[0-9]{2}:[0-9]{2}( am| pm)?");
  static const std::regex kRunTime("(Gesamtlaufzeit:  |Time:  )[0-9]+ s");
  static const std::regex kSeconds(
      "((?:Aufstellung|L\xF6sung|Gesamt|Build|Solution|Complete): )[0-9.]+ s");
  static const std::regex kZero("((?:Wert|Value) [xyz]?: )(-?0|-?[0-9.]+e-1[0-9])\n");
  std::string masked = std::regex_replace(protocol, kDate, "$1$2DATE$3");
  masked = std::regex_replace(masked, kRunTime, "$1N s");
  masked = std::regex_replace(masked, kSeconds, "$1T s");
  return std::regex_replace(masked, kZero, "$1ZERO\n");
}

void ExpectGolden(const std::string& name, Language language, const std::string& protocol) {
  const std::string file = std::string(CARDO_TEST_DIR) + "/golden/" + name +
                           (language == Language::German ? ".de.htm" : ".en.htm");
  const std::string masked = Masked(protocol);
  if (std::getenv("CARDO_REFRESH_GOLDEN") != nullptr) {
    std::ofstream(file, std::ios_base::binary) << masked;
    return;
  }
  const std::string golden = ReadFile(file);
  ASSERT_FALSE(golden.empty()) << file << " is missing";
  const std::string foundText = RoundedHexadecimals(masked);
  const std::string wantedText = RoundedHexadecimals(golden);
  if (foundText == wantedText) return;
  const std::vector<std::string> found = Lines(foundText);
  const std::vector<std::string> wanted = Lines(wantedText);
  for (std::size_t i = 0; i < std::max(found.size(), wanted.size()); ++i) {
    const std::string empty = "(no such line)";
    const std::string& a = i < wanted.size() ? wanted[i] : empty;
    const std::string& b = i < found.size() ? found[i] : empty;
    ASSERT_EQ(a, b) << file << ":" << i + 1;
  }
  FAIL() << file << ": the last line ends differently";
}

}  // namespace golden
