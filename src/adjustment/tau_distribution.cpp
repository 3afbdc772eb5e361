#include "adjustment/tau_distribution.h"

#include <cmath>

namespace vermo {
namespace {

// Student's t of the probability that belongs to the normal deviate z, for f degrees of freedom.
// Horner's scheme in z of the expansion
//   z + (z^3 + z) / 4 f + (5 z^5 + 16 z^3 + 3 z) / 96 f^2 + ...
double StudentQuantile(double z, double f) {
  const double z2 = z * z;
  const double g1 = z * (z2 + 1.0);
  const double g2 = z * ((5.0 * z2 + 16.0) * z2 + 3.0);
  const double g3 = z * (((3.0 * z2 + 19.0) * z2 + 17.0) * z2 - 15.0);
  const double g4 = z * ((((79.0 * z2 + 776.0) * z2 + 1482.0) * z2 - 1920.0) * z2 - 945.0);
  return z + g1 / (4.0 * f) + g2 / (96.0 * f * f) + g3 / (384.0 * f * f * f) +
         g4 / (92160.0 * f * f * f * f);
}

double TauOf(double t, double f) { return std::sqrt((f + 1.0) * (t * t) / (t * t + f)); }

}  // namespace

double NormalQuantile(double p) noexcept {
  if (!(p > 0.5) || p > 1.0) return 1.0;
  const double t = std::sqrt(std::log(1.0 / ((1.0 - p) * (1.0 - p))));
  return t - (2.515517 + 0.802853 * t + 0.010328 * t * t) /
                 (1.0 + 1.432788 * t + 0.189269 * t * t + 0.001308 * t * t * t);
}

double TauCritical(std::int32_t n, std::int32_t r, double p) noexcept {
  if (r < 1) return 1.0;
  const double f = static_cast<double>(r) - 1.0;
  const double z = NormalQuantile(1.0 - (1.0 - p) / (2.0 * n));
  return TauOf(f == 0.0 ? z : StudentQuantile(z, f), f);
}

}  // namespace vermo
