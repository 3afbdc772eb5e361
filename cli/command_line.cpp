#include "command_line.h"

#include "adjust_command.h"
#include "check_command.h"
#include "exit_status.h"
#include "text_encoding.h"

#include <CLI/CLI.hpp>
#include <exception>
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <new>
#include <sstream>
#include <string>
#include <vector>
#include <xyz_api.h>

namespace cardo {
namespace {

std::string VersionText() {
  gXYZ_sVersion version{};
  XYZ_GetVersion(&version);
  return fmt::format(
      "cardo-bundle {}.{}.{} ({})", version.Major, version.Minor, version.Patch, version.Name);
}

void AddJobAndSettings(CLI::App& command, std::string& job, std::vector<std::string>& settings) {
  command.add_option("JOB", job, "Folder with job.toml and the tables")->required();
  command.add_option("--set", settings, "A setting that overrides job.toml, repeatable")
      ->type_name("NAME=VALUE")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

CLI::App* AddCheck(CLI::App& program, CheckOptions& options) {
  CLI::App* command = program.add_subcommand(
      "check", "Tell whether the datum of a job folder is determined, and not twice");
  AddJobAndSettings(*command, options.job, options.settings);
  return command;
}

CLI::App* AddAdjust(CLI::App& program, AdjustOptions& options) {
  CLI::App* command =
      program.add_subcommand("adjust", "Adjust the network of a job folder and write the results");
  AddJobAndSettings(*command, options.job, options.settings);
  command->add_option("-o,--output", options.output, "Folder of the results [JOB/results]")
      ->type_name("DIR");
  command->add_option("--protocol", options.protocol, "File of the protocol [DIR/protocol.htm]")
      ->type_name("FILE");
  command->add_flag("--timing", options.timing, "Time of every stage and peak memory");
  command->add_flag("-q,--quiet", options.quiet, "No progress and no summary");
  return command;
}

int Execute(int argc, const char* const* argv, const Console& console) {
  CLI::App program("Photogrammetric bundle block adjustment", "cardo-bundle");
  program.set_version_flag("--version", VersionText);
  program.require_subcommand(1);
  AdjustOptions adjustOptions;
  const CLI::App* adjust = AddAdjust(program, adjustOptions);
  CheckOptions checkOptions;
  const CLI::App* check = AddCheck(program, checkOptions);
  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // Help goes out as it is; a mistake quotes what was typed.
    std::ostringstream mistake;
    const int code = program.exit(error, console.out, mistake);
    std::istringstream lines(mistake.str());
    for (std::string line; std::getline(lines, line);)
      fmt::print(console.err, "{}\n", Printable(line));
    return code == 0 ? kExitOk : kExitBadInput;
  }
  if (adjust->parsed()) return Adjust(adjustOptions, console);
  if (check->parsed()) return Check(checkOptions, console);
  return kExitBadInput;
}

}  // namespace

int RunCommandLine(int argc, const char* const* argv, const Console& console) {
  try {
    const int status = Execute(argc, argv, console);
    if (console.out.flush() || status != kExitOk) return status;
    fmt::print(console.err, "cardo-bundle: the standard output cannot be written\n");
  } catch (const std::bad_alloc&) {
    fmt::print(console.err, "cardo-bundle: not enough memory for this job\n");
  } catch (const std::exception& error) {
    fmt::print(console.err, "cardo-bundle: {}\n", Printable(error.what()));
  }
  return kExitRunFailed;
}

}  // namespace cardo
