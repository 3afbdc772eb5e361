#pragma once

#include "unknowns/data.h"
#include "unknowns/eor.h"

#include <array>
#include <cstdint>

namespace vermo {

class DataIor;
class DataProjektion;

// The orientation of an image: six unknowns, three translations of the projection centre, then
// three small rotations about the axes of the object frame, multiplied onto the matrix from the
// left. The rotation is a matrix throughout; angles exist only for input and output.
class DataEor final : public Data, public Eor {
 public:
  // Three angles in radians with their standard deviations, in the order of the record.
  struct Angles {
    std::array<double, 3> values;
    std::array<double, 3> sigmas;
  };

  // Forgets the links to camera and projection.
  void ResetUnknowns() override;
  [[nodiscard]] std::uint32_t UnknownCount() const override { return IsVariable() ? 6 : 0; }
  void ApplySolution(std::span<const double> solution) override;
  // A negative variance counts as 0.
  void StoreAccuracy(const NormalSystem& cofactors, double s0) override;
  [[nodiscard]] std::string GetIdentText() const override;
  [[nodiscard]] std::string GetDescription() const override;

  // Holds the linked image coordinates against the approximate orientation: one without a model
  // value, or whose measured and computed directions in the camera frame differ by more than
  // the angle limit of the settings, is marked as outlier. Does nothing unless the image is
  // active and has a camera.
  void Connect(const NetworkSettings& settings) override;

  // The angles of rotation type 1, 2 or 4 and, for a variable image, their standard deviations
  // by first-order propagation of the covariance of the three rotations; those of a fixed image
  // are 0. Type 1 reads a variable image from the transposed matrix and a fixed one from the
  // matrix itself. False for another type or when a result is not finite.
  [[nodiscard]] bool ToAngles(std::uint32_t rotationType, Angles& angles) const;

  // Standard deviations of x, y, z, object units, and of the rotations about x, y, z, radians.
  [[nodiscard]] const std::array<double, 6>& Sigma() const noexcept { return fSigma; }
  // Standard deviations of the matrix elements by rows.
  [[nodiscard]] const std::array<double, 9>& SigmaRotation() const noexcept {
    return fSigmaRotation;
  }

  // Rotation type and angle unit as given by the caller.
  [[nodiscard]] std::uint32_t Format() const noexcept { return fFormat; }
  void SetFormat(std::uint32_t format) noexcept { fFormat = format; }

  [[nodiscard]] DataIor* Ior() const noexcept { return fIor; }
  void SetIor(DataIor* ior) noexcept { fIor = ior; }
  [[nodiscard]] std::uint32_t ProjektionId() const noexcept { return fProjektionId; }
  void SetProjektionId(std::uint32_t id) noexcept { fProjektionId = id; }
  [[nodiscard]] DataProjektion* Projektion() const noexcept { return fProjektion; }
  void SetProjektion(DataProjektion* projektion) noexcept { fProjektion = projektion; }

 private:
  DataIor* fIor = nullptr;                // set by the run, not owned
  DataProjektion* fProjektion = nullptr;  // set by the run, not owned
  std::uint32_t fProjektionId = kNoId;
  std::array<double, 9> fSigmaRotation{};
  std::array<double, 6> fSigma{};
  // Of the three rotations, by rows. The angles need its correlations.
  std::array<double, 9> fRotationCovariance{};
  std::uint32_t fFormat = 0;
};

}  // namespace vermo
