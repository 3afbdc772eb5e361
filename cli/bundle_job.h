#pragma once

#include <string>
#include <xyz_api.h>

namespace cardo {

// Owns a job of the library.
class BundleJob {
 public:
  // Throws std::bad_alloc if there is no job to be had.
  BundleJob();
  ~BundleJob();
  BundleJob(const BundleJob&) = delete;
  BundleJob& operator=(const BundleJob&) = delete;

  [[nodiscard]] void* Handle() const noexcept { return fHandle; }

 private:
  void* fHandle;
};

// "eXYZ_SingularSystem" for 23; the bare number for a value without a name.
[[nodiscard]] std::string StatusName(int status);

}  // namespace cardo
