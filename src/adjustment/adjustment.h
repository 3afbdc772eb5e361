#pragma once

#include "adjustment/adjustment_settings.h"
#include "adjustment/adjustment_statistics.h"
#include "adjustment/iteration_info.h"
#include "linalg/normal_system.h"
#include "observations/equation_block.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace vermo {

class Bedingung;
class Data;
class Messung;
struct BlunderRoundInfo;

// An observation in the adjustment's list, not owned.
struct MessungEntry {
  std::uint32_t fAusreisserZaehler = 0;  // how often it was newly marked as outlier
  Messung* messung = nullptr;
};

// The driver of the iterative least-squares adjustment: numbers the unknowns, assembles and
// solves the normal equations, applies the increments, computes S0, judges convergence and
// computes the accuracies. It sees the network only through its lists of groups, observations and
// constraints and through its hooks, and the linear algebra only through NormalSystem.
//
//   N dx = n,  N = A^T P A,  n = A^T P l,  l = measured - computed at the present values
//
// All failures leave Run as KlException; the loop catches nothing itself. After a failure the
// groups hold the values of the last completed update.
class Adjustment {
 public:
  // With the engine on blocks, or with another one.
  Adjustment();
  explicit Adjustment(std::unique_ptr<NormalSystem> system);
  virtual ~Adjustment();
  Adjustment(const Adjustment&) = delete;
  Adjustment& operator=(const Adjustment&) = delete;

  [[nodiscard]] AdjustmentSettings& Settings() noexcept { return fSettings; }
  [[nodiscard]] const AdjustmentSettings& Settings() const noexcept { return fSettings; }
  [[nodiscard]] const AdjustmentStatistics& Statistics() const noexcept { return fStatistik; }
  // Sum of the redundancy numbers of all used components, of the last accuracy computation.
  [[nodiscard]] double RedundanzSumme() const noexcept { return fRedundanzSumme; }
  // The engine with the last system; its cofactor blocks stay valid after the run.
  [[nodiscard]] const NormalSystem& System() const noexcept { return *fSystem; }

  // The whole loop. Ends without a failure when an iteration has converged or when the iteration
  // limit is reached, then without accuracies unless the last iteration converged. Throws
  // KlException: -12004 S0 too large, -12005 a hook stopped the run, -12006 no unknowns,
  // -12007 a group in the system has no columns, -12009 no progress, -12011 no observations,
  // -13001 a negative variance, -39007 a singular system.
  virtual int Run();

 protected:
  // Calls Connect of every group and PrepareObservation of every observation.
  virtual void ConnectAll() {}

  // Fill fMessungen, fDaten and fBedingungen. Called in this order, once per run.
  virtual void CollectMessungen() = 0;
  virtual void CollectData() = 0;
  virtual void CollectBedingungen() = 0;

  virtual void OnRunStart() {}
  virtual void OnRunEnd() {}
  virtual void OnIterationStart() {}
  // Solution and statistics of an iteration are known and not yet judged. True stops the run.
  virtual bool OnIteration(IterationInfo& /*info*/) { return false; }
  // An iteration together with the outliers known so far; the loop never calls it.
  virtual bool OnIterationWithBlunders(BlunderRoundInfo& info) = 0;
  // An adjustment has converged and its outlier test is done; with the test off the record holds
  // zeros and nothing else. True stops the run.
  virtual bool OnBlunderRound(BlunderRoundInfo& info) = 0;
  // The ray rule or the solvability check took groups out, or the ray rule took them in again.
  virtual void OnGroupsDisabled(std::span<Data* const> groups) = 0;
  virtual void OnGroupsEnabled(std::span<Data* const> groups) = 0;

  // Numbers the unknowns, drops unusable observations for good and assembles the system afresh.
  // Returns the number of observation components.
  virtual std::uint32_t BuildNormalEquations();
  virtual void ApplySolution();
  // S0, redundancy and mean change of the solution for u unknowns and b constraint rows. Residuals
  // are those of the assembly.
  virtual void ComputeStatistics(std::uint32_t unknowns, std::uint32_t constraints);

  std::vector<MessungEntry> fMessungen;
  std::vector<Data*> fDaten;             // in the order of their columns, not owned
  std::vector<Bedingung*> fBedingungen;  // in the order of their rows, not owned

 private:
  // In walks over groups that count their observations these are fetched so many groups ahead.
  static constexpr std::size_t kGroupsAhead = 8;

  // A build pass is repeated until neither the ray rule nor the solvability check takes a group
  // out. Returns the number of unknowns.
  std::uint32_t Build();
  // Tells the engine which columns belong together.
  void SetLayout(std::uint32_t size);
  // Fetches what the observations some places behind k need.
  void FetchAhead(std::size_t k) const;
  // Tells the engine which groups share an observation or a constraint.
  void TellCouplings(std::uint32_t unknowns, std::uint32_t rows);
  // Tells the engine how far each group's rows will reach, so that no row grows while observations
  // come in.
  void ReserveRows();
  // Disables variable points with too few rays and enables those that have enough again.
  // Returns how many were disabled.
  std::uint32_t ApplyMinimumRays();
  // Judges the diagonal block of every group; the worst one is taken out when it is close to
  // singular. False when a group was taken out.
  bool CheckSolvability();
  // How much a solution would still change, as roots of rhs(i) solution(i): their mean square over
  // the redundancy and the largest.
  struct Change {
    double average = 0.0;
    double peak = 0.0;
  };
  [[nodiscard]] Change ChangeOfSolution() const;
  [[nodiscard]] bool HasConverged(const Change& change) const;
  // Whether the next solution will likely be the last one, after two with these averages.
  [[nodiscard]] bool ExpectsConvergence(double before, double last) const;
  // Weighted squares of the residuals of used observations, and how many components they have. The
  // assembly adds them up while it has the observations at hand.
  struct ResidualSums {
    double squares = 0.0;
    std::uint32_t components = 0;

    void Add(const Messung& messung);
  };
  // Standard deviations of all groups and redundancy numbers of all observations.
  void ComputeAccuracy(double s0);
  // Computes the test values of all active observations, marks those at or over the threshold of
  // the round as outliers and readmits those that have fallen far enough, each at most once.
  // Returns how many lie at or over the threshold, those marked before included. Throws KlException
  // -12003 for limits in the wrong order.
  std::uint32_t BlunderTest(BlunderRoundInfo& info);
  [[nodiscard]] IterationInfo MakeIterationInfo(double buildSeconds, double solveSeconds) const;

  AdjustmentSettings fSettings;
  std::unique_ptr<NormalSystem> fSystem;
  double fRedundanzSumme = 0.0;
  AdjustmentStatistics fStatistik;
  std::optional<ResidualSums> fResidualSums;  // of the assembly that was solved last
  bool fGeaendert = false;                    // the set of used elements has changed
  EquationBlock fEquations;
  SystemLayout fLayout;
  std::vector<double> fBlock;  // one group's, while it is judged
};

}  // namespace vermo
