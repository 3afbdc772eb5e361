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

// Defined here: every ray goes through all of it, and what the parts have in common is then
// computed once. Derivatives of the radial part x K, y K by x and y for one set of radial
// coefficients k1..k3.
struct RadialJacobian {
  double gx, gy, gxy;
};

inline RadialJacobian RadialDerivatives(const Verzeichnung& v,
                                        double k1,
                                        double k2,
                                        double k3) noexcept {
  const double xx = v.x * v.x;
  const double yy = v.y * v.y;
  const double p = 2.0 * v.x * v.y;
  return {
      k1 * (2.0 * xx + v.D1()) + k2 * (4.0 * v.r2 * xx + v.D2()) + k3 * (6.0 * v.r4 * xx + v.D3()),
      k1 * (2.0 * yy + v.D1()) + k2 * (4.0 * v.r2 * yy + v.D2()) + k3 * (6.0 * v.r4 * yy + v.D3()),
      k1 * p + 2.0 * k2 * v.r2 * p + 3.0 * k3 * v.r4 * p};
}

inline void Verzeichnung::SetParameters(const DataIor& ior) noexcept {
  const DataIor::ParameterValues& p = ior.Calibration();
  a1 = p[DataIor::kA1];
  a2 = p[DataIor::kA2];
  a3 = p[DataIor::kA3];
  az1 = p[DataIor::kAz1];
  az2 = p[DataIor::kAz2];
  az3 = p[DataIor::kAz3];
  b1 = p[DataIor::kB1];
  b2 = p[DataIor::kB2];
  c1 = p[DataIor::kC1];
  c2 = p[DataIor::kC2];
  r0 = ior.R0();
}

inline ImagePoint Verzeichnung::Correction() const noexcept {
  const double d1 = D1();
  const double d2 = D2();
  const double d3 = D3();
  double k = a1 * d1 + a2 * d2 + a3 * d3;
  if (HasDepthTerms())
    k += (az1 * d1 + az2 * d2 + az3 * d3) / z + (e1 * d1 + e2 * d2 + e3 * d3) / (z * z);
  return {x * k + b1 * (2.0 * x * x + r2) + 2.0 * b2 * x * y + c1 * x + c2 * y,
          y * k + b2 * (2.0 * y * y + r2) + 2.0 * b1 * x * y};
}

inline ImageJacobian Verzeichnung::CorrectionJacobian() const noexcept {
  double k1 = a1;
  double k2 = a2;
  double k3 = a3;
  if (HasDepthTerms()) {
    const double zz = z * z;
    k1 += az1 / z + e1 / zz;
    k2 += az2 / z + e2 / zz;
    k3 += az3 / z + e3 / zz;
  }
  const RadialJacobian g = RadialDerivatives(*this, k1, k2, k3);
  return {g.gx + 6.0 * b1 * x + 2.0 * b2 * y + c1,
          g.gxy + 2.0 * b2 * x + 2.0 * b1 * y + c2,
          g.gxy + 2.0 * b2 * x + 2.0 * b1 * y,
          g.gy + 6.0 * b2 * y + 2.0 * b1 * x};
}

inline ImagePoint ProjectIntoImage(
    const DataIor& ior, const ImageFrame& frame, double px, double py, double pz) noexcept {
  const double ck = ior.Calibration()[DataIor::kCk];
  Verzeichnung verzeichnung;
  verzeichnung.SetParameters(ior);
  verzeichnung.SetPoint(ck * px / pz, ck * py / pz, pz);
  const ImagePoint correction = verzeichnung.Correction();
  return {(verzeichnung.x + correction.x) / ck * frame.cp + frame.xh,
          (verzeichnung.y + correction.y) / ck * frame.cp + frame.yh};
}

inline KameraModell::KameraModell(
    const DataIor& ior, const ImageFrame& imageFrame, double px, double py, double pz) noexcept
    : X(px), Y(py), Z(pz), ck(ior.Calibration()[DataIor::kCk]), frame(imageFrame) {
  verzeichnung.SetParameters(ior);
  verzeichnung.SetPoint(ck * X / Z, ck * Y / Z, Z);
  correction = verzeichnung.Correction();
  correctionJacobian = verzeichnung.CorrectionJacobian();
}

inline ImagePoint KameraModell::Image() const noexcept {
  return {(verzeichnung.x + correction.x) / ck * frame.cp + frame.xh,
          (verzeichnung.y + correction.y) / ck * frame.cp + frame.yh};
}

inline void KameraModell::PointJacobian(double (&rowX)[3], double (&rowY)[3]) const noexcept {
  const double mxx = 1.0 + correctionJacobian.xx;
  const double mxy = correctionJacobian.xy;
  const double myx = correctionJacobian.yx;
  const double myy = 1.0 + correctionJacobian.yy;
  const double j = frame.cp / Z;
  const double jx = -j * (X / Z);
  const double jy = -j * (Y / Z);
  rowX[0] = mxx * j;
  rowX[1] = mxy * j;
  rowX[2] = mxx * jx + mxy * jy;
  rowY[0] = myx * j;
  rowY[1] = myy * j;
  rowY[2] = myx * jx + myy * jy;
}

inline ImagePoint KameraModell::ByProjectionCk() const noexcept {
  return {(verzeichnung.x + correction.x) / ck, (verzeichnung.y + correction.y) / ck};
}

inline ImagePoint KameraModell::ByCameraCk() const noexcept {
  const ImagePoint q = ByProjectionCk();
  const double tx = X / Z;
  const double ty = Y / Z;
  const ImageJacobian& m = correctionJacobian;
  return {q.x + frame.cp * (m.xx * tx + m.xy * ty) / ck - frame.cp * correction.x / (ck * ck),
          q.y + frame.cp * (m.yx * tx + m.yy * ty) / ck - frame.cp * correction.y / (ck * ck)};
}

inline ImagePoint KameraModell::ByDistortion(DataIor::Parameter parameter) const noexcept {
  const Verzeichnung& v = verzeichnung;
  const auto radial = [&v](double d) noexcept { return ImagePoint{v.x * d, v.y * d}; };
  const auto overDepth = [&v](double d) noexcept {
    return v.z == 0.0 ? ImagePoint{0.0, 0.0} : ImagePoint{v.x * d / v.z, v.y * d / v.z};
  };
  switch (parameter) {
    case DataIor::kA1:
      return radial(v.D1());
    case DataIor::kA2:
      return radial(v.D2());
    case DataIor::kA3:
      return radial(v.D3());
    case DataIor::kB1:
      return {2.0 * v.x * v.x + v.r2, 2.0 * v.x * v.y};
    case DataIor::kB2:
      return {2.0 * v.x * v.y, 2.0 * v.y * v.y + v.r2};
    case DataIor::kC1:
      return {v.x, 0.0};
    case DataIor::kC2:
      return {v.y, 0.0};
    case DataIor::kAz1:
      return overDepth(v.D1());
    case DataIor::kAz2:
      return overDepth(v.D2());
    case DataIor::kAz3:
      return overDepth(v.D3());
    default:
      return {0.0, 0.0};
  }
}

}  // namespace vermo
