#include "result_files.h"

#include "diagnostics.h"

#include <cerrno>
#include <fmt/format.h>
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

fs::path TemporaryName(const fs::path& file) {
  return file.parent_path() /
         fmt::format(".{}.{}.part", file.filename().string(), static_cast<long>(getpid()));
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
  fFolderIsNew = fs::create_directories(fFolder, error);
  if (error) Fail(fFolder, "made", error.message());
}

ResultFiles::~ResultFiles() {
  std::error_code ignored;
  if (!fCommitted) {
    for (const Entry& entry : fEntries) fs::remove(entry.temporary, ignored);
  }
  // Removes an empty folder only.
  if (fFolderIsNew) fs::remove(fFolder, ignored);
}

fs::path ResultFiles::Add(const std::string& name) { return AddElsewhere(fFolder / name); }

fs::path ResultFiles::AddElsewhere(const fs::path& file) {
  fEntries.push_back({TemporaryName(file), file});
  return fEntries.back().temporary;
}

void ResultFiles::Rename(const fs::path& temporary, const std::string& name) {
  for (Entry& entry : fEntries) {
    if (entry.temporary == temporary) entry.final = fFolder / name;
  }
}

void ResultFiles::AddRemoval(const std::string& name) { fRemovals.push_back(fFolder / name); }

void ResultFiles::Commit() {
  for (const Entry& entry : fEntries) {
    std::error_code error;
    fs::rename(entry.temporary, entry.final, error);
    if (error) Fail(entry.final, "replaced", error.message());
  }
  fCommitted = true;
  std::error_code ignored;
  for (const fs::path& path : fRemovals) fs::remove(path, ignored);
}

}  // namespace cardo
