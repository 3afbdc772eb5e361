// The program counts every allocation: an evaluation runs once per observation and iteration and
// must not allocate.

#include "observations/messung_obko.h"
#include "observations/messung_strecke.h"
#include "support/image_scene.h"

#include <cstddef>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>

namespace {

std::size_t gAllocations = 0;

void* Counted(std::size_t size) noexcept {
  ++gAllocations;
  return std::malloc(size == 0 ? 1 : size);
}

void* CountedOrThrow(std::size_t size) {
  if (void* memory = Counted(size)) return memory;
  throw std::bad_alloc();
}

void* CountedAligned(std::size_t size, std::align_val_t alignment) {
  ++gAllocations;
  const auto boundary = static_cast<std::size_t>(alignment);
  // The size must be a multiple of the boundary.
  if (void* memory = std::aligned_alloc(boundary, (size + boundary - 1) / boundary * boundary))
    return memory;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return CountedOrThrow(size); }
void* operator new[](std::size_t size) { return CountedOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return Counted(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return Counted(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return CountedAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return CountedAligned(size, alignment);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept { std::free(memory); }
void operator delete[](void* memory, std::align_val_t /*alignment*/) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  std::free(memory);
}
void operator delete[](void* memory,
                       std::size_t /*size*/,
                       std::align_val_t /*alignment*/) noexcept {
  std::free(memory);
}

namespace vermo::test {
namespace {

template <typename Action>
std::size_t AllocationsOf(Action&& action) {
  const std::size_t before = gAllocations;
  action();
  return gAllocations - before;
}

TEST(Allocations, AreCounted) {
  EXPECT_EQ(AllocationsOf([] { ::operator delete(::operator new(16)); }), 1U);
  EXPECT_EQ(AllocationsOf([] { ::operator delete[](::operator new[](16)); }), 1U);
  EXPECT_EQ(AllocationsOf([] {}), 0U);
}

TEST(Allocations, EvaluationOfAnImageCoordinateHasNone) {
  ImageScene scene;
  scene.RelativePair().BodyBound().WithProjektion();
  EquationBlock equations;
  bool evaluated = false;
  ImagePointPair point{};
  EXPECT_EQ(AllocationsOf([&] { evaluated = scene.biko.ObservationEquations(equations); }), 0U);
  EXPECT_TRUE(evaluated);
  EXPECT_EQ(equations.rows[0].size(), 3U + 3U * 6U + 3U + 10U);
  EXPECT_EQ(AllocationsOf([&] { evaluated = scene.biko.EvaluateImagePoint(point); }), 0U);
  EXPECT_TRUE(evaluated);
}

TEST(Allocations, EvaluationOfTheOtherObservationsHasNone) {
  ImageScene scene;
  scene.BodyBound();
  MessungObko coordinates;
  coordinates.SetPunkt(&scene.point);
  coordinates.SetBezug(&scene.eor);
  coordinates.SetActive(true);
  DataObko other;
  other.SetActive(true);
  MessungStrecke distance;
  distance.SetPunkte(&scene.point, &other);
  distance.SetActive(true);
  EquationBlock equations;
  bool evaluated = false;
  EXPECT_EQ(AllocationsOf([&] { evaluated = coordinates.ObservationEquations(equations); }), 0U);
  EXPECT_TRUE(evaluated);
  EXPECT_EQ(AllocationsOf([&] { evaluated = distance.ObservationEquations(equations); }), 0U);
  EXPECT_TRUE(evaluated);
}

}  // namespace
}  // namespace vermo::test
