#include "observations/messung_obko.h"

#include "checks/language.h"
#include "observations/point_node.h"
#include "observations/protocol_text.h"
#include "unknowns/network_settings.h"

#include <optional>

namespace vermo {

void MessungObko::SetWeights(const NetworkSettings& settings) {
  for (std::uint32_t i = 0; i < 3; ++i) SetWeight(i, settings.S0Apriori(), fSigma[i]);
}

std::string MessungObko::GetDescription() const {
  return ByLanguage("Objektkoordinate Punkt ", "Object coordinate point ") + GetIdentText();
}

std::string MessungObko::GetIdentText() const { return std::to_string(Nummer()); }

bool MessungObko::ObservationEquations(EquationBlock& equations) {
  equations.Reset(Dimension());
  if (!IsActive() || fPunkt == nullptr) return false;
  if (fBezug != nullptr && !fBezug->IsActive()) return false;

  const PointNode point(*fPunkt);
  const MatObject<ostra_bundle::VektorD<3>>* root = point.Root();
  std::optional<IntoImageNode> intoFrame;
  if (fBezug != nullptr) root = intoFrame.emplace(*fBezug, root).Root();

  ostra_bundle::VektorD<3> computed;
  root->Value(computed);
  VectorJacobian jacobian;
  root->Derivatives(jacobian);
  for (std::uint32_t i = 0; i < 3; ++i) {
    AppendToDesignRow(jacobian, i, equations.rows[i]);
    AppendComponent(equations, i, (*this)[i] - computed[i]);
  }
  return true;
}

bool MessungObko::IsUsable() const { return IsConnected() && fPunkt->IsActive(); }

void MessungObko::CollectColumns(GroupColumns& columns) const {
  AddPoint(columns, *fPunkt);
  if (fBezug != nullptr) columns.Add(*fBezug);
}

std::string MessungObko::GetProtocolLine() const {
  ProtocolText line;
  line.Integer(Nummer(), 8).Text(" ").Ordinal(Ordinal());
  // The width goes to the first number of a run; the others stand next to it without a blank.
  line.Fixed((*this)[0], 12, 4).Fixed((*this)[1], 0, 4).Fixed((*this)[2], 0, 4);
  const std::span<const MessungWert> werte = CollectComponents();
  line.Fixed(werte[0].Residuum(), 9, 4);
  line.Fixed(werte[1].Residuum(), 0, 4).Fixed(werte[2].Residuum(), 0, 4);
  for (const MessungWert& wert : werte) line.Fixed(wert.Redundanz(), 0, 4);
  for (const MessungWert& wert : werte) line.Fixed(wert.Testwert(), 0, 4);
  return line.Text(RowMark()).Text("\n").Str();
}

}  // namespace vermo
