#include "run.h"

#include <cstdint>
#include <cstring>
#include <exception>
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <xyz_api.h>

namespace cardo {
namespace {

class RunMonitor {
 public:
  RunMonitor(const Console& console, bool showProgress, bool testsBlunders, Timing& timing)
      : fConsole(console),
        fTiming(timing),
        fShowProgress(showProgress),
        fTestsBlunders(testsBlunders) {}

  // Nothing may leave a callback but its result; an exception cancels the run and is thrown
  // again by RethrowFailure.
  static int OnProgress(void* /*job*/, sXYZ_CBProgressInfo* info, void* monitor) noexcept {
    auto& self = *static_cast<RunMonitor*>(monitor);
    try {
      return self.Progress(*info) ? 0 : 1;
    } catch (...) {
      self.fException = std::current_exception();
      return 1;
    }
  }

  static void OnProtocol(void* /*job*/, char* text, void* monitor) noexcept {
    auto& self = *static_cast<RunMonitor*>(monitor);
    try {
      self.fProtocolSize += std::strlen(text);
      self.fProtocol.Take(text, self.fTiming);
    } catch (...) {
      self.fException = std::current_exception();
    }
  }

  [[nodiscard]] double Seconds() const { return fWatch.Seconds(); }

  void RethrowFailure() const {
    if (fException) std::rethrow_exception(fException);
  }

  [[nodiscard]] int Iterations() const noexcept { return fIterations; }
  // Outlier tests so far.
  [[nodiscard]] int BlunderRounds() const noexcept {
    return fTestsBlunders ? fProtocol.BlunderRounds() : 0;
  }
  [[nodiscard]] std::uintmax_t ProtocolSize() const noexcept { return fProtocolSize; }
  [[nodiscard]] const ProtocolReader& Protocol() const noexcept { return fProtocol; }

 private:
  bool Progress(const sXYZ_CBProgressInfo& info) {
    fIterations = info.Iteration;
    if (fShowProgress) {
      if (!fHeadIsShown) {
        fmt::print(fConsole.out,
                   "{:>9} {:>6} {:>14} {:>14} {:>9} {:>10}\n",
                   "iteration",
                   "round",
                   "S0",
                   "norm",
                   "outliers",
                   "elapsed");
        fHeadIsShown = true;
      }
      fmt::print(fConsole.out,
                 "{:>9} {:>6} {:>14.6g} {:>14.6g} {:>9} {:>8.1f} s\n",
                 info.Iteration,
                 BlunderRounds(),
                 info.S0,
                 info.Norm,
                 info.BlunderCount,
                 Seconds());
      fConsole.out.flush();
    }
    if (fConsole.afterIteration) fConsole.afterIteration(info);
    return !fConsole.IsCancelled();
  }

  const Console& fConsole;
  Timing& fTiming;
  bool fShowProgress;
  bool fTestsBlunders;
  bool fHeadIsShown = false;
  int fIterations = 0;
  StopWatch fWatch;
  ProtocolReader fProtocol;
  std::uintmax_t fProtocolSize = 0;
  std::exception_ptr fException;
};

}  // namespace

RunOutcome Run(void* job, const Console& console, bool showProgress, Timing& timing) {
  int blunderTest = 0;
  XYZ_GetParam(job, eXYZ_ParamBlunderTest, &blunderTest);
  RunMonitor monitor(console, showProgress, blunderTest != 0, timing);
  XYZ_SetProgressCallback(job, RunMonitor::OnProgress, &monitor);
  XYZ_SetProtocolCallback(job, RunMonitor::OnProtocol, &monitor);
  RunOutcome outcome;
  outcome.status = XYZ_CalcBundle(job);
  XYZ_SetProgressCallback(job, nullptr, nullptr);
  XYZ_SetProtocolCallback(job, nullptr, nullptr);
  monitor.RethrowFailure();
  outcome.iterations = monitor.Iterations();
  outcome.seconds = monitor.Seconds();
  timing.accuracy = outcome.seconds - timing.assembly - timing.solution;
  const ProtocolReader& protocol = monitor.Protocol();
  outcome.blunderRounds = monitor.BlunderRounds();
  outcome.marksChanged = protocol.LastRoundChangedMarks();
  outcome.warnings = protocol.Warnings();
  outcome.cutWarnings = protocol.CutWarnings();
  outcome.protocolSize = monitor.ProtocolSize();
  if (outcome.status != eXYZ_Ok) outcome.failure = protocol.Failure();
  return outcome;
}

}  // namespace cardo
