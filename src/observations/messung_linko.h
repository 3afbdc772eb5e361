#pragma once

#include "observations/messung.h"
#include "observations/punkt.h"

#include <cstdint>

namespace vermo {

class DataEor;
class DataIor;
class DataLinie;

// A line image coordinate: an image point known to lie on the image of a line, anywhere along it.
// The observed quantity is the signed distance of the measured point from the line's image, in
// the distorted image; its measured value is 0. A straight line is straight in the ideal image
// only, so the nearest point of the distorted line is found in ten passes, and the ideal distance
// is differentiated and scaled by the stretch of the distortion across the line.
class MessungLinko final : public TMessung<1>, public Punkt2S {
 public:
  MessungLinko() : TMessung(MessungKind::Linko) {}

  // By the first standard deviation; the second one is not used.
  void SetWeights(const NetworkSettings& settings) override;
  [[nodiscard]] std::string GetDescription() const override;
  [[nodiscard]] std::string GetIdentText() const override;
  // Throws KlException -41001 when one of the two points of the line lies in the plane of the
  // projection centre, TensorExceptDivisionByZero when the line runs through the centre.
  bool ObservationEquations(EquationBlock& equations) override;
  void CollectColumns(GroupColumns& columns) const override;
  [[nodiscard]] std::string GetProtocolLine() const override;
  [[nodiscard]] bool IsConnected() const override {
    return fLinie != nullptr && fEor != nullptr && fIor != nullptr;
  }
  // The base image is not asked.
  [[nodiscard]] bool IsUsable() const override;

  [[nodiscard]] std::uint32_t LinienNummer() const noexcept { return fLinienNummer; }
  void SetLinienNummer(std::uint32_t nummer) noexcept { fLinienNummer = nummer; }
  [[nodiscard]] std::uint32_t BildNummer() const noexcept { return fBildNummer; }
  void SetBildNummer(std::uint32_t nummer) noexcept { fBildNummer = nummer; }

  void SetLinie(const DataLinie* linie) noexcept { fLinie = linie; }
  void SetEor(const DataEor* eor) noexcept { fEor = eor; }
  void SetIor(const DataIor* ior) noexcept { fIor = ior; }
  void SetEorBasis(const DataEor* eor) noexcept { fEorBasis = eor; }
  [[nodiscard]] const DataEor* EorBasis() const noexcept { return fEorBasis; }

 private:
  const DataLinie* fLinie = nullptr;  // links are set by the run, not owned
  const DataEor* fEor = nullptr;
  const DataIor* fIor = nullptr;
  const DataEor* fEorBasis = nullptr;
  std::uint32_t fLinienNummer = 0xFFFFFFFF;
  std::uint32_t fBildNummer = 0xFFFFFFFF;
};

}  // namespace vermo
