#pragma once

#include "adjustment/fake_normal_system.h"
#include "adjustment/linear_network.h"

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <utility>
#include <vector>

namespace vermo::test {

// What one iteration shall find. The defaults are an iteration that does not converge.
struct Step {
  double s0 = 1.0;
  double change = 1.0;    // the mean change, and every element of the solution
  double t = 1.0;         // |rhs times solution| of one row, 0 in the others
  std::uint32_t row = 0;  // that row
};

inline constexpr double kConverged = 0.0;  // as Step::t

// An adjustment of one unknown and two observations, so of redundancy 1, without the outlier test,
// whose figures follow a script, one step per iteration; the last step repeats. The residuals are
// (s0, 0): with redundancy 1 the script's s0 comes out exactly.
class ScriptedLoop {
 public:
  ScriptedLoop(std::initializer_list<Step> theSteps, std::uint32_t unknowns = 1)
      : ScriptedLoop(std::vector<Step>(theSteps), unknowns) {}
  explicit ScriptedLoop(std::vector<Step> theSteps, std::uint32_t unknowns = 1)
      : steps(std::move(theSteps)), group(std::vector<double>(unknowns, 0.0)) {
    auto owner = std::make_unique<FakeNormalSystem>();
    system = owner.get();
    adjustment = std::make_unique<TestAdjustment>(std::move(owner));
    system->events = &adjustment->events;
    group.events = &adjustment->events;
    adjustment->Settings().SetBlunderTest(false);
    adjustment->groups = {&group};
    adjustment->messungen = {&first, &second};
    adjustment->beforeIteration = [this] { Next(); };
  }
  ScriptedLoop(const ScriptedLoop&) = delete;
  ScriptedLoop& operator=(const ScriptedLoop&) = delete;

  [[nodiscard]] AdjustmentSettings& Settings() { return adjustment->Settings(); }
  [[nodiscard]] const AdjustmentStatistics& Statistics() const { return adjustment->Statistics(); }
  std::int32_t Run() { return adjustment->RunCode(); }
  // Iterations that were begun.
  [[nodiscard]] std::uint32_t Iterations() const { return fIterations; }
  [[nodiscard]] bool HasAccuracy() const { return system->inversions > 0; }

  std::vector<Step> steps;
  LinearGroup group;
  // Rows without coefficients: the values of the group do not reach the residuals.
  LinearMessung first{{}, 0.0};
  LinearMessung second{{}, 0.0};
  FakeNormalSystem* system;
  std::unique_ptr<TestAdjustment> adjustment;

 private:
  void Next() {
    const Step& step = steps[std::min<std::size_t>(fIterations, steps.size() - 1)];
    ++fIterations;
    first.value = -step.s0;
    const std::size_t size = group.values.size() + system->multipliers;
    system->solution.assign(size, step.change);
    system->diagonalCofactors.assign(size, 1.0);
    system->rhs.assign(size, 0.0);
    system->rhs[step.row] = step.t / step.change;
  }

  std::uint32_t fIterations = 0;
};

}  // namespace vermo::test
