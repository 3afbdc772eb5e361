#include "network/object_list.h"

#include "network/id_index.h"

#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <utility>
#include <vector>

namespace {

// Allocations until one fails, below 0 when none does.
long gAllocationsLeft = -1;

void* AllocateOrNull(std::size_t size) noexcept {
  if (gAllocationsLeft == 0) return nullptr;
  if (gAllocationsLeft > 0) --gAllocationsLeft;
  return std::malloc(size == 0 ? 1 : size);
}

void* Allocate(std::size_t size) {
  if (void* const memory = AllocateOrNull(size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

// The whole program allocates through these, so that a test can make the k-th allocation fail.
void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return AllocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return AllocateOrNull(size);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace vermo {
namespace {

struct Item {
  std::uint32_t id = 0;
  int value = 0;
  [[nodiscard]] std::uint32_t Id() const { return id; }
};

TEST(IdIndex, FindsTheLastPositionOfEveryIdThatWasSet) {
  // Ids side by side, far apart, in steps of a power of two, and the ends of their range.
  for (const std::uint32_t step : {1U, 3U, 4096U, 0x01000000U, 0x9E3779B9U}) {
    IdIndex index;
    EXPECT_EQ(index.Find(0), IdIndex::kNone);
    constexpr std::uint32_t kCount = 200;
    for (std::uint32_t k = 0; k < kCount; ++k) index.Set(k * step, k);
    for (std::uint32_t k = 0; k < kCount; k += 2) index.Set(k * step, 1000 + k);
    index.Set(0xFFFFFFFF, 7);
    for (std::uint32_t k = 0; k < kCount; ++k) {
      // In steps of 2^24 ids come round again after 256; 200 of them are all different.
      EXPECT_EQ(index.Find(k * step), k % 2 == 0 ? 1000 + k : k) << step << ' ' << k;
    }
    EXPECT_EQ(index.Find(0xFFFFFFFF), 7U);
    EXPECT_EQ(index.Find(kCount * step + 1), IdIndex::kNone);
  }
}

TEST(ObjectList, StartsEmpty) {
  const ObjectList<Item> list;
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_EQ(list.Count(), 0U);
}

TEST(ObjectList, AddStoresACopyAtTheEnd) {
  ObjectList<Item> list;
  Item item{1, 10};
  Item& first = list.Add(item);
  item.value = 20;
  list.Add(item);
  EXPECT_NE(&first, &item);
  EXPECT_EQ(list.Count(), 2U);
  EXPECT_FALSE(list.IsEmpty());
  EXPECT_EQ(list.At(0).value, 10);
  EXPECT_EQ(list.At(1).value, 20);
  EXPECT_EQ(&list.At(0), &first);
}

TEST(ObjectList, AddressesStayWhileTheListGrows) {
  ObjectList<Item> list;
  std::vector<Item*> addresses;
  for (std::uint32_t i = 0; i < 5000; ++i) addresses.push_back(&list.Add({i, 0}));
  for (std::uint32_t i = 0; i < 5000; ++i) ASSERT_EQ(&list.At(i), addresses[i]) << i;
}

TEST(ObjectList, EqualRecordsAreTwoEntries) {
  ObjectList<Item> list;
  list.Add({1, 1});
  list.Add({1, 1});
  EXPECT_EQ(list.Count(), 2U);
  EXPECT_NE(&list.At(0), &list.At(1));
}

TEST(ObjectList, IterationKeepsTheOrderAndReachesTheObjects) {
  ObjectList<Item> list;
  for (int i = 0; i < 3; ++i) list.Add({0, i});
  int expected = 0;
  for (Item& item : list) {
    EXPECT_EQ(item.value, expected++);
    item.value += 100;
  }
  EXPECT_EQ(expected, 3);
  for (const Item& item : std::as_const(list)) EXPECT_EQ(item.value, 100 + expected++ - 3);
  EXPECT_EQ(expected, 6);
}

TEST(IndexedList, FindsByIdWhateverTheOrder) {
  IndexedList<Item> list;
  list.Add({70, 1});
  list.Add({5, 2});
  list.Add({0xFFFFFFFF, 3});
  EXPECT_EQ(list.Find(5), &list.At(1));
  EXPECT_EQ(list.Find(70), &list.At(0));
  EXPECT_EQ(list.Find(0xFFFFFFFF), &list.At(2));
  EXPECT_TRUE(list.Contains(70));
  EXPECT_EQ(list.Find(6), nullptr);
  EXPECT_FALSE(list.Contains(6));
}

TEST(IndexedList, LaterObjectTakesOverTheIdAndTheEarlierOneStays) {
  IndexedList<Item> list;
  list.Add({5, 1});
  list.Add({5, 2});
  EXPECT_EQ(list.Count(), 2U);
  ASSERT_NE(list.Find(5), nullptr);
  EXPECT_EQ(list.Find(5)->value, 2);
  EXPECT_EQ(list.At(0).value, 1);
}

// Lets allocation 0, 1, 2 ... of an Add fail until one passes; each failure must leave the list as
// it was. Returns how many failed.
template <typename List, typename Check>
long FailEveryAllocation(List& list, const Item& item, Check unchanged) {
  for (long k = 0;; ++k) {
    gAllocationsLeft = k;
    try {
      list.Add(item);
      gAllocationsLeft = -1;
      return k;
    } catch (const std::bad_alloc&) {
      gAllocationsLeft = -1;
      unchanged();
    }
  }
}

TEST(ObjectList, FailedAllocationLeavesTheListAsItWas) {
  ObjectList<Item> list;
  // Across several blocks: each asks for its memory and for a place among the blocks.
  long failures = 0;
  for (std::uint32_t i = 0; i < 5000; ++i) {
    failures += FailEveryAllocation(list, {i, 0}, [&] { ASSERT_EQ(list.Count(), i) << i; });
    ASSERT_EQ(list.Count(), i + 1);
    ASSERT_EQ(list.At(i).id, i);
  }
  EXPECT_GE(failures, 4);
}

TEST(IndexedList, FailedAllocationLeavesListAndIndexAsTheyWere) {
  IndexedList<Item> list;
  long failures = 0;
  for (std::uint32_t i = 0; i < 300; ++i) {
    failures += FailEveryAllocation(list, {i, 0}, [&] {
      ASSERT_EQ(list.Count(), i);
      ASSERT_FALSE(list.Contains(i));
      ASSERT_EQ(list.Find(i), nullptr);
    });
    ASSERT_EQ(list.Find(i), &list.At(i));
  }
  // The index of 16 entries that doubles whenever it is half full, and the list's own memory.
  EXPECT_GE(failures, 7 + 1);
}

TEST(IndexedList, FailedTakeoverKeepsTheEarlierObject) {
  IndexedList<Item> list;
  list.Add({5, 1});
  FailEveryAllocation(list, {5, 2}, [&] {
    ASSERT_EQ(list.Count(), 1U);
    ASSERT_EQ(list.Find(5), &list.At(0));
  });
  EXPECT_EQ(list.Find(5)->value, 2);
}

}  // namespace
}  // namespace vermo
