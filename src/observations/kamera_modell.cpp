#include "observations/kamera_modell.h"

namespace vermo {
namespace {

// Derivatives of the radial part x K, y K by x and y for one set of radial coefficients k1..k3.
struct RadialJacobian {
  double gx, gy, gxy;
};

RadialJacobian RadialDerivatives(const Verzeichnung& v, double k1, double k2, double k3) noexcept {
  const double xx = v.x * v.x;
  const double yy = v.y * v.y;
  const double p = 2.0 * v.x * v.y;
  return {
      k1 * (2.0 * xx + v.D1()) + k2 * (4.0 * v.r2 * xx + v.D2()) + k3 * (6.0 * v.r4 * xx + v.D3()),
      k1 * (2.0 * yy + v.D1()) + k2 * (4.0 * v.r2 * yy + v.D2()) + k3 * (6.0 * v.r4 * yy + v.D3()),
      k1 * p + 2.0 * k2 * v.r2 * p + 3.0 * k3 * v.r4 * p};
}

}  // namespace

void Verzeichnung::SetParameters(const DataIor& ior) noexcept {
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

ImagePoint Verzeichnung::Correction() const noexcept {
  const double d1 = D1();
  const double d2 = D2();
  const double d3 = D3();
  double k = a1 * d1 + a2 * d2 + a3 * d3;
  if (HasDepthTerms())
    k += (az1 * d1 + az2 * d2 + az3 * d3) / z + (e1 * d1 + e2 * d2 + e3 * d3) / (z * z);
  return {x * k + b1 * (2.0 * x * x + r2) + 2.0 * b2 * x * y + c1 * x + c2 * y,
          y * k + b2 * (2.0 * y * y + r2) + 2.0 * b1 * x * y};
}

ImageJacobian Verzeichnung::CorrectionJacobian() const noexcept {
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

ImagePoint ProjectIntoImage(
    const DataIor& ior, const ImageFrame& frame, double px, double py, double pz) noexcept {
  const double ck = ior.Calibration()[DataIor::kCk];
  Verzeichnung verzeichnung;
  verzeichnung.SetParameters(ior);
  verzeichnung.SetPoint(ck * px / pz, ck * py / pz, pz);
  const ImagePoint correction = verzeichnung.Correction();
  return {(verzeichnung.x + correction.x) / ck * frame.cp + frame.xh,
          (verzeichnung.y + correction.y) / ck * frame.cp + frame.yh};
}

KameraModell::KameraModell(
    const DataIor& ior, const ImageFrame& imageFrame, double px, double py, double pz) noexcept
    : X(px), Y(py), Z(pz), ck(ior.Calibration()[DataIor::kCk]), frame(imageFrame) {
  verzeichnung.SetParameters(ior);
  verzeichnung.SetPoint(ck * X / Z, ck * Y / Z, Z);
  correction = verzeichnung.Correction();
  correctionJacobian = verzeichnung.CorrectionJacobian();
}

ImagePoint KameraModell::Image() const noexcept {
  return {(verzeichnung.x + correction.x) / ck * frame.cp + frame.xh,
          (verzeichnung.y + correction.y) / ck * frame.cp + frame.yh};
}

void KameraModell::PointJacobian(double (&rowX)[3], double (&rowY)[3]) const noexcept {
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

ImagePoint KameraModell::ByProjectionCk() const noexcept {
  return {(verzeichnung.x + correction.x) / ck, (verzeichnung.y + correction.y) / ck};
}

ImagePoint KameraModell::ByCameraCk() const noexcept {
  const ImagePoint q = ByProjectionCk();
  const double tx = X / Z;
  const double ty = Y / Z;
  const ImageJacobian& m = correctionJacobian;
  return {q.x + frame.cp * (m.xx * tx + m.xy * ty) / ck - frame.cp * correction.x / (ck * ck),
          q.y + frame.cp * (m.yx * tx + m.yy * ty) / ck - frame.cp * correction.y / (ck * ck)};
}

ImagePoint KameraModell::ByDistortion(DataIor::Parameter parameter) const noexcept {
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
