#pragma once

#include "unknowns/data_ior.h"

namespace vermo {

// The camera mathematics: pure functions on plain values, image units throughout.

struct ImagePoint {
  double x, y;
};

// By rows: d(first) / dx, d(first) / dy, d(second) / dx, d(second) / dy.
struct ImageJacobian {
  double xx, xy, yx, yy;
};

// Distortion at one point of the ideal image. Setting the point computes the powers of its
// radius, and r0 comes with its own, so that no term computes a power again.
struct Verzeichnung {
  double x = 0.0, y = 0.0, z = 0.0;        // ideal image point and depth
  double a1 = 0.0, a2 = 0.0, a3 = 0.0;     // radial
  double az1 = 0.0, az2 = 0.0, az3 = 0.0;  // radial, over the depth
  double e1 = 0.0, e2 = 0.0, e3 = 0.0;     // radial, over the squared depth; always 0
  double b1 = 0.0, b2 = 0.0;               // decentring
  double c1 = 0.0, c2 = 0.0;               // affinity and shear
  NormalisingRadius r0;
  double r2 = 0.0, r4 = 0.0, r6 = 0.0;

  void SetParameters(const DataIor& ior) noexcept;
  void SetPoint(double px, double py, double pz) noexcept {
    x = px;
    y = py;
    z = pz;
    r2 = x * x + y * y;
    r4 = r2 * r2;
    r6 = r2 * r2 * r2;
  }

  // Whether terms over z count; most cameras have none, and divisions are slow.
  [[nodiscard]] bool HasDepthTerms() const noexcept {
    return z != 0.0 &&
           (az1 != 0.0 || az2 != 0.0 || az3 != 0.0 || e1 != 0.0 || e2 != 0.0 || e3 != 0.0);
  }
  // r^2k - R0^2k: zero at the normalising radius.
  [[nodiscard]] double D1() const noexcept { return r2 - r0.squared; }
  [[nodiscard]] double D2() const noexcept { return r4 - r0.fourth; }
  [[nodiscard]] double D3() const noexcept { return r6 - r0.sixth; }

  // K  = A1 D1 + A2 D2 + A3 D3 + (AZ1 D1 + AZ2 D2 + AZ3 D3) / z + (E1 D1 + E2 D2 + E3 D3) / z^2
  // dx = x K + B1 (2 x^2 + r^2) + 2 B2 x y + C1 x + C2 y
  // dy = y K + B2 (2 y^2 + r^2) + 2 B1 x y
  // The terms over z are left out when z is exactly 0. (Brown 1971)
  [[nodiscard]] ImagePoint Correction() const noexcept;

  // d(dx, dy) / d(x, y), z held fixed.
  [[nodiscard]] ImageJacobian CorrectionJacobian() const noexcept;
};

// Principal distance and principal point that an image is projected with.
struct ImageFrame {
  double cp, xh, yh;
};

// The image coordinate of a point (X, Y, Z) of the camera frame without coefficients: that of
// KameraModell, bit for bit.
ImagePoint ProjectIntoImage(
    const DataIor& ior, const ImageFrame& frame, double px, double py, double pz) noexcept;

// An image coordinate with all its coefficients at one point (X, Y, Z) of the camera frame:
//   x = Ck X / Z, y = Ck Y / Z, image point = ((x + dx) / Ck Cp + Hx, (y + dy) / Ck Cp + Hy)
// with Cp, Hx, Hy of the camera or of the projection. There is no guard against Z = 0.
struct KameraModell {
  double X, Y, Z;
  double ck;
  ImageFrame frame;
  Verzeichnung verzeichnung;
  ImagePoint correction;  // (dx, dy)
  ImageJacobian correctionJacobian;

  KameraModell(
      const DataIor& ior, const ImageFrame& imageFrame, double px, double py, double pz) noexcept;

  [[nodiscard]] ImagePoint Image() const noexcept;

  // d image / d (X, Y, Z) by rows: (I + M) [Ck/Z 0 -Ck X/Z^2; 0 Ck/Z -Ck Y/Z^2] Cp / Ck with
  // M the Jacobian of the correction. The dependence of the correction on z is left out.
  void PointJacobian(double (&rowX)[3], double (&rowY)[3]) const noexcept;

  // ((x + dx) / Ck, (y + dy) / Ck): d image / d Cp.
  [[nodiscard]] ImagePoint ByProjectionCk() const noexcept;

  // d image / d Ck of a camera without a projection, Cp being Ck:
  //   Q + W, W = Cp M (X/Z, Y/Z) / Ck - Cp (dx, dy) / Ck^2
  [[nodiscard]] ImagePoint ByCameraCk() const noexcept;

  // d (dx, dy) / d parameter, A1 to AZ3, unscaled and without the factor Cp / Ck.
  [[nodiscard]] ImagePoint ByDistortion(DataIor::Parameter parameter) const noexcept;
};

}  // namespace vermo
