// The same networks on both engines: whole runs, and what only one of them asks for.

#include "adjustment/linear_network.h"
#include "linalg/block_system.h"
#include "linalg/envelope_system.h"
#include "support/system_tape.h"

#include <array>
#include <cstdint>
#include <deque>
#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>
#include <random>
#include <span>
#include <utility>
#include <vector>

namespace vermo::test {
namespace {

// Systems of conditions below 1e3.
constexpr double kTolerance = 1e-11;

class Draw {
 public:
  explicit Draw(std::uint64_t seed) : fGenerator(seed) {}
  double Uniform() { return static_cast<double>(fGenerator() >> 11U) * 0x1p-52 - 1.0; }

 private:
  std::mt19937_64 fGenerator;
};

// Groups of one to three unknowns in a chain, each measured itself and with its neighbours; rows
// name the later group first. One group is fixed, one inactive, one observation an outlier.
class Chain {
 public:
  explicit Chain(std::unique_ptr<NormalSystem> system) : adjustment(std::move(system)) {
    Draw draw(11);
    for (std::uint32_t g = 0; g < 12; ++g)
      groups.emplace_back(std::vector<double>(1 + g % 3, 0.25 * draw.Uniform()));
    groups[4].SetVariable(false);
    groups[7].SetActive(false);
    for (std::uint32_t g = 0; g < groups.size(); ++g)
      for (std::uint32_t i = 0; i < groups[g].values.size(); ++i) {
        Measure({{&groups[g], i, 2.0}}, draw);
        if (g == 0) continue;
        LinearGroup& before = groups[g - 1];
        for (std::uint32_t j = 0; j < before.values.size(); ++j)
          Measure({{&groups[g], i, 1.0 + draw.Uniform()},
                   {&before, j, draw.Uniform()},
                   {&groups[g], i, 0.5}},
                  draw);
      }
    messungen[3].SetAusreisser();
    for (LinearGroup& group : groups) adjustment.groups.push_back(&group);
    for (LinearMessung& messung : messungen) {
      adjustment.messungen.push_back(&messung);
      for (const LinearMessung::Term& term : messung.terms) term.group->AddMessung(&messung);
    }
    adjustment.Settings().SetBlunderTest(false);
  }

  std::deque<LinearGroup> groups;
  std::deque<LinearMessung> messungen;
  TestAdjustment adjustment;

 private:
  void Measure(std::initializer_list<LinearMessung::Term> terms, Draw& draw) {
    messungen.emplace_back(terms, draw.Uniform(), 2.0 + draw.Uniform());
  }
};

TEST(AdjustmentOnTheEnvelope, GivesTheResultsOfTheBlocks) {
  Chain onBlocks(std::make_unique<BlockSystem>());
  Chain onEnvelope(std::make_unique<EnvelopeSystem>());
  ASSERT_EQ(onBlocks.adjustment.RunCode(), 0);
  ASSERT_EQ(onEnvelope.adjustment.RunCode(), 0);
  EXPECT_NEAR(
      onEnvelope.adjustment.Statistics().fS0, onBlocks.adjustment.Statistics().fS0, kTolerance);
  EXPECT_NEAR(onEnvelope.adjustment.RedundanzSumme(),
              onBlocks.adjustment.RedundanzSumme(),
              100.0 * kTolerance);
  for (std::size_t g = 0; g < onBlocks.groups.size(); ++g)
    for (std::size_t i = 0; i < onBlocks.groups[g].values.size(); ++i) {
      EXPECT_NEAR(onEnvelope.groups[g].values[i], onBlocks.groups[g].values[i], kTolerance) << g;
      EXPECT_NEAR(onEnvelope.groups[g].sigmas[i], onBlocks.groups[g].sigmas[i], kTolerance) << g;
    }
  for (std::size_t k = 0; k < onBlocks.messungen.size(); ++k)
    EXPECT_NEAR(onEnvelope.messungen[k].Wert(0).Redundanz(),
                onBlocks.messungen[k].Wert(0).Redundanz(),
                kTolerance)
        << k;
}

// Wants to know how far its rows will reach, and keeps what it is told.
class Reserving final : public SystemTape {
 public:
  std::vector<std::uint32_t> firsts;

  void Reset(std::uint32_t unknowns, std::uint32_t multipliers) override {
    SystemTape::Reset(unknowns, multipliers);
    firsts.assign(unknowns, 99);
  }
  [[nodiscard]] bool TakesReservations() const override { return true; }
  void ReserveRow(std::uint32_t row, std::uint32_t first) override { firsts.at(row) = first; }
  void FactorizeAndSolve(bool /*pivotSearch*/) override {}
};

TEST(Reservations, ReachToTheFirstGroupOfAnObservationInUse) {
  auto owner = std::make_unique<Reserving>();
  const Reserving& system = *owner;
  TestAdjustment adjustment(std::move(owner));
  LinearGroup a({0.0, 0.0});
  LinearGroup fixed({0.0});
  LinearGroup inactive({0.0});
  LinearGroup b({0.0});
  LinearGroup c({0.0, 0.0});
  LinearGroup d({0.0});
  fixed.SetVariable(false);
  inactive.SetActive(false);
  LinearMessung ab({{&b, 0, 1.0}, {&a, 1, 1.0}, {&fixed, 0, 1.0}}, 0.0);
  LinearMessung bc({{&c, 0, 1.0}, {&b, 0, 1.0}}, 0.0);
  LinearMessung rejected({{&a, 0, 1.0}, {&d, 0, 1.0}}, 0.0);
  LinearMessung ofNobody({{&inactive, 0, 1.0}}, 0.0);
  rejected.SetAusreisser();
  for (LinearMessung* messung : {&ab, &bc, &rejected, &ofNobody})
    for (const LinearMessung::Term& term : messung->terms) term.group->AddMessung(messung);
  adjustment.groups = {&a, &fixed, &inactive, &b, &c, &d};
  adjustment.messungen = {&ab, &bc, &rejected, &ofNobody};
  adjustment.Collect();
  for (int build = 0; build < 2; ++build) {
    adjustment.BuildNormalEquations();
    EXPECT_EQ(system.firsts, (std::vector<std::uint32_t>{0, 0, 0, 2, 2, 5})) << build;
  }
}

TEST(Reservations, AnEngineMayIgnoreHints) {
  SystemTape tape;
  EXPECT_FALSE(tape.TakesReservations());
  EXPECT_FALSE(tape.WantsCouplings());
  tape.Reset(3, 0);
  const std::array<std::uint32_t, 2> columns{0, 2};
  tape.Couple(columns);
  tape.ReserveRow(2, 0);
  EXPECT_EQ(tape.Size(), 3U);
  EXPECT_TRUE(tape.observations.empty());
  EXPECT_TRUE(tape.elements.empty());
}

// An adjustment that overrides what it must and nothing else.
class Least final : public Adjustment {
 public:
  LinearGroup group{{0.0}};
  LinearMessung one{{{&group, 0, 1.0}}, 1.0};
  LinearMessung two{{{&group, 0, 1.0}}, 2.0};

 protected:
  void CollectMessungen() override { fMessungen = {{0, &one}, {0, &two}}; }
  void CollectData() override { fDaten = {&group}; }
  void CollectBedingungen() override { fBedingungen.clear(); }
  bool OnIterationWithBlunders(BlunderRoundInfo& /*info*/) override { return true; }
  bool OnBlunderRound(BlunderRoundInfo& /*info*/) override { return false; }
  void OnGroupsDisabled(std::span<Data* const> /*groups*/) override {}
  void OnGroupsEnabled(std::span<Data* const> /*groups*/) override {}
};

TEST(Adjustment, RunsWithoutTheHooksThatMayBeLeftOut) {
  Least least;
  least.Settings().SetBlunderTest(false);
  least.Run();
  EXPECT_NEAR(least.group.values[0], 1.5, 1e-15);
}

}  // namespace
}  // namespace vermo::test
