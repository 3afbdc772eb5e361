#include "api/rotation_input.h"

#include <cmath>
#include <numbers>

namespace {

using ostra_bundle::Multiply;
using ostra_bundle::Rotation3;
using ostra_bundle::Transpose;

constexpr double kOrthonormalTolerance = 0.0001;
// Coefficients of (1 + x)^(-1/2) from x on.
constexpr double kInverseRootSeries[] = {-0.5,
                                         0.375,
                                         -0.3125,
                                         0.2734375,
                                         -0.24609375,
                                         0.2255859375,
                                         -0.20947265625,
                                         0.196380615234375,
                                         -0.1854705810546875};

constexpr Rotation3 kUnit{1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};

Rotation3 Rx(double t) {
  return {1.0, 0.0, 0.0, 0.0, std::cos(t), std::sin(t), 0.0, -std::sin(t), std::cos(t)};
}
Rotation3 Ry(double t) {
  return {std::cos(t), 0.0, -std::sin(t), 0.0, 1.0, 0.0, std::sin(t), 0.0, std::cos(t)};
}
Rotation3 Rz(double t) {
  return {std::cos(t), std::sin(t), 0.0, -std::sin(t), std::cos(t), 0.0, 0.0, 0.0, 1.0};
}

double DistanceFromUnit(const Rotation3& m) {
  double sum = 0.0;
  for (unsigned i = 0; i < 9; ++i) {
    const double d = m[i] - kUnit[i];
    sum += d * d;
  }
  return std::sqrt(sum);
}

}  // namespace

std::optional<Rotation3> RotationFromInput(std::uint32_t type, double a, double b, double c) {
  switch (static_cast<RotationType>(type)) {
    case RotationType::OmegaPhiKappa:
      return ostra_bundle::RotationFromAngles(a, b, c);
    case RotationType::Second:
      return Transpose(
          Multiply(Multiply(Multiply(Rz(c), Rx(a)), Ry(b)), Rx(std::numbers::pi / 2.0)));
    case RotationType::Third:
      return Transpose(Multiply(Multiply(Rz(b), Rx(a)), Ry(c)));
    default:
      return std::nullopt;
  }
}

std::optional<Rotation3> Orthonormalized(const Rotation3& m) {
  const Rotation3 a = Multiply(Transpose(m), m);
  Rotation3 x = a;
  for (unsigned i = 0; i < 9; ++i) x[i] -= kUnit[i];
  Rotation3 root = kUnit;
  Rotation3 power = kUnit;
  for (const double coefficient : kInverseRootSeries) {
    power = Multiply(power, x);
    for (unsigned i = 0; i < 9; ++i) root[i] += coefficient * power[i];
  }
  const Rotation3 q = Multiply(m, root);
  // Turned round so that a NaN fails as well.
  if (!(DistanceFromUnit(Multiply(Transpose(q), q)) <= kOrthonormalTolerance)) return std::nullopt;
  return q;
}
