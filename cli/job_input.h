#pragma once

#include "console.h"
#include "diagnostics.h"
#include "job_file.h"

#include <string>
#include <vector>

namespace cardo {

// The part of a command that reads its job, the same for every command.

// Throws Cancelled if the user wants the command to end.
void Poll(const Console& console);

// The job file of the folder with the settings of the command line on top. Mistakes, a folder
// that does not exist among them, go to the diagnostics.
[[nodiscard]] JobFile ReadSettings(const std::string& folder,
                                   const std::vector<std::string>& settings,
                                   Diagnostics& diagnostics);

// Tells the user the mistakes; answers kExitBadInput.
[[nodiscard]] int TellMistakes(const Diagnostics& diagnostics, const Console& console);

}  // namespace cardo
