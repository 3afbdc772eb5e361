#include "adjustment/adjustment.h"

#include "adjustment/blunder_round_info.h"
#include "adjustment/no_progress_monitor.h"
#include "checks/failure_codes.h"
#include "checks/kl_exception.h"
#include "linalg/block_system.h"
#include "observations/bedingung.h"
#include "observations/messung.h"
#include "unknowns/data.h"

#include <chrono>
#include <cmath>
#include <limits>
#include <utility>

namespace vermo {
namespace {

// S0 beyond this is refused whatever the caller's limit is.
constexpr double kLargestS0 = 1e20;
constexpr double kSmallestScale = 1e-20;
// The largest single change may exceed the mean change by this factor.
constexpr double kPeakFactor = 100.0;
// Changes do not shrink by the same factor again and again but ever faster: the next one is likely
// smaller than their ratio promises, by this much at least.
constexpr double kFasterThanLinear = 5.0;

// Wall-clock time with a resolution of one millisecond.
class TimeStamp {
 public:
  static TimeStamp Now() {
    using std::chrono::milliseconds, std::chrono::system_clock;
    return TimeStamp(
        std::chrono::floor<milliseconds>(system_clock::now().time_since_epoch()).count());
  }

  [[nodiscard]] double SecondsSince(const TimeStamp& start) const {
    return static_cast<double>(fMilliseconds - start.fMilliseconds) / 1000.0;
  }

 private:
  explicit TimeStamp(std::int64_t milliseconds) : fMilliseconds(milliseconds) {}

  std::int64_t fMilliseconds;
};

}  // namespace

Adjustment::Adjustment() : Adjustment(std::make_unique<BlockSystem>()) {}

Adjustment::Adjustment(std::unique_ptr<NormalSystem> system) : fSystem(std::move(system)) {}

Adjustment::~Adjustment() = default;

int Adjustment::Run() {
  CollectMessungen();
  CollectData();
  CollectBedingungen();
  // Columns of an earlier run may belong to a system that was never solved.
  for (Data* group : fDaten) group->SetFirstUnknown(Data::kNoColumn);
  const auto limit = static_cast<std::uint32_t>(fSettings.fMaxIterations);
  std::uint32_t blunderRounds = 0;
  std::uint32_t lastOutliers = 0;
  OnRunStart();
  ConnectAll();
  fStatistik = {};
  double average = 0.0;  // change of the last solution, and of the one before
  double averageBefore = 0.0;
  NoProgressMonitor monitor(fSettings.fProgressWindow, fSettings.fProgressTolerance);

  for (std::uint32_t pass = 0; pass < limit; ++pass) {
    fStatistik.fIteration = fStatistik.fIterationGesamt = pass + 1;
    const TimeStamp start = TimeStamp::Now();
    OnIterationStart();
    const std::uint32_t unknowns = Build();
    fStatistik.fAusreisserRunde = blunderRounds;
    const TimeStamp built = TimeStamp::Now();

    fSystem->ExpectInvertCofactors(ExpectsConvergence(averageBefore, average));
    fSystem->FactorizeAndSolve(fSettings.fPivotSearch != 0);
    ApplySolution();
    for (Bedingung* constraint : fBedingungen) constraint->StoreMultipliers(fSystem->Solution());
    ComputeStatistics(unknowns, fSystem->Size() - unknowns);
    const TimeStamp solved = TimeStamp::Now();

    fStatistik.fAusreisser = lastOutliers;
    IterationInfo info = MakeIterationInfo(built.SecondsSince(start), solved.SecondsSince(built));
    if (OnIteration(info)) throw KlException(failure::kAbortByUser);

    const double s0 = fStatistik.fS0;
    if (std::fabs(s0) > kLargestS0) throw KlException(failure::kS0TooLarge);
    if (!monitor.Feed(s0, fStatistik.fMittlereAenderung)) throw KlException(failure::kNoProgress);
    if (std::fabs(s0) > fSettings.fS0Limit) throw KlException(failure::kS0TooLarge);
    const Change change = ChangeOfSolution();
    averageBefore = std::exchange(average, change.average);
    if (!HasConverged(change)) continue;

    fSystem->InvertCofactors();
    ComputeAccuracy(s0);
    BlunderRoundInfo round{info, 0.0, 0.0, 0.0, {}, {}};
    if (fSettings.BlunderTest()) {
      ++blunderRounds;
      lastOutliers = BlunderTest(round);
      monitor.Clear();
    }
    fStatistik.fTestwertKritisch = round.testwertKritisch;
    fStatistik.fTestwertAusreisser = round.testwertAusreisser;
    fStatistik.fTestwertReaktivierung = round.testwertReaktivierung;
    if (OnBlunderRound(round)) throw KlException(failure::kAbortByUser);

    if (!fSettings.BlunderTest()) break;
    if (std::fabs(s0) > fSettings.fS0Limit) throw KlException(failure::kS0TooLarge);
    if (fSettings.fS0Floor > std::fabs(s0) || !fGeaendert) break;
    fGeaendert = false;
    average = averageBefore = 0.0;
  }
  OnRunEnd();
  fStatistik.fAusreisser = lastOutliers;
  fStatistik.fGesamtRedundanz = fRedundanzSumme;
  return 0;
}

// While groups go, one at a time, only their own blocks are looked at.
std::uint32_t Adjustment::Build() {
  bool isWhole = true;
  for (;;) {
    if (!fSystem->SetDiagonalOnly(!isWhole)) isWhole = true;
    const std::uint32_t components = BuildNormalEquations();
    const std::uint32_t disabled = fSettings.fMinRays != 0 ? ApplyMinimumRays() : 0;
    bool stable = !fSettings.SolvabilityCheck() || CheckSolvability();
    if (disabled != 0) stable = false;
    if (components == 0) throw KlException(failure::kNoMessungen);
    const std::uint32_t unknowns = fSystem->Unknowns();
    if (unknowns < 1) throw KlException(failure::kNoUnknowns);
    if (stable && isWhole) return unknowns;
    isWhole = stable;
  }
}

Adjustment::Change Adjustment::ChangeOfSolution() const {
  const std::span<const double> rhs = fSystem->Rhs();
  const std::span<const double> solution = fSystem->Solution();
  double sum = 0.0;
  double top = 0.0;
  for (std::size_t i = 0; i < solution.size(); ++i) {
    const double t = std::fabs(rhs[i] * solution[i]);
    sum += t;
    if (t > top) top = t;
  }
  // The redundancy is read as unsigned: a negative one makes the average very small.
  return {std::sqrt(sum / static_cast<std::uint32_t>(fStatistik.fRedundanz)), std::sqrt(top)};
}

bool Adjustment::HasConverged(const Change& change) const {
  double scale = fStatistik.fS0;
  if (change.average > scale) scale = change.average;
  double relativePeak = 0.0;
  double relativeAvg = 0.0;
  if (scale > kSmallestScale && std::fabs(scale) > fSettings.fS0Floor) {
    relativePeak = change.peak / scale;
    relativeAvg = change.average / scale;
  }
  return fSettings.fConvergenceLimit * kPeakFactor > relativePeak &&
         fSettings.fConvergenceLimit > relativeAvg;
}

bool Adjustment::ExpectsConvergence(double before, double last) const {
  return last < before &&
         last * (last / before) < kFasterThanLinear * fSettings.fConvergenceLimit * fStatistik.fS0;
}

void Adjustment::ApplySolution() {
  for (Data* group : fDaten) group->ApplySolution(fSystem->Solution());
}

void Adjustment::ResidualSums::Add(const Messung& messung) {
  if (!messung.IsUsed()) return;
  for (const MessungWert& wert : messung.CollectComponents()) {
    squares += wert.WeightedSquare();
    ++components;
  }
}

void Adjustment::ComputeStatistics(std::uint32_t unknowns, std::uint32_t constraints) {
  ResidualSums sums;
  if (fResidualSums)
    sums = *fResidualSums;
  else
    for (const MessungEntry& entry : fMessungen) sums.Add(*entry.messung);
  fResidualSums.reset();
  const std::uint32_t n = sums.components;
  const auto r = static_cast<std::int32_t>(n - unknowns + constraints);
  const double s0 = r > 0 ? std::sqrt(sums.squares / r) : 0.0;

  // The increment over the cofactor itself, not over its root: the measure is meant so.
  double mean = 0.0;
  if (unknowns > 0) {
    const std::span<const double> cofactors = fSystem->DiagonalCofactors();
    const std::span<const double> solution = fSystem->Solution();
    double total = 0.0;
    for (std::uint32_t i = 0; i < unknowns; ++i) {
      const double q = std::fabs(cofactors[i]);
      const double term = s0 * s0 * q == 0.0 ? solution[i] : solution[i] / q;
      total += term * term;
    }
    mean = total / unknowns;
  }

  fStatistik.fUnbekannte = unknowns;
  fStatistik.fBeobachtungen = n;
  fStatistik.fBedingungsAnzahl = constraints;
  fStatistik.fRedundanz = r;
  fStatistik.fGesamtRedundanz = r;
  fStatistik.fMittlereAenderung = std::sqrt(mean);
  fStatistik.fS0 = s0;
}

void Adjustment::ComputeAccuracy(double s0) {
  for (std::size_t i = 0; i < fDaten.size(); ++i) {
    if (i + kGroupsAhead < fDaten.size()) fDaten[i + kGroupsAhead]->FetchMessungen();
    fDaten[i]->StoreAccuracy(*fSystem, s0);
  }
  double sum = 0.0;
  for (std::size_t k = 0; k < fMessungen.size(); ++k) {
    FetchAhead(k);
    const MessungEntry& entry = fMessungen[k];
    entry.messung->ComputeRedundancy(*fSystem, fEquations);
    if (!entry.messung->IsUsed()) continue;
    for (const MessungWert& wert : std::as_const(*entry.messung).CollectComponents())
      sum += wert.Redundanz();
  }
  fRedundanzSumme = sum;
}

IterationInfo Adjustment::MakeIterationInfo(double buildSeconds, double solveSeconds) const {
  IterationInfo info;
  info.s0 = fStatistik.fS0;
  info.mittlereAenderung = fStatistik.fMittlereAenderung;
  info.aufbauSekunden = buildSeconds;
  info.loesungSekunden = solveSeconds;
  info.iterationGesamt = fStatistik.fIterationGesamt;
  info.iteration = fStatistik.fIteration;
  info.ausreisserRunde = fStatistik.fAusreisserRunde;
  info.beobachtungen = fStatistik.fBeobachtungen;
  info.unbekannte = fStatistik.fUnbekannte;
  info.bedingungen = fStatistik.fBedingungsAnzahl;
  info.redundanz = fStatistik.fRedundanz;
  return info;
}

}  // namespace vermo
