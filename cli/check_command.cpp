#include "check_command.h"

#include "bundle_job.h"
#include "datum_check.h"
#include "diagnostics.h"
#include "exit_status.h"
#include "job_folder.h"
#include "job_input.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

namespace cardo {

int Check(const CheckOptions& options, const Console& console) {
  try {
    Diagnostics diagnostics;
    const JobFile file = ReadSettings(options.job, options.settings, diagnostics);
    if (!diagnostics.IsEmpty()) return TellMistakes(diagnostics, console);
    const BundleJob job;
    static_cast<void>(
        ReadTables(options.job, file, job.Handle(), diagnostics, [&console] { Poll(console); }));
    if (!diagnostics.IsEmpty()) return TellMistakes(diagnostics, console);
    ApplyParameters(job.Handle(), file.parameters);
    const DatumCheck check = CheckDatum(job.Handle());
    fmt::print(console.out, "Datum: {}", DescribeDatum(check, file));
    return check.Objects() ? kExitRunFailed : kExitOk;
  } catch (const Cancelled&) {
    fmt::print(console.err, "cardo-bundle: cancelled\n");
    return kExitCancelled;
  }
}

}  // namespace cardo
