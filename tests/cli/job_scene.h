#pragma once

#include "bundle_job.h"
#include "command_line.h"
#include "console.h"
#include "csv_reader.h"
#include "diagnostics.h"
#include "job_file.h"
#include "job_folder.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <system_error>
#include <vector>

namespace cardo::test {

namespace fs = std::filesystem;

// A folder of its own for one test, gone with the object.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (fs::temp_directory_path() / "cardo_cli_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    fPath = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(fPath, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const fs::path& Path() const { return fPath; }
  [[nodiscard]] std::string String() const { return fPath.string(); }

  void Write(const std::string& name, const std::string& text) const {
    fs::create_directories((fPath / name).parent_path());
    std::ofstream(fPath / name, std::ios::binary) << text;
  }
  [[nodiscard]] std::string Read(const std::string& name) const {
    std::ifstream stream(fPath / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  }
  [[nodiscard]] bool Has(const std::string& name) const { return fs::exists(fPath / name); }

  // Every file and folder below, for comparisons.
  [[nodiscard]] std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(fPath)) {
      names.push_back(fs::relative(entry.path(), fPath).string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  fs::path fPath;
};

struct ProgramResult {
  int status;
  std::string out;
  std::string err;
};

struct ProgramSettings {
  bool isTerminal = false;
  const std::atomic<bool>* cancelled = nullptr;
  std::function<void(const sXYZ_CBProgressInfo&)> afterIteration = {};
};

// The program inside the test's process.
inline ProgramResult RunProgram(std::vector<std::string> arguments,
                                const ProgramSettings& settings = {}) {
  arguments.insert(arguments.begin(), "cardo-bundle");
  std::vector<const char*> argv;
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  std::ostringstream out;
  std::ostringstream err;
  const Console console{out, err, settings.isTerminal, settings.cancelled, settings.afterIteration};
  const int status = RunCommandLine(static_cast<int>(argv.size()), argv.data(), console);
  return {status, out.str(), err.str()};
}

inline std::vector<std::string> Texts(const Diagnostics& diagnostics) {
  std::vector<std::string> texts;
  for (const Diagnostic& diagnostic : diagnostics.List()) texts.push_back(ToString(diagnostic));
  return texts;
}

// A job folder of a few valid records of every kind. Tests replace a table and look at what the
// readers say, or at the records in the job.
class JobScene {
 public:
  JobScene() {
    Write("job.toml", "language = \"english\"\n");
    Write("cameras.csv", "id,ck\n1,-7\n");
    Write("projections.csv", "id,ck\n9,-7\n");
    Write("images.csv",
          "id,camera,x0,y0,z0,omega,phi,kappa\n"
          "1,1,0,0,5,0,0,0\n"
          "2,1,1,0,5,0,0,0\n");
    Write("relative_orientations.csv", "id,image,base_image\n3,1,2\n");
    Write("points.csv",
          "id,x,y,z\n"
          "10,0,0,0\n"
          "11,1,0,0\n"
          "12,0,1,0\n");
    Write("image_coordinates.csv",
          "point,image,x,y\n"
          "10,1,0.1,0.2\n"
          "11,2,0.3,0.4\n"
          "12,3,0.5,0.6\n");
    Write("measured_coordinates.csv", "point,x,y,z,sx,sy,sz\n10,0,0,0,0.1,0.2,0.3\n");
    Write("distances.csv", "point1,point2,distance,sigma\n10,11,1,0.01\n");
  }

  void Write(const std::string& name, const std::string& text) { fFolder.Write(name, text); }
  void Remove(const std::string& name) { fs::remove(fFolder.Path() / name); }

  // Reads the folder into a fresh job; the messages, in their order.
  std::vector<std::string> Messages() {
    fJob = std::make_unique<BundleJob>();
    Diagnostics diagnostics;
    fFile = ReadJobFile(fFolder.Path() / JobFile::kName, diagnostics);
    fTables = ReadTables(fFolder.Path(), fFile, fJob->Handle(), diagnostics, [] {});
    return Texts(diagnostics);
  }

  [[nodiscard]] void* Job() const { return fJob->Handle(); }
  [[nodiscard]] const JobFile& File() const { return fFile; }
  [[nodiscard]] const JobTables& Tables() const { return fTables; }
  [[nodiscard]] TemporaryFolder& Folder() { return fFolder; }

 private:
  TemporaryFolder fFolder;
  std::unique_ptr<BundleJob> fJob;
  JobFile fFile;
  JobTables fTables;
};

// The rows of a table as fields by column name.
inline std::vector<std::map<std::string, std::string>> ReadRows(const fs::path& path) {
  Diagnostics diagnostics;
  CsvReader reader(path, path.filename().string(), diagnostics);
  std::vector<std::string> names;
  std::vector<std::map<std::string, std::string>> rows;
  while (const CsvRow* row = reader.Next()) {
    if (names.empty()) {
      for (std::size_t i = 0; i < row->Size(); ++i) names.emplace_back((*row)[i]);
      continue;
    }
    rows.emplace_back();
    for (std::size_t i = 0; i < row->Size(); ++i) rows.back()[names.at(i)] = (*row)[i];
  }
  EXPECT_TRUE(diagnostics.IsEmpty());
  return rows;
}

}  // namespace cardo::test
