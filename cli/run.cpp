#include "run.h"

#include "text_encoding.h"

#include <array>
#include <charconv>
#include <exception>
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <string_view>
#include <xyz_api.h>

namespace cardo {
namespace {

// The failure stands at the end of a protocol, with the end line behind it.
constexpr std::size_t kKeptProtocol = 4096;

class RunMonitor {
 public:
  RunMonitor(const Console& console, bool showProgress, Timing& timing)
      : fConsole(console), fTiming(timing), fShowProgress(showProgress) {}

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
      AddIterationTimes(text, self.fTiming);
      self.fProtocol += text;
      if (self.fProtocol.size() > 2 * kKeptProtocol) {
        self.fProtocol.erase(0, self.fProtocol.size() - kKeptProtocol);
      }
    } catch (...) {
      self.fException = std::current_exception();
    }
  }

  [[nodiscard]] double Seconds() const { return fWatch.Seconds(); }

  void RethrowFailure() const {
    if (fException) std::rethrow_exception(fException);
  }

  [[nodiscard]] int Iterations() const noexcept { return fIterations; }
  [[nodiscard]] const std::string& Protocol() const noexcept { return fProtocol; }

 private:
  bool Progress(const sXYZ_CBProgressInfo& info) {
    fIterations = info.Iteration;
    if (fShowProgress) {
      if (!fHeadIsShown) {
        fmt::print(fConsole.out,
                   "{:>9} {:>14} {:>14} {:>9} {:>10}\n",
                   "iteration",
                   "S0",
                   "norm",
                   "outliers",
                   "elapsed");
        fHeadIsShown = true;
      }
      fmt::print(fConsole.out,
                 "{:>9} {:>14.6g} {:>14.6g} {:>9} {:>8.1f} s\n",
                 info.Iteration,
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
  bool fHeadIsShown = false;
  int fIterations = 0;
  StopWatch fWatch;
  std::string fProtocol;
  std::exception_ptr fException;
};

}  // namespace

std::optional<ProtocolFailure> FindFailure(const std::string& protocol) {
  static constexpr std::array<std::string_view, 2> kHeads = {"<h3>Abbruch: Fehler ",
                                                             "<h3>Abbort: Error "};
  for (const std::string_view head : kHeads) {
    const std::size_t found = protocol.rfind(head);
    if (found == std::string::npos) continue;
    std::string_view rest(protocol);
    rest.remove_prefix(found + head.size());
    int code = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), code);
    if (error != std::errc{}) continue;
    rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    if (rest.starts_with(" - ")) rest.remove_prefix(3);
    return ProtocolFailure{code, Utf8FromLatin1(rest.substr(0, rest.find("</h3>")))};
  }
  return std::nullopt;
}

RunOutcome Run(void* job, const Console& console, bool showProgress, Timing& timing) {
  RunMonitor monitor(console, showProgress, timing);
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
  if (outcome.status != eXYZ_Ok) outcome.failure = FindFailure(monitor.Protocol());
  return outcome;
}

}  // namespace cardo
