#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vermo {

// The text of one protocol operation while it is put together. Numbers come out as a C++ stream of
// the classic locale writes them, whatever locale the process has. A width is the least number of
// bytes; what is shorter is filled with blanks in front, and nothing is cut.
class ProtocolText {
 public:
  ProtocolText& Text(std::string_view text) {
    fText += text;
    return *this;
  }
  ProtocolText& Text(std::string_view text, std::size_t width) { return Fill(text, width); }
  // Filled with blanks behind.
  ProtocolText& LeftText(std::string_view text, std::size_t width);

  ProtocolText& Integer(std::int64_t value, std::size_t width = 0);

  // Fixed notation, scientific notation, general notation with so many significant digits.
  ProtocolText& Fixed(double value, std::size_t width, int decimals);
  ProtocolText& Scientific(double value, std::size_t width, int decimals);
  ProtocolText& General(double value, std::size_t width, int digits);
  // The notation of a stream whose fixed and scientific flags are both set: hexadecimal, with as
  // many digits as the value has.
  ProtocolText& Hexadecimal(double value, std::size_t width);

  // "(n) " for the number printed beside an item, four blanks for -1. More digits than one shift
  // the rest of the row.
  ProtocolText& Ordinal(std::int32_t ordinal);

  [[nodiscard]] const std::string& Str() const noexcept { return fText; }

 private:
  ProtocolText& Fill(std::string_view text, std::size_t width);

  std::string fText;
};

}  // namespace vermo
