#pragma once

#include "adjustment/adjustment.h"
#include "adjustment/blunder_round_info.h"
#include "api/xyz_api.h"
#include "linalg/normal_system.h"
#include "observations/messung.h"
#include "unknowns/data.h"
#include "unknowns/data_obko.h"

#include <cmath>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace vermo::test {

// A group of plain unknowns, active and variable.
class LinearGroup final : public Data {
 public:
  explicit LinearGroup(std::vector<double> start) : values(std::move(start)) {
    sigmas.resize(values.size());
    SetActive(true);
    SetVariable(true);
  }

  std::vector<double> values;
  std::vector<double> sigmas;
  std::vector<std::string>* events = nullptr;
  bool refusesColumns = false;      // is in the system, and takes no column
  bool claimsNothing = false;       // is in the system, and says to have no unknowns
  std::uint32_t contributions = 0;  // calls of AddToNormalEquations

  void AddToNormalEquations(NormalSystem& /*system*/, AdjustmentStatistics& /*stat*/) override {
    ++contributions;
  }
  [[nodiscard]] std::uint32_t UnknownCount() const override {
    if (claimsNothing || !IsVariable()) return 0;
    return static_cast<std::uint32_t>(values.size());
  }
  std::uint32_t AssignUnknowns(std::uint32_t next) override {
    if (refusesColumns) return next;
    return Data::AssignUnknowns(next);
  }
  void ApplySolution(std::span<const double> solution) override {
    if (events != nullptr) events->emplace_back("ApplySolution");
    if (!HasColumns()) return;
    const std::span<const double> increments = Increments(solution);
    for (std::size_t i = 0; i < increments.size(); ++i) values[i] += increments[i];
  }
  void StoreAccuracy(const NormalSystem& cofactors, double s0) override {
    if (events != nullptr) events->emplace_back("StoreAccuracy");
    if (!HasColumns()) return;
    for (std::uint32_t i = 0; i < sigmas.size(); ++i)
      sigmas[i] = std::sqrt(Variance(cofactors, s0, i));
  }
  [[nodiscard]] std::string GetIdentText() const override { return {}; }
  [[nodiscard]] std::string GetDescription() const override { return {}; }
};

// One measured value of a linear function of some groups, active: sum of coefficient times
// unknown.
class LinearMessung final : public TMessung<1> {
 public:
  struct Term {
    LinearGroup* group;
    std::uint32_t index;
    double coefficient;
  };

  LinearMessung(std::initializer_list<Term> theTerms, double theValue, double weight = 1.0)
      : TMessung(MessungKind::Strecke), terms(theTerms), value(theValue) {
    CollectComponents()[0].SetGewicht(weight);
    SetActive(true);
  }

  std::vector<Term> terms;
  double value;
  bool connected = true;
  bool alwaysUsable = false;  // even when a group is not active

  void SetWeights(const NetworkSettings& /*settings*/) override {}
  [[nodiscard]] std::string GetDescription() const override { return {}; }
  [[nodiscard]] std::string GetIdentText() const override { return {}; }
  bool ObservationEquations(EquationBlock& equations) override {
    equations.Reset(Dimension());
    if (!IsActive() || !connected) return false;
    double computed = 0.0;
    for (const Term& term : terms) {
      computed += term.coefficient * term.group->values[term.index];
      if (term.group->FirstUnknown() >= 0)
        equations.rows[0].push(static_cast<std::uint32_t>(term.group->FirstUnknown()) + term.index,
                               term.coefficient);
    }
    AppendComponent(equations, 0, value - computed);
    return true;
  }
  [[nodiscard]] std::string GetProtocolLine() const override { return {}; }
  [[nodiscard]] bool IsConnected() const override { return connected; }
  [[nodiscard]] bool IsUsable() const override {
    if (alwaysUsable) return true;
    for (const Term& term : terms)
      if (!term.group->IsActive()) return false;
    return connected;
  }
};

// Measured coordinates of an object point that the ray rule takes for a ray, or for another kind
// of observation. Active and linked to the point.
class PointMessung final : public TMessung<3> {
 public:
  explicit PointMessung(DataObko& point, MessungKind kind = MessungKind::Biko)
      : TMessung(kind), fPoint(&point) {
    SetActive(true);
    point.AddMessung(this);
  }
  PointMessung(const PointMessung&) = delete;
  PointMessung& operator=(const PointMessung&) = delete;

  bool alwaysUsable = false;  // even when the point is not active

  void SetWeights(const NetworkSettings& /*settings*/) override {}
  [[nodiscard]] std::string GetDescription() const override { return {}; }
  [[nodiscard]] std::string GetIdentText() const override { return {}; }
  bool ObservationEquations(EquationBlock& equations) override {
    equations.Reset(Dimension());
    if (!IsActive()) return false;
    for (std::uint32_t i = 0; i < 3; ++i) {
      if (fPoint->FirstUnknown() >= 0)
        equations.rows[i].push(static_cast<std::uint32_t>(fPoint->FirstUnknown()) + i, 1.0);
      AppendComponent(equations, i, fPoint->Initial()[i] - fPoint->Current()[i]);
    }
    return true;
  }
  [[nodiscard]] std::string GetProtocolLine() const override { return {}; }
  [[nodiscard]] bool IsConnected() const override { return true; }
  [[nodiscard]] bool IsUsable() const override { return alwaysUsable || fPoint->IsActive(); }

 private:
  DataObko* fPoint;
};

// An adjustment over lists that the test fills; it records its hooks in their order.
class TestAdjustment : public Adjustment {
 public:
  using Adjustment::Adjustment;
  using Adjustment::BuildNormalEquations;
  using Adjustment::ComputeStatistics;
  using Adjustment::fDaten;
  using Adjustment::fMessungen;

  std::vector<Data*> groups;
  std::vector<Messung*> messungen;

  std::vector<std::string> events;
  std::vector<IterationInfo> infos;                   // one per OnIteration
  std::vector<BlunderRoundInfo> rounds;               // one per OnBlunderRound
  std::vector<std::vector<Data*>> disabled, enabled;  // one per call
  std::function<void()> beforeIteration;
  std::function<bool(const IterationInfo&)> judge;             // the answer of OnIteration
  std::function<bool(const BlunderRoundInfo&)> judgeBlunders;  // the answer of OnBlunderRound

  // The lists without a run.
  void Collect() {
    CollectMessungen();
    CollectData();
  }
  // 0 or the code of the failure.
  std::int32_t RunCode() {
    try {
      return Run();
    } catch (const KlException& failure) {
      return failure.GetCode();
    }
  }

 protected:
  void CollectMessungen() override {
    events.emplace_back("CollectMessungen");
    fMessungen.clear();
    for (Messung* messung : messungen) fMessungen.push_back({0, messung});
  }
  void CollectData() override {
    events.emplace_back("CollectData");
    fDaten = groups;
  }
  void CollectBedingungen() override { fBedingungen.clear(); }
  void ConnectAll() override { events.emplace_back("ConnectAll"); }
  void OnRunStart() override { events.emplace_back("OnRunStart"); }
  void OnRunEnd() override { events.emplace_back("OnRunEnd"); }
  void OnIterationStart() override {
    events.emplace_back("OnIterationStart");
    if (beforeIteration) beforeIteration();
  }
  bool OnIteration(IterationInfo& info) override {
    events.emplace_back("OnIteration");
    infos.push_back(info);
    return judge && judge(info);
  }
  bool OnIterationWithBlunders(BlunderRoundInfo& info) override { return OnIteration(info); }
  bool OnBlunderRound(BlunderRoundInfo& info) override {
    events.emplace_back("OnBlunderRound");
    rounds.push_back(info);
    return judgeBlunders && judgeBlunders(info);
  }
  void OnGroupsDisabled(std::span<Data* const> theGroups) override {
    events.emplace_back("OnGroupsDisabled");
    disabled.emplace_back(theGroups.begin(), theGroups.end());
  }
  void OnGroupsEnabled(std::span<Data* const> theGroups) override {
    events.emplace_back("OnGroupsEnabled");
    enabled.emplace_back(theGroups.begin(), theGroups.end());
  }
};

}  // namespace vermo::test
