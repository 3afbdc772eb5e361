#pragma once

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <string_view>
#include <system_error>

namespace cardo::fuzz {

// A folder for the files of one process, gone with the object. TMPDIR says where.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "cardo_fuzz_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    fPath = name;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(fPath, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  [[nodiscard]] const std::filesystem::path& Path() const { return fPath; }
  void Write(const std::string& name, std::string_view text) const {
    std::ofstream stream(fPath / name, std::ios::binary);
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
  }

 private:
  std::filesystem::path fPath;
};

}  // namespace cardo::fuzz
