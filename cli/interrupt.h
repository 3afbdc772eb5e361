#pragma once

#include <atomic>

namespace cardo {

// From here on SIGINT, SIGTERM and SIGHUP set the flag of InterruptFlag instead of ending the
// process; a SIGHUP that is ignored, as under nohup, stays so. A file larger than the process may
// write is an error of its writing.
void CatchInterrupts() noexcept;

[[nodiscard]] std::atomic<bool>& InterruptFlag() noexcept;

}  // namespace cardo
