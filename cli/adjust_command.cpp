#include "adjust_command.h"

#include "active_groups.h"
#include "bundle_job.h"
#include "csv_writer.h"
#include "datum_check.h"
#include "diagnostics.h"
#include "exit_status.h"
#include "failure_help.h"
#include "job_file.h"
#include "job_folder.h"
#include "job_input.h"
#include "network_survey.h"
#include "output_place.h"
#include "result_files.h"
#include "run.h"
#include "summary.h"
#include "table_registry.h"
#include "text_encoding.h"
#include "timing.h"

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <string>
#include <system_error>
#include <vector>
#include <xyz_api.h>

namespace cardo {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> ResultNames() {
  std::vector<std::string> names = {kSummaryName, kFailedProtocolName};
  for (const auto& table : MakeTables()) names.push_back(table->FileName());
  return names;
}

void WriteTables(const JobTables& tables, const WriteContext& context, ResultFiles& results) {
  for (const auto& table : tables.tables) {
    ResultFile file(results.Add(table->FileName()));
    CsvWriter writer(file);
    table->Write(writer, context);
    file.Close();
  }
}

void WriteSummary(const Summary& summary, ResultFiles& results) {
  ResultFile file(results.Add(kSummaryName));
  file.Write(SummaryJson(summary));
  file.Close();
}

// The library runs on if it cannot write its protocol, or only a part of it.
void CheckProtocolFile(const fs::path& path, std::uintmax_t size, const OutputPlace& place) {
  std::error_code error;
  std::uintmax_t written = fs::file_size(path, error);
  if (error) written = 0;
  if (written == size) return;
  const fs::path wanted = place.protocol.value_or(place.folder / kProtocolName);
  throw ResultError(fmt::format("{} cannot be written: {} of {} bytes, the disk may be full",
                                Quoted(wanted.string()),
                                written,
                                size));
}

// Groups that the run left out although the job has them active, with the usual reasons as they
// were before the run.
void TellLostGroups(const GroupIds& lost,
                    const NetworkSurvey& before,
                    const JobFile& file,
                    const Console& console) {
  if (CountOf(lost) == 0) return;
  fmt::print(console.err,
             "cardo-bundle: {}{}",
             DescribeLostGroups(lost, file),
             DescribeSuspects(before, file));
}

void TellLineCoordinatesWithoutResults(void* job, const Console& console) {
  const int rays = XYZ_GetPictureCoordCnt(job);
  const int lines = XYZ_GetLinePictureCoordCnt(job);
  if (lines <= rays) return;
  fmt::print(console.err,
             "cardo-bundle: the library reads back as many line image coordinates as there are "
             "image coordinates: rows {} to {} of line_image_coordinates.csv took part, but have "
             "no results of their own\n",
             rays + 1,
             lines);
}

// A run takes such an S0 for zero: it has converged whatever the last changes were, and ends
// without another outlier test.
void TellS0BelowFloor(void* job, const JobFile& file, const Console& console) {
  double s0 = 0.0;
  XYZ_GetResult(job, eXYZ_ResultS0, &s0);
  const double floor = std::get<double>(ValueOf(file.parameters, "s0_floor"));
  if (s0 == 0.0 || std::abs(s0) > floor) return;
  fmt::print(console.err,
             "cardo-bundle: S0 = {:.3g} is not above s0_floor = {:.3g} and counts as zero: the run "
             "ended before it had converged as far as asked for. Set s0_floor far below "
             "s0_apriori\n",
             s0,
             floor);
}

bool HasNumbers(void* job) {
  double s0 = 0.0;
  XYZ_GetResult(job, eXYZ_ResultS0, &s0);
  return std::isfinite(s0);
}

int RunAndWrite(const AdjustOptions& options,
                const JobFile& file,
                const JobTables& tables,
                const OutputPlace& place,
                void* job,
                const Console& console,
                Timing& timing) {
  ResultFiles results(place.folder);
  const fs::path protocol =
      place.protocol ? results.AddElsewhere(*place.protocol) : results.Add(kProtocolName);
  XYZ_SetNewProtocolFile(job, protocol.c_str());

  const DatumCheck check = CheckDatum(job);
  if (check.Objects() && !options.quiet)
    fmt::print(console.err, "cardo-bundle: the check objects: {}", DescribeDatum(check, file));
  const BeforeRun before{check.verdict, ActiveGroups(job)};
  const NetworkSurvey survey = SurveyNetwork(job, tables);

  const RunOutcome outcome = Run(job, console, console.isTerminal && !options.quiet, timing);
  // Also a run that ended on its own while the user wanted it to.
  Poll(console);
  // Figures that are no numbers pass every limit of a run; as results they are worth nothing.
  if (outcome.status != eXYZ_Ok || !HasNumbers(job)) {
    fmt::print(console.err, "cardo-bundle: {}", DescribeFailure(outcome, survey, file));
    const GroupIds lost = Without(before.groups, ActiveGroups(job));
    if (CountOf(lost) != 0)
      fmt::print(console.err, "Before it failed {}", DescribeLostGroups(lost, file));
    CheckProtocolFile(protocol, outcome.protocolSize, place);
    // The results of an earlier run stay as they are; only the protocol is new.
    if (!place.protocol) results.Rename(protocol, kFailedProtocolName);
    results.Commit();
    fmt::print(console.err,
               "Protocol of the failed run: {}\n",
               Printable(place.protocol.value_or(place.folder / kFailedProtocolName).string()));
    return kExitRunFailed;
  }

  CheckProtocolFile(protocol, outcome.protocolSize, place);
  const StopWatch writing;
  const Summary summary = Summarize(job, file, before, outcome);
  if (!options.quiet) {
    TellLostGroups(summary.lostGroups, survey, file, console);
    TellLineCoordinatesWithoutResults(job, console);
    TellS0BelowFloor(job, file, console);
  }
  WriteTables(tables, {job, [&console] { Poll(console); }}, results);
  WriteSummary(summary, results);
  results.AddRemoval(kFailedProtocolName);
  Poll(console);
  results.Commit();
  timing.writing = writing.Seconds();
  if (!options.quiet) {
    fmt::print(console.out, "{}{}", console.isTerminal ? "\n" : "", SummaryText(summary));
    fmt::print(console.out, "\nResults: {}\n", Printable(place.folder.string()));
  }
  return kExitOk;
}

}  // namespace

int Adjust(const AdjustOptions& options, const Console& console) {
  try {
    const StopWatch total;
    Timing timing;
    Diagnostics diagnostics;
    const JobFile file = ReadSettings(options.job, options.settings, diagnostics);
    const OutputPlace place =
        FindOutputPlace(options.job, options.output, options.protocol, ResultNames(), diagnostics);
    if (!diagnostics.IsEmpty()) return TellMistakes(diagnostics, console);

    const BundleJob job;
    const JobTables tables =
        ReadTables(options.job, file, job.Handle(), diagnostics, [&console] { Poll(console); });
    if (!diagnostics.IsEmpty()) return TellMistakes(diagnostics, console);

    ApplyParameters(job.Handle(), file.parameters);
    Poll(console);
    timing.reading = total.Seconds();
    const int status = RunAndWrite(options, file, tables, place, job.Handle(), console, timing);
    timing.total = total.Seconds();
    if (options.timing) fmt::print(console.out, "\n{}", TimingText(timing));
    return status;
  } catch (const Cancelled&) {
    fmt::print(console.err, "cardo-bundle: cancelled, nothing has been written\n");
    return kExitCancelled;
  } catch (const ResultError& error) {
    fmt::print(console.err, "cardo-bundle: {}\n", error.what());
    return kExitRunFailed;
  }
}

}  // namespace cardo
