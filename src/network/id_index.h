#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vermo {

// From ids to positions in a list: open addressing with linear probing, at most half full. The
// place of an id is the top of its product with the golden ratio, which spreads ids of any pattern.
// (Knuth, The Art of Computer Programming, vol. 3, 6.4)
class IdIndex {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  // A later position of an id takes the place of the earlier one; kNone is no position. Throws
  // std::bad_alloc and is then as it was.
  void Set(std::uint32_t id, std::uint32_t position) {
    if (2 * (fCount + 1) > fEntries.size()) Grow();
    Entry& entry = fEntries[PlaceOf(id)];
    if (entry.position == kNone) ++fCount;
    entry = {id, position};
  }

  // kNone for an id that is not there.
  [[nodiscard]] std::uint32_t Find(std::uint32_t id) const noexcept {
    return fEntries.empty() ? kNone : fEntries[PlaceOf(id)].position;
  }

 private:
  struct Entry {
    std::uint32_t id = 0;
    std::uint32_t position = kNone;
  };
  static constexpr std::uint32_t kSmallestBits = 4;

  // Of the id, or the free one where it belongs.
  [[nodiscard]] std::size_t PlaceOf(std::uint32_t id) const noexcept {
    constexpr std::uint32_t kGolden = 2654435769;
    std::size_t place = std::uint32_t{id * kGolden} >> (32 - fBits);
    while (fEntries[place].position != kNone && fEntries[place].id != id)
      place = (place + 1) & (fEntries.size() - 1);
    return place;
  }

  void Grow() {
    const std::uint32_t bits = fEntries.empty() ? kSmallestBits : fBits + 1;
    std::vector<Entry> entries(std::size_t{1} << bits);
    fBits = bits;
    fEntries.swap(entries);
    for (const Entry& entry : entries)
      if (entry.position != kNone) fEntries[PlaceOf(entry.id)] = entry;
  }

  std::vector<Entry> fEntries;  // a power of two of them, or none
  std::uint32_t fBits = 0;
  std::size_t fCount = 0;
};

}  // namespace vermo
