#pragma once

#include "linalg/leading_kernels.h"

#include <cstddef>

namespace vermo {

// A hint that a block, and what vectors read beyond it, will soon be read or written.
inline void FetchAll(const double* first, std::size_t count) noexcept {
  constexpr std::size_t kLine = 64 / sizeof(double);
  for (std::size_t k = 0; k < count + kReadBeyond; k += kLine) __builtin_prefetch(first + k, 1);
}

}  // namespace vermo
