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
// stays behind, neither the files nor folders that were made for them. A link that has the name
// of a file is replaced, not followed. All operations but the destructor throw ResultError.
class ResultFiles {
 public:
  // Makes the folder if it does not exist, and sees that it takes files.
  explicit ResultFiles(std::filesystem::path folder);
  ~ResultFiles();
  ResultFiles(const ResultFiles&) = delete;
  ResultFiles& operator=(const ResultFiles&) = delete;

  // The temporary path for a file of the folder, or for a file elsewhere: an empty file that
  // was not there before.
  [[nodiscard]] std::filesystem::path Add(const std::string& name);
  [[nodiscard]] std::filesystem::path AddElsewhere(const std::filesystem::path& file);
  // Gives an added file another final name.
  void Rename(const std::filesystem::path& temporary, const std::string& name);

  // A file that Commit removes.
  void AddRemoval(const std::string& name);
  // Every file is on the disk before the first takes its name. When one cannot, those before it
  // give theirs back to the files that they replaced, if the file system can exchange two files.
  // They come in the order of Add.
  void Commit();

 private:
  enum class Stage {
    kTemporary,  // under its temporary name
    kExchanged,  // under its own name, the file it replaces is under the temporary one
    kNew,        // under its own name, nobody had it before
    kReplaced,   // under its own name, the file it replaces is gone
  };

  struct Entry {
    std::filesystem::path temporary;
    std::filesystem::path final;
    Stage stage = Stage::kTemporary;
  };

  static void GiveName(Entry& entry);
  static void TakeName(Entry& entry) noexcept;
  void RemoveNewFolders() noexcept;

  std::filesystem::path fFolder;
  std::vector<std::filesystem::path> fNewFolders;  // the deepest first
  std::vector<Entry> fEntries;
  std::vector<std::filesystem::path> fRemovals;
};

}  // namespace cardo
