#pragma once

#include "observations/equation_block.h"
#include "observations/messung_biko.h"
#include "support/plane_rotations.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_ior.h"
#include "unknowns/data_obko.h"
#include "unknowns/data_projektion.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace vermo::test {

using Image = std::array<double, 2>;

// The model of an image coordinate written down a second time, from the formulas and from
// nothing of the library but the values that the groups hold.
struct ImageTranscription {
  std::array<double, 13> p;  // Ck, Xh, Yh, A1, A2, A3, B1, B2, C1, C2, AZ1, AZ2, AZ3
  double r0;
  double cp, hx, hy;

  // Distortion of the ideal image point (x, y) at depth z.
  [[nodiscard]] Image Distortion(double x, double y, double z) const {
    const double r = std::hypot(x, y);
    const double d[3] = {std::pow(r, 2.0) - std::pow(r0, 2.0),
                         std::pow(r, 4.0) - std::pow(r0, 4.0),
                         std::pow(r, 6.0) - std::pow(r0, 6.0)};
    double k = 0.0;
    for (unsigned i = 0; i < 3; ++i) k += p[3 + i] * d[i];
    if (z != 0.0) k += Depth(x, y) / z;
    return {x * k + p[6] * (3.0 * x * x + y * y) + 2.0 * p[7] * x * y + p[8] * x + p[9] * y,
            y * k + p[7] * (x * x + 3.0 * y * y) + 2.0 * p[6] * x * y};
  }
  // AZ1 D1 + AZ2 D2 + AZ3 D3
  [[nodiscard]] double Depth(double x, double y) const {
    const double r2 = x * x + y * y;
    const double q = r0 * r0;
    return p[10] * (r2 - q) + p[11] * (r2 * r2 - q * q) + p[12] * (r2 * r2 * r2 - q * q * q);
  }
  // The image of a point of the camera frame; depth is the z that the distortion sees.
  [[nodiscard]] Image At(const Vector3& point, double depth) const {
    const double x = p[0] * point[0] / point[2];
    const double y = p[0] * point[1] / point[2];
    const Image d = Distortion(x, y, depth);
    return {(x + d[0]) / p[0] * cp + hx, (y + d[1]) / p[0] * cp + hy};
  }
};

// One image coordinate with all that can stand behind it. Every group is active and variable and
// every camera parameter is estimated; lengths are those of a close-range camera in millimetres,
// with each distortion term of some hundredths at the point.
class ImageScene {
 public:
  ImageScene() {
    eor.fRotation = OmegaPhiKappa(0.08, -0.05, 0.3);
    eor.fTranslation = {10.0, 20.0, 1040.0};
    basis.fRotation = OmegaPhiKappa(0.05, 0.1, -0.2);
    basis.fTranslation = {40.0, -25.0, 15.0};
    body.fRotation = OmegaPhiKappa(0.3, -0.2, 0.4);
    body.fTranslation = {150.0, -100.0, 30.0};
    point.SetCoordinates({180.0, -140.0, 50.0});
    point.SetId(101);
    const double values[] = {
        -30.0, 0.2, -0.1, 1e-4, 1e-6, 1e-8, 2e-4, -1e-4, 3e-4, -2e-4, 0.05, 1e-4, 1e-6};
    for (unsigned i = 0; i < DataIor::kParameters; ++i)
      ior.SetParameter(static_cast<DataIor::Parameter>(i), values[i]);
    ior.SetR0(6.0);
    ior.SetParameterMask(0x1FFF);
    projektion.SetValues(-33.0, 0.4, 0.3);

    biko.SetNummer(101);
    biko.SetBildNummer(7);
    biko[0] = 1.25;
    biko[1] = -0.5;
    biko.SetSigma(0.001, 0.002);
    biko.SetPunkt(&point);
    biko.SetEor(&eor);
    biko.SetIor(&ior);
    biko.SetActive(true);
    groups = {&ior, &point, &eor};
    Number();
  }
  ImageScene(const ImageScene&) = delete;
  ImageScene& operator=(const ImageScene&) = delete;

  // The image is given in the frame of a second one.
  ImageScene& RelativePair() {
    biko.SetEorBasis(&basis);
    groups.push_back(&basis);
    Number();
    return *this;
  }
  // The point is given in the frame of a body.
  ImageScene& BodyBound() {
    point.SetCoordinates({30.0, -45.0, 20.0});
    point.SetReferenceEor(&body);
    groups.push_back(&body);
    Number();
    return *this;
  }
  // Principal distance and point of its own; belongs to the image that is linked last.
  ImageScene& WithProjektion() {
    DataEor& owner = biko.EorBasis() != nullptr ? basis : eor;
    owner.SetProjektion(&projektion);
    biko.SetProjektion(&projektion);
    groups.push_back(&projektion);
    Number();
    return *this;
  }
  ImageScene& Ck(double camera, double own) {
    ior.SetParameter(DataIor::kCk, camera);
    projektion.SetValues(own, 0.4, 0.3);
    return *this;
  }
  ImageScene& R0(double r0) {
    ior.SetR0(r0);
    return *this;
  }
  ImageScene& WithoutDepthTerms() {
    for (const DataIor::Parameter p : {DataIor::kAz1, DataIor::kAz2, DataIor::kAz3})
      ior.SetParameter(p, 0.0);
    return *this;
  }
  ImageScene& Mask(const DataIor::Mask& mask) {
    ior.SetParameterMask(mask);
    Number();
    return *this;
  }

  // Numbers anew; the first columns belong to nobody, so that a forgotten offset shows.
  void Number() {
    unknowns = 2;
    for (Data* group : groups) {
      group->SetActive(true);
      group->SetVariable(true);
      unknowns = group->AssignUnknowns(unknowns);
    }
  }

  // Computed minus measured, refreshed.
  [[nodiscard]] Image Residuals() {
    EquationBlock equations;
    biko.ObservationEquations(equations);
    return {biko.Wert(0).Residuum(), biko.Wert(1).Residuum()};
  }
  [[nodiscard]] Image Computed() {
    const Image v = Residuals();
    return {biko[0] + v[0], biko[1] + v[1]};
  }

  // The same a second time.
  [[nodiscard]] Vector3 InCamera() const {
    Vector3 x{point.Current()[0], point.Current()[1], point.Current()[2]};
    if (point.ReferenceEor() != nullptr) x = ForwardBy(body.fRotation, Centre(body), x);
    x = BackBy(eor.fRotation, Centre(eor), x);
    if (biko.EorBasis() != nullptr) x = BackBy(basis.fRotation, Centre(basis), x);
    return x;
  }
  [[nodiscard]] ImageTranscription Transcription() const {
    const auto& p = ior.Calibration();
    ImageTranscription t{p, ior.R0().r0, p[0], p[1], p[2]};
    if (biko.Projektion() != nullptr) {
      t.cp = projektion.Values()[0];
      t.hx = projektion.Values()[1];
      t.hy = projektion.Values()[2];
    }
    return t;
  }
  [[nodiscard]] Image Transcribed() const {
    const Vector3 x = InCamera();
    return Transcription().At(x, x[2]);
  }
  // The distortion sees this depth, however the point moves.
  [[nodiscard]] Image TranscribedAtDepth(double depth) const {
    return Transcription().At(InCamera(), depth);
  }

  DataObko point;
  DataEor eor;
  DataEor basis;
  DataEor body;
  DataIor ior;
  DataProjektion projektion;
  MessungBiko biko;
  std::vector<Data*> groups;
  std::uint32_t unknowns = 0;

 private:
  static Vector3 Centre(const DataEor& image) {
    return {image.fTranslation[0], image.fTranslation[1], image.fTranslation[2]};
  }
};

}  // namespace vermo::test
