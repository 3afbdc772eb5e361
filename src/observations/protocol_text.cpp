#include "observations/protocol_text.h"

#include <charconv>
#include <cmath>
#include <iterator>

namespace vermo {
namespace {

// Digits of the largest double in fixed notation with room for sign, point and decimals.
using Digits = char[400];

std::string_view Print(Digits& digits, double value, std::chars_format format, int precision) {
  const auto end = std::to_chars(digits, digits + sizeof digits, value, format, precision).ptr;
  return {digits, static_cast<std::size_t>(end - digits)};
}

constexpr double kPowersOfTen[] = {1.0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8};
// Below it every integer and its half are doubles.
constexpr double kLargestQuick = 0x1p50;

// Fixed notation from the rounded integer |value| 10^decimals. The product is off by half a unit in
// its last place at most: unless it lies that close to the middle between two integers, its
// rounding is that of the exact value. False, and nothing done, when it does or when the value is
// too large.
bool PrintQuickly(Digits& digits, double value, int decimals, std::string_view& text) {
  if (decimals < 1 || decimals >= static_cast<int>(std::size(kPowersOfTen))) return false;
  const double product = std::fabs(value) * kPowersOfTen[decimals];
  if (!(product < kLargestQuick)) return false;
  auto integer = static_cast<std::uint64_t>(product);
  const double beyondMiddle = product - static_cast<double>(integer) - 0.5;
  if (std::fabs(beyondMiddle) <= product * 0x1p-51) return false;
  if (beyondMiddle > 0.0) ++integer;
  char* const end = digits + sizeof digits;
  char* first = end;
  for (int i = 0; i < decimals; ++i, integer /= 10)
    *--first = static_cast<char>('0' + integer % 10);
  *--first = '.';
  do {
    *--first = static_cast<char>('0' + integer % 10);
    integer /= 10;
  } while (integer != 0);
  if (std::signbit(value)) *--first = '-';
  text = {first, static_cast<std::size_t>(end - first)};
  return true;
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
  std::string_view text;
  if (!PrintQuickly(digits, value, decimals, text))
    text = Print(digits, value, std::chars_format::fixed, decimals);
  return Fill(text, width);
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
