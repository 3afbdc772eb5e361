#pragma once

#include <cstdint>

namespace vermo {

// The kinds of observation. Every concrete observation is of exactly one.
enum class MessungKind : std::uint8_t { Biko, Linko, Obko, Strecke };

// Measured and computed position of an image point, image units.
struct ImagePointPair {
  double measuredX, measuredY;
  double computedX, computedY;
};

// What a group of unknowns knows of an observation that is linked to it. Observations lie
// above the groups and derive from this; the groups never look further.
class LinkedObservation {
 public:
  explicit LinkedObservation(MessungKind kind) noexcept : fKind(kind) {}
  virtual ~LinkedObservation() = default;

  [[nodiscard]] MessungKind Kind() const noexcept { return fKind; }

  [[nodiscard]] bool IsActive() const noexcept { return (fMessungFlags & kActive) != 0; }
  void SetActive(bool on) noexcept { SetFlag(kActive, on); }

  // Rejected as a gross error. The observation keeps getting residuals, but does not enter the
  // normal equations.
  [[nodiscard]] bool IsAusreisser() const noexcept { return (fMessungFlags & kAusreisser) != 0; }
  void SetAusreisser() noexcept { SetFlag(kAusreisser, true); }
  void ClearAusreisser() noexcept { SetFlag(kAusreisser, false); }

  // Active and not rejected: takes part in the adjustment.
  [[nodiscard]] bool IsUsed() const noexcept {
    return (fMessungFlags & (kActive | kAusreisser)) == kActive;
  }

  // The smallest column among the groups linked to it, noted while a system is prepared.
  [[nodiscard]] std::uint32_t SmallestColumn() const noexcept { return fSmallestColumn; }
  void SetSmallestColumn(std::uint32_t column) noexcept { fSmallestColumn = column; }
  static constexpr std::uint32_t kNoColumn = 0xFFFFFFFF;

  // Number of scalar components.
  [[nodiscard]] virtual std::uint32_t Dimension() const noexcept = 0;

  // Dimension when the observation takes part, else 0.
  [[nodiscard]] virtual std::uint32_t UsedCount() const noexcept {
    return IsUsed() ? Dimension() : 0;
  }

  // Evaluates an image coordinate at the current values of its groups, which also refreshes its
  // residuals. False when there is no model value: the observation is of another kind, is not
  // active or lacks a link.
  virtual bool EvaluateImagePoint(ImagePointPair& /*point*/) { return false; }

 protected:
  LinkedObservation(const LinkedObservation&) = default;
  LinkedObservation(LinkedObservation&&) = default;
  LinkedObservation& operator=(const LinkedObservation&) = default;
  LinkedObservation& operator=(LinkedObservation&&) = default;

 private:
  static constexpr std::uint32_t kActive = 1U << 0U;
  static constexpr std::uint32_t kAusreisser = 1U << 1U;

  void SetFlag(std::uint32_t flag, bool on) noexcept {
    fMessungFlags = on ? (fMessungFlags | flag) : (fMessungFlags & ~flag);
  }

  MessungKind fKind;
  std::uint32_t fMessungFlags = 0;
  std::uint32_t fSmallestColumn = kNoColumn;
};

}  // namespace vermo
