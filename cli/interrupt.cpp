#include "interrupt.h"

#include <csignal>

namespace cardo {
namespace {

std::atomic<bool> interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may set it");

extern "C" void OnInterrupt(int /*signal*/) { interrupted = true; }

}  // namespace

void CatchInterrupts() noexcept {
  std::signal(SIGINT, OnInterrupt);
  std::signal(SIGTERM, OnInterrupt);
  if (std::signal(SIGHUP, OnInterrupt) == SIG_IGN) std::signal(SIGHUP, SIG_IGN);
  // Told by the write that fails; the results do not depend on who reads the messages.
  std::signal(SIGXFSZ, SIG_IGN);
  std::signal(SIGPIPE, SIG_IGN);
}

std::atomic<bool>& InterruptFlag() noexcept { return interrupted; }

}  // namespace cardo
