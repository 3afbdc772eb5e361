#pragma once

#include <array>
#include <cmath>

namespace ostra_bundle {

// A number with its derivatives by three parameters: forward differentiation to first order.
// Comparisons look at the value alone. Where a derivative would divide by exactly 0 it is 0.
struct Dual3 {
  double value = 0.0;
  std::array<double, 3> derivative{};

  Dual3() = default;
  // A constant.
  Dual3(double constant) noexcept : value(constant) {}  // NOLINT(google-explicit-constructor)
  Dual3(double v, const std::array<double, 3>& d) noexcept : value(v), derivative(d) {}
};

namespace dual {

// f(a) with f' at a.
inline Dual3 Chain(double value, double slope, const Dual3& a) noexcept {
  Dual3 r(value);
  for (unsigned i = 0; i < 3; ++i) r.derivative[i] = slope * a.derivative[i];
  return r;
}

// f(a, b) with both partial derivatives.
inline Dual3 Chain(
    double value, double slopeA, const Dual3& a, double slopeB, const Dual3& b) noexcept {
  Dual3 r(value);
  for (unsigned i = 0; i < 3; ++i)
    r.derivative[i] = slopeA * a.derivative[i] + slopeB * b.derivative[i];
  return r;
}

}  // namespace dual

inline Dual3 operator-(const Dual3& a) noexcept { return dual::Chain(-a.value, -1.0, a); }
inline Dual3 operator+(const Dual3& a, const Dual3& b) noexcept {
  return dual::Chain(a.value + b.value, 1.0, a, 1.0, b);
}
inline Dual3 operator-(const Dual3& a, const Dual3& b) noexcept {
  return dual::Chain(a.value - b.value, 1.0, a, -1.0, b);
}
inline Dual3 operator*(const Dual3& a, const Dual3& b) noexcept {
  return dual::Chain(a.value * b.value, b.value, a, a.value, b);
}
inline Dual3 operator/(const Dual3& a, const Dual3& b) noexcept {
  const double quotient = a.value / b.value;
  if (b.value == 0.0) return {quotient};
  return dual::Chain(quotient, 1.0 / b.value, a, -quotient / b.value, b);
}
inline bool operator>(const Dual3& a, const Dual3& b) noexcept { return a.value > b.value; }
inline bool operator>=(const Dual3& a, const Dual3& b) noexcept { return a.value >= b.value; }

inline Dual3 sin(const Dual3& a) noexcept {
  return dual::Chain(std::sin(a.value), std::cos(a.value), a);
}
inline Dual3 cos(const Dual3& a) noexcept {
  return dual::Chain(std::cos(a.value), -std::sin(a.value), a);
}
inline Dual3 fabs(const Dual3& a) noexcept { return a.value < 0.0 ? -a : a; }
inline Dual3 fmod(const Dual3& a, double modulus) noexcept {
  return dual::Chain(std::fmod(a.value, modulus), 1.0, a);
}
// d atan2(y, x) = (x dy - y dx) / (x^2 + y^2)
inline Dual3 atan2(const Dual3& y, const Dual3& x) noexcept {
  const double angle = std::atan2(y.value, x.value);
  const double square = x.value * x.value + y.value * y.value;
  if (square == 0.0) return {angle};
  return dual::Chain(angle, x.value / square, y, -y.value / square, x);
}

}  // namespace ostra_bundle
