// The operators of the whole program, and that they fail when they are told to. They stand on
// malloc, so that the address sanitizer sees every block that they hand out.

#include "faults/failing_allocations.h"

#include <cstddef>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <vector>

namespace {

std::uint64_t gAllocations = 0;  // those of OwnAllocations left out
std::int64_t gLive = 0;
std::uint64_t gFailAt = 0;  // in counts of gAllocations; 0 while none fails
bool gStaysExhausted = false;
bool gReached = false;
unsigned gOwn = 0;

bool Fails() noexcept {
  if (gOwn != 0) return false;
  ++gAllocations;
  if (gFailAt == 0 || gAllocations < gFailAt) return false;
  if (gAllocations > gFailAt && !gStaysExhausted) return false;
  gReached = true;
  return true;
}

void* Allocate(std::size_t size) noexcept {
  if (Fails()) return nullptr;
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory != nullptr) ++gLive;
  return memory;
}

void* Allocate(std::size_t size, std::align_val_t alignment) noexcept {
  if (Fails()) return nullptr;
  const auto boundary = static_cast<std::size_t>(alignment);
  // The size must be a multiple of the boundary.
  const std::size_t whole = size == 0 ? boundary : (size + boundary - 1) / boundary * boundary;
  void* memory = std::aligned_alloc(boundary, whole);
  if (memory != nullptr) ++gLive;
  return memory;
}

void* OrThrow(void* memory) {
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

// Not inlined: a compiler that sees free beside operator new takes the two for a mismatch.
[[gnu::noinline]] void Free(void* memory) noexcept {
  if (memory == nullptr) return;
  --gLive;
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) { return OrThrow(Allocate(size)); }
void* operator new[](std::size_t size) { return OrThrow(Allocate(size)); }
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return Allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return OrThrow(Allocate(size, alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return OrThrow(Allocate(size, alignment));
}
void* operator new(std::size_t size,
                   std::align_val_t alignment,
                   const std::nothrow_t& /*tag*/) noexcept {
  return Allocate(size, alignment);
}
void* operator new[](std::size_t size,
                     std::align_val_t alignment,
                     const std::nothrow_t& /*tag*/) noexcept {
  return Allocate(size, alignment);
}
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete[](void* memory) noexcept { Free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { Free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { Free(memory); }
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept { Free(memory); }
void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept { Free(memory); }
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept { Free(memory); }
void operator delete[](void* memory, std::align_val_t /*alignment*/) noexcept { Free(memory); }
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  Free(memory);
}
void operator delete[](void* memory,
                       std::size_t /*size*/,
                       std::align_val_t /*alignment*/) noexcept {
  Free(memory);
}
void operator delete(void* memory,
                     std::align_val_t /*alignment*/,
                     const std::nothrow_t& /*tag*/) noexcept {
  Free(memory);
}
void operator delete[](void* memory,
                       std::align_val_t /*alignment*/,
                       const std::nothrow_t& /*tag*/) noexcept {
  Free(memory);
}

namespace faults {

FailingAllocations::FailingAllocations(std::uint64_t k, Memory memory) noexcept {
  gReached = false;
  gStaysExhausted = memory == Memory::StaysExhausted;
  gFailAt = gAllocations + k;
}

FailingAllocations::~FailingAllocations() { gFailAt = 0; }

bool FailingAllocations::Reached() const noexcept { return gReached; }

OwnAllocations::OwnAllocations() noexcept { ++gOwn; }

OwnAllocations::~OwnAllocations() { --gOwn; }

std::int64_t LiveAllocations() noexcept { return gLive; }

std::uint64_t AllocationsSoFar() noexcept { return gAllocations; }

namespace {

using Memory = FailingAllocations::Memory;

constexpr std::align_val_t kBoundary{64};

// One allocation, freed again; whether it failed.
using Attempt = bool (*)();

template <typename Make>
bool Throws(Make make) {
  try {
    make();
  } catch (const std::bad_alloc&) {
    return true;
  }
  return false;
}

constexpr Attempt kForms[] = {
    [] { return Throws([] { ::operator delete(::operator new(8)); }); },
    [] { return Throws([] { ::operator delete[](::operator new[](8)); }); },
    [] { return Throws([] { ::operator delete(::operator new(8, kBoundary), kBoundary); }); },
    [] { return Throws([] { ::operator delete[](::operator new[](8, kBoundary), kBoundary); }); },
    [] {
      void* memory = ::operator new(8, std::nothrow);
      ::operator delete(memory, std::nothrow);
      return memory == nullptr;
    },
    [] {
      void* memory = ::operator new[](8, std::nothrow);
      ::operator delete[](memory, std::nothrow);
      return memory == nullptr;
    },
    [] {
      void* memory = ::operator new(8, kBoundary, std::nothrow);
      ::operator delete(memory, kBoundary, std::nothrow);
      return memory == nullptr;
    },
    [] {
      void* memory = ::operator new[](8, kBoundary, std::nothrow);
      ::operator delete[](memory, kBoundary, std::nothrow);
      return memory == nullptr;
    },
};

TEST(FailingAllocations, EveryFormFailsOnceAndPassesAfterwards) {
  for (const Attempt form : kForms) {
    const FailingAllocations failing(2);
    EXPECT_FALSE(form());
    EXPECT_FALSE(failing.Reached());
    EXPECT_TRUE(form());
    EXPECT_TRUE(failing.Reached());
    EXPECT_FALSE(form());
  }
}

TEST(FailingAllocations, ExhaustedMemoryStaysExhausted) {
  for (const Attempt form : kForms) {
    bool before = true;
    bool first = false;
    bool second = false;
    {
      const FailingAllocations failing(2, Memory::StaysExhausted);
      before = form();
      first = form();
      second = form();
    }
    EXPECT_FALSE(before);
    EXPECT_TRUE(first);
    EXPECT_TRUE(second);
    EXPECT_FALSE(form());
  }
}

TEST(FailingAllocations, OwnAllocationsPassAndDoNotCount) {
  const FailingAllocations failing(1);
  {
    const OwnAllocations own;
    EXPECT_FALSE(kForms[0]());
  }
  EXPECT_FALSE(failing.Reached());
  EXPECT_TRUE(kForms[0]());
}

TEST(FailingAllocations, ContainersOfTheStandardLibraryAreReached) {
  const FailingAllocations failing(1);
  EXPECT_TRUE(Throws([] { std::vector<int>(100).swap(*std::make_unique<std::vector<int>>()); }));
}

TEST(FailingAllocations, LiveAllocationsRiseAndFallWithTheBlocks) {
  const std::int64_t before = LiveAllocations();
  auto block = std::make_unique<int>(1);
  EXPECT_EQ(LiveAllocations(), before + 1);
  block.reset();
  EXPECT_EQ(LiveAllocations(), before);
  EXPECT_EQ(AllocationsOf([] { ::operator delete(::operator new(8)); }), 1U);
}

}  // namespace
}  // namespace faults
