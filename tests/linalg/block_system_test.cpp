#include "linalg/block_system.h"

#include "checks/kl_exception.h"
#include "support/dense_solution.h"
#include "support/system_tape.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <utility>
#include <vector>

namespace vermo {
namespace {

using test::DenseSolution;
using test::Real;
using test::SystemTape;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

class Draw {
 public:
  explicit Draw(std::uint64_t seed) : fGenerator(seed) {}
  double Uniform() { return static_cast<double>(fGenerator() >> 11U) * 0x1p-52 - 1.0; }
  std::uint32_t Below(std::uint32_t n) { return static_cast<std::uint32_t>(fGenerator() % n); }

 private:
  std::mt19937_64 fGenerator;
};

DesignRow Row(const std::vector<std::pair<std::uint32_t, double>>& entries) {
  DesignRow row;
  for (const auto& [column, coefficient] : entries) row.push(column, coefficient);
  return row;
}

// A network of points of three unknowns that lead, images of six and one camera of `camera`
// unknowns, with all there is to go wrong with it.
struct Scene {
  std::uint64_t seed = 1;
  std::uint32_t points = 20;
  std::uint32_t images = 4;
  std::uint32_t camera = 5;
  std::uint32_t constraints = 2;               // of two rows each
  std::uint32_t rays = 3;                      // images that see a point
  std::vector<std::uint32_t> neighbours = {};  // points that have a distance to the next one
  std::vector<std::uint32_t> weakPoints = {};  // seen with a single row: their blocks are singular
  double largeWeight = 1.0;

  [[nodiscard]] std::uint32_t Unknowns() const { return 3 * points + 6 * images + camera; }

  [[nodiscard]] SystemLayout Layout() const {
    SystemLayout layout;
    std::uint32_t column = 0;
    const auto add = [&](std::uint32_t count, std::uint32_t size) {
      for (std::uint32_t i = 0; i < count; ++i, column += size) layout.starts.push_back(column);
    };
    add(points, 3);
    add(images, 6);
    if (camera > 0) add(1, camera);
    add(constraints, 2);
    layout.starts.push_back(column);
    layout.leading = points;
    return layout;
  }

  void Record(SystemTape& tape) const {
    Draw draw(seed);
    tape.SetLayout(Layout());
    tape.Reset(Unknowns(), 2 * constraints);
    const std::uint32_t firstImage = 3 * points;
    const std::uint32_t firstCamera = firstImage + 6 * images;
    const auto observe = [&](const std::vector<std::pair<std::uint32_t, std::uint32_t>>& groups,
                             std::uint32_t components) {
      DesignRow rows[3];
      double weights[3];
      double misclosures[3];
      for (std::uint32_t r = 0; r < components; ++r) {
        for (const auto& [first, size] : groups)
          for (std::uint32_t i = 0; i < size; ++i) rows[r].push(first + i, draw.Uniform());
        weights[r] = largeWeight * (1.5 + draw.Uniform());
        misclosures[r] = draw.Uniform();
      }
      tape.AddEquations({rows, components}, weights, misclosures);
    };
    for (std::uint32_t p = 0; p < points; ++p) {
      const bool isWeak = std::ranges::find(weakPoints, p) != weakPoints.end();
      for (std::uint32_t ray = 0; ray < (isWeak ? 1 : rays); ++ray) {
        const std::uint32_t image = (p + ray) % images;
        std::vector<std::pair<std::uint32_t, std::uint32_t>> groups = {{3 * p, 3},
                                                                       {firstImage + 6 * image, 6}};
        if (camera > 0) groups.emplace_back(firstCamera, std::min(camera, 30U));
        observe(groups, isWeak ? 1 : 2);
      }
      if (std::ranges::find(neighbours, p) != neighbours.end())
        observe({{3 * p, 3}, {3 * (p + 1), 3}}, 1);
    }
    for (std::uint32_t i = 0; i < images; ++i) {
      observe({{firstImage + 6 * i, 6}}, 3);
      observe({{firstImage + 6 * i, 6}}, 3);
    }
    for (std::uint32_t c = 0; c < camera; ++c) observe({{firstCamera + c, 1}}, 1);
    for (std::uint32_t k = 0; k < 2 * constraints; ++k) {
      for (std::uint32_t c = k % 3; c < firstCamera; c += 3)
        tape.StoreElement(Unknowns() + k, c, draw.Uniform());
      tape.SetRhs(Unknowns() + k, draw.Uniform());
    }
    // Weak points hold by the constraint and their one row alone: two columns more each.
    for (const std::uint32_t p : weakPoints)
      for (std::uint32_t i = 0; i < 2; ++i) {
        DesignRow row;
        row.push(3 * p + i, 1.0);
        row.push(firstImage + i, 0.5);
        tape.AddEquation(row, largeWeight, draw.Uniform());
      }
  }
};

// Solution, all cofactors and forms against extended precision.
void ExpectDense(const SystemTape& tape, BlockSystem& system) {
  const DenseSolution expected(tape);
  system.FactorizeAndSolve(true);
  system.InvertCofactors();
  const std::uint32_t n = tape.Size();
  ASSERT_EQ(system.Size(), n);
  std::vector<Real> scale(n);
  Real largest = 0;
  for (std::uint32_t i = 0; i < n; ++i) {
    for (std::uint32_t j = 0; j < n; ++j)
      scale[i] = std::max(scale[i], std::sqrt(std::fabs(expected.q[i][i] * expected.q[j][j])));
    scale[i] = std::sqrt(std::fabs(expected.q[i][i]));
    if (i < tape.Unknowns()) largest = std::max(largest, std::fabs(expected.x[i]) / scale[i]);
  }
  // Systems of conditions up to 1e6.
  constexpr Real kTolerance = 1e-10;
  ostra_bundle::Matrix block;
  system.CofactorBlock(block, 0, n, 0, n);
  for (std::uint32_t i = 0; i < tape.Unknowns(); ++i) {
    ASSERT_LE(std::fabs(system.Solution()[i] - expected.x[i]),
              kTolerance * scale[i] * std::max<Real>(1, largest))
        << i;
    ASSERT_LE(std::fabs(system.DiagonalCofactors()[i] - expected.q[i][i]),
              kTolerance * expected.q[i][i])
        << i;
    for (std::uint32_t j = 0; j < tape.Unknowns(); ++j) {
      const Real tolerance = kTolerance * scale[i] * scale[j];
      ASSERT_LE(std::fabs(block.At(i, j) - expected.q[i][j]), tolerance) << i << ' ' << j;
      if ((i + j) % 7 == 0) {
        ASSERT_LE(std::fabs(system.Cofactor(i, j) - expected.q[i][j]), tolerance) << i << ' ' << j;
      }
    }
  }
  std::size_t component = 0;
  for (const SystemTape::Observation& o : tape.observations) {
    std::vector<DesignRow> rows = o.rows;
    double forms[3];
    system.CofactorForms(rows, forms);
    for (std::size_t r = 0; r < rows.size(); ++r) {
      const Real redundancy = expected.redundancy[component++];
      ASSERT_LE(std::fabs(1 - o.weights[r] * forms[r] - redundancy), kTolerance);
      ASSERT_LE(std::fabs(1 - o.weights[r] * system.CofactorForm(o.rows[r]) - redundancy),
                kTolerance);
    }
  }
}

void ExpectDense(const SystemTape& tape) {
  BlockSystem system;
  tape.Assemble(system);
  ExpectDense(tape, system);
}

void ExpectDense(const Scene& scene) {
  SystemTape tape;
  scene.Record(tape);
  ASSERT_NO_FATAL_FAILURE(ExpectDense(tape)) << "seed " << scene.seed;
}

// Assembles until the engine has a place for everything.
void Assemble(BlockSystem& system,
              std::uint32_t unknowns,
              std::uint32_t multipliers,
              const std::function<void()>& add) {
  for (int pass = 0; pass < 10; ++pass) {
    system.Reset(unknowns, multipliers);
    add();
    if (system.Seal()) return;
  }
  FAIL() << "an assembly without an end";
}

std::int32_t CodeOf(BlockSystem& system) {
  try {
    system.FactorizeAndSolve(true);
  } catch (const KlException& failure) {
    return failure.GetCode();
  }
  return 0;
}

// --- assembly -----------------------------------------------------------------

TEST(BlockSystem, EquationAddsTheWeightedSquareAndTheRightHandSide) {
  BlockSystem system;
  Assemble(system, 6, 0, [&system] {
    system.AddEquation(Row({{1, 3.0}, {4, 2.0}}), 0.5, 7.0);
    system.AddEquation(Row({{4, 1.0}}), 2.0, 1.0);
  });
  EXPECT_EQ(system.Unknowns(), 6U);
  EXPECT_EQ(system.Size(), 6U);
  EXPECT_EQ(system.Element(1, 1), 4.5);
  EXPECT_EQ(system.Element(4, 1), 3.0);
  EXPECT_EQ(system.Element(4, 4), 4.0);
  EXPECT_EQ(system.Element(4, 2), 0.0);
  EXPECT_EQ(system.Rhs()[1], 10.5);
  EXPECT_EQ(system.Rhs()[4], 9.0);
  EXPECT_EQ(system.Rhs()[0], 0.0);
}

TEST(BlockSystem, ElementsAreThoseOfTheSumForEveryLayout) {
  const Scene scene{.seed = 2, .points = 6};
  SystemTape tape;
  scene.Record(tape);
  std::vector<Real> rhs;
  const test::RealMatrix n = DenseMatrix(tape, rhs);
  SystemLayout whole{{0, tape.Size()}, 0};
  SystemLayout told = scene.Layout();
  SystemLayout followed = told;
  followed.leading = 0;
  for (const SystemLayout& layout : {told, followed, whole, SystemLayout{}}) {
    BlockSystem system;
    tape.Assemble(system, layout);
    for (std::uint32_t i = 0; i < n.size; ++i) {
      EXPECT_NEAR(system.Rhs()[i], static_cast<double>(rhs[i]), 1e-13);
      // As they are stored: at or left of the diagonal.
      for (std::uint32_t j = 0; j <= i; ++j)
        ASSERT_NEAR(system.Element(i, j), static_cast<double>(n[i][j]), 1e-13) << i << ' ' << j;
    }
  }
}

TEST(BlockSystem, RepeatedColumnsActAsTheirSum) {
  const SystemLayout layout{{0, 3, 6}, 1};
  BlockSystem repeated;
  BlockSystem single;
  repeated.SetLayout(layout);
  single.SetLayout(layout);
  Assemble(repeated, 6, 0, [&] {
    repeated.AddEquation(Row({{2, 1.5}, {5, 1.0}, {2, 0.5}, {5, 2.0}}), 2.0, 3.0);
  });
  Assemble(single, 6, 0, [&] { single.AddEquation(Row({{2, 2.0}, {5, 3.0}}), 2.0, 3.0); });
  for (std::uint32_t r = 0; r < 6; ++r) {
    for (std::uint32_t c = 0; c <= r; ++c) EXPECT_EQ(repeated.Element(r, c), single.Element(r, c));
    EXPECT_EQ(repeated.Rhs()[r], single.Rhs()[r]);
  }
}

TEST(BlockSystem, ComponentsTogetherAddLikeSingleOnes) {
  Draw draw(3);
  for (const std::uint32_t components : {1U, 2U, 3U}) {
    DesignRow rows[3];
    double weights[3];
    double misclosures[3];
    for (std::uint32_t r = 0; r < components; ++r) {
      // Different columns in every row, in no order.
      for (const std::uint32_t c : {7U, 1U, 4U, 2U})
        if ((c + r) % 4 != 0) rows[r].push(c, draw.Uniform());
      weights[r] = 2.0 + draw.Uniform();
      misclosures[r] = draw.Uniform();
    }
    const SystemLayout layout{{0, 3, 6, 9}, 1};
    BlockSystem together;
    BlockSystem single;
    together.SetLayout(layout);
    single.SetLayout(layout);
    Assemble(together, 9, 0, [&] {
      DesignRow copies[3] = {rows[0], rows[1], rows[2]};
      together.AddEquations({copies, components}, weights, misclosures);
    });
    Assemble(single, 9, 0, [&] {
      for (std::uint32_t r = 0; r < components; ++r)
        single.AddEquation(rows[r], weights[r], misclosures[r]);
    });
    for (std::uint32_t i = 0; i < 9; ++i) {
      EXPECT_DOUBLE_EQ(together.Rhs()[i], single.Rhs()[i]);
      for (std::uint32_t j = 0; j <= i; ++j)
        EXPECT_DOUBLE_EQ(together.Element(i, j), single.Element(i, j));
    }
  }
}

TEST(BlockSystem, StoredElementsReplaceAndDoNotAdd) {
  for (const std::uint32_t leading : {0U, 1U, 2U}) {
    BlockSystem system;
    system.SetLayout({{0, 2, 4, 5}, leading});
    Assemble(system, 4, 1, [&system] {
      for (std::uint32_t c = 0; c < 4; ++c) system.AddEquation(Row({{c, 1.0}}), 1.0, 0.0);
      system.WidenRow(4, 0);
      system.StoreElement(4, 0, 9.0);
      system.StoreElement(4, 0, 1.5);
      system.StoreElement(4, 3, -2.0);
      system.StoreElement(3, 2, 0.25);
      system.SetRhs(4, 7.0);
      system.SetRhs(4, 3.0);
    });
    EXPECT_EQ(system.Element(4, 0), 1.5);
    EXPECT_EQ(system.Element(4, 3), -2.0);
    EXPECT_EQ(system.Element(3, 2), 0.25);
    EXPECT_EQ(system.Rhs()[4], 3.0);
    EXPECT_EQ(system.Element(4, 1), 0.0);
    EXPECT_EQ(system.Element(4, 4), 0.0);
  }
}

TEST(BlockSystem, SealAsksForASecondAssemblyOfNewElementsOnly) {
  const Scene scene{.seed = 4};
  SystemTape tape;
  scene.Record(tape);
  BlockSystem system;
  const auto assemble = [&](BlockSystem& engine) {
    engine.Reset(tape.Unknowns(), tape.Size() - tape.Unknowns());
    for (const SystemTape::Observation& o : tape.observations) {
      std::vector<DesignRow> rows = o.rows;
      engine.AddEquations(rows, o.weights.data(), o.misclosures.data());
    }
    for (const SystemTape::Stored& e : tape.elements) engine.StoreElement(e.row, e.column, e.value);
    for (const auto& [row, value] : tape.rhs) engine.SetRhs(row, value);
    return engine.Seal();
  };
  system.SetLayout(tape.layout);
  EXPECT_FALSE(assemble(system));
  EXPECT_TRUE(assemble(system));
  EXPECT_TRUE(assemble(system));
  // The same layout told again changes nothing.
  system.SetLayout(tape.layout);
  EXPECT_TRUE(assemble(system));
  ExpectDense(tape, system);
}

// Hints the groups that observations meet.
void Couple(const SystemTape& tape, BlockSystem& system) {
  const std::vector<std::uint32_t>& starts = tape.layout.starts;
  system.SetLayout(tape.layout);
  for (int pass = 0; system.WantsCouplings(); ++pass) {
    ASSERT_LT(pass, 10);
    system.Reset(tape.Unknowns(), tape.Size() - tape.Unknowns());
    for (const SystemTape::Observation& o : tape.observations) {
      std::vector<std::uint32_t> columns;
      for (const DesignRow& row : o.rows)
        for (const DesignEntry& e : row)
          columns.push_back(*(std::ranges::upper_bound(starts, e.column) - 1));
      system.Couple(columns);
    }
    for (const SystemTape::Stored& e : tape.elements) system.StoreElement(e.row, e.column, e.value);
    system.Seal();
  }
}

TEST(BlockSystem, CouplingsSpareTheSecondAssembly) {
  const Scene scene{.seed = 46, .points = 25, .images = 12, .neighbours = {3, 7}};
  SystemTape tape;
  scene.Record(tape);
  BlockSystem hinted;
  hinted.SetLayout(tape.layout);
  EXPECT_TRUE(hinted.WantsCouplings());
  Couple(tape, hinted);
  EXPECT_FALSE(hinted.WantsCouplings());
  hinted.Reset(tape.Unknowns(), tape.Size() - tape.Unknowns());
  for (const SystemTape::Observation& o : tape.observations) {
    std::vector<DesignRow> rows = o.rows;
    hinted.AddEquations(rows, o.weights.data(), o.misclosures.data());
  }
  for (const SystemTape::Stored& e : tape.elements) hinted.StoreElement(e.row, e.column, e.value);
  for (const auto& [row, value] : tape.rhs) hinted.SetRhs(row, value);
  EXPECT_TRUE(hinted.Seal());
  BlockSystem learning;
  tape.Assemble(learning);
  hinted.FactorizeAndSolve(true);
  learning.FactorizeAndSolve(true);
  EXPECT_TRUE(std::ranges::equal(hinted.Solution(), learning.Solution()));
  EXPECT_TRUE(std::ranges::equal(hinted.DiagonalCofactors(), learning.DiagonalCofactors()));
}

TEST(BlockSystem, CouplingsThatNoEquationFollowsDoNoHarm) {
  SystemTape tape;
  Scene{.seed = 47, .points = 15}.Record(tape);
  SystemTape more;
  Scene{.seed = 48, .points = 15, .rays = 4, .neighbours = {2, 9}}.Record(more);
  BlockSystem system;
  Couple(more, system);
  tape.Assemble(system);
  ExpectDense(tape, system);
}

// --- solutions ----------------------------------------------------------------

TEST(BlockSystem, EmptySystemSolves) {
  BlockSystem system;
  Assemble(system, 0, 0, [] {});
  EXPECT_EQ(CodeOf(system), 0);
  EXPECT_EQ(system.Solution().size(), 0U);
  EXPECT_EQ(system.DiagonalCofactors().size(), 0U);
}

TEST(BlockSystem, ConstraintIsKept) {
  // Minimise (x - 1)^2 + (y - 4)^2 with x + y = 3: x = 0, y = 3, multiplier k with x - 1 = -k.
  for (const std::uint32_t leading : {0U, 1U, 2U}) {
    BlockSystem system;
    system.SetLayout({{0, 1, 2, 3}, leading});
    Assemble(system, 2, 1, [&system] {
      system.AddEquation(Row({{0, 1.0}}), 1.0, 1.0);
      system.AddEquation(Row({{1, 1.0}}), 1.0, 4.0);
      system.StoreElement(2, 0, 1.0);
      system.StoreElement(2, 1, 1.0);
      system.SetRhs(2, 3.0);
    });
    system.FactorizeAndSolve(true);
    EXPECT_NEAR(system.Solution()[0], 0.0, 1e-14);
    EXPECT_NEAR(system.Solution()[1], 3.0, 1e-14);
    EXPECT_NEAR(system.Solution()[2], 1.0, 1e-14);
    EXPECT_NEAR(system.Cofactor(0, 0), 0.5, 1e-14);
    EXPECT_NEAR(system.Cofactor(0, 1), -0.5, 1e-14);
    system.InvertCofactors();
    // A form counts what was computed: groups that lead share no equation here.
    EXPECT_NEAR(system.CofactorForm(Row({{0, 1.0}, {1, 1.0}})), leading == 0 ? 0.0 : 1.0, 1e-14);
  }
}

TEST(BlockSystem, NetworksMatchADenseSolution) {
  for (std::uint64_t seed = 10; seed < 16; ++seed) ExpectDense({.seed = seed});
  ExpectDense({.seed = 20, .camera = 0});
  ExpectDense({.seed = 21, .constraints = 0});
  ExpectDense({.seed = 22, .points = 40, .images = 14});
  ExpectDense({.seed = 23, .points = 30, .images = 20, .camera = 13, .constraints = 3});
  ExpectDense({.seed = 24, .points = 4, .images = 1, .rays = 2});
}

TEST(BlockSystem, WeightsOfAnySizeMatchADenseSolution) {
  for (const double weight : {1e-12, 1e-6, 1e6, 1e12})
    ExpectDense({.seed = 30, .images = 12, .largeWeight = weight});
}

TEST(BlockSystem, LargeGroupsStandAsSeveralBlocks) {
  for (const std::uint32_t camera : {16U, 17U, 30U}) ExpectDense({.seed = 31, .camera = camera});
}

TEST(BlockSystem, GroupsTooLargeToLeadTrail) {
  const Scene scene{.seed = 32, .points = 10};
  SystemTape tape;
  scene.Record(tape);
  // Three points each make a group of nine.
  SystemLayout layout{{0, 9, 18, 27, 30}, 4};
  for (const std::uint32_t start : scene.Layout().starts)
    if (start > 30) layout.starts.push_back(start);
  BlockSystem system;
  tape.Assemble(system, layout);
  ExpectDense(tape, system);
}

TEST(BlockSystem, MissingLayoutGivesTheSameSolution) {
  const Scene scene{.seed = 33, .points = 12};
  SystemTape tape;
  scene.Record(tape);
  BlockSystem system;
  tape.Assemble(system, {});
  ExpectDense(tape, system);
}

TEST(BlockSystem, LayoutOfAnotherSizeIsNotUsed) {
  const Scene scene{.seed = 34, .points = 8};
  SystemTape tape;
  scene.Record(tape);
  BlockSystem system;
  tape.Assemble(system, {{0, 3, 6}, 1});
  ExpectDense(tape, system);
}

TEST(BlockSystem, LeadingGroupsThatMeetAreTakenBack) {
  ExpectDense({.seed = 35, .neighbours = {3}});
  ExpectDense({.seed = 36, .neighbours = {0, 1, 2, 3, 10, 17}});
  std::vector<std::uint32_t> all;
  for (std::uint32_t p = 0; p + 1 < 20; ++p) all.push_back(p);
  ExpectDense({.seed = 37, .neighbours = all});
}

TEST(BlockSystem, LeadingGroupsThatAConstraintJoinsAreTakenBack) {
  const Scene scene{.seed = 38};
  SystemTape tape;
  scene.Record(tape);
  tape.StoreElement(4, 1, 1e-3);  // points 1 and 0
  ExpectDense(tape);
}

TEST(BlockSystem, SingularLeadingBlocksAreTakenBack) {
  ExpectDense({.seed = 39, .constraints = 4, .weakPoints = {5}});
  // Without rows of its own a point hangs on the constraint rows.
  Scene scene{.seed = 40, .points = 12};
  SystemTape tape;
  scene.Record(tape);
  SystemTape holes;
  holes.SetLayout(tape.layout);
  holes.Reset(tape.Unknowns(), tape.Size() - tape.Unknowns());
  for (const SystemTape::Observation& o : tape.observations)
    if (o.rows[0][0].column != 3 * 7) {
      std::vector<DesignRow> rows = o.rows;
      holes.AddEquations(rows, o.weights.data(), o.misclosures.data());
    }
  // One row of weight 1 for one direction; the other two are held by three constraint rows.
  holes.AddEquation(Row({{21, 1.0}, {22, 0.5}, {23, -0.25}}), 1.0, 0.5);
  for (const SystemTape::Stored& e : tape.elements) holes.StoreElement(e.row, e.column, e.value);
  for (const auto& [row, value] : tape.rhs) holes.SetRhs(row, value);
  ExpectDense(holes);
}

// Image after image, more rays of each than are gathered at once; the groups of an observation in
// every order, and points that are observed alone in between.
TEST(BlockSystem, RaysImageAfterImageMatchADenseSolution) {
  constexpr std::uint32_t kPoints = 50;
  constexpr std::uint32_t kImages = 3;
  constexpr std::uint32_t kFirstImage = 3 * kPoints;
  constexpr std::uint32_t kCamera = kFirstImage + 6 * kImages;
  constexpr std::uint32_t kCameraSize = 5;
  Draw draw(51);
  SystemTape tape;
  SystemLayout layout;
  for (std::uint32_t p = 0; p < kPoints; ++p) layout.starts.push_back(3 * p);
  for (std::uint32_t i = 0; i < kImages; ++i) layout.starts.push_back(kFirstImage + 6 * i);
  layout.starts.push_back(kCamera);
  layout.starts.push_back(kCamera + kCameraSize);
  layout.leading = kPoints;
  tape.SetLayout(layout);
  tape.Reset(kCamera + kCameraSize, 0);
  const auto observe = [&](const std::vector<std::pair<std::uint32_t, std::uint32_t>>& groups) {
    DesignRow rows[2];
    for (DesignRow& row : rows)
      for (const auto& [first, size] : groups)
        for (std::uint32_t c = 0; c < size; ++c) row.push(first + c, draw.Uniform());
    const double weights[2] = {1.0, 2.0};
    const double misclosures[2] = {draw.Uniform(), draw.Uniform()};
    tape.AddEquations(rows, weights, misclosures);
  };
  for (std::uint32_t i = 0; i < kImages; ++i)
    for (std::uint32_t p = 0; p < kPoints; ++p) {
      std::vector<std::pair<std::uint32_t, std::uint32_t>> groups = {
          {3 * p, 3}, {kFirstImage + 6 * i, 6}, {kCamera, kCameraSize}};
      std::rotate(groups.begin(), groups.begin() + i, groups.end());
      observe(groups);
      if (p % 7 == 3) observe({{3 * p, 3}});
      if (p % 11 == 5) observe({{kFirstImage + 6 * i, 6}, {kCamera, kCameraSize}});
    }
  ExpectDense(tape);
}

TEST(BlockSystem, LeadingImagesMatchADenseSolution) {
  // Images of six unknowns lead and points trail.
  Draw draw(41);
  const std::uint32_t images = 14;
  const std::uint32_t points = 12;
  SystemTape tape;
  SystemLayout layout;
  for (std::uint32_t i = 0; i < images; ++i) layout.starts.push_back(6 * i);
  for (std::uint32_t p = 0; p <= points; ++p) layout.starts.push_back(6 * images + 3 * p);
  layout.leading = images;
  tape.SetLayout(layout);
  tape.Reset(6 * images + 3 * points, 0);
  for (std::uint32_t i = 0; i < images; ++i)
    for (std::uint32_t p = 0; p < points; ++p) {
      DesignRow rows[2];
      for (DesignRow& row : rows) {
        for (std::uint32_t c = 0; c < 3; ++c) row.push(6 * images + 3 * p + c, draw.Uniform());
        for (std::uint32_t c = 0; c < 6; ++c) row.push(6 * i + c, draw.Uniform());
      }
      const double weights[2] = {1.0, 2.0};
      const double misclosures[2] = {draw.Uniform(), draw.Uniform()};
      tape.AddEquations(rows, weights, misclosures);
    }
  ExpectDense(tape);
}

TEST(BlockSystem, CofactorBlocksBesideThePatternAreThoseOfTheInverse) {
  // Points that share no image, images that share no point.
  const Scene scene{
      .seed = 42, .points = 40, .images = 20, .camera = 0, .constraints = 0, .rays = 2};
  SystemTape tape;
  scene.Record(tape);
  const DenseSolution expected(tape);
  BlockSystem system;
  tape.Assemble(system);
  system.FactorizeAndSolve(true);
  const auto expect =
      [&](std::uint32_t row, std::uint32_t rows, std::uint32_t column, std::uint32_t columns) {
        ostra_bundle::Matrix block;
        system.CofactorBlock(block, row, rows, column, columns);
        // A matrix without elements keeps no shape.
        ASSERT_EQ(block.Rows(), columns == 0 ? 0 : rows);
        ASSERT_EQ(block.Cols(), rows == 0 ? 0 : columns);
        for (std::uint32_t i = 0; i < rows; ++i)
          for (std::uint32_t j = 0; j < columns; ++j) {
            const Real scale =
                std::sqrt(expected.q[row + i][row + i] * expected.q[column + j][column + j]);
            ASSERT_LE(std::fabs(block.At(i, j) - expected.q[row + i][column + j]), 1e-11 * scale);
            ASSERT_LE(
                std::fabs(system.Cofactor(row + i, column + j) - expected.q[row + i][column + j]),
                1e-11 * scale);
          }
      };
  expect(0, 3, 60, 3);
  expect(60, 3, 0, 3);
  expect(120, 6, 180, 6);
  expect(0, 3, 170, 6);
  expect(1, 10, 4, 20);    // parts of groups
  expect(118, 9, 119, 7);  // over the border of the leading groups
  expect(7, 0, 3, 2);
  expect(7, 2, 3, 0);
}

TEST(BlockSystem, WhatIsExpectedChangesNoCofactor) {
  const Scene scene{.seed = 49, .points = 30, .neighbours = {3}, .weakPoints = {7}};
  SystemTape tape;
  scene.Record(tape);
  BlockSystem expecting;
  BlockSystem surprised;
  expecting.ExpectInvertCofactors(true);
  for (int again = 0; again < 2; ++again) {
    tape.Assemble(expecting);
    tape.Assemble(surprised);
    expecting.FactorizeAndSolve(true);
    surprised.FactorizeAndSolve(true);
    for (std::uint32_t i = 0; i < tape.Size(); ++i)
      EXPECT_NEAR(expecting.Solution()[i],
                  surprised.Solution()[i],
                  1e-13 * std::sqrt(std::fabs(surprised.DiagonalCofactors()[i])))
          << i;
    const std::vector<double> halved(surprised.DiagonalCofactors().begin(),
                                     surprised.DiagonalCofactors().end());
    expecting.InvertCofactors();
    surprised.InvertCofactors();
    EXPECT_TRUE(std::ranges::equal(expecting.DiagonalCofactors(), surprised.DiagonalCofactors()));
    for (std::uint32_t i = 0; i < tape.Unknowns(); ++i) {
      EXPECT_NEAR(halved[i], surprised.DiagonalCofactors()[i], 1e-11 * halved[i]) << i;
      EXPECT_EQ(expecting.Cofactor(i, 0), surprised.Cofactor(i, 0)) << i;
    }
    for (const SystemTape::Observation& o : tape.observations)
      for (const DesignRow& row : o.rows)
        EXPECT_EQ(expecting.CofactorForm(row), surprised.CofactorForm(row));
  }
}

TEST(BlockSystem, ASolutionThatWasNotTheLastOneIsForgotten) {
  SystemTape tape;
  Scene{.seed = 51, .points = 12}.Record(tape);
  BlockSystem system;
  system.ExpectInvertCofactors(true);
  tape.Assemble(system);
  system.FactorizeAndSolve(true);
  // The same pattern with other numbers, and no cofactors wanted so far.
  SystemTape next;
  Scene{.seed = 51, .points = 12, .largeWeight = 3.0}.Record(next);
  system.ExpectInvertCofactors(false);
  next.Assemble(system);
  ASSERT_NO_FATAL_FAILURE(ExpectDense(next, system));
}

TEST(BlockSystem, ManyRowsAtOnceAreAsGoodAsOneByOne) {
  constexpr std::uint32_t kUnknowns = 12;
  Draw draw(53);
  std::vector<DesignRow> rows;
  std::vector<double> weights;
  std::vector<double> misclosures;
  const auto observe = [&](std::uint32_t point, std::uint32_t image, std::uint32_t components) {
    for (; components > 0; --components) {
      DesignRow& row = rows.emplace_back();
      for (std::uint32_t i = 0; i < 3; ++i) row.push(point + i, draw.Uniform());
      for (std::uint32_t i = 0; i < 3; ++i) row.push(image + i, draw.Uniform());
      weights.push_back(1.5 + draw.Uniform());
      misclosures.push_back(draw.Uniform());
    }
  };
  observe(0, 6, 3);
  observe(3, 9, 3);
  observe(0, 9, 1);
  observe(0, 6, 1);  // other columns than the row before, in the same piece
  BlockSystem together;
  BlockSystem single;
  const SystemLayout layout{{0, 3, 6, 9, kUnknowns}, 2};
  together.SetLayout(layout);
  single.SetLayout(layout);
  const auto hold = [](BlockSystem& system) {
    for (std::uint32_t c = 0; c < kUnknowns; ++c)
      system.AddEquation(Row({{c, 1.0}}), 1.0, 0.1 * (c + 1.0));
  };
  for (int iteration = 0; iteration < 2; ++iteration) {
    Assemble(together, kUnknowns, 0, [&] {
      together.AddEquations(rows, weights.data(), misclosures.data());
      hold(together);
    });
    Assemble(single, kUnknowns, 0, [&] {
      for (std::size_t r = 0; r < rows.size(); ++r)
        single.AddEquation(rows[r], weights[r], misclosures[r]);
      hold(single);
    });
    together.FactorizeAndSolve(true);
    single.FactorizeAndSolve(true);
    for (std::uint32_t c = 0; c < kUnknowns; ++c)
      EXPECT_NEAR(together.Solution()[c], single.Solution()[c], 1e-13) << c;
    together.InvertCofactors();
    std::vector<double> forms(rows.size());
    together.CofactorForms(rows, forms.data());
    single.InvertCofactors();
    for (std::size_t r = 0; r < rows.size(); ++r)
      EXPECT_NEAR(forms[r], single.CofactorForm(rows[r]), 1e-13) << r;
  }
}

// Rays of one image and one camera are summed up together.
TEST(BlockSystem, RaysOfOneImageMatchADenseSolutionForCamerasOfAllSizes) {
  constexpr std::uint32_t kPoints = 25;
  for (std::uint32_t camera = 1; camera <= 16; ++camera) {
    Draw draw(54 + camera);
    constexpr std::uint32_t kImage = 3 * kPoints;
    constexpr std::uint32_t kCamera = kImage + 6;
    SystemTape tape;
    SystemLayout layout;
    for (std::uint32_t p = 0; p < kPoints; ++p) layout.starts.push_back(3 * p);
    layout.starts.insert(layout.starts.end(), {kImage, kCamera, kCamera + camera});
    layout.leading = kPoints;
    tape.SetLayout(layout);
    tape.Reset(kCamera + camera, 0);
    const auto observe = [&](std::uint32_t components, auto push) {
      DesignRow rows[3];
      double weights[3];
      double misclosures[3];
      for (std::uint32_t r = 0; r < components; ++r) {
        push(rows[r]);
        weights[r] = 1.5 + draw.Uniform();
        misclosures[r] = draw.Uniform();
      }
      tape.AddEquations({rows, components}, weights, misclosures);
    };
    for (std::uint32_t p = 0; p < kPoints; ++p) {
      observe(3, [&](DesignRow& row) {
        for (std::uint32_t i = 0; i < 3; ++i) row.push(3 * p + i, draw.Uniform());
        for (std::uint32_t i = 0; i < 6; ++i) row.push(kImage + i, draw.Uniform());
        for (std::uint32_t i = 0; i < camera; ++i) row.push(kCamera + i, draw.Uniform());
      });
      observe(2, [&](DesignRow& row) {
        for (std::uint32_t i = 0; i < 3; ++i) row.push(3 * p + i, draw.Uniform());
      });
    }
    ASSERT_NO_FATAL_FAILURE(ExpectDense(tape)) << "a camera of " << camera;
  }
}

TEST(BlockSystem, CofactorsOfASystemWithoutBlocksAreZero) {
  BlockSystem system;
  system.SetLayout({{0, 3, 6, 9}, 2});
  system.Reset(9, 0);
  EXPECT_EQ(system.Cofactor(0, 0), 0.0);
  EXPECT_EQ(system.Cofactor(7, 1), 0.0);
  EXPECT_EQ(system.CofactorForm(Row({{0, 1.0}, {8, 1.0}})), 0.0);
  ostra_bundle::Matrix block;
  system.CofactorBlock(block, 0, 9, 0, 9);
  for (std::uint32_t r = 0; r < 9; ++r)
    for (std::uint32_t c = 0; c < 9; ++c) EXPECT_EQ(block.At(r, c), 0.0);
}

TEST(BlockSystem, CofactorsAreForgottenWithTheNextAssembly) {
  SystemTape tape;
  Scene{.seed = 52, .points = 12}.Record(tape);
  BlockSystem system;
  tape.Assemble(system);
  system.FactorizeAndSolve(true);
  system.InvertCofactors();
  // Of a point alone.
  const DesignRow row = Row({{0, 1.0}, {2, -1.0}});
  EXPECT_GT(system.CofactorForm(row), 0.0);
  tape.Assemble(system);
  EXPECT_EQ(system.CofactorForm(row), 0.0);
}

TEST(BlockSystem, PivotSearchMakesNoDifference) {
  const Scene scene{.seed = 43};
  SystemTape tape;
  scene.Record(tape);
  BlockSystem with;
  BlockSystem without;
  tape.Assemble(with);
  tape.Assemble(without);
  with.FactorizeAndSolve(true);
  without.FactorizeAndSolve(false);
  EXPECT_TRUE(std::ranges::equal(with.Solution(), without.Solution()));
}

TEST(BlockSystem, SameSystemGivesTheSameBitsInANewAndInAUsedEngine) {
  SystemTape other;
  Scene{.seed = 44, .points = 31, .images = 9, .neighbours = {4}}.Record(other);
  SystemTape tape;
  Scene{.seed = 45, .points = 25, .images = 12}.Record(tape);
  BlockSystem used;
  other.Assemble(used);
  used.FactorizeAndSolve(true);
  tape.Assemble(used);
  used.FactorizeAndSolve(true);
  BlockSystem fresh;
  tape.Assemble(fresh);
  fresh.FactorizeAndSolve(true);
  EXPECT_TRUE(std::ranges::equal(used.Solution(), fresh.Solution()));
  EXPECT_TRUE(std::ranges::equal(used.DiagonalCofactors(), fresh.DiagonalCofactors()));
}

// --- changes between iterations -------------------------------------------------

TEST(BlockSystem, NewNumbersInTheSamePattern) {
  BlockSystem system;
  for (std::uint64_t seed = 50; seed < 53; ++seed) {
    SystemTape tape;
    Scene{.seed = seed}.Record(tape);
    tape.Assemble(system);
    ASSERT_NO_FATAL_FAILURE(ExpectDense(tape, system));
  }
}

TEST(BlockSystem, CouplingsComeAndGo) {
  BlockSystem system;
  for (const std::vector<std::uint32_t>& neighbours :
       {std::vector<std::uint32_t>{}, {2}, {2, 9}, {}, {11}, {0, 1, 2}}) {
    SystemTape tape;
    Scene{.seed = 54, .neighbours = neighbours}.Record(tape);
    tape.Assemble(system);
    ASSERT_NO_FATAL_FAILURE(ExpectDense(tape, system));
  }
  // More and fewer images per point.
  for (const std::uint32_t rays : {2U, 4U, 3U}) {
    SystemTape tape;
    Scene{.seed = 55, .rays = rays}.Record(tape);
    tape.Assemble(system);
    ASSERT_NO_FATAL_FAILURE(ExpectDense(tape, system));
  }
}

TEST(BlockSystem, GroupsComeAndGo) {
  BlockSystem system;
  for (const std::uint32_t points : {20U, 12U, 12U, 25U})
    for (const std::uint32_t images : {5U, 12U}) {
      SystemTape tape;
      Scene{.seed = 56, .points = points, .images = images, .weakPoints = {3}}.Record(tape);
      tape.Assemble(system);
      ASSERT_NO_FATAL_FAILURE(ExpectDense(tape, system));
    }
}

TEST(BlockSystem, FailureIsOverWithTheNextSystem) {
  BlockSystem system;
  system.SetLayout({{0, 3, 6}, 1});
  Assemble(system, 6, 0, [&system] { system.AddEquation(Row({{0, 1.0}}), 1.0, 1.0); });
  EXPECT_EQ(CodeOf(system), -39007);
  SystemTape tape;
  Scene{.seed = 57}.Record(tape);
  tape.Assemble(system);
  ExpectDense(tape, system);
}

// --- what cannot be solved ------------------------------------------------------

TEST(BlockSystem, EmptyColumnFails) {
  for (std::uint32_t empty = 0; empty < 12; ++empty)
    for (const std::uint32_t leading : {0U, 2U, 4U}) {
      BlockSystem system;
      system.SetLayout({{0, 3, 6, 9, 12}, leading});
      Assemble(system, 12, 0, [&] {
        for (std::uint32_t c = 0; c < 12; ++c)
          if (c != empty) system.AddEquation(Row({{c, 1.0}}), 1.0, 1.0);
      });
      EXPECT_EQ(CodeOf(system), -39007) << empty << ' ' << leading;
    }
}

TEST(BlockSystem, EmptyColumnOfALargeNetworkFails) {
  const Scene scene{.seed = 60, .points = 20, .images = 20, .constraints = 0};
  SystemTape tape;
  scene.Record(tape);
  for (const std::uint32_t empty : {0U, 31U, 60U, 100U, 179U, 184U}) {
    BlockSystem system;
    system.SetLayout(tape.layout);
    Assemble(system, tape.Unknowns(), 0, [&] {
      for (const SystemTape::Observation& o : tape.observations) {
        std::vector<DesignRow> rows;
        for (const DesignRow& row : o.rows) {
          DesignRow& reduced = rows.emplace_back();
          for (const DesignEntry& e : row)
            if (e.column != empty) reduced.push(e.column, e.coefficient);
        }
        system.AddEquations(rows, o.weights.data(), o.misclosures.data());
      }
    });
    EXPECT_EQ(CodeOf(system), -39007) << empty;
  }
}

TEST(BlockSystem, MultiplierWithoutCoefficientsFails) {
  for (const std::uint32_t leading : {0U, 2U}) {
    BlockSystem system;
    system.SetLayout({{0, 3, 6, 7}, leading});
    Assemble(system, 6, 1, [&] {
      for (std::uint32_t c = 0; c < 6; ++c) system.AddEquation(Row({{c, 1.0}}), 1.0, 1.0);
      system.SetRhs(6, 1.0);
    });
    EXPECT_EQ(CodeOf(system), -39007);
  }
}

TEST(BlockSystem, EmptyRowAddsNothing) {
  BlockSystem system;
  Assemble(system, 2, 0, [&] { system.AddEquation(DesignRow(), 1.0, 5.0); });
  EXPECT_EQ(system.Rhs()[0], 0.0);
  EXPECT_EQ(CodeOf(system), -39007);
}

TEST(BlockSystem, NotANumberAndInfinityEnd) {
  for (const double bad : {kNaN, kInfinity, -kInfinity, 1e300})
    for (const std::uint32_t images : {4U, 20U})
      for (int where = 0; where < 6; ++where) {
        const Scene scene{.seed = 61, .images = images};
        SystemTape tape;
        scene.Record(tape);
        SystemTape::Observation& o = tape.observations[9];
        switch (where) {
          case 0:
            o.weights[0] = bad;
            break;
          case 1:
            o.misclosures[0] = bad;
            break;
          case 2:
            tape.elements[2].value = bad;
            break;
          case 3:
            tape.rhs[1].second = bad;
            break;
          default: {
            // A coefficient of a point, or of an image.
            DesignRow row;
            for (std::uint32_t e = 0; e < o.rows[1].size(); ++e)
              row.push(o.rows[1][e].column,
                       e == (where == 4 ? 1U : 5U) ? bad : o.rows[1][e].coefficient);
            o.rows[1] = row;
          }
        }
        BlockSystem system;
        tape.Assemble(system);
        const std::int32_t code = CodeOf(system);
        EXPECT_TRUE(code == 0 || code == -39007) << code;
        if (code != 0 || bad == 1e300) continue;
        bool isFinite = true;
        for (const double value : system.Solution()) isFinite = isFinite && std::isfinite(value);
        for (const double value : system.DiagonalCofactors())
          isFinite = isFinite && std::isfinite(value);
        EXPECT_FALSE(isFinite) << bad << ' ' << where;
        ostra_bundle::Matrix block;
        system.CofactorBlock(block, 0, 9, 0, 9);
      }
}

}  // namespace
}  // namespace vermo
