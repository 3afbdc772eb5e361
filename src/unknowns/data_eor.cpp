#include "unknowns/data_eor.h"

#include "checks/language.h"
#include "checks/latin1.h"
#include "linalg/dual3.h"
#include "linalg/rotation_angles.h"
#include "unknowns/data_ior.h"
#include "unknowns/data_projektion.h"
#include "unknowns/network_settings.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vermo {
namespace {

using ostra_bundle::Dual3;

// dR = skew(dtheta) R, by rows:
//   row 0 = dtheta1 R2 - dtheta2 R1,  row 1 = dtheta2 R0 - dtheta0 R2,
//   row 2 = dtheta0 R1 - dtheta1 R0
std::array<Dual3, 9> RotationWithDerivatives(const std::array<double, 9>& r) {
  std::array<Dual3, 9> result;
  for (unsigned c = 0; c < 3; ++c) {
    result[c] = {r[c], {0.0, r[6 + c], -r[3 + c]}};
    result[3 + c] = {r[3 + c], {-r[6 + c], 0.0, r[c]}};
    result[6 + c] = {r[6 + c], {r[3 + c], -r[c], 0.0}};
  }
  return result;
}

template <typename T>
std::array<T, 9> Transposed(const std::array<T, 9>& m) {
  return {m[0], m[3], m[6], m[1], m[4], m[7], m[2], m[5], m[8]};
}

// g covariance transpose(g)
double Propagate(const std::array<double, 3>& g, const std::array<double, 9>& covariance) {
  double variance = 0.0;
  for (unsigned i = 0; i < 3; ++i)
    for (unsigned j = 0; j < 3; ++j) variance += g[i] * covariance[3 * i + j] * g[j];
  return variance;
}

// Whether the angle between the directions of both positions is above the limit, whose cosine is
// given: 2 atan2(|(|b| a - |a| b)|, |(|b| a + |a| b)|), without the cancellation of an arc cosine.
// Most angles are far below it, as their cosine already tells.
bool IsFartherThan(double limit, double cosine, const ImagePointPair& point, double ck) {
  const ostra_bundle::VektorD<3> measured{point.measuredX, point.measuredY, ck};
  const ostra_bundle::VektorD<3> computed{point.computedX, point.computedY, ck};
  constexpr double kDoubt = 1e-9;
  const double scale =
      std::sqrt(ostra_bundle::Dot(measured, measured) * ostra_bundle::Dot(computed, computed));
  if (std::isnormal(scale) && limit > 0.0 &&
      ostra_bundle::Dot(measured, computed) > (cosine + kDoubt) * scale)
    return false;
  return ostra_bundle::AngleBetween(measured, computed) > limit;
}

}  // namespace

void DataEor::ResetUnknowns() {
  Data::ResetUnknowns();
  fIor = nullptr;
  fProjektion = nullptr;
}

void DataEor::ApplySolution(std::span<const double> solution) {
  if (!HasColumns()) return;
  const std::span<const double> d = Increments(solution);
  for (unsigned i = 0; i < 3; ++i) fTranslation[i] += d[i];
  fRotation = ostra_bundle::Multiply(
      ostra_bundle::RotationFromQuaternion(d[3] / 2.0, d[4] / 2.0, d[5] / 2.0, 1.0), fRotation);
}

void DataEor::StoreAccuracy(const NormalSystem& cofactors, double s0) {
  if (!HasColumns()) return;
  for (unsigned i = 0; i < 6; ++i) fSigma[i] = std::sqrt(std::max(0.0, Variance(cofactors, s0, i)));
  for (unsigned i = 0; i < 3; ++i)
    for (unsigned j = 0; j < 3; ++j)
      fRotationCovariance[3 * i + j] = s0 * s0 * OwnCofactor(cofactors, 3 + i, 3 + j);

  const std::array<Dual3, 9> elements = RotationWithDerivatives(fRotation);
  for (unsigned e = 0; e < 9; ++e) {
    double variance = 0.0;
    for (unsigned k = 0; k < 3; ++k) {
      const double part = elements[e].derivative[k] * fSigma[3 + k];
      variance += part * part;
    }
    fSigmaRotation[e] = std::sqrt(variance);
  }
}

std::string DataEor::GetIdentText() const { return std::to_string(Id()); }

std::string DataEor::GetDescription() const {
  return ByLanguage("Äussere Orientierung "_latin1, "Exterior Orientation ") + GetIdentText();
}

void DataEor::Connect(const NetworkSettings& settings) {
  if (!IsActive() || fIor == nullptr) return;
  const double ck = fProjektion == nullptr ? fIor->Calibration()[DataIor::kCk]
                                           : fProjektion->Values()[DataProjektion::kCk];
  const double limit = settings.AngleLimit();
  const double cosine = std::cos(std::min(limit, std::numbers::pi));
  for (LinkedObservation* messung : Messungen()) {
    if (messung->Kind() != MessungKind::Biko || !messung->IsActive()) continue;
    ImagePointPair point{};
    if (!messung->EvaluateImagePoint(point) || IsFartherThan(limit, cosine, point, ck))
      messung->SetAusreisser();
  }
}

bool DataEor::ToAngles(std::uint32_t rotationType, Angles& angles) const {
  const std::array<Dual3, 9> r = RotationWithDerivatives(fRotation);
  std::array<Dual3, 3> result;
  switch (rotationType) {
    case 1:
      result = ostra_bundle::AnglesType1(IsVariable() ? Transposed(r) : r);
      break;
    case 2:
      result = ostra_bundle::AnglesType2(Transposed(r));
      break;
    case 4:
      result = ostra_bundle::AnglesType4(r);
      break;
    default:
      return false;
  }
  bool finite = true;
  for (unsigned i = 0; i < 3; ++i) {
    angles.values[i] = result[i].value;
    angles.sigmas[i] =
        IsVariable()
            ? std::sqrt(std::max(0.0, Propagate(result[i].derivative, fRotationCovariance)))
            : 0.0;
    finite = finite && std::isfinite(angles.values[i]) && std::isfinite(angles.sigmas[i]);
  }
  return finite;
}

}  // namespace vermo
