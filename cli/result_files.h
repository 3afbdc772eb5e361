#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace cardo {

// Results cannot be written; what() names the file and the reason.
class ResultError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A file open for writing. Write and Close throw ResultError.
class ResultFile {
 public:
  explicit ResultFile(std::filesystem::path path);

  void Write(std::string_view text);
  // Everything written is with the operating system afterwards.
  void Close();

 private:
  struct FileCloser {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
  };

  std::filesystem::path fPath;
  std::unique_ptr<std::FILE, FileCloser> fStream;
};

// Files that come into being together. They are written under temporary names in their folders
// and take their own names in Commit, replacing files of these names; without a Commit nothing
// stays behind, neither the files nor the folder if it was made for them.
class ResultFiles {
 public:
  // Makes the folder if it does not exist.
  explicit ResultFiles(std::filesystem::path folder);
  ~ResultFiles();
  ResultFiles(const ResultFiles&) = delete;
  ResultFiles& operator=(const ResultFiles&) = delete;

  // The temporary path for a file of the folder, or for a file elsewhere.
  [[nodiscard]] std::filesystem::path Add(const std::string& name);
  [[nodiscard]] std::filesystem::path AddElsewhere(const std::filesystem::path& file);
  // Gives an added file another final name.
  void Rename(const std::filesystem::path& temporary, const std::string& name);

  // A file that Commit removes.
  void AddRemoval(const std::string& name);
  void Commit();

 private:
  struct Entry {
    std::filesystem::path temporary;
    std::filesystem::path final;
  };

  std::filesystem::path fFolder;
  bool fFolderIsNew = false;
  bool fCommitted = false;
  std::vector<Entry> fEntries;
  std::vector<std::filesystem::path> fRemovals;
};

}  // namespace cardo
