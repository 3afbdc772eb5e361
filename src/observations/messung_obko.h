#pragma once

#include "observations/messung.h"
#include "observations/punkt.h"

#include <array>
#include <cstdint>

namespace vermo {

class DataEor;
class DataObko;

// Measured coordinates of an object point, in the object frame or in the frame of an image:
//   f = transpose(R2) (R1 X + t1 - t2)
// with the relation (R1, t1) of the image that the point is given in and the relation (R2, t2)
// of the image that the measurement is given in, each only when there is one.
class MessungObko final : public TMessung<3>, public Punkt3S {
 public:
  static constexpr std::uint32_t kNoBezug = 0xFFFFFFFF;

  MessungObko() : TMessung(MessungKind::Obko) {}

  void SetWeights(const NetworkSettings& settings) override;
  [[nodiscard]] std::string GetDescription() const override;
  [[nodiscard]] std::string GetIdentText() const override;
  // False also when the image of the measurement is no longer active.
  bool ObservationEquations(EquationBlock& equations) override;
  void CollectColumns(GroupColumns& columns) const override;
  [[nodiscard]] std::string GetProtocolLine() const override;
  [[nodiscard]] bool IsConnected() const override { return fPunkt != nullptr; }
  // The image of the measurement is not asked.
  [[nodiscard]] bool IsUsable() const override;

  // A-priori standard deviations of X, Y, Z, above 0.
  [[nodiscard]] const std::array<double, 3>& Sigma() const noexcept { return fSigma; }
  void SetSigma(const std::array<double, 3>& sigma) noexcept { fSigma = sigma; }

  [[nodiscard]] const DataObko* Punkt() const noexcept { return fPunkt; }
  void SetPunkt(const DataObko* punkt) noexcept { fPunkt = punkt; }

  // The image in whose frame the coordinates are given.
  [[nodiscard]] std::uint32_t BezugNummer() const noexcept { return fBezugNummer; }
  void SetBezugNummer(std::uint32_t nummer) noexcept { fBezugNummer = nummer; }
  [[nodiscard]] bool NamesBezug() const noexcept { return fBezugNummer != kNoBezug; }
  [[nodiscard]] const DataEor* Bezug() const noexcept { return fBezug; }
  void SetBezug(const DataEor* bezug) noexcept { fBezug = bezug; }
  [[nodiscard]] bool HasBezug() const noexcept { return fBezug != nullptr; }

 private:
  std::array<double, 3> fSigma{};
  const DataObko* fPunkt = nullptr;  // set by the run, not owned
  std::uint32_t fBezugNummer = kNoBezug;
  const DataEor* fBezug = nullptr;  // set by the run, not owned
};

}  // namespace vermo
