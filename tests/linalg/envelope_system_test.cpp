#include "linalg/envelope_system.h"

#include "checks/kl_exception.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <random>
#include <vector>

namespace {

std::size_t gAllocations = 0;

}  // namespace

// This program counts every allocation.
void* operator new(std::size_t size) {
  ++gAllocations;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++gAllocations;
  return std::malloc(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace vermo {
namespace {

DesignRow Row(const std::vector<std::pair<std::uint32_t, double>>& entries) {
  DesignRow row;
  for (const auto& [column, coefficient] : entries) row.push(column, coefficient);
  row.SortByColumn();
  return row;
}

TEST(DesignRow, SortsByColumnAndEqualColumnsByCoefficient) {
  const DesignRow row = Row({{5, 1.0}, {2, 3.0}, {5, -1.0}, {2, -4.0}, {0, 0.5}});
  const std::vector<std::pair<std::uint32_t, double>> expected = {
      {0, 0.5}, {2, -4.0}, {2, 3.0}, {5, -1.0}, {5, 1.0}};
  ASSERT_EQ(row.size(), expected.size());
  for (std::uint32_t i = 0; i < row.size(); ++i) {
    EXPECT_EQ(row[i].column, expected[i].first);
    EXPECT_EQ(row[i].coefficient, expected[i].second);
  }
}

TEST(DesignRow, PlacesInTwoRowsAreNotTheSame) {
  const DesignRow a = Row({{2, 3.0}, {5, 1.0}});
  const DesignRow b = Row({{2, 3.0}, {5, 1.0}});
  EXPECT_NE(a.begin(), b.begin());
  EXPECT_NE(a.begin(), a.end());
  EXPECT_EQ(++ ++a.begin(), a.end());
}

TEST(DesignRow, RowsOfTheSameColumnsHaveThemInTheSameOrder) {
  for (const std::uint32_t more : {7U, 8U}) {
    const auto rowOf = [&](std::uint32_t last, std::uint32_t size) {
      DesignRow row;
      for (std::uint32_t c = 0; c + 1 < size; ++c) row.push(c, 1.0);
      row.push(last, 2.0);
      return row;
    };
    const DesignRow row = rowOf(40, more);
    EXPECT_TRUE(row.HasColumnsOf(rowOf(40, more)));
    EXPECT_FALSE(row.HasColumnsOf(rowOf(41, more)));
    EXPECT_FALSE(row.HasColumnsOf(rowOf(40, more - 1)));
    EXPECT_FALSE(row.HasColumnsOf(DesignRow()));
  }
}

TEST(EnvelopeSystem, EquationAddsTheWeightedSquareAndTheRightHandSide) {
  EnvelopeSystem system;
  system.Reset(6, 0);
  system.AddEquation(Row({{4, 2.0}, {1, 3.0}}), 0.5, 7.0);
  system.AddEquation(Row({{4, 1.0}}), 2.0, 1.0);
  EXPECT_EQ(system.Element(1, 1), 4.5);
  EXPECT_EQ(system.Element(4, 1), 3.0);
  EXPECT_EQ(system.Element(4, 4), 4.0);
  EXPECT_EQ(system.Element(1, 4), 0.0);
  EXPECT_EQ(system.Element(4, 2), 0.0);
  EXPECT_EQ(system.Rhs()[1], 10.5);
  EXPECT_EQ(system.Rhs()[4], 9.0);
}

TEST(EnvelopeSystem, RepeatedColumnsActAsTheirSum) {
  EnvelopeSystem repeated;
  repeated.Reset(3, 0);
  repeated.AddEquation(Row({{2, 1.5}, {0, 1.0}, {2, 0.5}}), 2.0, 3.0);
  EnvelopeSystem single;
  single.Reset(3, 0);
  single.AddEquation(Row({{2, 2.0}, {0, 1.0}}), 2.0, 3.0);
  for (std::uint32_t r = 0; r < 3; ++r) {
    for (std::uint32_t c = 0; c <= r; ++c) EXPECT_EQ(repeated.Element(r, c), single.Element(r, c));
    EXPECT_EQ(repeated.Rhs()[r], single.Rhs()[r]);
  }
}

TEST(EnvelopeSystem, EmptyRowAddsNothing) {
  EnvelopeSystem system;
  system.Reset(2, 0);
  system.AddEquation(DesignRow(), 1.0, 5.0);
  EXPECT_EQ(system.Rhs()[0], 0.0);
  EXPECT_THROW(system.FactorizeAndSolve(true), KlException);
}

TEST(EnvelopeSystem, EmptySystemSolves) {
  EnvelopeSystem system;
  system.Reset(0, 0);
  EXPECT_NO_THROW(system.FactorizeAndSolve(true));
  EXPECT_EQ(system.Solution().size(), 0U);
  EXPECT_EQ(system.DiagonalCofactors().size(), 0U);
}

// As any engine without a way of its own.
TEST(NormalSystem, StoredBlockIsItsElementsInWidenedRows) {
  EnvelopeSystem block;
  EnvelopeSystem single;
  for (EnvelopeSystem* system : {&block, &single}) {
    system->Reset(5, 2);
    for (std::uint32_t c = 0; c < 5; ++c) system->AddEquation(Row({{c, 1.0}}), 2.0, 1.0);
    system->WidenRow(5, 3);
    system->StoreElement(5, 3, 9.0);
  }
  const double values[] = {1.5, 0.0, -2.0, 0.25, 3.0, -0.0};
  block.StoreBlock(5, 2, 1, 3, values);
  for (std::uint32_t r = 0; r < 2; ++r) {
    single.WidenRow(5 + r, 1);
    for (std::uint32_t c = 0; c < 3; ++c) single.StoreElement(5 + r, 1 + c, values[3 * r + c]);
  }
  EXPECT_EQ(block.Element(5, 3), -2.0);
  EXPECT_EQ(block.Element(6, 2), 3.0);
  for (std::uint32_t r = 0; r < 7; ++r)
    for (std::uint32_t c = 0; c <= r; ++c) EXPECT_EQ(block.Element(r, c), single.Element(r, c));
}

TEST(EnvelopeSystem, ConstraintElementsAreStoredAndSolved) {
  // Minimise (x - 1)^2 + (y - 4)^2 with x + y = 3: x = 0, y = 3, multiplier k with x - 1 = -k.
  EnvelopeSystem system;
  system.Reset(2, 1);
  system.AddEquation(Row({{0, 1.0}}), 1.0, 1.0);
  system.AddEquation(Row({{1, 1.0}}), 1.0, 4.0);
  system.WidenRow(2, 0);
  system.StoreElement(2, 0, 9.0);
  system.StoreElement(2, 0, 1.0);
  system.StoreElement(2, 1, 1.0);
  system.SetRhs(2, 3.0);
  EXPECT_EQ(system.Unknowns(), 2U);
  EXPECT_EQ(system.Size(), 3U);
  system.FactorizeAndSolve(true);
  EXPECT_NEAR(system.Solution()[0], 0.0, 1e-14);
  EXPECT_NEAR(system.Solution()[1], 3.0, 1e-14);
  EXPECT_NEAR(system.Solution()[2], 1.0, 1e-14);
  // The cofactors of the two unknowns: one direction is left free, (1, -1) / sqrt 2.
  system.InvertCofactors();
  EXPECT_NEAR(system.Cofactor(0, 0), 0.5, 1e-14);
  EXPECT_NEAR(system.Cofactor(0, 1), system.Cofactor(1, 0), 0.0);
  EXPECT_NEAR(system.CofactorForm(Row({{0, 1.0}, {1, 1.0}})),
              system.Cofactor(0, 0) + system.Cofactor(1, 1) + 2.0 * system.Cofactor(1, 0),
              1e-15);
}

TEST(EnvelopeSystem, FormCountsCofactorsOutsideTheEnvelopeAsZero) {
  EnvelopeSystem system;
  system.Reset(3, 0);
  system.AddEquation(Row({{0, 1.0}}), 4.0, 0.0);
  system.AddEquation(Row({{1, 1.0}}), 2.0, 0.0);
  system.AddEquation(Row({{2, 1.0}}), 1.0, 0.0);
  system.FactorizeAndSolve(true);
  system.InvertCofactors();
  EXPECT_DOUBLE_EQ(system.CofactorForm(Row({{0, 2.0}, {2, 3.0}})), 4.0 * 0.25 + 9.0);
  EXPECT_EQ(system.Cofactor(2, 0), 0.0);
}

void Assemble(EnvelopeSystem& system, std::uint64_t seed) {
  // The structure is that of the first pass; the numbers change.
  std::mt19937_64 structure(3);
  std::mt19937_64 numbers(seed);
  const auto number = [&numbers] { return static_cast<double>(numbers() >> 11U) * 0x1p-52 - 1.0; };
  system.Reset(40, 2);
  for (int i = 0; i < 200; ++i) {
    DesignRow row;
    for (int k = 0; k < 5; ++k) row.push(static_cast<std::uint32_t>(structure() % 40), number());
    row.SortByColumn();
    system.AddEquation(row, 1.0, number());
  }
  for (std::uint32_t k = 0; k < 2; ++k) {
    system.WidenRow(40 + k, 0);
    for (std::uint32_t c = k; c < 40; c += 2) system.StoreElement(40 + k, c, 1.0);
  }
}

TEST(EnvelopeSystem, ReservedRowsGrowWithoutAnAllocationAndHoldNothing) {
  EnvelopeSystem system;
  system.Reset(50, 0);
  for (std::uint32_t r = 0; r < 50; ++r) system.ReserveRow(r, 0);
  EXPECT_EQ(system.Element(49, 0), 0.0);
  const std::size_t before = gAllocations;
  for (std::uint32_t c = 50; c-- > 0;) {
    DesignRow row;
    row.push(c, 1.0);
    row.push(49, 2.0);
    system.AddEquation(row, 1.0, 0.0);
  }
  EXPECT_EQ(gAllocations, before);
  EXPECT_EQ(system.Element(49, 0), 2.0);
  EXPECT_EQ(system.Element(49, 49), 49 * 4.0 + 9.0);
  // What is reserved is not stored: an empty row stays empty.
  system.Reset(2, 0);
  system.ReserveRow(1, 0);
  system.AddEquation(Row({{0, 1.0}}), 1.0, 0.0);
  EXPECT_THROW(system.FactorizeAndSolve(true), KlException);
}

TEST(EnvelopeSystem, SecondIterationReusesItsBuffers) {
  EnvelopeSystem system;
  const auto iterate = [&system](std::uint64_t seed) {
    Assemble(system, seed);
    system.FactorizeAndSolve(true);
    static_cast<void>(system.DiagonalCofactors());
    system.InvertCofactors();
  };
  iterate(1);
  iterate(2);
  const std::size_t before = gAllocations;
  Assemble(system, 3);
  system.FactorizeAndSolve(true);
  static_cast<void>(system.DiagonalCofactors());
  system.InvertCofactors();
  EXPECT_EQ(gAllocations, before);
}

}  // namespace
}  // namespace vermo
