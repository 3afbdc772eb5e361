// The engine on blocks where an assembly is not the one before: constraints store other blocks,
// observations name other columns.

#include "linalg/block_system.h"
#include "support/dense_solution.h"
#include "support/system_tape.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <span>
#include <vector>

namespace vermo {
namespace {

using test::DenseMatrix;
using test::Real;
using test::RealMatrix;
using test::SystemTape;

// What one assembly does between Reset and Seal. All numbers are small integers, so that sums are
// exact in any order.
using Fill = std::function<void(NormalSystem&)>;

void Assemble(BlockSystem& system,
              std::uint32_t unknowns,
              std::uint32_t multipliers,
              const Fill& fill) {
  for (int pass = 0; pass < 10; ++pass) {
    system.Reset(unknowns, multipliers);
    fill(system);
    if (system.Seal()) return;
  }
  FAIL() << "an assembly without an end";
}

SystemTape TapeOf(std::uint32_t unknowns, std::uint32_t multipliers, const Fill& fill) {
  SystemTape tape;
  tape.Reset(unknowns, multipliers);
  fill(tape);
  return tape;
}

void ExpectAssembled(const SystemTape& tape, const BlockSystem& system) {
  std::vector<Real> rhs;
  const RealMatrix n = DenseMatrix(tape, rhs);
  for (std::uint32_t i = 0; i < tape.Size(); ++i) {
    ASSERT_EQ(system.Rhs()[i], static_cast<double>(rhs[i])) << i;
    for (std::uint32_t j = 0; j < tape.Size(); ++j)
      ASSERT_EQ(system.Element(i, j), static_cast<double>(n[i][j])) << i << ' ' << j;
  }
}

void ExpectSameAsDense(BlockSystem& system,
                       std::uint32_t unknowns,
                       std::uint32_t multipliers,
                       const Fill& fill) {
  ASSERT_NO_FATAL_FAILURE(Assemble(system, unknowns, multipliers, fill));
  ExpectAssembled(TapeOf(unknowns, multipliers, fill), system);
}

void HoldUnknowns(NormalSystem& system, std::uint32_t unknowns) {
  for (std::uint32_t c = 0; c < unknowns; ++c) {
    DesignRow row;
    row.push(c, 2.0);
    system.AddEquation(row, 1.0, 1.0 + c);
  }
}

struct Block {
  std::uint32_t firstRow;
  std::uint32_t rows;
  std::uint32_t firstColumn;
  std::uint32_t columns;
};

void Store(NormalSystem& system, const Block& block, double plus) {
  std::vector<double> values;
  for (std::uint32_t r = block.firstRow; r < block.firstRow + block.rows; ++r)
    for (std::uint32_t c = block.firstColumn; c < block.firstColumn + block.columns; ++c)
      values.push_back(plus + 16 * std::max(r, c) + std::min(r, c));
  system.StoreBlock(block.firstRow, block.rows, block.firstColumn, block.columns, values.data());
}

// Three groups of unknowns and the two rows of a constraint.
constexpr std::uint32_t kUnknowns = 8;
constexpr std::uint32_t kMultipliers = 2;
SystemLayout Layout(std::uint32_t leading) { return {{0, 3, 6, 8, 10}, leading}; }

TEST(BlockSystem, StoredBlocksReplaceWhateverTheLastAssemblyStoredInTheirTurn) {
  const std::vector<std::vector<Block>> assemblies = {
      {{8, 2, 0, 3}, {8, 2, 3, 3}},
      {{8, 2, 0, 3}, {8, 2, 3, 3}},
      // Another first column, fewer rows, another first row, fewer columns than before.
      {{8, 2, 3, 3}, {8, 2, 0, 3}},
      {{8, 1, 3, 3}, {8, 1, 0, 3}},
      {{9, 1, 3, 3}, {9, 1, 0, 3}},
      {{9, 1, 3, 2}, {9, 1, 0, 1}},
      // Over two groups of columns, over two groups of rows.
      {{8, 2, 1, 4}},
      {{7, 2, 0, 3}},
      // On the diagonal, and where nothing has been so far.
      {{8, 2, 8, 2}},
      {{8, 2, 6, 2}},
      {{8, 2, 8, 2}, {8, 2, 0, 3}},
      {},
      {{8, 2, 0, 3}, {8, 2, 3, 3}},
  };
  for (std::uint32_t leading = 0; leading <= 3; ++leading) {
    BlockSystem system;
    system.SetLayout(Layout(leading));
    for (std::uint32_t a = 0; a < assemblies.size(); ++a)
      ASSERT_NO_FATAL_FAILURE(ExpectSameAsDense(system,
                                                kUnknowns,
                                                kMultipliers,
                                                [&](NormalSystem& to) {
                                                  HoldUnknowns(to, kUnknowns);
                                                  for (const Block& block : assemblies[a])
                                                    Store(to, block, 100.0 * a);
                                                  to.SetRhs(8, 3.0 + a);
                                                }))
          << leading << " leading groups, assembly " << a;
  }
}

TEST(BlockSystem, AnotherNumberOfLeadingGroupsIsAnotherLayout) {
  BlockSystem system;
  for (const std::uint32_t leading : {2U, 0U, 3U, 3U, 1U}) {
    system.SetLayout(Layout(leading));
    ASSERT_NO_FATAL_FAILURE(ExpectSameAsDense(system,
                                              kUnknowns,
                                              kMultipliers,
                                              [&](NormalSystem& to) {
                                                HoldUnknowns(to, kUnknowns);
                                                Store(to, {8, 2, 0, 3}, leading);
                                              }))
        << leading;
    system.FactorizeAndSolve(true);
  }
}

TEST(BlockSystem, ABlockOfAGroupTakenBackAndOneThatLeadsIsStoredFromBothSides) {
  // The first constraint joins the first two groups, and the second one trails from then on; the
  // next joins it with the third, which leads.
  for (const bool whole : {false, true}) {
    BlockSystem system;
    system.SetLayout(Layout(3));
    for (int iteration = 0; iteration < 2; ++iteration)
      ASSERT_NO_FATAL_FAILURE(ExpectSameAsDense(
          system,
          kUnknowns,
          kMultipliers,
          [&](NormalSystem& to) {
            HoldUnknowns(to, kUnknowns);
            for (const Block& block : {Block{3, 3, 0, 3}, Block{6, 2, 3, 3}}) {
              if (whole) {
                Store(to, block, iteration);
                continue;
              }
              for (std::uint32_t r = block.firstRow; r < block.firstRow + block.rows; ++r)
                for (std::uint32_t c = block.firstColumn; c < block.firstColumn + block.columns;
                     ++c)
                  to.StoreElement(r, c, iteration + 16.0 * r + c);
            }
          }))
          << whole << ' ' << iteration;
  }
}

TEST(BlockSystem, ADiagonalAssemblyTakesWhatConstraintsStoreInABlockOfItsOwnOnly) {
  const Fill fill = [](NormalSystem& to) {
    HoldUnknowns(to, kUnknowns);
    for (const Block& block : {Block{8, 2, 0, 3}, Block{8, 2, 8, 2}, Block{8, 2, 3, 3}})
      Store(to, block, 0.0);
    to.StoreElement(8, 7, 1.0);
    to.StoreElement(7, 6, -5.0);
  };
  std::vector<Real> rhs;
  const RealMatrix n = DenseMatrix(TapeOf(kUnknowns, kMultipliers, fill), rhs);
  BlockSystem system;
  system.SetLayout(Layout(2));
  // Before and behind a whole one.
  for (int pass = 0; pass < 2; ++pass) {
    EXPECT_TRUE(system.SetDiagonalOnly(true));
    system.Reset(kUnknowns, kMultipliers);
    fill(system);
    ASSERT_TRUE(system.Seal());
    const std::vector<std::uint32_t> starts = Layout(2).starts;
    for (std::size_t g = 0; g + 1 < starts.size(); ++g) {
      const std::uint32_t size = starts[g + 1] - starts[g];
      std::vector<double> block(std::size_t{size} * size);
      system.DiagonalBlock(starts[g], size, block.data());
      for (std::uint32_t i = 0; i < size; ++i)
        for (std::uint32_t j = 0; j < size; ++j)
          ASSERT_EQ(block[i * size + j], static_cast<double>(n[starts[g] + i][starts[g] + j]))
              << g << ' ' << i << ' ' << j;
    }
    EXPECT_TRUE(system.SetDiagonalOnly(false));
    ASSERT_NO_FATAL_FAILURE(ExpectSameAsDense(system, kUnknowns, kMultipliers, fill));
  }
}

// One observation of a point and an image.
constexpr std::uint32_t kRayColumns = 9;
std::vector<DesignRow> RayOf(std::span<const std::uint32_t> columnsOfSecond) {
  std::vector<DesignRow> rows(2);
  for (std::uint32_t c = 0; c < kRayColumns; ++c) rows[0].push(c, 1.0 + c);
  for (const std::uint32_t c : columnsOfSecond) rows[1].push(c, 10.0 - c);
  return rows;
}

TEST(BlockSystem, AnObservationMayNameOtherColumnsThanInTheAssemblyBefore) {
  const std::vector<std::vector<std::uint32_t>> seconds = {
      {0, 1, 2, 3, 4, 5, 6, 7, 8},
      {0, 1, 2, 3, 4, 5, 6, 7, 8},
      {0, 1, 2, 3, 4, 5, 6, 7},
      {0, 1, 2, 3, 4, 5, 6, 7, 8},
      {0, 1, 2, 3, 4, 5, 6, 7, 7},
      {0, 1, 2, 3, 4, 5, 6, 7, 8},
      {1, 0, 2, 3, 4, 5, 6, 7, 8},
      {},
  };
  BlockSystem system;
  system.SetLayout({{0, 3, kRayColumns}, 1});
  for (std::size_t s = 0; s < seconds.size(); ++s)
    ASSERT_NO_FATAL_FAILURE(ExpectSameAsDense(system, kRayColumns, 0, [&](NormalSystem& to) {
      const double weights[] = {1.0, 2.0};
      const double misclosures[] = {3.0, -1.0};
      std::vector<DesignRow> rows = RayOf(seconds[s]);
      to.AddEquations(rows, weights, misclosures);
      HoldUnknowns(to, kRayColumns);
    })) << s;
}

TEST(BlockSystem, FormsCountWhatIsNotInvertedAsZeroAndComeInAnyNumber) {
  const std::vector<std::uint32_t> all = {0, 1, 2, 3, 4, 5, 6, 7, 8};
  const Fill fill = [&](NormalSystem& to) {
    const double weights[] = {1.0, 2.0};
    const double misclosures[] = {3.0, -1.0};
    std::vector<DesignRow> rows = RayOf(all);
    to.AddEquations(rows, weights, misclosures);
    HoldUnknowns(to, kRayColumns);
  };
  BlockSystem system;
  system.SetLayout({{0, 3, kRayColumns}, 1});
  ASSERT_NO_FATAL_FAILURE(Assemble(system, kRayColumns, 0, fill));
  system.FactorizeAndSolve(true);
  const test::DenseSolution expected(TapeOf(kRayColumns, 0, fill));
  const auto expect = [&](std::uint32_t first, const char* what) {
    std::vector<DesignRow> rows = RayOf(all);
    double forms[2];
    system.CofactorForms(rows, forms);
    for (std::size_t r = 0; r < 2; ++r) {
      Real form = 0;
      for (std::uint32_t i = first; i < kRayColumns; ++i)
        for (std::uint32_t j = first; j < kRayColumns; ++j)
          form += rows[r][i].coefficient * expected.q[i][j] * rows[r][j].coefficient;
      EXPECT_NEAR(forms[r], static_cast<double>(form), 1e-13) << what << ' ' << r;
    }
  };
  // Cofactors of the image come with the solution.
  expect(3, "before the inversion");
  system.InvertCofactors();
  // More often than there are observations.
  for (std::uint32_t k = 0; k < kRayColumns + 3; ++k) expect(0, "behind the inversion");
}

}  // namespace
}  // namespace vermo
