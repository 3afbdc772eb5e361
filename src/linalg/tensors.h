#pragma once

#include <array>
#include <cmath>
#include <cstddef>

namespace ostra_bundle {

// Small geometric value types without heap storage.

// N doubles, not initialised by the default constructor.
template <std::size_t N>
class VektorBaseD {
 public:
  VektorBaseD() = default;
  template <typename... Values>
  requires(sizeof...(Values) == N) constexpr VektorBaseD(
      Values... values) noexcept  // NOLINT(google-explicit-constructor)
      : fElements{static_cast<double>(values)...} {}

  [[nodiscard]] constexpr double operator[](std::size_t i) const noexcept { return fElements[i]; }
  [[nodiscard]] constexpr double& operator[](std::size_t i) noexcept { return fElements[i]; }

 private:
  std::array<double, N> fElements;
};

template <std::size_t N>
class VektorD : public VektorBaseD<N> {
 public:
  using VektorBaseD<N>::VektorBaseD;
};

// A 3 by 3 matrix by rows.
using Rotation3 = std::array<double, 9>;

inline VektorD<3> Add(const VektorD<3>& a, const VektorD<3>& b) noexcept {
  return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}
inline VektorD<3> Subtract(const VektorD<3>& a, const VektorD<3>& b) noexcept {
  return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
inline VektorD<3> Scale(const VektorD<3>& a, double factor) noexcept {
  return {a[0] * factor, a[1] * factor, a[2] * factor};
}
inline double Dot(const VektorD<3>& a, const VektorD<3>& b) noexcept {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
inline VektorD<3> Cross(const VektorD<3>& a, const VektorD<3>& b) noexcept {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
inline double Length(const VektorD<3>& a) noexcept { return std::sqrt(Dot(a, a)); }

// Throws TensorExceptDivisionByZero when the length is exactly 0.
void Normalize(VektorD<3>& a);
[[nodiscard]] VektorD<3> Normalized(const VektorD<3>& a);
// Throws TensorExceptSquareRootOfNegative for a negative element.
[[nodiscard]] VektorD<3> ElementwiseSqrt(const VektorD<3>& a);
// 2 atan2(|q - p|, |q + p|) with p = a |b|, q = b |a| (Kahan): exact for small angles, too.
[[nodiscard]] double AngleBetween(const VektorD<3>& a, const VektorD<3>& b) noexcept;

constexpr Rotation3 Transpose(const Rotation3& m) noexcept {
  return {m[0], m[3], m[6], m[1], m[4], m[7], m[2], m[5], m[8]};
}
// a times b.
constexpr Rotation3 Multiply(const Rotation3& a, const Rotation3& b) noexcept {
  Rotation3 c{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j)
      c[3 * i + j] = a[3 * i] * b[j] + a[3 * i + 1] * b[3 + j] + a[3 * i + 2] * b[6 + j];
  return c;
}
constexpr Rotation3 Subtract(const Rotation3& a, const Rotation3& b) noexcept {
  Rotation3 c{};
  for (std::size_t i = 0; i < 9; ++i) c[i] = a[i] - b[i];
  return c;
}
constexpr Rotation3 Scale(const Rotation3& a, double factor) noexcept {
  Rotation3 c{};
  for (std::size_t i = 0; i < 9; ++i) c[i] = a[i] * factor;
  return c;
}
inline VektorD<3> MultiplyVector(const Rotation3& m, const VektorD<3>& x) noexcept {
  return {m[0] * x[0] + m[1] * x[1] + m[2] * x[2],
          m[3] * x[0] + m[4] * x[1] + m[5] * x[2],
          m[6] * x[0] + m[7] * x[1] + m[8] * x[2]};
}
// transpose(m) x
inline VektorD<3> MultiplyTransposed(const Rotation3& m, const VektorD<3>& x) noexcept {
  return {m[0] * x[0] + m[3] * x[1] + m[6] * x[2],
          m[1] * x[0] + m[4] * x[1] + m[7] * x[2],
          m[2] * x[0] + m[5] * x[1] + m[8] * x[2]};
}

// Skew(v) x = v cross x.
constexpr Rotation3 Skew(const VektorD<3>& v) noexcept {
  return {0.0, -v[2], v[1], v[2], 0.0, -v[0], -v[1], v[0], 0.0};
}
constexpr Rotation3 SkewTransposed(const VektorD<3>& v) noexcept {
  return {0.0, v[2], -v[1], -v[2], 0.0, v[0], v[1], -v[0], 0.0};
}

// Rx(a) Ry(b) Rz(c), radians.
[[nodiscard]] Rotation3 RotationFromAngles(double a, double b, double c) noexcept;
// Rotation of a quaternion of any length, w being its real part. Throws
// TensorExceptDivisionByZero when the length is 0.
[[nodiscard]] Rotation3 RotationFromQuaternion(double x, double y, double z, double w);
// A right-handed frame with rows m cross u, m, u, where u is p of unit length and m is the unit
// vector of u cross q. Throws TensorExceptDivisionByZero when p and q span no plane.
[[nodiscard]] Rotation3 FrameFromVectors(const VektorD<3>& p, const VektorD<3>& q);
// The angles of RotationFromAngles from the transpose of its matrix.
[[nodiscard]] std::array<double, 3> AnglesFromRotation(const Rotation3& r) noexcept;

template <std::size_t N>
class RelationD;

// A rigid transformation from a local into a superior frame: x superior = R x local + t.
template <>
class RelationD<3> {
 public:
  Rotation3 fRotation{1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
  VektorD<3> fTranslation{0.0, 0.0, 0.0};

  // R x + t
  [[nodiscard]] VektorD<3> Forward(const VektorD<3>& x) const noexcept {
    return Add(MultiplyVector(fRotation, x), fTranslation);
  }
  // transpose(R) (x - t)
  [[nodiscard]] VektorD<3> Back(const VektorD<3>& x) const noexcept {
    return MultiplyTransposed(fRotation, Subtract(x, fTranslation));
  }
};

}  // namespace ostra_bundle
