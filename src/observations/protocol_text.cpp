#include "observations/protocol_text.h"

#include <charconv>
#include <cmath>

namespace vermo {
namespace {

// Digits of the largest double in fixed notation with room for sign, point and decimals.
using Digits = char[400];

std::string_view Print(Digits& digits, double value, std::chars_format format, int precision) {
  const auto end = std::to_chars(digits, digits + sizeof digits, value, format, precision).ptr;
  return {digits, static_cast<std::size_t>(end - digits)};
}

}  // namespace

ProtocolText& ProtocolText::Fill(std::string_view text, std::size_t width) {
  if (text.size() < width) fText.append(width - text.size(), ' ');
  fText += text;
  return *this;
}

ProtocolText& ProtocolText::LeftText(std::string_view text, std::size_t width) {
  fText += text;
  if (text.size() < width) fText.append(width - text.size(), ' ');
  return *this;
}

ProtocolText& ProtocolText::Integer(std::int64_t value, std::size_t width) {
  Digits digits;
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  return Fill({digits, static_cast<std::size_t>(end - digits)}, width);
}

ProtocolText& ProtocolText::Fixed(double value, std::size_t width, int decimals) {
  Digits digits;
  return Fill(Print(digits, value, std::chars_format::fixed, decimals), width);
}

ProtocolText& ProtocolText::Scientific(double value, std::size_t width, int decimals) {
  Digits digits;
  return Fill(Print(digits, value, std::chars_format::scientific, decimals), width);
}

ProtocolText& ProtocolText::General(double value, std::size_t width, int significant) {
  Digits digits;
  return Fill(Print(digits, value, std::chars_format::general, significant), width);
}

ProtocolText& ProtocolText::Hexadecimal(double value, std::size_t width) {
  Digits digits;
  const auto end =
      std::to_chars(digits, digits + sizeof digits, std::fabs(value), std::chars_format::hex).ptr;
  std::string text = std::signbit(value) ? "-" : "";
  if (std::isfinite(value)) text += "0x";
  text.append(digits, end);
  return Fill(text, width);
}

ProtocolText& ProtocolText::Ordinal(std::int32_t ordinal) {
  if (ordinal == -1) return Text("    ");
  return Text("(").Integer(ordinal).Text(") ");
}

}  // namespace vermo
