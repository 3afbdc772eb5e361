#pragma once

#include "observations/messung.h"
#include "observations/punkt.h"

#include <cstdint>

namespace vermo {

class DataEor;
class DataIor;
class DataObko;
class DataProjektion;
struct ImagePoint;
struct KameraModell;

// An image coordinate: the image position of an object point. The point goes out of its own frame
// into the object frame, into the frame of the image and, for a relative pair, on into the frame
// of the base image; then through the camera model with the camera's or the projection's
// principal distance and principal point.
class MessungBiko final : public TMessung<2>, public Punkt2S {
 public:
  MessungBiko() : TMessung(MessungKind::Biko) {}

  void SetWeights(const NetworkSettings& settings) override;
  [[nodiscard]] std::string GetDescription() const override;
  [[nodiscard]] std::string GetIdentText() const override;
  // A point in the plane of the projection centre gives infinities or NaN, no failure. The rows
  // leave out how the distortion depends on the depth.
  bool ObservationEquations(EquationBlock& equations) override;
  void CollectColumns(GroupColumns& columns) const override;
  void FetchGroups() const override;
  [[nodiscard]] std::string GetProtocolLine() const override;
  [[nodiscard]] bool IsConnected() const override {
    return fEor != nullptr && fPunkt != nullptr && fIor != nullptr;
  }
  [[nodiscard]] bool IsUsable() const override;
  bool EvaluateImagePoint(ImagePointPair& point) override;

  // The number of the image that the point was measured in.
  [[nodiscard]] std::uint32_t BildNummer() const noexcept { return fBildNummer; }
  void SetBildNummer(std::uint32_t nummer) noexcept { fBildNummer = nummer; }

  [[nodiscard]] const DataObko* Punkt() const noexcept { return fPunkt; }
  void SetPunkt(const DataObko* punkt) noexcept { fPunkt = punkt; }
  // The orientation through which the point is transformed first.
  [[nodiscard]] const DataEor* GetEor() const noexcept { return fEor; }
  void SetEor(const DataEor* eor) noexcept { fEor = eor; }
  [[nodiscard]] const DataIor* GetIor() const noexcept { return fIor; }
  void SetIor(const DataIor* ior) noexcept { fIor = ior; }
  // The second orientation of a relative pair, given in the frame of the first.
  [[nodiscard]] const DataEor* EorBasis() const noexcept { return fEorBasis; }
  void SetEorBasis(const DataEor* eor) noexcept { fEorBasis = eor; }
  [[nodiscard]] const DataProjektion* Projektion() const noexcept { return fProjektion; }
  void SetProjektion(const DataProjektion* projektion) noexcept { fProjektion = projektion; }

 private:
  // Rows and model value of a point of the object frame in an image, written out.
  ImagePoint PlainEquations(EquationBlock& equations) const;
  // The same through all frames that stand between, by the chain rule.
  ImagePoint ChainedEquations(EquationBlock& equations) const;
  void AppendInterior(const KameraModell& model,
                      const DataProjektion* projektion,
                      EquationBlock& equations) const;

  std::uint32_t fBildNummer = 0xFFFFFFFF;
  const DataObko* fPunkt = nullptr;  // links are set by the run, not owned
  const DataEor* fEor = nullptr;
  const DataIor* fIor = nullptr;
  const DataEor* fEorBasis = nullptr;
  const DataProjektion* fProjektion = nullptr;
};

}  // namespace vermo
