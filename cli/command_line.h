#pragma once

#include "console.h"

namespace cardo {

// The whole program but for its process: reads the arguments and runs the command they name.
// Answers an ExitStatus; lets no exception pass.
[[nodiscard]] int RunCommandLine(int argc, const char* const* argv, const Console& console);

}  // namespace cardo
