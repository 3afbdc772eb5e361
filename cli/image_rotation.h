#pragma once

#include <array>
#include <cstdint>

namespace cardo {

// Codes of sXYZ_ExteriorOrient2::Format: rotation types in the low byte.
inline constexpr std::uint32_t kOmegaPhiKappa = 1;
inline constexpr std::uint32_t kArc = 2;
inline constexpr std::uint32_t kMatrix = 3;
inline constexpr std::uint32_t kTtg = 4;
// Angle units in the next byte.
inline constexpr std::uint32_t kRadians = 0x100;
inline constexpr std::uint32_t kGon = 0x200;
inline constexpr std::uint32_t kDegrees = 0x400;

[[nodiscard]] constexpr std::uint32_t TypeOf(std::uint32_t format) noexcept {
  return format & 0xFFU;
}
[[nodiscard]] constexpr std::uint32_t UnitOf(std::uint32_t format) noexcept {
  return format & 0xFF00U;
}

using Matrix3 = std::array<double, 9>;  // by rows

// The rotation from the camera into the object frame of three angles in the unit of the format;
// all zeros for a format that is no angles in a known unit.
[[nodiscard]] Matrix3 RotationFromAngles(std::uint32_t format, const double* angles);

// Largest difference of two elements.
[[nodiscard]] double LargestDifference(const Matrix3& a, const Matrix3& b) noexcept;

}  // namespace cardo
