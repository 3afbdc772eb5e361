// One program per target: CARDO_FUZZ_TARGET names its function.
#include "fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return cardo::fuzz::CARDO_FUZZ_TARGET(data, size);
}
