#include "observations/linien_abbildung.h"

#include "linalg/tensor_exception.h"

#include <cmath>

namespace vermo {
namespace {

constexpr int kPasses = 10;

double Dot(const ImagePoint& a, const ImagePoint& b) noexcept { return a.x * b.x + a.y * b.y; }

ImagePoint AddScaled(const ImagePoint& a, const ImagePoint& b, double factor) noexcept {
  return {a.x + b.x * factor, a.y + b.y * factor};
}

// A line through the projection centre has no normal in the image: its u is not a number, and
// that fails like a length of 0.
ImagePoint Normalized(const ImagePoint& a) {
  const double length = std::sqrt(Dot(a, a));
  if (!(length > 0.0)) throw ostra_bundle::TensorExceptDivisionByZero();
  return {a.x / length, a.y / length};
}

// The point f + E(f) of the real image, and D = I + Jacobian of E there.
struct RealImage {
  ImagePoint point;
  ImageJacobian d;
};

class RealImageOf {
 public:
  explicit RealImageOf(const DataIor& ior) noexcept
      : fPrincipalPoint{ior.Calibration()[DataIor::kXh], ior.Calibration()[DataIor::kYh]} {
    fVerzeichnung.SetParameters(ior);
    // The depth terms have no place here: a depth of 0 leaves them out.
    fVerzeichnung.az1 = fVerzeichnung.az2 = fVerzeichnung.az3 = 0.0;
  }

  RealImage operator()(const ImagePoint& f) noexcept {
    fVerzeichnung.SetPoint(f.x, f.y, 0.0);
    const ImagePoint e = fVerzeichnung.Correction();
    ImageJacobian d = fVerzeichnung.CorrectionJacobian();
    d.xx += 1.0;
    d.yy += 1.0;
    return {{f.x + e.x + fPrincipalPoint.x, f.y + e.y + fPrincipalPoint.y}, d};
  }

 private:
  Verzeichnung fVerzeichnung;
  ImagePoint fPrincipalPoint;
};

ImagePoint Apply(const ImageJacobian& d, const ImagePoint& a) noexcept {
  return {d.xx * a.x + d.xy * a.y, d.yx * a.x + d.yy * a.y};
}

}  // namespace

IdealLine IdealLine::Of(const ostra_bundle::VektorD<3>& normal) noexcept {
  const double q = 1.0 / std::sqrt(normal[0] * normal[0] + normal[1] * normal[1]);
  return {normal, q, {q * normal[0], q * normal[1]}};
}

DistortedFoot FindDistortedFoot(const DataIor& ior,
                                const IdealLine& line,
                                const ImagePoint& measured,
                                double s) {
  RealImageOf realImage(ior);
  const ImagePoint& u = line.u;
  ImagePoint f = AddScaled(measured, u, -line.q * s);
  RealImage real = realImage(f);
  DistortedFoot foot{};
  foot.start = real.point;
  foot.normal = Normalized(Apply(real.d, u));
  for (int pass = 0; pass < kPasses; ++pass) {
    real = realImage(f);
    const ImagePoint g = Normalized(Apply(real.d, u));
    const ImagePoint e = AddScaled(measured, real.point, -1.0);
    foot.distance = Dot(g, e);
    const ImagePoint h = AddScaled(e, g, -foot.distance);
    f = AddScaled(AddScaled(f, h, 1.0), u, -Dot(u, h));
  }
  foot.stretch = Dot(foot.normal, Apply(real.d, foot.normal));
  return foot;
}

}  // namespace vermo
