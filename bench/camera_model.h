#pragma once

#include <array>
#include <cmath>
#include <cstddef>

namespace cardo::bench {

// The camera of the drawn networks and of the peer, written apart from that of the library.
enum CameraParameter : std::size_t {
  kCk,
  kXh,
  kYh,
  kA1,
  kA2,
  kA3,
  kB1,
  kB2,
  kC1,
  kC2,
  kParameters
};

struct Camera {
  std::array<double, kParameters> value{};
  double r0 = 0.0;
};

using Vec3 = std::array<double, 3>;

// Rx(omega) Ry(phi) Rz(kappa), camera frame to object frame, by rows.
struct Rotation {
  std::array<double, 9> r{};
  double sinKappa = 0.0, cosKappa = 1.0;
};

inline Rotation RotationOf(double omega, double phi, double kappa) noexcept {
  const double so = std::sin(omega), co = std::cos(omega);
  const double sp = std::sin(phi), cp = std::cos(phi);
  const double sk = std::sin(kappa), ck = std::cos(kappa);
  return {{cp * ck,
           -cp * sk,
           sp,
           co * sk + so * sp * ck,
           co * ck - so * sp * sk,
           -so * cp,
           so * sk - co * sp * ck,
           so * ck + co * sp * sk,
           co * cp},
          sk,
          ck};
}

struct ImagePoint {
  double x, y;
};

// Derivatives of an image point, first row x, second row y. By the projection centre they are
// those by the point with the other sign.
struct ImageDerivatives {
  std::array<double, 6> byPoint;
  std::array<double, 6> byAngles;  // omega, phi, kappa
  std::array<double, 2 * kParameters> byCamera;
};

// With p = R^T (X - X0), x = ck px / pz, y = ck py / pz and r^2 = x^2 + y^2 (Brown 1971):
//   K  = a1 (r^2 - r0^2) + a2 (r^4 - r0^4) + a3 (r^6 - r0^6)
//   x' = xh + x + x K + b1 (2 x^2 + r^2) + 2 b2 x y + c1 x + c2 y
//   y' = yh + y + y K + b2 (2 y^2 + r^2) + 2 b1 x y
// Derivatives, unless null, are filled.
inline ImagePoint Project(const Camera& camera,
                          const Rotation& rotation,
                          const double* centre,
                          const double* point,
                          ImageDerivatives* derivatives) noexcept {
  const auto& c = camera.value;
  const auto& r = rotation.r;
  const double d0 = point[0] - centre[0], d1 = point[1] - centre[1], d2 = point[2] - centre[2];
  const double px = r[0] * d0 + r[3] * d1 + r[6] * d2;
  const double py = r[1] * d0 + r[4] * d1 + r[7] * d2;
  const double pz = r[2] * d0 + r[5] * d1 + r[8] * d2;
  const double u = px / pz, v = py / pz;
  const double x = c[kCk] * u, y = c[kCk] * v;
  const double xx = x * x, yy = y * y, xy = x * y;
  const double r2 = xx + yy, q2 = camera.r0 * camera.r0;
  const double e1 = r2 - q2, e2 = r2 * r2 - q2 * q2, e3 = r2 * r2 * r2 - q2 * q2 * q2;
  const double k = c[kA1] * e1 + c[kA2] * e2 + c[kA3] * e3;
  const ImagePoint image{
      c[kXh] + x + x * k + c[kB1] * (2.0 * xx + r2) + 2.0 * c[kB2] * xy + c[kC1] * x + c[kC2] * y,
      c[kYh] + y + y * k + c[kB2] * (2.0 * yy + r2) + 2.0 * c[kB1] * xy};
  if (derivatives == nullptr) return image;

  // By x and y.
  const double slope = c[kA1] + r2 * (2.0 * c[kA2] + r2 * 3.0 * c[kA3]);
  const double mixed = 2.0 * (xy * slope + c[kB1] * y + c[kB2] * x);
  const double xByX = 1.0 + k + 2.0 * xx * slope + 6.0 * c[kB1] * x + 2.0 * c[kB2] * y + c[kC1];
  const double xByY = mixed + c[kC2];
  const double yByX = mixed;
  const double yByY = 1.0 + k + 2.0 * yy * slope + 6.0 * c[kB2] * y + 2.0 * c[kB1] * x;

  // By p, then along the axes of the object and about those of the three angles: a turn by the
  // axis a, seen from the camera, moves p by p x a.
  const double scale = c[kCk] / pz;
  const Vec3 byP[2] = {{scale * xByX, scale * xByY, -scale * (xByX * u + xByY * v)},
                       {scale * yByX, scale * yByY, -scale * (yByX * u + yByY * v)}};
  const double sk = rotation.sinKappa, ck = rotation.cosKappa;
  const Vec3 turns[3] = {
      {py * r[2] - pz * r[1], pz * r[0] - px * r[2], px * r[1] - py * r[0]},
      {-pz * ck, pz * sk, px * ck - py * sk},
      {py, -px, 0.0},
  };
  for (std::size_t i = 0; i < 2; ++i) {
    for (std::size_t j = 0; j < 3; ++j) {
      derivatives->byPoint[3 * i + j] =
          byP[i][0] * r[3 * j] + byP[i][1] * r[3 * j + 1] + byP[i][2] * r[3 * j + 2];
      derivatives->byAngles[3 * i + j] =
          byP[i][0] * turns[j][0] + byP[i][1] * turns[j][1] + byP[i][2] * turns[j][2];
    }
  }

  double* byX = derivatives->byCamera.data();
  double* byY = byX + kParameters;
  byX[kCk] = xByX * u + xByY * v;
  byY[kCk] = yByX * u + yByY * v;
  byX[kXh] = 1.0;
  byY[kXh] = 0.0;
  byX[kYh] = 0.0;
  byY[kYh] = 1.0;
  byX[kA1] = x * e1;
  byY[kA1] = y * e1;
  byX[kA2] = x * e2;
  byY[kA2] = y * e2;
  byX[kA3] = x * e3;
  byY[kA3] = y * e3;
  byX[kB1] = 2.0 * xx + r2;
  byY[kB1] = 2.0 * xy;
  byX[kB2] = 2.0 * xy;
  byY[kB2] = 2.0 * yy + r2;
  byX[kC1] = x;
  byY[kC1] = 0.0;
  byX[kC2] = y;
  byY[kC2] = 0.0;
  return image;
}

}  // namespace cardo::bench
