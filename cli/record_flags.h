#pragma once

#include <cstdint>

namespace cardo {

// Bits of the flag words of the library's records.
inline constexpr std::uint16_t kActive = 0x01;
inline constexpr std::uint16_t kFixed = 0x10;      // of an unknown
inline constexpr std::uint16_t kOutlier = 0x10;    // of an observation
inline constexpr std::uint16_t kProtected = 0x20;  // of an observation

inline constexpr std::uint32_t kDatumPoint = 0x1;
inline constexpr std::uint32_t kRayRuleExempt = 0x2;

// An observation that took part: active and no outlier.
[[nodiscard]] constexpr bool IsUsed(std::uint16_t flags) noexcept {
  return (flags & (kActive | kOutlier)) == kActive;
}

}  // namespace cardo
