#include "observations/messung_linko.h"

#include "checks/failure_codes.h"
#include "checks/kl_exception.h"
#include "checks/language.h"
#include "observations/linien_abbildung.h"
#include "observations/protocol_text.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_ior.h"
#include "unknowns/data_linie.h"
#include "unknowns/network_settings.h"

#include <array>

namespace vermo {
namespace {

using ostra_bundle::Add;
using ostra_bundle::Cross;
using ostra_bundle::Multiply;
using ostra_bundle::MultiplyTransposed;
using ostra_bundle::MultiplyVector;
using ostra_bundle::RelationD;
using ostra_bundle::Rotation3;
using ostra_bundle::Scale;
using ostra_bundle::Skew;
using ostra_bundle::Subtract;
using ostra_bundle::Transpose;
using Vector = ostra_bundle::VektorD<3>;

// The frame of the image: that of the orientation, or of the base given in its frame.
RelationD<3> ImageRelation(const DataEor& eor, const DataEor* basis) noexcept {
  RelationD<3> relation = eor;
  if (basis != nullptr) {
    relation.fRotation = Multiply(eor.fRotation, basis->fRotation);
    relation.fTranslation = eor.Forward(basis->fTranslation);
  }
  return relation;
}

void RefuseCameraPlane(const RelationD<3>& image, const Vector& point) {
  if (image.Back(point)[2] == 0.0) throw KlException(failure::kCameraPlane);
}

// b(A) = c (s (v A) + q (p A)), v = (-n1 q^3, -n2 q^3, 0): the derivative of q s by what moves n
// by A, scaled by the stretch c.
class DistanceByNormal {
 public:
  DistanceByNormal(const IdealLine& line, const Vector& p, double s, double stretch) noexcept
      : fFactor(Scale(Add(Scale(Vector{-line.n[0] * line.q * line.q * line.q,
                                       -line.n[1] * line.q * line.q * line.q,
                                       0.0},
                                s),
                          Scale(p, line.q)),
                      stretch)) {}

  [[nodiscard]] Vector operator()(const Rotation3& a) const noexcept {
    return MultiplyTransposed(a, fFactor);
  }

 private:
  Vector fFactor;
};

void Push(DesignRow& row, std::int32_t first, std::uint32_t offset, const Vector& b, unsigned n) {
  for (unsigned i = 0; i < n; ++i) row.push(static_cast<std::uint32_t>(first) + offset + i, b[i]);
}

void AppendOrientation(DesignRow& row,
                       const DataEor& eor,
                       const Vector& byTranslation,
                       const Vector& byRotation) {
  if (!eor.IsVariable() || eor.FirstUnknown() < 0) return;
  Push(row, eor.FirstUnknown(), 0, byTranslation, 3);
  Push(row, eor.FirstUnknown(), 3, byRotation, 3);
}

// Coefficients of the camera at the start foot point F with the real normal w; that of Ck alone
// has no minus sign. The depth terms have none, even when they are estimated.
void AppendCamera(DesignRow& row,
                  const DataIor& ior,
                  const IdealLine& line,
                  const DistortedFoot& foot) {
  if (!ior.IsVariable() || ior.FirstUnknown() < 0) return;
  const ImagePoint& f = foot.start;
  const ImagePoint& w = foot.normal;
  Verzeichnung v;
  v.SetParameters(ior);
  v.SetPoint(f.x, f.y, 0.0);
  const double along = f.x * w.x + f.y * w.y;
  const std::array<double, DataIor::kParameters> coefficients = {
      foot.stretch * line.q * line.n[2],
      -w.x,
      -w.y,
      -v.D1() * along,
      -v.D2() * along,
      -v.D3() * along,
      -((2.0 * f.x * f.x + v.r2) * w.x + 2.0 * f.x * f.y * w.y),
      -(2.0 * f.x * f.y * w.x + (2.0 * f.y * f.y + v.r2) * w.y),
      -f.x * w.x,
      -f.y * w.x,
      0.0,
      0.0,
      0.0};
  auto column = static_cast<std::uint32_t>(ior.FirstUnknown());
  for (unsigned p = 0; p < DataIor::kParameters; ++p) {
    if (!ior.ParameterMask()[p]) continue;
    if (p < DataIor::kAz1) row.push(column, coefficients[p] * DataIor::kUnknownScale[p]);
    ++column;
  }
}

}  // namespace

void MessungLinko::SetWeights(const NetworkSettings& settings) {
  SetWeight(0, settings.S0Apriori(), Sigma()[0]);
}

std::string MessungLinko::GetDescription() const {
  return ByLanguage("Linienkoordinate ", "Linie coordinate ") + GetIdentText() + " ,Linie " +
         std::to_string(fLinienNummer) + ByLanguage(" ,Bild ", " ,Image ") +
         std::to_string(fBildNummer);
}

std::string MessungLinko::GetIdentText() const { return std::to_string(Nummer()); }

bool MessungLinko::ObservationEquations(EquationBlock& equations) {
  equations.Reset(Dimension());
  if (!IsActive() || !IsConnected()) return false;

  const RelationD<3> image = ImageRelation(*fEor, fEorBasis);
  const Vector& origin = fLinie->Point();
  const Vector& d = fLinie->Direction();
  RefuseCameraPlane(image, origin);
  RefuseCameraPlane(image, Add(origin, d));

  const Vector w0 = Subtract(origin, image.fTranslation);
  const Vector moment = Cross(d, w0);
  const Rotation3 m = Transpose(image.fRotation);
  const IdealLine line = IdealLine::Of(MultiplyVector(m, moment));
  const Vector p{(*this)[0], (*this)[1], fIor->Calibration()[DataIor::kCk]};
  const double s = ostra_bundle::Dot(line.n, p);
  const DistortedFoot foot = FindDistortedFoot(*fIor, line, {p[0], p[1]}, s);

  const DistanceByNormal byNormal(line, p, s, foot.stretch);
  const Rotation3 mSkewD = Multiply(m, Skew(d));
  DesignRow& row = equations.rows[0];
  if (fLinie->IsVariable() && fLinie->FirstUnknown() >= 0) {
    const Rotation3 frame = Transpose(fLinie->LocalFrame());
    // A tilt of t turns the direction by 2 t.
    const Rotation3 byTilt =
        Scale(Multiply(Multiply(Multiply(m, Skew(w0)), frame), Skew(Vector{0.0, 0.0, 2.0})), -1.0);
    Push(row, fLinie->FirstUnknown(), 0, byNormal(Multiply(mSkewD, frame)), 2);
    Push(row, fLinie->FirstUnknown(), 2, byNormal(byTilt), 2);
  }
  const Vector basisTranslation = fEorBasis != nullptr
                                      ? MultiplyVector(fEor->fRotation, fEorBasis->fTranslation)
                                      : Vector{0.0, 0.0, 0.0};
  Rotation3 byRotation = Multiply(m, Skew(moment));
  const Rotation3 byLever = Multiply(mSkewD, Skew(basisTranslation));
  for (unsigned i = 0; i < 9; ++i) byRotation[i] += byLever[i];
  AppendOrientation(row, *fEor, byNormal(Scale(mSkewD, -1.0)), byNormal(byRotation));
  if (fEorBasis != nullptr)
    AppendOrientation(row,
                      *fEorBasis,
                      byNormal(Scale(Multiply(mSkewD, fEor->fRotation), -1.0)),
                      byNormal(Multiply(Transpose(fEorBasis->fRotation),
                                        Skew(MultiplyVector(Transpose(fEor->fRotation), moment)))));
  AppendCamera(row, *fIor, line, foot);
  AppendComponent(equations, 0, -foot.distance);
  return true;
}

bool MessungLinko::IsUsable() const {
  return IsConnected() && fLinie->IsActive() && fEor->IsActive() && fIor->IsActive();
}

void MessungLinko::CollectColumns(GroupColumns& columns) const {
  columns.Add(*fLinie);
  columns.Add(*fEor);
  if (fEorBasis != nullptr) columns.Add(*fEorBasis);
  columns.Add(*fIor);
}

std::string MessungLinko::GetProtocolLine() const {
  ProtocolText line;
  line.Integer(Nummer(), 6).Text(" ").Integer(fBildNummer, 6).Text(" ");
  line.Integer(fLinienNummer, 6).Text(" ").Ordinal(Ordinal());
  for (std::uint32_t i = 0; i < 2; ++i) line.Fixed((*this)[i], 11, 4).Text(" ");
  line.Fixed(Wert(0).Residuum(), 8, 4).Text(" ").Fixed(Wert(0).Redundanz(), 8, 4).Text(" ");
  line.Fixed(Wert(0).Testwert(), 5, 2).Text(" ");
  return line.Text(RowMark()).Text("\n").Str();
}

}  // namespace vermo
