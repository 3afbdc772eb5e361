// The tables of a job folder.
//
// A line "[name]" opens the table name.csv, the lines behind it are its content; tables that an
// input does not name are those of a small valid job. What can be read is adjusted by the program,
// and the tables that it writes must be read without mistakes.
#include "bundle_job.h"
#include "command_line.h"
#include "console.h"
#include "datum_check.h"
#include "diagnostics.h"
#include "exit_status.h"
#include "fuzz_targets.h"
#include "job_file.h"
#include "job_folder.h"
#include "message_rules.h"
#include "network_survey.h"
#include "require.h"
#include "scratch_folder.h"

#include <array>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <string_view>

namespace cardo::fuzz {
namespace {

namespace fs = std::filesystem;

constexpr const char* kJobFile = "max_iterations = 4\ns0_apriori = 0.01\nlanguage = \"english\"\n";

// One camera over a square of points: small enough to read and adjust in no time.
const std::map<std::string, std::string, std::less<>>& ValidTables() {
  static const std::map<std::string, std::string, std::less<>> tables = {
      {"cameras", "id,ck,fixed\n1,-10,1\n"},
      {"projections", "id,ck\n9,-10\n"},
      {"images",
       "id,camera,x0,y0,z0,omega,phi,kappa\n"
       "1,1,0.3,0.4,5,0.1,0,0\n"
       "2,1,0.7,0.6,5,0,0.1,90\n"},
      {"relative_orientations", ""},
      {"points",
       "id,x,y,z,fixed\n"
       "10,0,0,0,1\n"
       "11,1,0,0,1\n"
       "12,0,1,0.5,1\n"
       "13,1,1,0.2,1\n"
       "14,0.5,0.5,0.1,0\n"},
      {"lines", ""},
      {"planes", ""},
      {"image_coordinates",
       "point,image,x,y\n"
       "10,1,-0.6,-0.8\n"
       "11,1,1.4,-0.8\n"
       "12,1,-0.66,1.33\n"
       "13,1,1.45,1.25\n"
       "14,1,0.4,0.2\n"
       "10,2,-1.2,1.4\n"
       "11,2,-1.2,-0.6\n"
       "12,2,0.88,1.55\n"
       "13,2,0.83,-0.62\n"
       "14,2,-0.2,0.4\n"},
      {"line_image_coordinates", ""},
      {"measured_coordinates", "point,x,y,z,sx,sy,sz\n14,0.5,0.5,0.1,0.1,0.2,0.3\n"},
      {"distances", "point1,point2,distance,sigma\n10,14,0.71,0.01\n"},
      {"points_on_lines", ""},
      {"points_on_planes", ""},
  };
  return tables;
}

class Folders {
 public:
  Folders() {
    fs::create_directories(Job());
    fs::create_directories(Results());
  }
  [[nodiscard]] fs::path Job() const { return fScratch.Path() / "job"; }
  [[nodiscard]] fs::path Results() const { return fScratch.Path() / "results"; }

  // Files keep their content from one input to the next where it is the same.
  void Put(const std::string& table, std::string_view text) {
    std::string& known = fContent[table];
    if (fWritten.contains(table) && known == text) return;
    fWritten[table] = true;
    known = text;
    const std::string name = "job/" + table + ".csv";
    if (text.empty())
      fs::remove(fScratch.Path() / name);
    else
      fScratch.Write(name, text);
  }
  void Write(const std::string& name, std::string_view text) const { fScratch.Write(name, text); }
  void ClearResults() const {
    for (const auto& entry : fs::directory_iterator(Results())) fs::remove_all(entry.path());
  }

 private:
  ScratchFolder fScratch;
  std::map<std::string, std::string> fContent;
  std::map<std::string, bool> fWritten;
};

std::map<std::string, std::string, std::less<>> TablesOf(std::string_view input) {
  std::map<std::string, std::string, std::less<>> tables = ValidTables();
  std::string* open = &tables.find("points")->second;
  bool isFirst = true;
  while (!input.empty()) {
    const std::size_t end = input.find('\n');
    const std::string_view line = input.substr(0, end);
    const bool isHead = line.size() > 2 && line.front() == '[' && line.back() == ']';
    const auto named = isHead ? tables.find(line.substr(1, line.size() - 2)) : tables.end();
    if (named != tables.end()) {
      open = &named->second;
      open->clear();
    } else {
      if (isFirst) open->clear();
      *open += line;
      if (end != std::string_view::npos) *open += '\n';
    }
    isFirst = false;
    input = end == std::string_view::npos ? std::string_view{} : input.substr(end + 1);
  }
  return tables;
}

int Program(std::span<const char* const> arguments) {
  std::ostringstream out;
  std::ostringstream err;
  const Console console{out, err};
  return RunCommandLine(static_cast<int>(arguments.size()), arguments.data(), console);
}

// True when there are no mistakes.
bool Read(const fs::path& folder) {
  Diagnostics diagnostics;
  const JobFile file = ReadJobFile(folder / JobFile::kName, diagnostics);
  const BundleJob job;
  const JobTables tables = ReadTables(folder, file, job.Handle(), diagnostics, [] {});
  RequireUsefulMessages(diagnostics);
  if (!diagnostics.IsEmpty()) return false;
  static_cast<void>(CheckDatum(job.Handle()));
  static_cast<void>(SurveyNetwork(job.Handle(), tables));
  return true;
}

}  // namespace

int FuzzTables(const std::uint8_t* data, std::size_t size) {
  static Folders folders;
  for (const auto& [name, text] : TablesOf({reinterpret_cast<const char*>(data), size}))
    folders.Put(name, text);
  folders.Write("job/job.toml", kJobFile);
  if (!Read(folders.Job())) return 0;
  folders.ClearResults();
  const std::string job = folders.Job().string();
  const std::string results = folders.Results().string();
  const std::array arguments = {
      "cardo-bundle", "adjust", job.c_str(), "--output", results.c_str(), "--quiet"};
  const int status = Program(arguments);
  Require(status == kExitOk || status == kExitRunFailed, "what was read is adjusted or fails");
  if (status != kExitOk) return 0;
  folders.Write("results/job.toml", kJobFile);
  Require(Read(folders.Results()), "tables that were written are read");
  return 0;
}

}  // namespace cardo::fuzz
