#pragma once

#include <atomic>
#include <functional>
#include <ostream>

struct sXYZ_CBProgressInfo;

namespace cardo {

// Where a command speaks, and what may stop it.
struct Console {
  std::ostream& out;
  std::ostream& err;
  // out is a terminal: progress is shown while the run goes on.
  bool isTerminal = false;
  // Set from outside, for instance by a signal handler, to cancel what is going on.
  const std::atomic<bool>* cancelled = nullptr;
  // Called after each iteration has been reported, before cancelled is looked at.
  std::function<void(const sXYZ_CBProgressInfo&)> afterIteration = {};

  [[nodiscard]] bool IsCancelled() const noexcept { return cancelled != nullptr && *cancelled; }
};

// Thrown by work that finds Console::IsCancelled true.
struct Cancelled {};

}  // namespace cardo
