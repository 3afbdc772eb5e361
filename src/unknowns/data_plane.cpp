#include "unknowns/data_plane.h"

#include "checks/language.h"
#include "unknowns/local_frame.h"
#include "unknowns/propagation.h"

namespace vermo {

void DataPlane::SetPointAndNormal(const Vector& point, const Vector& normal) {
  const Vector unit = ostra_bundle::Normalized(normal);
  fPoint = point;
  fNormal = unit;
  PrepareDerivatives();
}

void DataPlane::ApplySolution(std::span<const double> solution) {
  if (!HasColumns()) return;
  const std::span<const double> t = Increments(solution);
  const ostra_bundle::Rotation3 tilted = ostra_bundle::Multiply(
      ostra_bundle::RotationFromQuaternion(t[0], t[1], 0.0, 1.0), fLocalFrame);
  fPoint =
      ostra_bundle::Add(fPoint, ostra_bundle::MultiplyTransposed(fLocalFrame, {0.0, 0.0, t[2]}));
  fNormal = ostra_bundle::MultiplyTransposed(tilted, {0.0, 0.0, 1.0});
  PrepareDerivatives();
}

// With the frame M and unknowns t1 to t3, to first order:
//   dP = transpose(M) (0, 0, t3)
//   dn = transpose(M) (-2 t2, 2 t1, 0)
void DataPlane::StoreAccuracy(const NormalSystem& cofactors, double s0) {
  if (!HasColumns()) return;
  const auto covariance = CovarianceBlock<kUnknowns>(cofactors, FirstUnknown(), s0);
  const ostra_bundle::Rotation3& m = fLocalFrame;
  for (unsigned i = 0; i < 3; ++i) {
    fSigma[i] = PropagatedSigma<kUnknowns>({0.0, 0.0, m[6 + i]}, covariance);
    fSigma[3 + i] = PropagatedSigma<kUnknowns>({2.0 * m[3 + i], -2.0 * m[i], 0.0}, covariance);
  }
}

void DataPlane::PrepareDerivatives() { fLocalFrame = LocalFrameAbout(fNormal); }

std::string DataPlane::GetIdentText() const { return std::to_string(fId); }

std::string DataPlane::GetDescription() const {
  return ByLanguage("Ebene ", "Plane ") + GetIdentText();
}

}  // namespace vermo
