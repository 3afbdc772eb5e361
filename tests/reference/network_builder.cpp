#include "reference/network_builder.h"

#include <array>
#include <cmath>
#include <cstdlib>

namespace reference {
namespace {

using Vec = std::array<double, 3>;
using Mat = std::array<double, 9>;

Mat Multiply(const Mat& a, const Mat& b) {
  Mat c{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j)
      for (std::size_t k = 0; k < 3; ++k) c[3 * i + j] += a[3 * i + k] * b[3 * k + j];
  return c;
}

Mat Rotation(double a, double b, double c) {
  const Mat x = {1, 0, 0, 0, std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a)};
  const Mat y = {std::cos(b), 0, std::sin(b), 0, 1, 0, -std::sin(b), 0, std::cos(b)};
  const Mat z = {std::cos(c), -std::sin(c), 0, std::sin(c), std::cos(c), 0, 0, 0, 1};
  return Multiply(Multiply(x, y), z);
}

Vec Into(const sXYZ_ExteriorOrient2& e, const Vec& x) {
  const Vec d = {x[0] - e.X0, x[1] - e.Y0, x[2] - e.Z0};
  Vec y{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t k = 0; k < 3; ++k) y[i] += e.Rotation[3 * k + i] * d[k];
  return y;
}

Vec OutOf(const sXYZ_ExteriorOrient2& e, const Vec& x) {
  Vec y = {e.X0, e.Y0, e.Z0};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t k = 0; k < 3; ++k) y[i] += e.Rotation[3 * i + k] * x[k];
  return y;
}

void SetRotation(sXYZ_ExteriorOrient2& e, const Mat& r) {
  for (std::size_t i = 0; i < 9; ++i) e.Rotation[i] = r[i];
}

Mat RotationOf(const sXYZ_ExteriorOrient2& e) {
  Mat r{};
  for (std::size_t i = 0; i < 9; ++i) r[i] = e.Rotation[i];
  return r;
}

// The third axis of the camera points away from the origin when ck is negative, towards it when
// it is positive; kappa turns freely.
Mat LookAtOrigin(const Vec& from, double kappa, bool away) {
  const double length = std::hypot(from[0], from[1], from[2]);
  const double sign = away ? 1.0 : -1.0;
  const Vec z = {sign * from[0] / length, sign * from[1] / length, sign * from[2] / length};
  Vec x = {-z[1], z[0], 0.0};
  const double across = std::hypot(x[0], x[1]);
  x = {x[0] / across, x[1] / across, 0.0};
  const Vec y = {z[1] * x[2] - z[2] * x[1], z[2] * x[0] - z[0] * x[2], z[0] * x[1] - z[1] * x[0]};
  return Multiply({x[0], y[0], z[0], x[1], y[1], z[1], x[2], y[2], z[2]},
                  Rotation(0.0, 0.0, kappa));
}

class Builder {
 public:
  explicit Builder(const Shape& shape) : fShape(shape), fRandom(shape.seed) {}

  Network Build() {
    MakeCameras();
    MakeImages();
    MakePoints();
    MeasureImages();
    MeasureControl();
    MeasureDistances();
    Disturb();
    fNetwork.datumTranslation = fNetwork.datumRotation = fShape.freeNetwork;
    fNetwork.datumScale = fShape.freeNetwork && fShape.distances == 0;
    return fNetwork;
  }

 private:
  void MakeCameras() {
    for (int i = 0; i < fShape.cameras; ++i) {
      sXYZ_InteriorOrient c{};
      c.Id = 100 + i;
      c.Ck = fShape.ck * (1.0 + 0.1 * i);
      c.R0 = fShape.r0;
      c.Flags = static_cast<std::uint16_t>(fShape.freeCameras ? 0x01 : 0x11);
      c.ParameterMask = fShape.mask;
      if (fShape.distortion) {
        c.Xh = 0.05;
        c.Yh = -0.08;
        c.A1 = 2e-5;
        c.A2 = -3e-8;
        c.A3 = 1e-11;
        c.B1 = 1e-5;
        c.B2 = -2e-5;
        c.C1 = 1e-4;
        c.C2 = -2e-4;
        c.AZ1 = (fShape.mask & 0x1000) != 0 ? 1e-5 : 0.0;
        c.AZ2 = (fShape.mask & 0x2000) != 0 ? 2e-8 : 0.0;
      }
      fNetwork.cameras.push_back(c);
    }
  }

  void MakeImages() {
    for (int i = 0; i < fShape.images; ++i) {
      const double angle = 6.283185307179586 * i / fShape.images + 0.3;
      sXYZ_ExteriorOrient2 e{};
      e.Id = 10 + i;
      e.IorId = 100 + i % fShape.cameras;
      e.ProjectionId = -1;
      e.Format = 3;
      e.Flags = static_cast<std::uint16_t>(i < fShape.fixedImages ? 0x11 : 0x01);
      const Vec from = {5.0 * std::cos(angle), 5.0 * std::sin(angle), 2.0 + 1.5 * (i % 3)};
      e.X0 = from[0];
      e.Y0 = from[1];
      e.Z0 = from[2];
      SetRotation(e, LookAtOrigin(from, 1.1 * i, fShape.ck < 0.0));
      if (fShape.projections && i % 2 == 0) {
        sXYZ_Projection p{};
        p.Id = 200 + i;
        p.Ck = fNetwork.cameras[static_cast<std::size_t>(i % fShape.cameras)].Ck * 1.05;
        p.Xh = 0.1;
        p.Yh = -0.2;
        p.Flags = static_cast<std::uint16_t>(fShape.fixedProjections ? 0x11 : 0x01);
        fNetwork.projections.push_back(p);
        e.ProjectionId = p.Id;
      }
      fNetwork.images.push_back(e);
    }
    if (!fShape.relative) return;
    // One further camera, the same relative pose to every image: a base in its frame.
    sXYZ_ExteriorOrient2 base{};
    base.Id = 50;
    base.IorId = 100;
    base.ProjectionId = -1;
    base.Format = 3;
    base.Flags = 0x01;
    base.X0 = 0.4;
    base.Y0 = -0.1;
    base.Z0 = 0.05;
    SetRotation(base, Rotation(0.03, -0.05, 0.4));
    fNetwork.images.push_back(base);
    for (int i = 0; i < fShape.images; ++i) fNetwork.pairs.push_back({60 + i, 10 + i, 50});
  }

  void MakePoints() {
    for (int i = 0; i < fShape.points; ++i) {
      sXYZ_ObjectCoord p{};
      p.Id = 1000 + i;
      p.X = fRandom.Uniform();
      p.Y = fRandom.Uniform();
      p.Z = 0.6 * fRandom.Uniform();
      p.ReferenceEor = -1;
      p.Flags = static_cast<std::uint16_t>(
          fShape.fixedControl && !fShape.freeNetwork && i < 4 ? 0x11 : 0x01);
      p.PointFlags = fShape.freeNetwork && i % 2 == 0 ? 1 : 0;
      if (fShape.bodyPoints && i % 4 == 3) {
        const sXYZ_ExteriorOrient2& body = fNetwork.images[1];
        const Vec local = Into(body, {p.X, p.Y, p.Z});
        p.X = local[0];
        p.Y = local[1];
        p.Z = local[2];
        p.ReferenceEor = body.Id;
      }
      fNetwork.points.push_back(p);
    }
  }

  [[nodiscard]] const sXYZ_ExteriorOrient2& Image(int id) const {
    for (const auto& e : fNetwork.images)
      if (e.Id == id) return e;
    std::abort();
  }

  [[nodiscard]] Vec World(const sXYZ_ObjectCoord& p) const {
    const Vec x = {p.X, p.Y, p.Z};
    return p.ReferenceEor == -1 ? x : OutOf(Image(p.ReferenceEor), x);
  }

  void AddImagePoint(int imageId, const sXYZ_ExteriorOrient2& owner, const Vec& camera, int point) {
    const auto& c = fNetwork.cameras[static_cast<std::size_t>(owner.IorId - 100)];
    const double x = c.Ck * camera[0] / camera[2];
    const double y = c.Ck * camera[1] / camera[2];
    const double r2 = x * x + y * y;
    const double q = c.R0 * c.R0;
    const double k = c.A1 * (r2 - q) + c.A2 * (r2 * r2 - q * q) +
                     c.A3 * (r2 * r2 * r2 - q * q * q) +
                     (c.AZ1 * (r2 - q) + c.AZ2 * (r2 * r2 - q * q)) / camera[2];
    const double dx = x * k + c.B1 * (2 * x * x + r2) + 2 * c.B2 * x * y + c.C1 * x + c.C2 * y;
    const double dy = y * k + c.B2 * (2 * y * y + r2) + 2 * c.B1 * x * y;
    double cp = c.Ck, hx = c.Xh, hy = c.Yh;
    for (const auto& p : fNetwork.projections)
      if (p.Id == owner.ProjectionId) {
        cp = p.Ck;
        hx = p.Xh;
        hy = p.Yh;
      }
    sXYZ_PictureCoord o{};
    o.Sx = fShape.noise * (1.0 + 0.5 * fRandom.Below(3));
    o.Sy = fShape.noise * (1.0 + 0.5 * fRandom.Below(3));
    o.X = (x + dx) / c.Ck * cp + hx + o.Sx * fRandom.Normal();
    o.Y = (y + dy) / c.Ck * cp + hy + o.Sy * fRandom.Normal();
    o.PointId = point;
    o.EorId = imageId;
    o.Flags = 0x01;
    fNetwork.imagePoints.push_back(o);
  }

  void MeasureImages() {
    for (int i = 0; i < fShape.images; ++i)
      for (const auto& p : fNetwork.points) {
        const auto& e = Image(10 + i);
        // A point in the frame of an image stands still there: it gives that image nothing.
        if (p.ReferenceEor != e.Id) AddImagePoint(e.Id, e, Into(e, World(p)), p.Id);
        if (fShape.relative) {
          const auto& base = Image(50);
          AddImagePoint(60 + i, base, Into(base, Into(e, World(p))), p.Id);
        }
      }
  }

  void AddMeasured(const sXYZ_ObjectCoord& p, int reference, double sigma) {
    const Vec x = reference == -1 ? World(p) : Into(Image(reference), World(p));
    sXYZ_MeasuredObjectCoord o{};
    o.Sx = sigma;
    o.Sy = 1.5 * sigma;
    o.Sz = 2.0 * sigma;
    o.X = x[0] + o.Sx * fRandom.Normal();
    o.Y = x[1] + o.Sy * fRandom.Normal();
    o.Z = x[2] + o.Sz * fRandom.Normal();
    o.PointId = p.Id;
    o.ReferenceEor = reference;
    o.Flags = 0x01;
    fNetwork.measured.push_back(o);
  }

  void MeasureControl() {
    if (!fShape.fixedControl && !fShape.freeNetwork)
      for (std::size_t i = 0; i < 5; ++i) AddMeasured(fNetwork.points[i], -1, 2e-4);
    if (fShape.measuredInImages)
      for (std::size_t i = 4; i < 9; ++i) AddMeasured(fNetwork.points[i], 11, 5e-4);
  }

  void MeasureDistances() {
    for (int i = 0; i < fShape.distances; ++i) {
      const auto& a = fNetwork.points[static_cast<std::size_t>(4 + i)];
      const auto& b = fNetwork.points[static_cast<std::size_t>(fShape.points - 1 - i)];
      if (a.Id == b.Id) continue;
      const Vec x = World(a);
      const Vec y = World(b);
      sXYZ_Distance o{};
      o.Sigma = 3e-4;
      o.S = std::hypot(x[0] - y[0], x[1] - y[1], x[2] - y[2]) + o.Sigma * fRandom.Normal();
      o.Point1 = a.Id;
      o.Point2 = b.Id;
      o.Flags = 0x01;
      fNetwork.distances.push_back(o);
    }
  }

  // Approximate values as a user has them.
  void Disturb() {
    for (auto& p : fNetwork.points) {
      if ((p.Flags & 0x10) != 0) continue;
      p.X += 0.01 * fRandom.Uniform();
      p.Y += 0.01 * fRandom.Uniform();
      p.Z += 0.01 * fRandom.Uniform();
    }
    for (auto& e : fNetwork.images) {
      if ((e.Flags & 0x10) != 0) continue;
      e.X0 += 0.02 * fRandom.Uniform();
      e.Y0 += 0.02 * fRandom.Uniform();
      e.Z0 += 0.02 * fRandom.Uniform();
      SetRotation(e,
                  Multiply(Rotation(0.004 * fRandom.Uniform(),
                                    0.004 * fRandom.Uniform(),
                                    0.004 * fRandom.Uniform()),
                           RotationOf(e)));
    }
    if (fShape.freeCameras)
      for (auto& c : fNetwork.cameras)
        if ((c.ParameterMask & 0x1) != 0) c.Ck *= 1.003;
    for (auto& p : fNetwork.projections)
      if ((p.Flags & 0x10) == 0) p.Ck *= 0.998;
  }

  Shape fShape;
  Random fRandom;
  Network fNetwork;
};

}  // namespace

double Random::Uniform() { return static_cast<double>(fGenerator() >> 11U) * 0x1p-52 - 1.0; }

double Random::Normal() {
  const double u1 = (static_cast<double>(fGenerator() >> 11U) + 1.0) * 0x1p-53;
  const double u2 = static_cast<double>(fGenerator() >> 11U) * 0x1p-53;
  return std::sqrt(-2.0 * std::log(u1)) * std::cos(6.283185307179586 * u2);
}

std::uint32_t Random::Below(std::uint32_t n) {
  return static_cast<std::uint32_t>(fGenerator() % n);
}

Network Build(const Shape& shape) { return Builder(shape).Build(); }

}  // namespace reference
