#pragma once

#include "checks/smart_ptr.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vermo {

class Bedingung;
class Data;
class Messung;

// Something of the network is doubtful; a run goes on. A warning points at what it is about, which
// the network owns and outlives it.
class WarningItf {
 public:
  virtual ~WarningItf() = default;
  // The number of the warning.
  [[nodiscard]] virtual std::int32_t GetCode() const = 0;

 protected:
  WarningItf() = default;
  WarningItf(const WarningItf&) = default;
  WarningItf& operator=(const WarningItf&) = default;
};

// The ray rule or the solvability check took the group out.
class WarningDataDisabled final : public WarningItf {
 public:
  static constexpr std::int32_t kCode = 101;
  explicit WarningDataDisabled(const Data* data) noexcept : fData(data) {}
  [[nodiscard]] std::int32_t GetCode() const override { return kCode; }
  const Data* fData;
};

// A group that the observation needs is missing or not active.
class WarningObsevationWithoutData final : public WarningItf {
 public:
  static constexpr std::int32_t kCode = 102;
  explicit WarningObsevationWithoutData(const Messung* messung) noexcept : fMessung(messung) {}
  [[nodiscard]] std::int32_t GetCode() const override { return kCode; }
  const Messung* fMessung;
};

// A group that the group refers to is missing or not active.
class WarningDataWithoutSubData final : public WarningItf {
 public:
  static constexpr std::int32_t kCode = 103;
  explicit WarningDataWithoutSubData(const Data* data) noexcept : fData(data) {}
  [[nodiscard]] std::int32_t GetCode() const override { return kCode; }
  const Data* fData;
};

// More than half as many components were rejected as are left.
class WarningDataHasManyBlunder final : public WarningItf {
 public:
  static constexpr std::int32_t kCode = 104;
  WarningDataHasManyBlunder(const Data* data,
                            std::uint32_t messungen,
                            std::uint32_t ausreisser) noexcept
      : fData(data), fMessungen(messungen), fAusreisser(ausreisser) {}
  [[nodiscard]] std::int32_t GetCode() const override { return kCode; }
  const Data* fData;
  std::uint32_t fMessungen;
  std::uint32_t fAusreisser;
};

// A component of the observation is hardly checked by the others.
class WarningObservationHasLessRedundancy final : public WarningItf {
 public:
  static constexpr std::int32_t kCode = 105;
  explicit WarningObservationHasLessRedundancy(const Messung* messung) noexcept
      : fMessung(messung) {}
  [[nodiscard]] std::int32_t GetCode() const override { return kCode; }
  const Messung* fMessung;
};

// A constraint that should only define the datum puts a strain on the network.
class WarningConstraintShouldBeFree final : public WarningItf {
 public:
  static constexpr std::int32_t kCode = 106;
  explicit WarningConstraintShouldBeFree(const Bedingung* bedingung) noexcept
      : fBedingung(bedingung) {}
  [[nodiscard]] std::int32_t GetCode() const override { return kCode; }
  const Bedingung* fBedingung;
};

// The ray rule took the group in again.
class WarningDataEnabled final : public WarningItf {
 public:
  static constexpr std::int32_t kCode = 107;
  explicit WarningDataEnabled(const Data* data) noexcept : fData(data) {}
  [[nodiscard]] std::int32_t GetCode() const override { return kCode; }
  const Data* fData;
};

// The warnings of a job in the order of their occurrence. Nothing empties the list: a second run
// adds to the warnings of the first.
class WarningList {
 public:
  [[nodiscard]] bool IsEmpty() const noexcept { return fWarnings.empty(); }
  [[nodiscard]] std::size_t Size() const noexcept { return fWarnings.size(); }
  [[nodiscard]] const WarningItf* At(std::size_t index) const noexcept {
    return fWarnings[index].Get();
  }

  void AddWarningDataDisabled(const Data* data) { Add(new WarningDataDisabled(data)); }
  void AddWarningObsevationWithoutData(const Messung* messung) {
    Add(new WarningObsevationWithoutData(messung));
  }
  void AddWarningDataWithoutSubData(const Data* data) { Add(new WarningDataWithoutSubData(data)); }
  void AddWarningDataHasManyBlunder(const Data* data,
                                    std::uint32_t messungen,
                                    std::uint32_t ausreisser) {
    Add(new WarningDataHasManyBlunder(data, messungen, ausreisser));
  }
  void AddWarningObservationHasLessRedundancy(const Messung* messung) {
    Add(new WarningObservationHasLessRedundancy(messung));
  }
  void AddWarningConstraintShouldBeFree(const Bedingung* bedingung) {
    Add(new WarningConstraintShouldBeFree(bedingung));
  }
  void AddWarningDataEnabled(const Data* data) { Add(new WarningDataEnabled(data)); }

  // Appends one more pointer to a warning, which may be an element of this list.
  void Append(const lumo::smart_ptr<WarningItf>& warning) { fWarnings.push_back(warning); }
  [[nodiscard]] const lumo::smart_ptr<WarningItf>& Pointer(std::size_t index) const noexcept {
    return fWarnings[index];
  }

 private:
  void Add(WarningItf* warning) { fWarnings.push_back(lumo::smart_ptr<WarningItf>(warning)); }

  std::vector<lumo::smart_ptr<WarningItf>> fWarnings;
};

}  // namespace vermo
