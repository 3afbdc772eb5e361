#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>

namespace vermo {

// Owns objects in the order they were added; the position is the only key. An object's address
// never changes: groups and observations point at each other for the whole life of a job.
template <typename T>
class ObjectList {
 public:
  // Appends a copy and returns it.
  T& Add(const T& object) { return *fObjects.emplace_back(std::make_unique<T>(object)); }

  [[nodiscard]] std::uint32_t Count() const noexcept {
    return static_cast<std::uint32_t>(fObjects.size());
  }
  [[nodiscard]] bool IsEmpty() const noexcept { return fObjects.empty(); }
  [[nodiscard]] T& At(std::uint32_t index) noexcept { return *fObjects[index]; }
  [[nodiscard]] const T& At(std::uint32_t index) const noexcept { return *fObjects[index]; }

  // Iteration over the objects themselves.
  template <typename Base, typename Object>
  class Iterator {
   public:
    explicit Iterator(Base base) : fBase(base) {}
    Object& operator*() const { return **fBase; }
    Iterator& operator++() {
      ++fBase;
      return *this;
    }
    bool operator!=(const Iterator& other) const { return fBase != other.fBase; }

   private:
    Base fBase;
  };
  using Storage = std::deque<std::unique_ptr<T>>;
  auto begin() { return Iterator<typename Storage::iterator, T>(fObjects.begin()); }
  auto end() { return Iterator<typename Storage::iterator, T>(fObjects.end()); }
  auto begin() const {
    return Iterator<typename Storage::const_iterator, const T>(fObjects.begin());
  }
  auto end() const { return Iterator<typename Storage::const_iterator, const T>(fObjects.end()); }

 protected:
  void DropLast() noexcept { fObjects.pop_back(); }

 private:
  Storage fObjects;
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
      fPositions[added.Id()] = this->Count() - 1;
    } catch (...) {
      this->DropLast();
      throw;
    }
    return added;
  }

  [[nodiscard]] bool Contains(std::uint32_t id) const { return fPositions.contains(id); }

  // The object that the index knows by this id, or null.
  [[nodiscard]] T* Find(std::uint32_t id) {
    const auto entry = fPositions.find(id);
    return entry == fPositions.end() ? nullptr : &this->At(entry->second);
  }

 private:
  std::map<std::uint32_t, std::uint32_t> fPositions;
};

}  // namespace vermo
