// The counting rules of the shared pointer. The program can make its next allocation fail.

#include "checks/smart_ptr.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

bool gNextAllocationFails = false;

void* Allocate(std::size_t size) noexcept {
  if (gNextAllocationFails) {
    gNextAllocationFails = false;
    return nullptr;
  }
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

// Out of line: seen through, the pairs of new and free look mismatched to the compiler.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (void* memory = Allocate(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return Allocate(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
  std::free(memory);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Log = std::vector<std::string>;

// Tells its end.
class Object {
 public:
  Object(Log& log, std::string name) : fLog(&log), fName(std::move(name)) {}
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object() { fLog->push_back(fName); }

 private:
  Log* fLog;
  std::string fName;
};

class Derived final : public Object {
 public:
  using Object::Object;
  ~Derived() override { ++ends; }
  static inline int ends = 0;
};

using Pointer = lumo::smart_ptr<Object>;

TEST(SmartPtr, EmptyPointerHasNoBlock) {
  const Pointer empty;
  const Pointer copy(empty);
  EXPECT_EQ(empty.Get(), nullptr);
  EXPECT_EQ(copy.Get(), nullptr);
  EXPECT_EQ(empty.UseCount(), 0U);
  EXPECT_EQ(copy.UseCount(), 0U);
}

TEST(SmartPtr, LastOfTheCopiesDeletesTheObject) {
  Log log;
  auto* object = new Object(log, "a");
  {
    const Pointer first(object);
    EXPECT_EQ(first.UseCount(), 1U);
    EXPECT_EQ(first.Get(), object);
    EXPECT_EQ(&*first, object);
    EXPECT_EQ(first.operator->(), object);
    {
      const Pointer second(first);
      const Pointer third(second);
      EXPECT_EQ(first.UseCount(), 3U);
      EXPECT_EQ(third.UseCount(), 3U);
      EXPECT_EQ(third.Get(), object);
    }
    EXPECT_EQ(first.UseCount(), 1U);
    EXPECT_THAT(log, IsEmpty());
  }
  EXPECT_THAT(log, ElementsAre("a"));
}

TEST(SmartPtr, CopyOutlivesItsSource) {
  Log log;
  auto first = std::make_unique<Pointer>(new Object(log, "a"));
  const Pointer second(*first);
  first.reset();
  EXPECT_THAT(log, IsEmpty());
  EXPECT_EQ(second.UseCount(), 1U);
}

TEST(SmartPtr, AssignmentReleasesTheOldObjectAndSharesTheNew) {
  Log log;
  Pointer target(new Object(log, "old"));
  const Pointer sharing(target);
  const Pointer source(new Object(log, "new"));
  target = source;
  EXPECT_EQ(sharing.UseCount(), 1U);
  EXPECT_EQ(source.UseCount(), 2U);
  EXPECT_EQ(target.Get(), source.Get());
  EXPECT_THAT(log, IsEmpty());
  Pointer sole(new Object(log, "sole"));
  sole = target;
  EXPECT_THAT(log, ElementsAre("sole"));
  EXPECT_EQ(source.UseCount(), 3U);
}

TEST(SmartPtr, AssignmentToItselfChangesNothing) {
  Log log;
  Pointer pointer(new Object(log, "a"));
  const Pointer& same = pointer;
  pointer = same;
  EXPECT_EQ(pointer.UseCount(), 1U);
  EXPECT_THAT(log, IsEmpty());
}

TEST(SmartPtr, AssignmentOfACopyOfItselfChangesNothing) {
  Log log;
  Pointer pointer(new Object(log, "a"));
  const Pointer copy(pointer);
  pointer = copy;
  EXPECT_EQ(pointer.UseCount(), 2U);
  EXPECT_EQ(pointer.Get(), copy.Get());
}

TEST(SmartPtr, EmptyAssignmentReleases) {
  Log log;
  Pointer pointer(new Object(log, "a"));
  pointer = Pointer();
  EXPECT_THAT(log, ElementsAre("a"));
  EXPECT_EQ(pointer.UseCount(), 0U);
}

TEST(SmartPtr, ObjectsEndWithTheirLastPointerInThatOrder) {
  Log log;
  std::vector<Pointer> pointers;
  for (const char* name : {"a", "b", "c"}) pointers.emplace_back(new Object(log, name));
  pointers.push_back(pointers[0]);
  pointers.erase(pointers.begin(), pointers.begin() + 2);
  EXPECT_THAT(log, ElementsAre("b"));
  pointers.pop_back();
  EXPECT_THAT(log, ElementsAre("b", "a"));
  pointers.clear();
  EXPECT_THAT(log, ElementsAre("b", "a", "c"));
}

TEST(SmartPtr, ElementAppendedToItsOwnListSurvivesTheGrowth) {
  Log log;
  std::vector<Pointer> pointers;
  pointers.emplace_back(new Object(log, "a"));
  for (int i = 0; i < 100; ++i) {
    pointers.shrink_to_fit();
    pointers.push_back(pointers.front());
  }
  EXPECT_EQ(pointers.front().UseCount(), 101U);
  EXPECT_EQ(pointers.back().Get(), pointers.front().Get());
  EXPECT_THAT(log, IsEmpty());
}

TEST(SmartPtr, DeletesWhatDerivesFromItsObject) {
  Log log;
  Derived::ends = 0;
  { const Pointer pointer(new Derived(log, "derived")); }
  EXPECT_EQ(Derived::ends, 1);
  EXPECT_THAT(log, ElementsAre("derived"));
}

TEST(SmartPtr, PointerDeletedThroughItsBaseReleases) {
  static_assert(std::has_virtual_destructor_v<lumo::smart_ptr_base>);
  static_assert(std::is_abstract_v<lumo::smart_ptr_base>);
  Log log;
  const Pointer kept(new Object(log, "a"));
  std::unique_ptr<lumo::smart_ptr_base> base = std::make_unique<Pointer>(kept);
  EXPECT_EQ(kept.UseCount(), 2U);
  base.reset();
  EXPECT_EQ(kept.UseCount(), 1U);
  base = std::make_unique<Pointer>(new Object(log, "b"));
  base.reset();
  EXPECT_THAT(log, ElementsAre("b"));
}

// Out of line: an allocation that nobody else can see may be left out.
[[gnu::noinline]] void Take(Pointer& target, Object* object) { target = Pointer(object); }

TEST(SmartPtr, ObjectIsDeletedWhenThereIsNoMemoryForItsBlock) {
  Log log;
  log.reserve(1);
  auto* object = new Object(log, "a");
  Pointer target;
  gNextAllocationFails = true;
  EXPECT_THROW(Take(target, object), std::bad_alloc);
  gNextAllocationFails = false;
  EXPECT_THAT(log, ElementsAre("a"));
  EXPECT_EQ(target.UseCount(), 0U);
}

TEST(AdminPtr, CountsFromOneAndEndsWithTheObjectAtZero) {
  static_assert(std::has_virtual_destructor_v<lumo::admin_ptr_base>);
  static_assert(std::is_abstract_v<lumo::admin_ptr_base>);
  Log log;
  auto* block = new lumo::admin_ptr<Object>(new Object(log, "a"));
  EXPECT_EQ(block->GetCount(), 1U);
  block->AddRef();
  block->AddRef();
  EXPECT_EQ(block->GetCount(), 3U);
  block->Release();
  block->Release();
  EXPECT_EQ(block->GetCount(), 1U);
  EXPECT_THAT(log, IsEmpty());
  block->Release();
  EXPECT_THAT(log, ElementsAre("a"));
}

TEST(AdminPtr, OfNothingEndsWithoutAnObject) {
  const lumo::smart_ptr<Object> pointer(nullptr);
  EXPECT_EQ(pointer.UseCount(), 1U);
  EXPECT_EQ(pointer.Get(), nullptr);
}

}  // namespace
