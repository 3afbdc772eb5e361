#include "linalg/tensors.h"

#include "linalg/rotation_angles.h"
#include "linalg/tensor_exception.h"

namespace ostra_bundle {

void Normalize(VektorD<3>& a) {
  const double length = Length(a);
  if (length == 0.0) throw TensorExceptDivisionByZero();
  for (std::size_t i = 0; i < 3; ++i) a[i] /= length;
}

VektorD<3> Normalized(const VektorD<3>& a) {
  VektorD<3> result = a;
  Normalize(result);
  return result;
}

VektorD<3> ElementwiseSqrt(const VektorD<3>& a) {
  VektorD<3> result{0.0, 0.0, 0.0};
  for (std::size_t i = 0; i < 3; ++i) {
    if (a[i] < 0.0) throw TensorExceptSquareRootOfNegative();
    result[i] = std::sqrt(a[i]);
  }
  return result;
}

double AngleBetween(const VektorD<3>& a, const VektorD<3>& b) noexcept {
  const VektorD<3> p = Scale(a, Length(b));
  const VektorD<3> q = Scale(b, Length(a));
  return 2.0 * std::atan2(Length(Subtract(q, p)), Length(Add(q, p)));
}

Rotation3 RotationFromAngles(double a, double b, double c) noexcept {
  const double sa = std::sin(a);
  const double ca = std::cos(a);
  const double sb = std::sin(b);
  const double cb = std::cos(b);
  const double sc = std::sin(c);
  const double cc = std::cos(c);
  return {cc * cb,
          -sc * cb,
          sb,
          sb * sa * cc + sc * ca,
          cc * ca - sb * sa * sc,
          -cb * sa,
          sc * sa - sb * ca * cc,
          sb * ca * sc + cc * sa,
          cb * ca};
}

Rotation3 RotationFromQuaternion(double x, double y, double z, double w) {
  const double n = std::sqrt(x * x + y * y + z * z + w * w);
  if (n == 0.0) throw TensorExceptDivisionByZero();
  x /= n;
  y /= n;
  z /= n;
  w /= n;
  return {x * x + w * w - y * y - z * z,
          2.0 * (x * y - z * w),
          2.0 * (x * z + y * w),
          2.0 * (x * y + z * w),
          w * w - x * x + y * y - z * z,
          2.0 * (y * z - x * w),
          2.0 * (x * z - y * w),
          2.0 * (y * z + x * w),
          w * w - x * x - y * y + z * z};
}

Rotation3 FrameFromVectors(const VektorD<3>& p, const VektorD<3>& q) {
  const VektorD<3> u = Normalized(p);
  const VektorD<3> t = Normalized(q);
  const VektorD<3> m = Normalized(Cross(u, t));
  const VektorD<3> first = Normalized(Cross(m, u));
  return {first[0], first[1], first[2], m[0], m[1], m[2], u[0], u[1], u[2]};
}

std::array<double, 3> AnglesFromRotation(const Rotation3& r) noexcept {
  return AnglesType1<double>(r);
}

}  // namespace ostra_bundle
