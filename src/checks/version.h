#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The version of a component. Constructing one registers it with the process-wide tracker.
class VersionBase {
 public:
  VersionBase(std::uint32_t major, std::uint32_t minor, std::uint32_t patch, std::string name);
  virtual ~VersionBase() = default;
  VersionBase(const VersionBase&) = delete;
  VersionBase& operator=(const VersionBase&) = delete;

  [[nodiscard]] std::uint32_t GetMajor() const noexcept { return fMajor; }
  [[nodiscard]] std::uint32_t GetMinor() const noexcept { return fMinor; }
  [[nodiscard]] std::uint32_t GetPatch() const noexcept { return fPatch; }
  [[nodiscard]] const std::string& GetName() const noexcept { return fName; }
  // Writes the numbers joined by "." and returns the text.
  const std::string& GetVersionText(std::string& out) const;

 private:
  std::uint32_t fMajor;
  std::uint32_t fMinor;
  std::uint32_t fPatch;
  std::string fName;
};

// The versions of the process in the order of their construction: a registry for inspection.
class VersionTracker {
 public:
  static VersionTracker& Instance();
  virtual ~VersionTracker() = default;

  void Register(const VersionBase* version) { fVersions.push_back(version); }
  [[nodiscard]] const std::vector<const VersionBase*>& Versions() const noexcept {
    return fVersions;
  }

 private:
  VersionTracker() = default;

  std::vector<const VersionBase*> fVersions;  // not owned
};

// The library's own version, and its name as a text that lives as long as the process.
[[nodiscard]] const VersionBase& LibraryVersion() noexcept;
[[nodiscard]] const char* LibraryVersionName() noexcept;

// A fixed line with the library's name and version.
[[nodiscard]] std::string_view IdentificationText() noexcept;
