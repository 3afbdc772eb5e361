#include "adjust_command.h"

#include "bundle_job.h"
#include "csv_writer.h"
#include "diagnostics.h"
#include "exit_status.h"
#include "failure_help.h"
#include "job_file.h"
#include "job_folder.h"
#include "network_survey.h"
#include "output_place.h"
#include "result_files.h"
#include "run.h"
#include "summary.h"
#include "table_registry.h"

#include <filesystem>
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <system_error>
#include <xyz_api.h>

namespace cardo {
namespace {

namespace fs = std::filesystem;

void Poll(const Console& console) {
  if (console.IsCancelled()) throw Cancelled();
}

int TellMistakes(const Diagnostics& diagnostics, const Console& console) {
  for (const Diagnostic& diagnostic : diagnostics.List()) {
    fmt::print(console.err, "{}\n", ToString(diagnostic));
  }
  return kExitBadInput;
}

std::vector<std::string> ResultNames() {
  std::vector<std::string> names = {kSummaryName};
  for (const auto& table : MakeTables()) names.push_back(table->FileName());
  return names;
}

JobFile ReadSettings(const AdjustOptions& options, Diagnostics& diagnostics) {
  std::error_code error;
  if (!fs::is_directory(options.job, error)) {
    diagnostics.Add({options.job},
                    fs::exists(options.job, error) ? "is a file, expected a job folder"
                                                   : "does not exist, expected a job folder");
    return {};
  }
  JobFile file = ReadJobFile(fs::path(options.job) / JobFile::kName, diagnostics);
  for (const std::string& setting : options.settings) ApplySetting(setting, file, diagnostics);
  CheckSettings(file, diagnostics);
  return file;
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

// The library runs on without a protocol if it cannot write one.
void CheckProtocolFile(const fs::path& path, const OutputPlace& place) {
  std::error_code error;
  if (fs::exists(path, error)) return;
  const fs::path wanted = place.protocol.value_or(place.folder / kProtocolName);
  throw ResultError(fmt::format("{} cannot be written", Quoted(wanted.string())));
}

int RunAndWrite(const AdjustOptions& options,
                const JobFile& file,
                const JobTables& tables,
                const OutputPlace& place,
                void* job,
                const Console& console) {
  ResultFiles results(place.folder);
  const fs::path protocol =
      place.protocol ? results.AddElsewhere(*place.protocol) : results.Add(kProtocolName);
  XYZ_SetNewProtocolFile(job, protocol.c_str());

  const RunOutcome outcome = Run(job, console, console.isTerminal && !options.quiet);
  // Also a run that ended on its own while the user wanted it to.
  Poll(console);
  CheckProtocolFile(protocol, place);
  if (outcome.status != eXYZ_Ok) {
    fmt::print(console.err, "cardo-bundle: {}", DescribeFailure(outcome, SurveyNetwork(job), file));
    // The results of an earlier run stay as they are; only the protocol is new.
    if (!place.protocol) results.Rename(protocol, kFailedProtocolName);
    results.Commit();
    fmt::print(console.err,
               "Protocol of the failed run: {}\n",
               place.protocol.value_or(place.folder / kFailedProtocolName).string());
    return kExitRunFailed;
  }

  const Summary summary = Summarize(job, file, outcome);
  WriteTables(tables, {job, [&console] { Poll(console); }}, results);
  WriteSummary(summary, results);
  results.AddRemoval(kFailedProtocolName);
  Poll(console);
  results.Commit();
  if (!options.quiet) {
    fmt::print(console.out, "{}{}", console.isTerminal ? "\n" : "", SummaryText(summary));
    fmt::print(console.out, "\nResults: {}\n", place.folder.string());
  }
  return kExitOk;
}

}  // namespace

int Adjust(const AdjustOptions& options, const Console& console) {
  try {
    Diagnostics diagnostics;
    const JobFile file = ReadSettings(options, diagnostics);
    const OutputPlace place =
        FindOutputPlace(options.job, options.output, options.protocol, ResultNames(), diagnostics);
    if (!diagnostics.IsEmpty()) return TellMistakes(diagnostics, console);

    const BundleJob job;
    const JobTables tables =
        ReadTables(options.job, file, job.Handle(), diagnostics, [&console] { Poll(console); });
    if (!diagnostics.IsEmpty()) return TellMistakes(diagnostics, console);

    ApplyParameters(job.Handle(), file.parameters);
    Poll(console);
    return RunAndWrite(options, file, tables, place, job.Handle(), console);
  } catch (const Cancelled&) {
    fmt::print(console.err, "cardo-bundle: cancelled, nothing has been written\n");
    return kExitCancelled;
  } catch (const ResultError& error) {
    fmt::print(console.err, "cardo-bundle: {}\n", error.what());
    return kExitRunFailed;
  }
}

}  // namespace cardo
