#include "checks/version.h"

#include <utility>

namespace {

constexpr char kLibraryName[] = "CardoBundleLib 1.10.9";
constexpr std::string_view kIdentification = "Cardo Bundle 1.10";

const VersionBase kLibraryVersion(1, 10, 9, kLibraryName);
const VersionBase kTensorVersion(1, 12, 1, "Ostra");

}  // namespace

VersionBase::VersionBase(std::uint32_t major,
                         std::uint32_t minor,
                         std::uint32_t patch,
                         std::string name)
    : fMajor(major), fMinor(minor), fPatch(patch), fName(std::move(name)) {
  VersionTracker::Instance().Register(this);
}

const std::string& VersionBase::GetVersionText(std::string& out) const {
  out = std::to_string(fMajor) + "." + std::to_string(fMinor) + "." + std::to_string(fPatch);
  return out;
}

VersionTracker& VersionTracker::Instance() {
  static VersionTracker tracker;
  return tracker;
}

const VersionBase& LibraryVersion() noexcept { return kLibraryVersion; }

const char* LibraryVersionName() noexcept { return kLibraryName; }

std::string_view IdentificationText() noexcept { return kIdentification; }
