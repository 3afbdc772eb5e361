#include "result_files.h"

#include "diagnostics.h"

#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <set>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace cardo {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(const fs::path& path, std::string_view deed, const std::string& reason) {
  throw ResultError(fmt::format("{} cannot be {}: {}", Quoted(path.string()), deed, reason));
}

std::string LastError() { return std::generic_category().message(errno); }

// Makes an empty file beside the file that it stands for. The name is free and exclusive: nobody
// can put a link there that the writing would follow.
fs::path MakeTemporary(const fs::path& file) {
  // Names have at most 255 bytes.
  const std::string name = file.filename().string().substr(0, 200);
  constexpr int kAttempts = 1000;
  for (int attempt = 0;; ++attempt) {
    fs::path path = file.parent_path() /
                    fmt::format(".{}.{}-{}.part", name, static_cast<long>(getpid()), attempt);
    if (std::FILE* stream = std::fopen(path.c_str(), "wbx")) {
      std::fclose(stream);
      return path;
    }
    if (errno != EEXIST || attempt == kAttempts) Fail(file, "written", LastError());
  }
}

// Answers 0 or the error. A file system that knows no synchronisation has none.
int Synchronise(const fs::path& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return errno;
  int error = fsync(file) == 0 ? 0 : errno;
  if (error == EINVAL || error == ENOTSUP) error = 0;
  close(file);
  return error;
}

// Of two programs that write into one folder one waits until the other's files have their names.
// A file system that knows no locks has none.
class FolderLock {
 public:
  explicit FolderLock(const fs::path& folder)
      : fFolder(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    while (fFolder >= 0 && flock(fFolder, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  ~FolderLock() {
    if (fFolder >= 0) close(fFolder);
  }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int fFolder;
};

// Both paths change their files at once; false, and nothing is changed, if that cannot be.
bool Exchange(const fs::path& a, const fs::path& b) noexcept {
#ifdef RENAME_EXCHANGE
  return renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0;
#else
  return false;
#endif
}

}  // namespace

ResultFile::ResultFile(fs::path path)
    : fPath(std::move(path)), fStream(std::fopen(fPath.c_str(), "wb")) {
  if (!fStream) Fail(fPath, "written", LastError());
}

void ResultFile::Write(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), fStream.get()) != text.size()) {
    Fail(fPath, "written", LastError());
  }
}

void ResultFile::Close() {
  if (std::fclose(fStream.release()) != 0) Fail(fPath, "written", LastError());
}

ResultFiles::ResultFiles(fs::path folder) : fFolder(std::move(folder)) {
  std::error_code error;
  for (fs::path path = fFolder; !path.empty() && !fs::exists(path, error);
       path = path.parent_path()) {
    fNewFolders.push_back(path);
  }
  fs::create_directories(fFolder, error);
  if (error) {
    RemoveNewFolders();
    Fail(fFolder, "made", error.message());
  }
  // Rather now than after the run.
  if (access(fFolder.c_str(), W_OK | X_OK) != 0) Fail(fFolder, "written to", LastError());
}

ResultFiles::~ResultFiles() {
  std::error_code ignored;
  for (const Entry& entry : fEntries) {
    if (entry.stage == Stage::kTemporary) fs::remove(entry.temporary, ignored);
  }
  RemoveNewFolders();
}

void ResultFiles::RemoveNewFolders() noexcept {
  // Empty ones only.
  for (const fs::path& folder : fNewFolders) rmdir(folder.c_str());
}

fs::path ResultFiles::Add(const std::string& name) { return AddElsewhere(fFolder / name); }

fs::path ResultFiles::AddElsewhere(const fs::path& file) {
  fEntries.push_back({{}, file});
  fEntries.back().temporary = MakeTemporary(file);
  return fEntries.back().temporary;
}

void ResultFiles::Rename(const fs::path& temporary, const std::string& name) {
  for (Entry& entry : fEntries) {
    if (entry.temporary == temporary) entry.final = fFolder / name;
  }
}

void ResultFiles::AddRemoval(const std::string& name) { fRemovals.push_back(fFolder / name); }

void ResultFiles::GiveName(Entry& entry) {
  std::error_code error;
  const fs::file_status status = fs::symlink_status(entry.final, error);
  if (fs::is_directory(status)) {
    Fail(entry.final, "replaced", std::make_error_code(std::errc::is_a_directory).message());
  }
  const bool isNew = !fs::exists(status);
  if (!isNew && Exchange(entry.temporary, entry.final)) {
    entry.stage = Stage::kExchanged;
    return;
  }
  fs::rename(entry.temporary, entry.final, error);
  if (error) Fail(entry.final, "replaced", error.message());
  entry.stage = isNew ? Stage::kNew : Stage::kReplaced;
}

void ResultFiles::TakeName(Entry& entry) noexcept {
  const bool taken = (entry.stage == Stage::kExchanged && Exchange(entry.temporary, entry.final)) ||
                     (entry.stage == Stage::kNew &&
                      std::rename(entry.final.c_str(), entry.temporary.c_str()) == 0);
  if (taken) entry.stage = Stage::kTemporary;
}

void ResultFiles::Commit() {
  for (const Entry& entry : fEntries) {
    // Errors that the system has held back come up here.
    const int error = Synchronise(entry.temporary);
    if (error != 0) Fail(entry.final, "written", std::generic_category().message(error));
  }
  const FolderLock lock(fFolder);
  try {
    for (Entry& entry : fEntries) GiveName(entry);
  } catch (...) {
    for (Entry& entry : fEntries) TakeName(entry);
    throw;
  }
  std::error_code ignored;
  for (Entry& entry : fEntries) {
    if (entry.stage == Stage::kExchanged) fs::remove(entry.temporary, ignored);
    entry.stage = Stage::kReplaced;
  }
  for (const fs::path& path : fRemovals) fs::remove(path, ignored);
  std::set<fs::path> folders;
  for (const Entry& entry : fEntries) folders.insert(entry.final.parent_path());
  for (const fs::path& folder : folders) Synchronise(folder.empty() ? "." : folder);
}

}  // namespace cardo
