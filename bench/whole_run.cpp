// Runs a job folder once and prints the times of its stages as a line of JSON:
//
//   cardo_whole_run JOB [--set name=value]... [--protocol]
//
// Timed is the adjustment alone, XYZ_CalcBundle, behind the reading of the tables and without the
// outlier test. Nobody hears the tables of the results, so they are not composed; with --protocol
// they are, and go to /dev/null. One process makes one run, so that every run meets the same
// memory.

#include "bundle_job.h"
#include "console.h"
#include "diagnostics.h"
#include "job_file.h"
#include "job_folder.h"
#include "job_input.h"
#include "parameters.h"
#include "peak_memory.h"
#include "timing.h"

#include <CLI/CLI.hpp>
#include <exception>
#include <fmt/format.h>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>
#include <xyz_api.h>

namespace {

using namespace cardo;

// Takes the times of a run from its texts and from the moments at which they come. Without the
// protocol it leaves before the tables of the results: nothing would hear them any more.
class RunClock {
 public:
  explicit RunClock(bool hearsTables) : fHearsTables(hearsTables) {}

  static void OnProtocol(void* job, char* text, void* self) noexcept {
    auto& clock = *static_cast<RunClock*>(self);
    clock.Take(text);
    if (!clock.fHearsTables && IsOfTestRound(text)) XYZ_SetProtocolCallback(job, nullptr, nullptr);
  }

  // Of the run that has just ended. An iteration is one from the second on; what the first takes
  // beyond that counts as preparation, all that lies behind the last one and before the tables as
  // accuracy. Throws std::runtime_error if tables came that were not to be heard.
  [[nodiscard]] nlohmann::json Times() const {
    const double run = fWatch.Seconds();
    if (fHearsTables != (fFinished > 0.0))
      throw std::runtime_error(fHearsTables ? "no tables" : "tables came unasked");
    const double finished = fHearsTables ? fFinished : run;
    const int later = fIterations - 1;
    const double assembly = later > 0 ? fLater.assembly / later : fFirst.assembly;
    const double iteration =
        later > 0 ? (fIterated - fFirstIterated) / later : fFirst.assembly + fFirst.solution;
    return {{"iterations", fIterations},
            {"assembly", assembly},
            {"iteration", iteration},
            {"preparation", fFirstIterated - iteration},
            {"accuracy", finished - fIterated},
            {"protocol", run - finished},
            {"run", run}};
  }

 private:
  // The figures of the outlier test come, empty without it, when the accuracy is known.
  static bool IsOfTestRound(std::string_view text) {
    return text.starts_with("\n\nAnzahl") || text.starts_with("\n\nNumber");
  }

  // The times of an iteration come behind seven blanks and a line end, the tables of the results
  // behind a heading of the second order.
  void Take(std::string_view text) {
    if (fFinished > 0.0) return;
    if (text.starts_with("<h2>")) fFinished = fWatch.Seconds();
    if (!text.starts_with("       \n")) return;
    ++fIterations;
    fIterated = fWatch.Seconds();
    if (fIterations == 1) fFirstIterated = fIterated;
    AddIterationTimes(text, fIterations == 1 ? fFirst : fLater);
  }

  bool fHearsTables;
  StopWatch fWatch;
  Timing fFirst, fLater;  // stages of the first iteration and of the others
  int fIterations = 0;
  double fFirstIterated = 0.0;  // the first iteration ended
  double fIterated = 0.0;       // the last iteration ended
  double fFinished = 0.0;       // the tables of the protocol began
};

template <typename Value>
Value Result(void* job, eXYZ_Result which) {
  Value value{};
  XYZ_GetResult(job, which, &value);
  return value;
}

int RunOnce(const std::string& folder, std::vector<std::string> settings, bool withProtocol) {
  settings.emplace_back("blunder_test=off");
  const Console console{std::cout, std::cerr};
  Diagnostics diagnostics;
  const JobFile file = ReadSettings(folder, settings, diagnostics);
  if (!diagnostics.IsEmpty()) return TellMistakes(diagnostics, console);
  const BundleJob job;
  {
    const JobTables tables = ReadTables(folder, file, job.Handle(), diagnostics, [] {});
    if (!diagnostics.IsEmpty()) return TellMistakes(diagnostics, console);
  }
  ApplyParameters(job.Handle(), file.parameters);
  // Nothing can be opened beneath a file.
  const std::string nowhere = folder + "/job.toml/protocol.htm";
  XYZ_SetNewProtocolFile(job.Handle(), withProtocol ? "/dev/null" : nowhere.c_str());

  RunClock clock(withProtocol);
  XYZ_SetProtocolCallback(job.Handle(), RunClock::OnProtocol, &clock);
  const int status = XYZ_CalcBundle(job.Handle());
  if (status != eXYZ_Ok) {
    fmt::print(stderr, "{}: the run ended with {}\n", folder, StatusName(status));
    return 1;
  }
  nlohmann::json figures = clock.Times();
  void* const handle = job.Handle();
  const double s0Apriori = std::get<double>(ValueOf(file.parameters, "s0_apriori"));
  figures["images"] = XYZ_GetExteriorOrientCnt(handle);
  figures["points"] = XYZ_GetObjectCoordCnt(handle);
  figures["image_coordinates"] = XYZ_GetPictureCoordCnt(handle);
  figures["unknowns"] = Result<int>(handle, eXYZ_ResultUnknowns);
  figures["redundancy"] = Result<int>(handle, eXYZ_ResultRedundancy);
  figures["redundancy_sum"] = Result<double>(handle, eXYZ_ResultRedundancyValue);
  figures["s0_ratio"] = Result<double>(handle, eXYZ_ResultS0) / s0Apriori;
  figures["peak_mib"] = bench::PeakMebibytes();
  fmt::print("{}\n", figures.dump());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Runs a job folder once and prints the times of its stages.");
  std::string folder;
  std::vector<std::string> settings;
  app.add_option("job", folder, "job folder")->required();
  app.add_option("--set", settings, "name=value, overrides a key of job.toml");
  bool withProtocol = false;
  app.add_flag("--protocol", withProtocol, "composes the protocol");
  CLI11_PARSE(app, argc, argv);
  try {
    return RunOnce(folder, settings, withProtocol);
  } catch (const std::exception& failure) {
    fmt::print(stderr, "cardo_whole_run: {}\n", failure.what());
    return 1;
  }
}
