#include "observations/messung_biko.h"

#include "checks/language.h"
#include "observations/kamera_modell.h"
#include "observations/point_node.h"
#include "observations/protocol_text.h"
#include "unknowns/data_projektion.h"
#include "unknowns/network_settings.h"

#include <optional>

namespace vermo {
namespace {

// The principal distance and point of the projection replace the camera's altogether.
ImageFrame FrameOf(const DataIor& ior, const DataProjektion* projektion) noexcept {
  if (projektion != nullptr) {
    const auto& values = projektion->Values();
    return {values[DataProjektion::kCk], values[DataProjektion::kXh], values[DataProjektion::kYh]};
  }
  const DataIor::ParameterValues& p = ior.Calibration();
  return {p[DataIor::kCk], p[DataIor::kXh], p[DataIor::kYh]};
}

// Both rows of one unknown.
void Push(EquationBlock& equations,
          std::uint32_t column,
          const ImagePoint& coefficients,
          double scale = 1.0) noexcept {
  equations.rows[0].push(column, coefficients.x * scale);
  equations.rows[1].push(column, coefficients.y * scale);
}

void AppendProjektion(const KameraModell& model,
                      const DataProjektion& projektion,
                      EquationBlock& equations) noexcept {
  if (!projektion.IsVariable() || projektion.FirstUnknown() < 0) return;
  const auto first = static_cast<std::uint32_t>(projektion.FirstUnknown());
  Push(equations, first, model.ByProjectionCk());
  Push(equations, first + 1, {1.0, 0.0});
  Push(equations, first + 2, {0.0, 1.0});
}

// Only estimated parameters take a column. With a projection the camera's principal distance and
// point have no influence on the image: they keep their columns and write nothing.
void AppendCamera(const KameraModell& model,
                  const DataIor& ior,
                  bool withProjektion,
                  EquationBlock& equations) noexcept {
  if (!ior.IsVariable() || ior.FirstUnknown() < 0) return;
  auto column = static_cast<std::uint32_t>(ior.FirstUnknown());
  const DataIor::Mask& mask = ior.ParameterMask();
  if (mask[DataIor::kCk]) {
    if (!withProjektion) Push(equations, column, model.ByCameraCk());
    ++column;
  }
  if (mask[DataIor::kXh]) {
    if (!withProjektion) Push(equations, column, {1.0, 0.0});
    ++column;
  }
  if (mask[DataIor::kYh]) {
    if (!withProjektion) Push(equations, column, {0.0, 1.0});
    ++column;
  }
  for (unsigned p = DataIor::kA1; p < DataIor::kParameters; ++p) {
    if (!mask[p]) continue;
    Push(equations,
         column++,
         model.ByDistortion(static_cast<DataIor::Parameter>(p)),
         DataIor::kUnknownScale[p]);
  }
}

}  // namespace

void MessungBiko::SetWeights(const NetworkSettings& settings) {
  for (std::uint32_t i = 0; i < 2; ++i) SetWeight(i, settings.S0Apriori(), Sigma()[i]);
}

std::string MessungBiko::GetDescription() const {
  // The English text has no blank before the number of the point.
  return ByLanguage("Bildkoordinate Punkt ", "Image coordinate point") + GetIdentText() +
         ByLanguage(" ,Bild ", " ,Image ") + std::to_string(fBildNummer);
}

std::string MessungBiko::GetIdentText() const { return std::to_string(Nummer()); }

bool MessungBiko::ObservationEquations(EquationBlock& equations) {
  equations.Reset(Dimension());
  if (!IsActive() || !IsConnected()) return false;
  const bool isPlain = fEorBasis == nullptr && fPunkt->ReferenceEor() == nullptr;
  const ImagePoint computed = isPlain ? PlainEquations(equations) : ChainedEquations(equations);
  AppendComponent(equations, 0, (*this)[0] - computed.x);
  AppendComponent(equations, 1, (*this)[1] - computed.y);
  return true;
}

// With d = X - t and c = transpose(R) d an image row b = d image / d c becomes g = b transpose(R):
//   d image / d X = g    d image / d t = -g    d image / d theta = g x d
// for a rotation increment theta from the left.
ImagePoint MessungBiko::PlainEquations(EquationBlock& equations) const {
  const ostra_bundle::Rotation3& r = fEor->fRotation;
  const ostra_bundle::VektorD<3> d = ostra_bundle::Subtract(fPunkt->Current(), fEor->fTranslation);
  const ostra_bundle::VektorD<3> camera = ostra_bundle::MultiplyTransposed(r, d);
  const DataProjektion* projektion = fEor->Projektion();
  const KameraModell model(*fIor, FrameOf(*fIor, projektion), camera[0], camera[1], camera[2]);
  double byCamera[2][3];
  model.PointJacobian(byCamera[0], byCamera[1]);
  double g[2][3];
  for (unsigned i = 0; i < 2; ++i)
    for (std::size_t m = 0; m < 3; ++m)
      g[i][m] =
          byCamera[i][0] * r[3 * m] + byCamera[i][1] * r[3 * m + 1] + byCamera[i][2] * r[3 * m + 2];
  if (fPunkt->FirstUnknown() >= 0) {
    const auto column = static_cast<std::uint32_t>(fPunkt->FirstUnknown());
    for (unsigned m = 0; m < 3; ++m) Push(equations, column + m, {g[0][m], g[1][m]});
  }
  if (fEor->FirstUnknown() >= 0) {
    const auto column = static_cast<std::uint32_t>(fEor->FirstUnknown());
    for (unsigned m = 0; m < 3; ++m) Push(equations, column + m, {-g[0][m], -g[1][m]});
    for (unsigned m = 0; m < 3; ++m) {
      const unsigned p = (m + 1) % 3;
      const unsigned q = (m + 2) % 3;
      Push(equations,
           column + 3 + m,
           {g[0][p] * d[q] - g[0][q] * d[p], g[1][p] * d[q] - g[1][q] * d[p]});
    }
  }
  AppendInterior(model, projektion, equations);
  return model.Image();
}

ImagePoint MessungBiko::ChainedEquations(EquationBlock& equations) const {
  const PointNode point(*fPunkt);
  const IntoImageNode intoEor(*fEor, point.Root());
  const MatObject<ostra_bundle::VektorD<3>>* root = intoEor.Root();
  std::optional<IntoImageNode> intoBasis;
  if (fEorBasis != nullptr) root = intoBasis.emplace(*fEorBasis, root).Root();

  ostra_bundle::VektorD<3> camera;
  root->Value(camera);
  VectorJacobian chain;
  root->Derivatives(chain);

  const DataProjektion* projektion =
      fEorBasis != nullptr ? fEorBasis->Projektion() : fEor->Projektion();
  const KameraModell model(*fIor, FrameOf(*fIor, projektion), camera[0], camera[1], camera[2]);
  double byPoint[2][3];
  model.PointJacobian(byPoint[0], byPoint[1]);
  for (unsigned c = 0; c < chain.columns; ++c) {
    if (chain.tags[c] < 0) continue;
    for (unsigned i = 0; i < 2; ++i)
      equations.rows[i].push(static_cast<std::uint32_t>(chain.tags[c]),
                             byPoint[i][0] * chain.elements[0][c] +
                                 byPoint[i][1] * chain.elements[1][c] +
                                 byPoint[i][2] * chain.elements[2][c]);
  }
  AppendInterior(model, projektion, equations);
  return model.Image();
}

void MessungBiko::AppendInterior(const KameraModell& model,
                                 const DataProjektion* projektion,
                                 EquationBlock& equations) const {
  if (projektion != nullptr) AppendProjektion(model, *projektion, equations);
  AppendCamera(model, *fIor, projektion != nullptr, equations);
}

bool MessungBiko::IsUsable() const {
  return IsConnected() && fEor->IsActive() && fPunkt->IsActive() &&
         (fEorBasis == nullptr || fEorBasis->IsActive()) &&
         (fProjektion == nullptr || fProjektion->IsActive()) && fIor->IsActive();
}

// The coefficients are not asked for.
bool MessungBiko::EvaluateImagePoint(ImagePointPair& point) {
  if (!IsActive() || !IsConnected()) return false;
  const bool isPlain = fEorBasis == nullptr && fPunkt->ReferenceEor() == nullptr;
  ostra_bundle::VektorD<3> camera;
  const DataProjektion* projektion = fEor->Projektion();
  if (isPlain) {
    camera = ostra_bundle::MultiplyTransposed(
        fEor->fRotation, ostra_bundle::Subtract(fPunkt->Current(), fEor->fTranslation));
  } else {
    const PointNode node(*fPunkt);
    const IntoImageNode intoEor(*fEor, node.Root());
    std::optional<IntoImageNode> intoBasis;
    const MatObject<ostra_bundle::VektorD<3>>* root = intoEor.Root();
    if (fEorBasis != nullptr) {
      root = intoBasis.emplace(*fEorBasis, root).Root();
      projektion = fEorBasis->Projektion();
    }
    root->Value(camera);
  }
  const ImagePoint computed =
      ProjectIntoImage(*fIor, FrameOf(*fIor, projektion), camera[0], camera[1], camera[2]);
  StoreResiduum(0, (*this)[0] - computed.x);
  StoreResiduum(1, (*this)[1] - computed.y);
  point = {
      (*this)[0], (*this)[1], (*this)[0] + Wert(0).Residuum(), (*this)[1] + Wert(1).Residuum()};
  return true;
}

void MessungBiko::CollectColumns(GroupColumns& columns) const {
  AddPoint(columns, *fPunkt);
  columns.Add(*fEor);
  if (fEorBasis != nullptr) columns.Add(*fEorBasis);
  const DataProjektion* projektion =
      fEorBasis != nullptr ? fEorBasis->Projektion() : fEor->Projektion();
  if (projektion != nullptr) columns.Add(*projektion);
  columns.Add(*fIor);
}

// Images and cameras are few.
void MessungBiko::FetchGroups() const {
  if (fPunkt == nullptr) return;
  const char* point = reinterpret_cast<const char*>(fPunkt);
  constexpr std::size_t kLine = 64;
  for (std::size_t k = 0; k < sizeof *fPunkt; k += kLine) __builtin_prefetch(point + k);
}

std::string MessungBiko::GetProtocolLine() const {
  ProtocolText line;
  line.Integer(Nummer(), 6).Text(" ").Integer(fBildNummer, 6).Text(" ").Ordinal(Ordinal());
  for (std::uint32_t i = 0; i < 2; ++i) line.Fixed((*this)[i], 13, 6).Text(" ");
  for (std::uint32_t i = 0; i < 2; ++i) line.Fixed(Wert(i).Residuum(), 11, 6).Text(" ");
  for (std::uint32_t i = 0; i < 2; ++i) line.Fixed(Sigma()[i], 11, 6).Text(" ");
  for (std::uint32_t i = 0; i < 2; ++i) line.Fixed(Wert(i).Redundanz(), 6, 2).Text(" ");
  for (std::uint32_t i = 0; i < 2; ++i) line.Fixed(Wert(i).Testwert(), 5, 2).Text(" ");
  return line.Text(RowMark()).Text("\n").Str();
}

}  // namespace vermo
