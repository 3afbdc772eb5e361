#pragma once

#include "reference/dense_adjustment.h"
#include "reference/network_builder.h"
#include "xyz_api.h"

#include <cstdint>
#include <string>
#include <vector>

namespace monte_carlo {

// A network whose groups stand at their true values and whose observations are free of noise,
// computed here and not by the library.
struct Scene {
  reference::Network network;
  std::vector<sXYZ_Line> lines;  // as the library gives them back: base point and direction
  std::vector<sXYZ_Plane> planes;
  std::vector<sXYZ_ConstraintPointOnLine> pointsOnLines;
  std::vector<sXYZ_ConstraintPointOnPlane> pointsOnPlanes;
  std::vector<sXYZ_PictureLineCoord> lineCoords;
};

struct Extras {
  bool lines = false;        // two lines, seen in every image and through every pair
  bool constraints = false;  // eleven points on a plane or on one more line
};

[[nodiscard]] Scene MakeScene(const reference::Shape& shape, const Extras& extras = {});

// The scene with normal noise of the given multiple of each a-priori standard deviation.
[[nodiscard]] Scene WithNoise(const Scene& scene, std::uint64_t seed, double multiple = 1.0);

// One number that a run tells together with how far it lies off, and how far it may.
struct Deviation {
  double value = 0.0;
  double sigma = 0.0;  // as told: from the a-posteriori S0 for unknowns, a-priori for residuals
};

struct Name {
  std::string kind;   // the class, "point" or "residual of distance"
  std::string place;  // "1004 x"
  bool isResidual = false;
};

struct Outcome {
  int status = -1;
  double s0 = 0.0;
  int redundancy = 0;
  double redundancySum = 0.0;
  std::vector<Deviation> deviations;  // in the order of Names()
};

// Runs scenes and holds what comes back against the true one.
class Experiment {
 public:
  // angles: rotation type and unit in which the images are read beside the matrix.
  Experiment(Scene truth, std::uint32_t angles);

  [[nodiscard]] const Scene& Truth() const { return fTruth; }
  [[nodiscard]] const std::vector<Name>& Names() const { return fNames; }
  [[nodiscard]] Outcome Run(const Scene& noisy) const;

 private:
  Scene fTruth;
  std::uint32_t fAngles;
  std::vector<sXYZ_ExteriorOrient2> fTrueAngles;
  std::vector<Name> fNames;
};

}  // namespace monte_carlo
