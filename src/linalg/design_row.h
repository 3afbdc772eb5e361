#pragma once

#include <cassert>
#include <cstdint>

namespace vermo {

// One coefficient of a design row.
struct DesignEntry {
  std::uint32_t column;
  double coefficient;
};

// A sparse row of the design matrix, stored inline. Order is free and a column may occur more
// than once: equal columns add up. The longest row is that of an image coordinate through a
// relative pair of a body-bound point with a full camera: 3 + 3 * 6 + 13 entries.
class DesignRow {
 public:
  static constexpr std::uint32_t kCapacity = 48;

  void clear() noexcept { fSize = 0; }
  void push(std::uint32_t column, double coefficient) noexcept {
    assert(fSize < kCapacity);
    fEntries[fSize++] = {column, coefficient};
  }

  [[nodiscard]] std::uint32_t size() const noexcept { return fSize; }
  [[nodiscard]] bool empty() const noexcept { return fSize == 0; }
  [[nodiscard]] const DesignEntry& operator[](std::uint32_t i) const noexcept {
    return fEntries[i];
  }
  [[nodiscard]] const DesignEntry* begin() const noexcept { return fEntries; }
  [[nodiscard]] const DesignEntry* end() const noexcept { return fEntries + fSize; }

  // Whether both rows name the same columns in the same order.
  [[nodiscard]] bool HasColumnsOf(const DesignRow& other) const noexcept {
    if (fSize != other.fSize) return false;
    for (std::uint32_t i = 0; i < fSize; ++i)
      if (fEntries[i].column != other.fEntries[i].column) return false;
    return true;
  }

  // Ascending by column, equal columns by coefficient. Rows come in sorted runs, one per group.
  void SortByColumn() noexcept {
    for (std::uint32_t i = 1; i < fSize; ++i) {
      const DesignEntry entry = fEntries[i];
      std::uint32_t place = i;
      for (; place > 0 && Before(entry, fEntries[place - 1]); --place)
        fEntries[place] = fEntries[place - 1];
      fEntries[place] = entry;
    }
  }

 private:
  static bool Before(const DesignEntry& a, const DesignEntry& b) noexcept {
    return a.column < b.column || (a.column == b.column && a.coefficient < b.coefficient);
  }

  DesignEntry fEntries[kCapacity];
  std::uint32_t fSize = 0;
};

}  // namespace vermo
