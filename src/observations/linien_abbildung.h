#pragma once

#include "linalg/tensors.h"
#include "observations/kamera_modell.h"

namespace vermo {

// The image of a line, ideal and distorted: pure functions on values, image units.

// The ideal image of a line in an image of principal distance ck, from the normal n of the plane
// through the projection centre and the line, in the camera frame:
//   q = 1 / sqrt(n1^2 + n2^2), unit normal u = q (n1, n2),
//   signed distance of an image point (x, y): q s, s = n . (x, y, ck)
struct IdealLine {
  ostra_bundle::VektorD<3> n;
  double q;
  ImagePoint u;

  [[nodiscard]] static IdealLine Of(const ostra_bundle::VektorD<3>& normal) noexcept;
};

// Where the distorted image of a line comes next to a measured point.
struct DistortedFoot {
  double distance;    // signed, of the measured point from the distorted line
  double stretch;     // of the distortion across the line, w . (D w)
  ImagePoint start;   // F: the start foot point in the real image
  ImagePoint normal;  // w: the unit normal of the distorted line there
};

// Finds the foot in exactly ten passes, without a test of convergence, so that the result depends
// on the input alone. Throws TensorExceptDivisionByZero when a normal has length 0.
//   E(f)  correction of the distortion without its depth terms, plus the principal point
//   D     I + Jacobian of E at f, g = D u of unit length, dist = g . (measured - f - E(f))
//   f     moves by the part of the rest along the real line, projected on the ideal one
[[nodiscard]] DistortedFoot FindDistortedFoot(const DataIor& ior,
                                              const IdealLine& line,
                                              const ImagePoint& measured,
                                              double s);

}  // namespace vermo
