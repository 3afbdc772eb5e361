#pragma once

#include <cstdio>
#include <cstdlib>

namespace cardo::fuzz {

// Ends the process with a message when a promise is broken, in every build.
inline void Require(bool holds, const char* promise) {
  if (holds) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

}  // namespace cardo::fuzz
