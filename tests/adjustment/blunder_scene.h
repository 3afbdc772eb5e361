#pragma once

#include "adjustment/adjustment.h"
#include "adjustment/blunder_round_info.h"
#include "adjustment/fake_normal_system.h"
#include "adjustment/linear_network.h"
#include "adjustment/tau_distribution.h"
#include "observations/messung.h"

#include <array>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vermo::test {

// What one component of an observation shall show.
struct Component {
  double v = 0.0;
  double q = 1.0;
  double w = 1.0;
};

// An observation whose residuals, weights and redundancy numbers are what the test says. Active.
template <std::size_t N>
class GivenMessung final : public TMessung<N> {
 public:
  explicit GivenMessung(std::array<Component, N> theComponents)
      : TMessung<N>(MessungKind::Obko), components(theComponents) {
    this->SetActive(true);
  }

  std::array<Component, N> components;

  void SetWeights(const NetworkSettings& /*settings*/) override {}
  [[nodiscard]] std::string GetDescription() const override { return {}; }
  [[nodiscard]] std::string GetIdentText() const override { return {}; }
  bool ObservationEquations(EquationBlock& equations) override {
    equations.Reset(N);
    if (!this->IsActive()) return false;
    for (std::uint32_t i = 0; i < N; ++i) {
      this->CollectComponents()[i].SetGewicht(components[i].w);
      this->AppendComponent(equations, i, -components[i].v);
    }
    return true;
  }
  void ComputeRedundancy(const NormalSystem& cofactors, EquationBlock& equations) override {
    TMessung<N>::ComputeRedundancy(cofactors, equations);
    if (!this->IsUsed()) return;
    for (std::uint32_t i = 0; i < N; ++i)
      this->CollectComponents()[i].SetRedundanz(components[i].q);
  }
  [[nodiscard]] std::string GetProtocolLine() const override { return {}; }
  [[nodiscard]] bool IsConnected() const override { return true; }
  [[nodiscard]] bool IsUsable() const override { return true; }

  [[nodiscard]] double Testwert(std::uint32_t i = 0) const { return this->Wert(i).Testwert(); }
};

// A converged adjustment, so that every iteration ends with an outlier test, whose S0 and
// redundancy are given. One further observation, without redundancy and protected, takes up what
// the others' residuals leave over; the number of constraint rows follows the number of used
// observations. With residuals and weights that are dyadic numbers S0 is exact, and the test value
// of a component with q = w = S0 = 1 is its residual.
class BlunderScene {
 public:
  BlunderScene()
      : fGroup(std::vector<double>(kUnknowns, 0.0)), fRest({Component{.v = 1.0, .q = 0.0}}) {
    auto owner = std::make_unique<FakeNormalSystem>();
    system = owner.get();
    adjustment = std::make_unique<TestAdjustment>(std::move(owner));
    system->events = &adjustment->events;
    adjustment->groups = {&fGroup};
    adjustment->beforeIteration = [this] { Next(); };
    fRest.SetNoBlunderTest(true);
    Settings().SetSolvabilityCheck(false);
  }
  BlunderScene(const BlunderScene&) = delete;
  BlunderScene& operator=(const BlunderScene&) = delete;

  double s0 = 1.0;
  std::int32_t redundancy = 400;
  // Called with the number of the iteration, from 1, before its residuals are taken.
  std::function<void(std::uint32_t)> script;
  // |rhs times solution| of the first row; anything but 0 is far from converged.
  double open = 0.0;

  GivenMessung<1>& Add(Component component) { return AddTo(std::array{component}); }
  GivenMessung<2>& Add(Component x, Component y) { return AddTo(std::array{x, y}); }

  // How the threshold follows the largest test value.
  BlunderScene& Range(double lower, double upper, double damping) {
    Settings().SetDynamicRange(lower, upper);
    Settings().SetDamping(damping);
    return *this;
  }
  // The threshold is the largest test value, or tau.
  BlunderScene& ThresholdAtTop() { return Range(0.0, 0.0, 1.0); }
  BlunderScene& ThresholdAtTau() { return Range(0.0, 0.0, 0.0); }

  [[nodiscard]] AdjustmentSettings& Settings() { return adjustment->Settings(); }
  [[nodiscard]] const AdjustmentStatistics& Statistics() const { return adjustment->Statistics(); }
  // The critical value of a test at the present flags.
  [[nodiscard]] double Tau() const {
    return TauCritical(static_cast<std::int32_t>(UsedComponents()), redundancy, 0.95);
  }

  // 0 or the code of the failure.
  std::int32_t Run() {
    adjustment->messungen.clear();
    for (const auto& messung : fGiven) adjustment->messungen.push_back(messung.get());
    adjustment->messungen.push_back(&fRest);
    fIterations = 0;
    return adjustment->RunCode();
  }
  // A single round, whatever it changes.
  const BlunderRoundInfo& Round() {
    Settings().fMaxIterations = 1;
    EXPECT_EQ(Run(), 0);
    return adjustment->rounds.at(0);
  }
  [[nodiscard]] const std::vector<BlunderRoundInfo>& Rounds() const { return adjustment->rounds; }
  [[nodiscard]] std::uint32_t Iterations() const { return fIterations; }
  // How often the observation at a place of the list was newly marked.
  [[nodiscard]] std::uint32_t Marked(std::size_t place) const {
    return adjustment->fMessungen.at(place).fAusreisserZaehler;
  }

  FakeNormalSystem* system;
  std::unique_ptr<TestAdjustment> adjustment;

 private:
  static constexpr std::uint32_t kUnknowns = 64;

  template <std::size_t N>
  GivenMessung<N>& AddTo(std::array<Component, N> components) {
    auto owner = std::make_unique<GivenMessung<N>>(components);
    GivenMessung<N>& messung = *owner;
    fGiven.push_back(std::move(owner));
    return messung;
  }

  [[nodiscard]] std::uint32_t UsedComponents() const {
    std::uint32_t count = fRest.Dimension();
    for (const auto& messung : fGiven) count += messung->UsedCount();
    return count;
  }

  template <std::uint32_t N>
  static void AddSquares(const Messung& messung, double& sum) {
    const auto* given = dynamic_cast<const GivenMessung<N>*>(&messung);
    if (given == nullptr || !given->IsUsed()) return;
    for (const Component& c : given->components) sum += c.v * c.v * c.w;
  }

  void Next() {
    ++fIterations;
    if (script) script(fIterations);
    double sum = 0.0;
    for (const auto& messung : fGiven) {
      AddSquares<1>(*messung, sum);
      AddSquares<2>(*messung, sum);
    }
    fRest.components[0].w = redundancy * s0 * s0 - sum;
    system->multipliers = static_cast<std::uint32_t>(
        redundancy + static_cast<std::int32_t>(kUnknowns - UsedComponents()));
    system->solution.assign(kUnknowns + system->multipliers, 1.0);
    system->diagonalCofactors.assign(kUnknowns + system->multipliers, 1.0);
    system->rhs.assign(kUnknowns + system->multipliers, 0.0);
    system->rhs[0] = open;
  }

  LinearGroup fGroup;
  std::vector<std::unique_ptr<Messung>> fGiven;  // in the order of the list
  GivenMessung<1> fRest;
  std::uint32_t fIterations = 0;
};

}  // namespace vermo::test
