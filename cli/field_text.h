#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace cardo {

enum class RealRange { kAny, kPositive, kNotNegative, kNotZero };

// Readers of one field. They answer what was expected if the text does not fit
// ("sigma must be positive"), and leave the value alone then; empty if all is well.
[[nodiscard]] std::string ReadReal(std::string_view name,
                                   std::string_view text,
                                   RealRange range,
                                   double& value);
[[nodiscard]] std::string ReadInteger(std::string_view name,
                                      std::string_view text,
                                      std::int64_t lowest,
                                      std::int64_t highest,
                                      std::int64_t& value);
[[nodiscard]] std::string ReadId(std::string_view name, std::string_view text, std::int32_t& id);
// 0 or 1.
[[nodiscard]] std::string ReadFlag(std::string_view name, std::string_view text, bool& value);

}  // namespace cardo
