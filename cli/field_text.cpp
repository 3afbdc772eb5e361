#include "field_text.h"

#include "number_text.h"

#include <fmt/format.h>
#include <limits>

namespace cardo {

std::string ReadReal(std::string_view name, std::string_view text, RealRange range, double& value) {
  double number = 0.0;
  switch (ParseReal(text, number)) {
    case NumberError::kNoNumber:
      return fmt::format("{} must be a number", name);
    case NumberError::kNotFinite:
      return fmt::format("{} must be a finite number", name);
    case NumberError::kOutOfRange:
      return fmt::format("{} must be a number in the range of double precision", name);
    case NumberError::kNone:
      break;
  }
  if (range == RealRange::kPositive && !(number > 0.0)) {
    return fmt::format("{} must be positive", name);
  }
  if (range == RealRange::kNotNegative && !(number >= 0.0)) {
    return fmt::format("{} must not be negative", name);
  }
  if (range == RealRange::kNotZero && number == 0.0) {
    return fmt::format("{} must not be zero", name);
  }
  value = number;
  return {};
}

std::string ReadInteger(std::string_view name,
                        std::string_view text,
                        std::int64_t lowest,
                        std::int64_t highest,
                        std::int64_t& value) {
  std::int64_t number = 0;
  if (ParseInteger(text, number) != NumberError::kNone || number < lowest || number > highest) {
    return fmt::format("{} must be a whole number from {} to {}", name, lowest, highest);
  }
  value = number;
  return {};
}

std::string ReadId(std::string_view name, std::string_view text, std::int32_t& id) {
  std::int64_t number = 0;
  std::string expected =
      ReadInteger(name, text, 0, std::numeric_limits<std::int32_t>::max(), number);
  if (expected.empty()) id = static_cast<std::int32_t>(number);
  return expected;
}

std::string ReadFlag(std::string_view name, std::string_view text, bool& value) {
  if (text != "0" && text != "1") return fmt::format("{} must be 0 or 1", name);
  value = text == "1";
  return {};
}

}  // namespace cardo
