#pragma once

#include <cstddef>
#include <cstdint>

namespace cardo::fuzz {

// Each target takes any bytes and returns 0. What must not happen ends the process: a crash, a
// finding of a sanitizer, or a broken promise (see Require). The fuzzer and the replay of stored
// inputs call the same functions.

// A sequence of exported calls on jobs that mostly start from a small network that can be adjusted.
int FuzzApi(const std::uint8_t* data, std::size_t size);
// A small linear system for both engines, which must agree with each other and with a dense inverse
// in extended precision wherever the system is well conditioned.
int FuzzEngines(const std::uint8_t* data, std::size_t size);
// A job file or settings of the command line.
int FuzzJobFile(const std::uint8_t* data, std::size_t size);
// Tables of a job folder; what could be read is adjusted, written and read again.
int FuzzTables(const std::uint8_t* data, std::size_t size);

}  // namespace cardo::fuzz
