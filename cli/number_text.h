#pragma once

#include <cstdint>
#include <string_view>

namespace cardo {

enum class NumberError { kNone, kNoNumber, kNotFinite, kOutOfRange };

// The whole text as a number in the notation of the C locale, whatever the process has set; a
// leading plus sign is taken. value stays untouched unless the result is kNone.
[[nodiscard]] NumberError ParseReal(std::string_view text, double& value) noexcept;
[[nodiscard]] NumberError ParseInteger(std::string_view text, std::int64_t& value) noexcept;

}  // namespace cardo
