#pragma once

namespace vermo {

// One scalar component of an observation, as the adjustment leaves it.
class MessungWert {
 public:
  // Residual v: computed minus measured, in the unit of the observation.
  [[nodiscard]] double Residuum() const noexcept { return fResiduum; }
  void SetResiduum(double v) noexcept { fResiduum = v; }
  // Redundancy number, 0 to 1.
  [[nodiscard]] double Redundanz() const noexcept { return fRedundanz; }
  void SetRedundanz(double r) noexcept { fRedundanz = r; }
  // A-priori weight: S0 squared over the variance.
  [[nodiscard]] double Gewicht() const noexcept { return fGewicht; }
  void SetGewicht(double p) noexcept { fGewicht = p; }
  // Test value of the outlier test.
  [[nodiscard]] double Testwert() const noexcept { return fTestwert; }
  void SetTestwert(double t) noexcept { fTestwert = t; }

  [[nodiscard]] double EffectiveWeight() const noexcept { return fGewicht * fGewichtFaktor; }
  [[nodiscard]] double WeightedSquare() const noexcept {
    return fResiduum * fResiduum * fGewicht * fGewichtFaktor;
  }

  // Clears residual, redundancy and test value; the weights stay.
  void ResetValues() noexcept { fResiduum = fRedundanz = fTestwert = 0.0; }

 private:
  double fResiduum = 0.0;
  double fRedundanz = 0.0;
  double fGewicht = 1.0;
  double fGewichtFaktor = 1.0;  // of a robust estimator; plain least squares leaves it at 1
  double fTestwert = 0.0;
};

}  // namespace vermo
