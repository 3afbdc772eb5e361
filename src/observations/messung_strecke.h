#pragma once

#include "observations/messung.h"

#include <cstdint>

namespace vermo {

class DataObko;

// A measured distance between two object points, each taken in the object frame: d = |A - B|.
// The row is (A - B) / d for the first point and (B - A) / d for the second, and zero when d is
// exactly 0.
class MessungStrecke final : public TMessung<1> {
 public:
  MessungStrecke() : TMessung(MessungKind::Strecke) {}

  void SetWeights(const NetworkSettings& settings) override;
  [[nodiscard]] std::string GetDescription() const override;
  [[nodiscard]] std::string GetIdentText() const override;
  bool ObservationEquations(EquationBlock& equations) override;
  void CollectColumns(GroupColumns& columns) const override;
  [[nodiscard]] std::string GetProtocolLine() const override;
  [[nodiscard]] bool IsConnected() const override {
    return fPunkt1 != nullptr && fPunkt2 != nullptr;
  }
  [[nodiscard]] bool IsUsable() const override;

  // Measured distance and its a-priori standard deviation, object units.
  [[nodiscard]] double Strecke() const noexcept { return fStrecke; }
  [[nodiscard]] double Sigma() const noexcept { return fSigma; }
  void SetStrecke(double strecke, double sigma) noexcept {
    fStrecke = strecke;
    fSigma = sigma;
  }

  [[nodiscard]] std::uint32_t Punkt1Nummer() const noexcept { return fPunkt1Nummer; }
  [[nodiscard]] std::uint32_t Punkt2Nummer() const noexcept { return fPunkt2Nummer; }
  void SetNummern(std::uint32_t punkt1, std::uint32_t punkt2) noexcept {
    fPunkt1Nummer = punkt1;
    fPunkt2Nummer = punkt2;
  }
  void SetPunkte(const DataObko* punkt1, const DataObko* punkt2) noexcept {
    fPunkt1 = punkt1;
    fPunkt2 = punkt2;
  }

 private:
  std::uint32_t fPunkt1Nummer = 0xFFFFFFFF;
  std::uint32_t fPunkt2Nummer = 0xFFFFFFFF;
  double fStrecke = 0.0;
  double fSigma = 0.0;
  const DataObko* fPunkt1 = nullptr;  // set by the run, not owned
  const DataObko* fPunkt2 = nullptr;
};

}  // namespace vermo
