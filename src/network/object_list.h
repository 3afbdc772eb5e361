#pragma once

#include "network/id_index.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace vermo {

// Owns objects in the order they were added; the position is the only key. An object's address
// never changes: groups and observations point at each other for the whole life of a job.
// They lie in blocks, one behind the other.
template <typename T>
class ObjectList {
 public:
  // Appends a copy and returns it.
  T& Add(const T& object) {
    if (fCount == fBlocks.size() * kBlock) {
      std::vector<T> block;
      block.reserve(kBlock);
      fBlocks.push_back(std::move(block));
    }
    T& added = fBlocks[fCount / kBlock].emplace_back(object);
    ++fCount;
    return added;
  }

  [[nodiscard]] std::uint32_t Count() const noexcept { return fCount; }
  [[nodiscard]] bool IsEmpty() const noexcept { return fCount == 0; }
  [[nodiscard]] T& At(std::uint32_t index) noexcept {
    return fBlocks[index / kBlock][index % kBlock];
  }
  [[nodiscard]] const T& At(std::uint32_t index) const noexcept {
    return fBlocks[index / kBlock][index % kBlock];
  }

  // Iteration over the objects in order.
  template <typename List, typename Object>
  class Iterator {
   public:
    Iterator(List* list, std::uint32_t index) noexcept : fList(list), fIndex(index) {}
    Object& operator*() const { return fList->At(fIndex); }
    Iterator& operator++() {
      ++fIndex;
      return *this;
    }
    bool operator!=(const Iterator& other) const { return fIndex != other.fIndex; }

   private:
    List* fList;
    std::uint32_t fIndex;
  };
  auto begin() { return Iterator<ObjectList, T>(this, 0); }
  auto end() { return Iterator<ObjectList, T>(this, fCount); }
  auto begin() const { return Iterator<const ObjectList, const T>(this, 0); }
  auto end() const { return Iterator<const ObjectList, const T>(this, fCount); }

 protected:
  void DropLast() noexcept {
    --fCount;
    fBlocks[fCount / kBlock].pop_back();
  }

 private:
  // Objects of a block. A block's memory never moves: it is reserved whole.
  static constexpr std::uint32_t kBlockBytes = 16384;
  static constexpr std::uint32_t kBlock =
      sizeof(T) < kBlockBytes ? kBlockBytes / std::uint32_t{sizeof(T)} : 1;

  std::vector<std::vector<T>> fBlocks;
  std::uint32_t fCount = 0;
};

// The same with an index from id to position. A later object of an id takes over the entry, and
// the older one stays in the list, reachable by position only.
template <typename T>
class IndexedList : public ObjectList<T> {
 public:
  // Without memory for the index entry the list is left as it was.
  T& Add(const T& object) {
    T& added = ObjectList<T>::Add(object);
    try {
      fPositions.Set(added.Id(), this->Count() - 1);
    } catch (...) {
      this->DropLast();
      throw;
    }
    return added;
  }

  [[nodiscard]] bool Contains(std::uint32_t id) const noexcept {
    return fPositions.Find(id) != IdIndex::kNone;
  }

  // The object that the index knows by this id, or null.
  [[nodiscard]] T* Find(std::uint32_t id) noexcept {
    const std::uint32_t position = fPositions.Find(id);
    return position == IdIndex::kNone ? nullptr : &this->At(position);
  }

 private:
  IdIndex fPositions;
};

}  // namespace vermo
