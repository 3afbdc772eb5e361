#include "image_rotation.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace cardo {
namespace {

Matrix3 Product(const Matrix3& a, const Matrix3& b) {
  Matrix3 product{};
  for (std::size_t row = 0; row < 3; ++row) {
    for (std::size_t column = 0; column < 3; ++column) {
      for (std::size_t k = 0; k < 3; ++k) {
        product[3 * row + column] += a[3 * row + k] * b[3 * k + column];
      }
    }
  }
  return product;
}

Matrix3 Transposed(const Matrix3& m) {
  return {m[0], m[3], m[6], m[1], m[4], m[7], m[2], m[5], m[8]};
}

// Plane rotations of the frame.
Matrix3 Rx(double t) {
  return {1, 0, 0, 0, std::cos(t), std::sin(t), 0, -std::sin(t), std::cos(t)};
}
Matrix3 Ry(double t) {
  return {std::cos(t), 0, -std::sin(t), 0, 1, 0, std::sin(t), 0, std::cos(t)};
}
Matrix3 Rz(double t) {
  return {std::cos(t), std::sin(t), 0, -std::sin(t), std::cos(t), 0, 0, 0, 1};
}

double UnitsPerRadian(std::uint32_t unit) {
  switch (unit) {
    case kRadians:
      return 1.0;
    case kGon:
      return 200.0 / std::numbers::pi;
    case kDegrees:
      return 180.0 / std::numbers::pi;
    default:
      return 0.0;
  }
}

}  // namespace

Matrix3 RotationFromAngles(std::uint32_t format, const double* angles) {
  const double factor = UnitsPerRadian(UnitOf(format));
  if (factor == 0.0) return {};
  const double a = angles[0] / factor;
  const double b = angles[1] / factor;
  const double c = angles[2] / factor;
  switch (TypeOf(format)) {
    case kOmegaPhiKappa:
      return Transposed(Product(Rz(c), Product(Ry(b), Rx(a))));
    case kArc:
      return Transposed(Product(Rz(c), Product(Rx(a), Product(Ry(b), Rx(std::numbers::pi / 2.0)))));
    case kTtg:
      return Transposed(Product(Rz(b), Product(Rx(a), Ry(c))));
    default:
      return {};
  }
}

double LargestDifference(const Matrix3& a, const Matrix3& b) noexcept {
  double largest = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const double difference = std::abs(a[i] - b[i]);
    // Written so that a NaN counts as infinitely far.
    if (!(difference <= largest)) largest = std::isnan(difference) ? HUGE_VAL : difference;
  }
  return largest;
}

}  // namespace cardo
