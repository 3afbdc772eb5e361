#include "observations/messung_strecke.h"

#include "checks/language.h"
#include "observations/point_node.h"
#include "observations/protocol_text.h"
#include "unknowns/network_settings.h"

namespace vermo {

void MessungStrecke::SetWeights(const NetworkSettings& settings) {
  SetWeight(0, settings.S0Apriori(), fSigma);
}

std::string MessungStrecke::GetDescription() const {
  return ByLanguage("Strecke ", "Distance ") + GetIdentText();
}

std::string MessungStrecke::GetIdentText() const {
  return std::to_string(fPunkt1Nummer) + " - " + std::to_string(fPunkt2Nummer);
}

bool MessungStrecke::ObservationEquations(EquationBlock& equations) {
  equations.Reset(Dimension());
  if (!IsActive() || !IsUsable()) return false;

  const PointNode a(*fPunkt1);
  const PointNode b(*fPunkt2);
  MatDistance3D distance;
  distance.SetLeft(a.Root());
  distance.SetRight(b.Root());

  double computed = 0.0;
  distance.Value(computed);
  ScalarJacobian jacobian;
  distance.Derivatives(jacobian);
  AppendToDesignRow(jacobian, 0, equations.rows[0]);
  AppendComponent(equations, 0, fStrecke - computed);
  return true;
}

bool MessungStrecke::IsUsable() const {
  return IsConnected() && fPunkt1->IsActive() && fPunkt2->IsActive();
}

void MessungStrecke::CollectColumns(GroupColumns& columns) const {
  AddPoint(columns, *fPunkt1);
  AddPoint(columns, *fPunkt2);
}

std::string MessungStrecke::GetProtocolLine() const {
  ProtocolText line;
  line.Integer(fPunkt1Nummer, 6).Text(" ").Integer(fPunkt2Nummer, 6).Text(" ").Ordinal(Ordinal());
  line.Fixed(fStrecke, 11, 4).Text(" ").Fixed(fSigma, 11, 4);
  line.Fixed(Wert(0).Redundanz(), 8, 4).Text(" ").Fixed(Wert(0).Testwert(), 5, 2).Text(" ");
  return line.Text(RowMark()).Text("\n").Str();
}

}  // namespace vermo
