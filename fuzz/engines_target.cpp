// Both engines on one system of a few groups.
#include "byte_stream.h"
#include "checks/kl_exception.h"
#include "fuzz_targets.h"
#include "linalg/block_system.h"
#include "linalg/envelope_system.h"
#include "require.h"
#include "support/dense_solution.h"
#include "support/system_tape.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

namespace cardo::fuzz {
namespace {

using vermo::BlockSystem;
using vermo::DesignRow;
using vermo::EnvelopeSystem;
using vermo::KlException;
using vermo::NormalSystem;
using vermo::SystemLayout;
using vermo::test::DenseSolution;
using vermo::test::Real;
using vermo::test::SystemTape;

constexpr std::int32_t kSingular = -39007;
// Largest condition, of the equilibrated matrix, of a system that must be solved, and what the
// engines may then differ by, relative to the standard deviations: rounding times the condition
// leaves four digits to spare.
constexpr Real kLargestCondition = 1e6L;
constexpr Real kTolerance = 1e-6L;
// Larger systems are solved, but not compared: extended precision takes its time.
constexpr std::uint32_t kLargestCompared = 72;

// What an input says.
struct System {
  SystemTape tape;
  bool isTame = false;       // values that cannot make the condition bad
  bool isCoupled = false;    // the block engine is told where elements will be
  bool forgetsSome = false;  // but not everywhere
  bool pivotSearch = true;
  bool isDiagonal = false;
};

// Columns of the groups and their constraints.
void ReadLayout(ByteStream& in,
                SystemLayout& layout,
                std::uint32_t& unknowns,
                std::uint32_t& size) {
  const std::uint32_t leading = in.Below(7);
  const std::uint32_t trailing = in.Below(5);
  const std::uint32_t constraints = in.Below(4);
  const std::uint8_t shape = in.Byte();
  std::uint32_t column = 0;
  const auto add = [&](std::uint32_t count, std::uint32_t usual, std::uint32_t most) {
    for (std::uint32_t i = 0; i < count; ++i) {
      layout.starts.push_back(column);
      column += (shape & 1U) != 0 ? 1 + in.Below(most) : usual;
    }
  };
  add(leading, 3, 8);
  add(trailing, 6, 20);
  if ((shape & 2U) != 0) add(1, 13, 30);
  if (column == 0) add(1, 3, 3);
  unknowns = column;
  add(constraints, 2, 3);
  size = column;
  layout.starts.push_back(column);
  layout.leading = (shape & 4U) != 0
                       ? in.Below(static_cast<std::uint32_t>(layout.starts.size()) - constraints)
                       : leading;
  if ((shape & 8U) != 0) layout = {};  // nobody tells
}

// Rows of one observation: whole groups as a rule, else any columns, repeated ones among them.
void ReadObservation(ByteStream& in, System& system, const std::vector<std::uint32_t>& starts) {
  const std::uint32_t unknowns = system.tape.Unknowns();
  const std::uint8_t kind = in.Byte();
  const std::uint32_t components = 1 + (kind & 3U) % 3;
  DesignRow rows[3];
  double weights[3];
  double misclosures[3];
  const auto value = [&] { return system.isTame ? in.Share() : in.Real(); };
  if ((kind & 4U) != 0) {
    // Components are of one observation: between them they name no more columns than a row holds.
    std::uint32_t columns[DesignRow::kCapacity];
    const std::uint32_t count = 1 + in.Below(DesignRow::kCapacity);
    for (std::uint32_t i = 0; i < count; ++i) columns[i] = in.Byte() % unknowns;
    for (std::uint32_t r = 0; r < components; ++r) {
      const std::uint32_t entries = in.Below(DesignRow::kCapacity + 1);
      for (std::uint32_t i = 0; i < entries && !in.IsEmpty(); ++i) {
        const std::uint32_t column = columns[in.Below(count)];
        rows[r].push(column, value());
      }
    }
  } else {
    const std::uint32_t groups = 1 + (kind >> 4U) % 4;
    std::uint32_t places[4];
    for (std::uint32_t g = 0; g < groups; ++g)
      places[g] = in.Byte() % static_cast<std::uint32_t>(starts.size() - 1);
    for (std::uint32_t r = 0; r < components; ++r)
      for (std::uint32_t g = 0; g < groups; ++g)
        for (std::uint32_t c = starts[places[g]]; c < starts[places[g] + 1]; ++c)
          if (c < unknowns && rows[r].size() < DesignRow::kCapacity) rows[r].push(c, value());
  }
  for (std::uint32_t r = 0; r < components; ++r) {
    // Weights above zero, as the callers have them.
    weights[r] = system.isTame ? 1.0 + 0.5 * in.Share() : std::fabs(in.Real());
    misclosures[r] = value();
  }
  system.tape.AddEquations({rows, components}, weights, misclosures);
}

System ReadSystem(ByteStream& in) {
  System system;
  const std::uint8_t mode = in.Byte();
  system.isTame = (mode & 1U) != 0;
  system.isCoupled = (mode & 2U) != 0;
  system.forgetsSome = (mode & 4U) != 0;
  system.pivotSearch = (mode & 8U) == 0;
  system.isDiagonal = (mode & 0x30U) == 0x30U;
  const bool isHeld = (mode & 0x40U) != 0;
  SystemLayout layout;
  std::uint32_t unknowns = 0;
  std::uint32_t size = 0;
  ReadLayout(in, layout, unknowns, size);
  std::vector<std::uint32_t> starts = layout.starts;
  if (starts.empty()) starts = {0, unknowns, size};
  system.tape.SetLayout(layout);
  system.tape.Reset(unknowns, size - unknowns);
  // Every unknown observed and every constraint with a column of its own: whatever follows, the
  // system is well conditioned while its values are tame.
  if (isHeld) {
    for (std::uint32_t c = 0; c < unknowns; ++c) {
      DesignRow row;
      row.push(c, 1.0);
      system.tape.AddEquation(row, 32.0, in.Share());
    }
  }
  for (std::uint32_t k = unknowns; k < size; ++k) {
    if (isHeld) system.tape.StoreElement(k, (k - unknowns) % unknowns, 4.0);
    system.tape.SetRhs(k, system.isTame ? in.Share() : in.Real());
    const std::uint32_t elements = in.Below(8);
    for (std::uint32_t i = 0; i < elements; ++i) {
      const std::uint32_t column = in.Byte() % unknowns;
      if (isHeld && column < size - unknowns) continue;
      system.tape.StoreElement(k, column, system.isTame ? in.Share() : in.Real());
    }
  }
  for (int i = 0; i < 40 && !in.IsEmpty(); ++i) ReadObservation(in, system, starts);
  return system;
}

void TellCouplings(const System& system, NormalSystem& engine) {
  const SystemTape& tape = system.tape;
  engine.SetLayout(tape.layout);
  for (int pass = 0; engine.WantsCouplings(); ++pass) {
    Require(pass < 20, "hints come to an end");
    engine.Reset(tape.Unknowns(), tape.Size() - tape.Unknowns());
    bool isForgotten = false;
    for (const SystemTape::Observation& o : tape.observations) {
      isForgotten = system.forgetsSome && !isForgotten;
      if (isForgotten) continue;
      std::vector<std::uint32_t> columns;
      for (const DesignRow& row : o.rows)
        for (const vermo::DesignEntry& entry : row) columns.push_back(entry.column);
      engine.Couple(columns);
    }
    for (const SystemTape::Stored& e : tape.elements) engine.StoreElement(e.row, e.column, e.value);
    static_cast<void>(engine.Seal());
  }
}

// The answers of an engine, none when it calls the system singular.
struct Answers {
  std::vector<double> solution;
  std::vector<double> diagonal;
  std::vector<double> block;        // the inverse of the unknowns, by rows
  std::vector<double> forms;        // of all components
  std::vector<double> singleForms;  // the same, one by one
};

std::optional<Answers> Solve(const System& system, NormalSystem& engine) {
  const SystemTape& tape = system.tape;
  Require(engine.Unknowns() == tape.Unknowns() && engine.Size() == tape.Size(), "sizes stay");
  try {
    engine.FactorizeAndSolve(system.pivotSearch);
  } catch (const KlException& failure) {
    Require(failure.GetCode() == kSingular, "a factorisation fails as singular only");
    return std::nullopt;
  }
  Answers answers;
  answers.solution.assign(engine.Solution().begin(), engine.Solution().end());
  Require(answers.solution.size() == tape.Size(), "a solution has an element per column");
  // The envelope answers for the multipliers, too.
  const std::span<const double> diagonal = engine.DiagonalCofactors();
  Require(diagonal.size() >= tape.Unknowns(), "every unknown has a cofactor");
  answers.diagonal.assign(diagonal.begin(), diagonal.begin() + tape.Unknowns());
  ostra_bundle::Matrix block;
  engine.CofactorBlock(block, 0, tape.Unknowns(), 0, tape.Unknowns());
  engine.InvertCofactors();
  for (std::uint32_t i = 0; i < tape.Unknowns(); ++i)
    for (std::uint32_t j = 0; j < tape.Unknowns(); ++j) answers.block.push_back(block.At(i, j));
  for (const SystemTape::Observation& o : tape.observations) {
    std::vector<DesignRow> rows = o.rows;
    double forms[3];
    engine.CofactorForms(rows, forms);
    answers.forms.insert(answers.forms.end(), forms, forms + rows.size());
    for (DesignRow& row : rows) {
      row.SortByColumn();
      answers.singleForms.push_back(engine.CofactorForm(row));
      if (!row.empty())
        static_cast<void>(engine.Cofactor(row[0].column, row[row.size() - 1].column));
    }
  }
  return answers;
}

void RequireNear(Real a, Real b, Real scale, const char* promise) {
  Require(std::fabs(a - b) <= kTolerance * scale, promise);
}

void RequireSameElements(const SystemTape& tape, const NormalSystem& a, const NormalSystem& b) {
  for (std::uint32_t i = 0; i < tape.Size(); ++i) {
    RequireNear(a.Rhs()[i], b.Rhs()[i], 1e3L, "both engines have one right-hand side");
    for (std::uint32_t j = 0; j <= i; ++j)
      RequireNear(a.Element(i, j), b.Element(i, j), 1e3L, "both engines have one matrix");
  }
}

// Norms of the equilibrated matrix and its inverse.
Real Condition(const DenseSolution& dense) {
  vermo::test::RealMatrix scaled = dense.n;
  const std::vector<Real> scale = reference::Equilibrate(scaled);
  Real matrix = 0;
  Real inverse = 0;
  for (std::uint32_t i = 0; i < scaled.size; ++i) {
    Real a = 0;
    Real b = 0;
    for (std::uint32_t j = 0; j < scaled.size; ++j) {
      a += std::fabs(scaled[i][j]);
      b += std::fabs(dense.q[i][j] / (scale[i] * scale[j]));
    }
    matrix = std::max(matrix, a);
    inverse = std::max(inverse, b);
  }
  return matrix * inverse;
}

void RequireDense(const SystemTape& tape, const DenseSolution& dense, const Answers& answers) {
  const std::uint32_t u = tape.Unknowns();
  std::vector<Real> scale(u);
  Real largest = 1;
  Real cofactor = 0;
  // An unknown that constraints hold altogether has none; the equations alone give the measure.
  for (std::uint32_t i = 0; i < u; ++i) {
    cofactor = std::max(cofactor, std::fabs(dense.q[i][i]));
    if (dense.n[i][i] > 0) cofactor = std::max(cofactor, 1 / dense.n[i][i]);
  }
  for (std::uint32_t i = 0; i < tape.Size(); ++i)
    largest = std::max(largest, std::fabs(dense.x[i]));
  for (std::uint32_t i = 0; i < u; ++i) {
    RequireNear(answers.solution[i], dense.x[i], largest, "the solution is right");
    RequireNear(answers.diagonal[i], dense.q[i][i], cofactor, "the diagonal cofactors are right");
    for (std::uint32_t j = 0; j < u; ++j)
      RequireNear(answers.block[i * u + j], dense.q[i][j], cofactor, "every cofactor is right");
  }
  std::size_t component = 0;
  for (const SystemTape::Observation& o : tape.observations)
    for (std::size_t r = 0; r < o.rows.size(); ++r, ++component) {
      const Real redundancy = 1 - Real{o.weights[r]} * answers.forms[component];
      RequireNear(redundancy, dense.redundancy[component], 1, "the redundancy is right");
      const Real single = 1 - Real{o.weights[r]} * answers.singleForms[component];
      RequireNear(single, dense.redundancy[component], 1, "the redundancy of a row is right");
    }
}

void RunDiagonal(const System& system, BlockSystem& blocks, EnvelopeSystem& envelope) {
  const SystemTape& tape = system.tape;
  Require(blocks.SetDiagonalOnly(true), "the block engine can do with the diagonal");
  tape.Assemble(blocks);
  tape.Assemble(envelope);
  const std::vector<std::uint32_t>& starts = tape.layout.starts;
  for (std::size_t g = 0; g + 1 < starts.size(); ++g) {
    const std::uint32_t size = std::min(starts[g + 1] - starts[g], 16U);
    if (starts[g] >= tape.Unknowns()) break;
    std::vector<double> a(std::size_t{size} * size);
    std::vector<double> b(a.size());
    blocks.DiagonalBlock(starts[g], size, a.data());
    envelope.DiagonalBlock(starts[g], size, b.data());
    if (!system.isTame) continue;
    for (std::size_t i = 0; i < a.size(); ++i)
      RequireNear(a[i], b[i], 1e3L, "both engines have one diagonal block");
  }
  blocks.SetDiagonalOnly(false);
}

void Compare(const System& system, BlockSystem& blocks, EnvelopeSystem& envelope) {
  const SystemTape& tape = system.tape;
  if (system.isDiagonal) RunDiagonal(system, blocks, envelope);
  if (system.isCoupled) TellCouplings(system, blocks);
  tape.Assemble(blocks);
  tape.Assemble(envelope);
  if (system.isTame) RequireSameElements(tape, blocks, envelope);
  const std::optional<Answers> ofBlocks = Solve(system, blocks);
  const std::optional<Answers> ofEnvelope = Solve(system, envelope);
  if (!system.isTame || tape.Size() > kLargestCompared) return;
  try {
    const DenseSolution dense(tape);
    if (!(Condition(dense) < kLargestCondition)) return;
    Require(ofBlocks.has_value(), "the block engine solves a good system");
    RequireDense(tape, dense, *ofBlocks);
    // Without a search the envelope takes pivots as they come, and a constraint may have none.
    if (!system.pivotSearch && tape.Size() > tape.Unknowns()) return;
    Require(ofEnvelope.has_value(), "the envelope engine solves a good system");
    RequireDense(tape, dense, *ofEnvelope);
  } catch (const std::runtime_error&) {
    // Singular in extended precision as well.
  }
}

}  // namespace

int FuzzEngines(const std::uint8_t* data, std::size_t size) {
  ByteStream in(data, size);
  BlockSystem blocks;
  EnvelopeSystem envelope;
  // The engines of a job see one system after another.
  const std::uint32_t systems = 1 + in.Below(3);
  for (std::uint32_t i = 0; i < systems && !in.IsEmpty(); ++i)
    Compare(ReadSystem(in), blocks, envelope);
  return 0;
}

}  // namespace cardo::fuzz
