#pragma once

namespace cardo {

// What the program answers to the shell.
enum ExitStatus : int {
  kExitOk = 0,
  kExitRunFailed = 1,    // the run failed, or its results could not be written
  kExitBadInput = 2,     // a mistake in the arguments, the job file or a table
  kExitCancelled = 130,  // interrupted by the user
};

}  // namespace cardo
