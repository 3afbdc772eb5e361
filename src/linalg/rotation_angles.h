#pragma once

#include <array>
#include <cmath>

namespace ostra_bundle {

// Rules that turn a rotation matrix into three angles, for any scalar type with the elementary
// functions: double for the angles alone, a dual number for the angles with their derivatives.
// Matrices come by rows. The constants have the digits given here, not those of pi.

inline constexpr double kTwoPi = 6.28318530718;
inline constexpr double kPi = 3.14159265359;

template <typename T>
using RotationElements = std::array<T, 9>;
template <typename T>
using AngleTriple = std::array<T, 3>;

// Omega, phi, kappa of M = transpose(R), R = Rx(omega) Ry(phi) Rz(kappa):
//   M20 = sin phi, M21 = -sin omega cos phi, M22 = cos omega cos phi,
//   with G = rotation about x by -omega and P = M G: phi from (P20, P22), kappa from (P01, P11).
// Near phi = pi / 2 omega and kappa turn about the same axis, and kappa becomes 0.
template <typename T>
AngleTriple<T> AnglesType1(const RotationElements<T>& m) {
  using std::atan2, std::cos, std::fmod, std::sin;
  const bool gimbal = 1e-5 > 1.0 - m[6];
  T omega;
  if (gimbal) {
    const bool first = m[2] * m[2] + m[1] * m[1] > m[5] * m[5] + m[4] * m[4];
    omega = fmod(first ? atan2(m[2], m[1]) : atan2(m[5], m[4]), kTwoPi);
  } else {
    omega = fmod(atan2(-m[7], m[8]), kTwoPi);
    if (omega >= kPi) omega = omega - kPi;
  }
  const T c = cos(-omega);
  const T s = sin(-omega);
  const T p01 = m[1] * c - m[2] * s;
  const T p11 = m[4] * c - m[5] * s;
  const T p20 = m[6];
  const T p22 = m[7] * s + m[8] * c;
  const T phi = fmod(atan2(p20, p22), kTwoPi);
  const T kappa = gimbal ? T(0.0) : fmod(atan2(p01, p11), kTwoPi);
  return {omega, phi, kappa};
}

// The second convention, of T = transpose(R). The numerator T12 in both forms of r is meant.
template <typename T>
AngleTriple<T> AnglesType2(const RotationElements<T>& t) {
  using std::atan2, std::cos, std::fabs, std::sin;
  const T c = atan2(t[2], t[5]);
  const T cosC = cos(c);
  const T sinC = sin(c);
  const T r = fabs(cosC) > fabs(sinC) ? t[5] / cosC : t[5] / sinC;
  return {atan2(-t[8], r), atan2(t[6], -t[7]), c};
}

// The third convention, of R itself.
template <typename T>
AngleTriple<T> AnglesType4(const RotationElements<T>& m) {
  using std::atan2, std::cos, std::fabs, std::sin;
  const T b = atan2(m[3], m[4]);
  const T c = atan2(m[2], m[8]);
  const T cosB = cos(b);
  const T sinB = sin(b);
  const T r = fabs(cosB) > fabs(sinB) ? m[4] / cosB : m[3] / sinB;
  return {atan2(-m[5], r), b, c};
}

}  // namespace ostra_bundle
