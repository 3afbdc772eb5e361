#pragma once

#include <array>
#include <cmath>

namespace vermo::test {

// Rotation matrices by rows, built from plane rotations and from nothing of the library.
using Matrix3 = std::array<double, 9>;
using Vector3 = std::array<double, 3>;

inline Matrix3 Product(const Matrix3& a, const Matrix3& b) {
  Matrix3 c{};
  for (unsigned i = 0; i < 3; ++i)
    for (unsigned j = 0; j < 3; ++j)
      for (unsigned k = 0; k < 3; ++k) c[3 * i + j] += a[3 * i + k] * b[3 * k + j];
  return c;
}
inline Matrix3 Transposed(const Matrix3& m) {
  Matrix3 c{};
  for (unsigned i = 0; i < 3; ++i)
    for (unsigned j = 0; j < 3; ++j) c[3 * i + j] = m[3 * j + i];
  return c;
}

// Turn vectors about the axis by t in the mathematical sense.
inline Matrix3 AboutX(double t) {
  return {1.0, 0.0, 0.0, 0.0, std::cos(t), -std::sin(t), 0.0, std::sin(t), std::cos(t)};
}
inline Matrix3 AboutY(double t) {
  return {std::cos(t), 0.0, std::sin(t), 0.0, 1.0, 0.0, -std::sin(t), 0.0, std::cos(t)};
}
inline Matrix3 AboutZ(double t) {
  return {std::cos(t), -std::sin(t), 0.0, std::sin(t), std::cos(t), 0.0, 0.0, 0.0, 1.0};
}

// Omega, phi, kappa.
inline Matrix3 OmegaPhiKappa(double omega, double phi, double kappa) {
  return Product(Product(AboutX(omega), AboutY(phi)), AboutZ(kappa));
}

// R x + t and transpose(R) (x - t)
inline Vector3 ForwardBy(const Matrix3& r, const Vector3& t, const Vector3& x) {
  Vector3 y = t;
  for (unsigned i = 0; i < 3; ++i)
    for (unsigned k = 0; k < 3; ++k) y[i] += r[3 * i + k] * x[k];
  return y;
}
inline Vector3 BackBy(const Matrix3& r, const Vector3& t, const Vector3& x) {
  Vector3 y{};
  for (unsigned i = 0; i < 3; ++i)
    for (unsigned k = 0; k < 3; ++k) y[i] += r[3 * k + i] * (x[k] - t[k]);
  return y;
}

}  // namespace vermo::test
