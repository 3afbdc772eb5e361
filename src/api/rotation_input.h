#pragma once

#include "linalg/tensors.h"

#include <cstdint>
#include <optional>

// The forms in which a caller gives a rotation.

enum class RotationType : std::uint32_t { OmegaPhiKappa = 1, Second = 2, Matrix = 3, Third = 4 };

// The rotation type of a format: its low byte.
[[nodiscard]] constexpr std::uint32_t RotationTypeOf(std::uint32_t format) noexcept {
  return format & 0xFFU;
}

// Factor from radians to the angle unit in the second byte of a format, 0 without a unit.
[[nodiscard]] constexpr double AngleFactorOf(std::uint32_t format) noexcept {
  switch (format & 0xFF00U) {
    case 0x100:
      return 1.0;
    case 0x200:
      return 63.66197723675813;
    case 0x400:
      return 57.29577951308232;
    default:
      return 0.0;
  }
}

// The matrix of three angles in radians, nothing for a type without angles.
[[nodiscard]] std::optional<ostra_bundle::Rotation3> RotationFromInput(std::uint32_t type,
                                                                       double a,
                                                                       double b,
                                                                       double c);

// The orthonormal matrix next to m, Q = M (transpose(M) M)^(-1/2), with the inverse square root
// as a binomial series of ten terms about the unit matrix. Nothing when transpose(Q) Q is further
// from the unit matrix than 0.0001 in the Frobenius norm.
[[nodiscard]] std::optional<ostra_bundle::Rotation3> Orthonormalized(
    const ostra_bundle::Rotation3& m);
