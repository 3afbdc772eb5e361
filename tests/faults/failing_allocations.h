#pragma once

#include <cstdint>

namespace faults {

// The program replaces every form of operator new; between construction and destruction of this
// object one of them fails. The forms that throw raise std::bad_alloc, the others give null.
class FailingAllocations {
 public:
  enum class Memory {
    ReturnsAtOnce,  // the k-th allocation fails, the later ones pass
    StaysExhausted  // the k-th and all later ones fail
  };

  // k counts from 1. Not nested.
  explicit FailingAllocations(std::uint64_t k, Memory memory = Memory::ReturnsAtOnce) noexcept;
  ~FailingAllocations();
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;

  // Whether so many allocations were asked for that one has failed.
  [[nodiscard]] bool Reached() const noexcept;
};

// While it lives, allocations pass and are not counted for the failure: what a test's own callback
// allocates is no allocation of the library. Nests.
class OwnAllocations {
 public:
  OwnAllocations() noexcept;
  ~OwnAllocations();
  OwnAllocations(const OwnAllocations&) = delete;
  OwnAllocations& operator=(const OwnAllocations&) = delete;
};

// Allocations of the process that nobody has freed yet.
[[nodiscard]] std::int64_t LiveAllocations() noexcept;

// The number of allocations that an action asks for.
template <typename Action>
std::uint64_t AllocationsOf(Action&& action);

// Implementation of AllocationsOf.
[[nodiscard]] std::uint64_t AllocationsSoFar() noexcept;

template <typename Action>
std::uint64_t AllocationsOf(Action&& action) {
  const std::uint64_t before = AllocationsSoFar();
  action();
  return AllocationsSoFar() - before;
}

}  // namespace faults
