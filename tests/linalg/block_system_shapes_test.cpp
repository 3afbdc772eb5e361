// The engine on blocks where systems have unusual shapes.

#include "linalg/block_system.h"
#include "support/dense_solution.h"
#include "support/system_tape.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <random>
#include <utility>
#include <vector>

namespace vermo {
namespace {

using test::DenseSolution;
using test::SystemTape;

// Systems of conditions below 1e4.
constexpr double kTolerance = 1e-11;

class Draw {
 public:
  explicit Draw(std::uint64_t seed) : fGenerator(seed) {}
  double Uniform() { return static_cast<double>(fGenerator() >> 11U) * 0x1p-52 - 1.0; }

 private:
  std::mt19937_64 fGenerator;
};

// Leading groups of `leading` unknowns, each of which meets two of the trailing groups of
// `trailing` unknowns.
struct Shape {
  std::uint32_t leaders;
  std::uint32_t leading;
  std::uint32_t trailers;
  std::uint32_t trailing;

  [[nodiscard]] std::uint32_t FirstTrailing() const { return leaders * leading; }
  [[nodiscard]] std::uint32_t Unknowns() const { return FirstTrailing() + trailers * trailing; }

  void Record(SystemTape& tape) const {
    Draw draw(7);
    SystemLayout layout;
    for (std::uint32_t g = 0; g < leaders; ++g) layout.starts.push_back(g * leading);
    for (std::uint32_t t = 0; t <= trailers; ++t)
      layout.starts.push_back(FirstTrailing() + t * trailing);
    layout.leading = leaders;
    tape.SetLayout(layout);
    tape.Reset(Unknowns(), 0);
    for (std::uint32_t c = 0; c < Unknowns(); ++c) {
      DesignRow own;
      own.push(c, 2.0 + draw.Uniform());
      tape.AddEquation(own, 1.0, draw.Uniform());
    }
    for (std::uint32_t g = 0; g < leaders; ++g)
      for (std::uint32_t ray = 0; ray < 2; ++ray) {
        const std::uint32_t t = (g + ray) % trailers;
        DesignRow row;
        for (std::uint32_t i = 0; i < leading; ++i) row.push(g * leading + i, draw.Uniform());
        for (std::uint32_t i = 0; i < trailing; ++i)
          row.push(FirstTrailing() + t * trailing + i, draw.Uniform());
        tape.AddEquation(row, 1.5 + draw.Uniform(), draw.Uniform());
      }
  }
};

class LeadingSizes : public testing::TestWithParam<std::uint32_t> {};

TEST_P(LeadingSizes, SolutionAndCofactorsMatchADenseSolution) {
  const Shape shape{9, GetParam(), 3, 5};
  SystemTape tape;
  shape.Record(tape);
  const DenseSolution expected(tape);
  BlockSystem system;
  tape.Assemble(system);
  system.FactorizeAndSolve(true);
  for (int pass = 0; pass < 2; ++pass) {
    for (std::uint32_t i = 0; i < shape.Unknowns(); ++i) {
      ASSERT_NEAR(system.Solution()[i], static_cast<double>(expected.x[i]), kTolerance) << i;
      ASSERT_NEAR(system.DiagonalCofactors()[i], static_cast<double>(expected.q[i][i]), kTolerance)
          << i;
      for (std::uint32_t j = 0; j < shape.Unknowns(); ++j)
        ASSERT_NEAR(system.Cofactor(i, j), static_cast<double>(expected.q[i][j]), kTolerance)
            << i << ' ' << j;
    }
    // Asking again changes nothing.
    system.InvertCofactors();
    system.InvertCofactors();
  }
}

INSTANTIATE_TEST_SUITE_P(BlockSystem, LeadingSizes, testing::Range(1U, 8U));

// More trailing groups than the table of their pairs may have.
TEST(BlockSystem, ManyTrailingGroupsMatchTheirClosedSolution) {
  // Each leading unknown x is seen with its own trailing unknown y: x + y = a with weight 1, and
  // both alone at 0 with weight 1. N = [2 1; 1 2], n = (a, a), so both are a / 3.
  constexpr std::uint32_t kPairs = 1500;
  SystemLayout layout;
  for (std::uint32_t c = 0; c <= 2 * kPairs; ++c) layout.starts.push_back(c);
  layout.leading = kPairs;
  SystemTape tape;
  tape.SetLayout(layout);
  tape.Reset(2 * kPairs, 0);
  for (std::uint32_t k = 0; k < kPairs; ++k) {
    DesignRow x;
    DesignRow y;
    DesignRow both;
    x.push(k, 1.0);
    y.push(kPairs + k, 1.0);
    both.push(k, 1.0);
    both.push(kPairs + k, 1.0);
    tape.AddEquation(x, 1.0, 0.0);
    tape.AddEquation(y, 1.0, 0.0);
    tape.AddEquation(both, 1.0, 3.0 * k);
  }
  BlockSystem system;
  tape.Assemble(system);
  system.FactorizeAndSolve(true);
  for (std::uint32_t k = 0; k < kPairs; ++k) {
    ASSERT_NEAR(system.Solution()[k], k, 1e-15 * (1.0 + k));
    ASSERT_NEAR(system.Solution()[kPairs + k], k, 1e-15 * (1.0 + k));
    ASSERT_NEAR(system.DiagonalCofactors()[k], 2.0 / 3.0, 1e-15);
    ASSERT_NEAR(system.Cofactor(kPairs + k, k), -1.0 / 3.0, 1e-15);
  }
}

TEST(BlockSystem, ElementsAndBlocksAreReadFromBothSidesAndAcrossGroups) {
  const Shape shape{4, 3, 2, 4};
  SystemTape tape;
  shape.Record(tape);
  std::vector<test::Real> rhs;
  const test::RealMatrix n = DenseMatrix(tape, rhs);
  BlockSystem system;
  tape.Assemble(system);
  for (std::uint32_t i = 0; i < shape.Unknowns(); ++i)
    for (std::uint32_t j = 0; j < shape.Unknowns(); ++j)
      ASSERT_NEAR(system.Element(i, j), static_cast<double>(n[i][j]), 1e-14) << i << ' ' << j;
  // A whole group, parts of groups, and a block over two groups that meet.
  const std::uint32_t first = shape.FirstTrailing();
  for (const auto& [start, size] : {std::pair{3U, 3U}, {1U, 2U}, {3U, 2U}, {first - 2, 4U}}) {
    std::vector<double> block(std::size_t{size} * size);
    system.DiagonalBlock(start, size, block.data());
    for (std::uint32_t i = 0; i < size; ++i)
      for (std::uint32_t j = 0; j < size; ++j)
        ASSERT_NEAR(block[i * size + j], static_cast<double>(n[start + i][start + j]), 1e-14)
            << start << ' ' << size;
  }
}

// A row that comes back to a group it has left cannot stand as it is.
TEST(BlockSystem, RowsThatComeBackToAGroupAddUp) {
  SystemTape tape;
  tape.SetLayout({{0, 2, 4}, 0});
  tape.Reset(4, 0);
  DesignRow row;
  for (const std::uint32_t column : {0U, 1U, 2U, 3U, 0U, 1U}) row.push(column, 1.0 + column);
  tape.AddEquation(row, 1.0, 1.0);
  BlockSystem system;
  tape.Assemble(system);
  const double coefficients[] = {2.0, 4.0, 3.0, 4.0};
  for (std::uint32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(system.Rhs()[i], coefficients[i]);
    for (std::uint32_t j = 0; j < 4; ++j)
      EXPECT_EQ(system.Element(i, j), coefficients[i] * coefficients[j]);
  }
}

}  // namespace
}  // namespace vermo
