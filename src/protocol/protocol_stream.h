#pragma once

#include <cstdint>
#include <fstream>
#include <ios>
#include <string>

namespace vermo {

// The file of a protocol, opened for output on construction: an existing file is truncated, and
// one that cannot be opened swallows what is written. The formatting defaults are kept beside the
// stream and read by nothing: all formatting happens before the text reaches the file.
class ProtocolStream : public std::ofstream {
 public:
  explicit ProtocolStream(const std::string& name) : std::ofstream(name, std::ios_base::out) {}

  std::int32_t fIntWidth = 8;
  std::ios_base::fmtflags fIntFlags = std::ios_base::right;
  std::int32_t fDoubleWidth = 12;
  std::int32_t fDoublePrecision = 4;
  std::ios_base::fmtflags fDoubleFlags = std::ios_base::fixed | std::ios_base::right;
};

}  // namespace vermo
