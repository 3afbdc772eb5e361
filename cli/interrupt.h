#pragma once

#include <atomic>

namespace cardo {

// From here on SIGINT and SIGTERM set the flag of InterruptFlag instead of ending the process.
void CatchInterrupts() noexcept;

[[nodiscard]] std::atomic<bool>& InterruptFlag() noexcept;

}  // namespace cardo
