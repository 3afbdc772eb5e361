#include "unknowns/data_linie.h"

#include "checks/language.h"
#include "unknowns/local_frame.h"
#include "unknowns/propagation.h"

namespace vermo {
namespace {

// Points closer than this do not make a line.
constexpr double kSmallestLength = 1e-10;

}  // namespace

void DataLinie::SetPoints(const Vector& first, const Vector& second) {
  const Vector difference = ostra_bundle::Subtract(second, first);
  if (!(ostra_bundle::Length(difference) >= kSmallestLength))
    throw KlException(failure::kShortDirection);
  fDirection = ostra_bundle::Normalized(difference);
  fPoint = first;
}

void DataLinie::ApplySolution(std::span<const double> solution) {
  if (!HasColumns()) return;
  const std::span<const double> t = Increments(solution);
  const Vector first =
      ostra_bundle::Add(fPoint, ostra_bundle::MultiplyTransposed(fLocalFrame, {t[0], t[1], 0.0}));
  const ostra_bundle::Rotation3 tilted = ostra_bundle::Multiply(
      ostra_bundle::RotationFromQuaternion(t[2], t[3], 0.0, 1.0), fLocalFrame);
  const Vector direction = ostra_bundle::MultiplyTransposed(tilted, {0.0, 0.0, 1.0});
  SetPoints(first, ostra_bundle::Add(first, direction));
  // Far from the origin the difference of the points has lost digits of the direction.
  fDirection = ostra_bundle::Normalized(direction);
  PrepareDerivatives();
}

// With the frame M and unknowns t1 to t4, to first order:
//   dP = transpose(M) (t1, t2, 0)
//   dd = transpose(M) (-2 t4, 2 t3, 0), since Q e3 turned back is e3 - 2 (t3, t4, 0) x e3
// The tilts turn the line about its base point and leave the point where it is.
void DataLinie::StoreAccuracy(const NormalSystem& cofactors, double s0) {
  if (!HasColumns()) return;
  const auto covariance = CovarianceBlock<kUnknowns>(cofactors, FirstUnknown(), s0);
  const ostra_bundle::Rotation3& m = fLocalFrame;
  for (unsigned i = 0; i < 3; ++i) {
    fSigma[i] = PropagatedSigma<kUnknowns>({m[i], m[3 + i], 0.0, 0.0}, covariance);
    fSigma[3 + i] = PropagatedSigma<kUnknowns>({0.0, 0.0, 2.0 * m[3 + i], -2.0 * m[i]}, covariance);
  }
}

void DataLinie::PrepareDerivatives() { fLocalFrame = LocalFrameAbout(fDirection); }

std::string DataLinie::GetIdentText() const { return std::to_string(fId); }

std::string DataLinie::GetDescription() const {
  // No blank stands before the number.
  return ByLanguage("Linie", "Line") + GetIdentText();
}

}  // namespace vermo
