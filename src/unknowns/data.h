#pragma once

#include "unknowns/linked_observation.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vermo {

struct AdjustmentStatistics;
class NetworkSettings;
class NormalSystem;

// A group of unknowns: a point, an image, a camera ... It owns a run of consecutive columns of
// the normal equations when it is active and variable. An active group that is not variable is
// a fixed element: it has values that observations read, and no columns. An inactive group is
// left out, and observations that need it become unusable.
//
// Observations are pointed at, not owned; the network keeps their addresses stable.
class Data {
 public:
  // Column of a group without columns.
  static constexpr std::int32_t kNoColumn = -1;

  virtual ~Data();

  // A group may add to the system on its own; none does. Called once per build.
  virtual void AddToNormalEquations(NormalSystem& system, AdjustmentStatistics& statistics);

  virtual void SetVariable(bool on) { SetFlag(kVariable, on); }
  [[nodiscard]] virtual bool IsActive() const { return (fDataFlags & kActive) != 0; }
  [[nodiscard]] virtual bool IsVariable() const { return (fDataFlags & kVariable) != 0; }

  // Takes the group out of any numbering. Runs once, when the group enters a network.
  virtual void ResetUnknowns();

  // Appends the observation; once per link.
  virtual void AddMessung(LinkedObservation* messung) {
    if (fMessungen.capacity() == 0) fMessungen.reserve(kMessungenExpected);
    fMessungen.push_back(messung);
  }

  // Linked observations of exactly this kind that are active and not rejected.
  [[nodiscard]] virtual std::uint32_t CountMessungen(MessungKind kind) const;
  // Whether they are at least so many; looks no further than it must.
  [[nodiscard]] bool HasMessungen(MessungKind kind, std::uint32_t atLeast) const noexcept;
  // Fetches the first linked observations into the cache, for a walk over many groups that soon
  // counts them.
  void FetchMessungen() const noexcept {
    for (std::size_t i = 0; i < fMessungen.size() && i < kFetched; ++i)
      __builtin_prefetch(fMessungen[i]);
  }
  // Components of all linked observations that are active and not rejected.
  [[nodiscard]] virtual std::uint32_t CountMessungDimensions() const;
  // Linked observations of exactly this kind that are rejected, active or not.
  [[nodiscard]] virtual std::uint32_t CountAusreisser(MessungKind kind) const;
  // Components of all linked observations that are active and rejected.
  [[nodiscard]] virtual std::uint32_t CountAusreisserDimensions() const;

  // Number of unknowns the group has now; 0 unless it is variable.
  [[nodiscard]] virtual std::uint32_t UnknownCount() const = 0;

  // Takes the columns from next on when active and variable, otherwise none. Returns the next
  // free column.
  virtual std::uint32_t AssignUnknowns(std::uint32_t next);

  // Adds the group's increments, solution[fFirstUnknown + i], to its values when active and
  // variable.
  virtual void ApplySolution(std::span<const double> solution) = 0;

  // Derives standard deviations from the cofactors when active and variable: sigma squared is
  // s0 squared times the cofactor.
  virtual void StoreAccuracy(const NormalSystem& cofactors, double s0) = 0;

  // Builds what the derivatives need beside the values. Runs once before the first iteration.
  virtual void PrepareDerivatives() {}

  // The number as text.
  [[nodiscard]] virtual std::string GetIdentText() const = 0;
  // A label and the number in the language of the moment, ISO 8859-1.
  [[nodiscard]] virtual std::string GetDescription() const = 0;

  // Runs once before the first iteration, when all links are set.
  virtual void Connect(const NetworkSettings& settings);

  [[nodiscard]] std::int32_t FirstUnknown() const noexcept { return fFirstUnknown; }
  void SetFirstUnknown(std::int32_t column) noexcept { fFirstUnknown = column; }

  // Number printed beside the item: the caller's tag minus one, -1 when there is none.
  [[nodiscard]] std::int32_t Ordinal() const noexcept { return fOrdinal; }
  void SetOrdinal(std::int32_t ordinal) noexcept { fOrdinal = ordinal; }

  void SetActive(bool on) noexcept { SetFlag(kActive, on); }
  void ClearFlags() noexcept { fDataFlags = 0; }

  [[nodiscard]] std::span<LinkedObservation* const> Messungen() const noexcept {
    return fMessungen;
  }

 protected:
  Data() = default;
  Data(const Data&) = default;
  Data(Data&&) = default;
  Data& operator=(const Data&) = default;
  Data& operator=(Data&&) = default;

  // Active and variable, and numbered: the group has its part of a solution.
  [[nodiscard]] bool HasColumns() const { return IsActive() && IsVariable() && fFirstUnknown >= 0; }
  // The group's part of a solution.
  [[nodiscard]] std::span<const double> Increments(std::span<const double> solution) const;
  // Cofactor of the group's unknowns row and column.
  [[nodiscard]] double OwnCofactor(const NormalSystem& cofactors,
                                   std::uint32_t row,
                                   std::uint32_t column) const;
  // s0 squared times the cofactor of unknown i: its variance.
  [[nodiscard]] double Variance(const NormalSystem& cofactors, double s0, std::uint32_t i) const;

 private:
  static constexpr std::uint32_t kActive = 1U << 0U;
  static constexpr std::uint32_t kVariable = 1U << 1U;
  // Most points have no more.
  static constexpr std::size_t kFetched = 8;
  static constexpr std::size_t kMessungenExpected = 8;

  void SetFlag(std::uint32_t flag, bool on) noexcept {
    fDataFlags = on ? (fDataFlags | flag) : (fDataFlags & ~flag);
  }

  std::vector<LinkedObservation*> fMessungen;
  std::int32_t fFirstUnknown = kNoColumn;
  std::uint32_t fDataFlags = 0;
  std::int32_t fOrdinal = -1;
};

}  // namespace vermo
