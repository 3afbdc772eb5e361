#include "number_text.h"

#include <charconv>
#include <cmath>
#include <system_error>

namespace cardo {
namespace {

// from_chars takes no plus sign; one in front of a digit or a point is dropped.
std::string_view WithoutPlus(std::string_view text) noexcept {
  if (text.size() > 1 && text.front() == '+' && text[1] != '-' && text[1] != '+') {
    text.remove_prefix(1);
  }
  return text;
}

template <class Number>
NumberError Parse(std::string_view text, Number& value) noexcept {
  text = WithoutPlus(text);
  Number parsed{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
  if (error == std::errc::invalid_argument || end != text.data() + text.size()) {
    return NumberError::kNoNumber;
  }
  if (error == std::errc::result_out_of_range) return NumberError::kOutOfRange;
  value = parsed;
  return NumberError::kNone;
}

}  // namespace

NumberError ParseReal(std::string_view text, double& value) noexcept {
  double parsed = 0.0;
  const NumberError error = Parse(text, parsed);
  if (error != NumberError::kNone) return error;
  if (!std::isfinite(parsed)) return NumberError::kNotFinite;
  value = parsed;
  return NumberError::kNone;
}

NumberError ParseInteger(std::string_view text, std::int64_t& value) noexcept {
  return Parse(text, value);
}

}  // namespace cardo
