#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace vermo {

// One coefficient of a design row.
struct DesignEntry {
  std::uint32_t column;
  double coefficient;
};

// A sparse row of the design matrix, stored inline. Order is free and a column may occur more
// than once: equal columns add up. The longest row is that of an image coordinate through a
// relative pair of a body-bound point with a full camera: 3 + 3 * 6 + 13 entries. Columns and
// coefficients stand apart, each side by side.
class DesignRow {
 public:
  static constexpr std::uint32_t kCapacity = 48;

  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = DesignEntry;
    using difference_type = std::ptrdiff_t;
    using pointer = const DesignEntry*;
    using reference = DesignEntry;

    Iterator() = default;
    Iterator(const DesignRow* row, std::uint32_t place) noexcept : fRow(row), fPlace(place) {}
    DesignEntry operator*() const noexcept { return (*fRow)[fPlace]; }
    Iterator& operator++() noexcept {
      ++fPlace;
      return *this;
    }
    Iterator operator++(int) noexcept {
      const Iterator before = *this;
      ++fPlace;
      return before;
    }
    bool operator==(const Iterator& other) const noexcept = default;

   private:
    const DesignRow* fRow = nullptr;
    std::uint32_t fPlace = 0;
  };

  void clear() noexcept { fSize = 0; }
  void push(std::uint32_t column, double coefficient) noexcept {
    assert(fSize < kCapacity);
    fColumns[fSize] = column;
    fCoefficients[fSize++] = coefficient;
  }

  [[nodiscard]] std::uint32_t size() const noexcept { return fSize; }
  [[nodiscard]] bool empty() const noexcept { return fSize == 0; }
  [[nodiscard]] DesignEntry operator[](std::uint32_t i) const noexcept {
    return {fColumns[i], fCoefficients[i]};
  }
  [[nodiscard]] Iterator begin() const noexcept { return {this, 0}; }
  [[nodiscard]] Iterator end() const noexcept { return {this, fSize}; }
  [[nodiscard]] const std::uint32_t* Columns() const noexcept { return fColumns; }
  [[nodiscard]] const double* Coefficients() const noexcept { return fCoefficients; }

  // Whether both rows name the same columns in the same order.
  [[nodiscard]] bool HasColumnsOf(const DesignRow& other) const noexcept {
    if (fSize != other.fSize) return false;
    // Two columns at a time; a call of memcmp would take longer than that.
    std::uint32_t k = 0;
    for (; k + 2 <= fSize; k += 2) {
      std::uint64_t own;
      std::uint64_t others;
      std::memcpy(&own, fColumns + k, sizeof own);
      std::memcpy(&others, other.fColumns + k, sizeof others);
      if (own != others) return false;
    }
    return k == fSize || fColumns[k] == other.fColumns[k];
  }

  // Ascending by column, equal columns by coefficient. Rows come in sorted runs, one per group.
  void SortByColumn() noexcept {
    for (std::uint32_t i = 1; i < fSize; ++i) {
      const DesignEntry entry = (*this)[i];
      std::uint32_t place = i;
      for (; place > 0 && Before(entry, (*this)[place - 1]); --place) {
        fColumns[place] = fColumns[place - 1];
        fCoefficients[place] = fCoefficients[place - 1];
      }
      fColumns[place] = entry.column;
      fCoefficients[place] = entry.coefficient;
    }
  }

 private:
  static bool Before(const DesignEntry& a, const DesignEntry& b) noexcept {
    return a.column < b.column || (a.column == b.column && a.coefficient < b.coefficient);
  }

  double fCoefficients[kCapacity] = {};
  std::uint32_t fColumns[kCapacity];
  std::uint32_t fSize = 0;
};

}  // namespace vermo
