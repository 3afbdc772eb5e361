#pragma once

#include "api/xyz_api.h"

#include <array>
#include <cstdint>
#include <vector>

// An adjustment told once more, from the public records alone: plain Gauss-Newton on dense normal
// equations in extended precision, with derivatives by central differences of observation
// functions written here. Shares no code with the library but the records.
namespace reference {

using Real = long double;

struct Network {
  std::vector<sXYZ_InteriorOrient> cameras;
  std::vector<sXYZ_ExteriorOrient2> images;  // rotation type 3: a matrix
  std::vector<sXYZ_ObjectCoord> points;
  std::vector<sXYZ_Projection> projections;
  std::vector<sXYZ_RelativeOrientation> pairs;
  std::vector<sXYZ_PictureCoord> imagePoints;
  std::vector<sXYZ_MeasuredObjectCoord> measured;
  std::vector<sXYZ_Distance> distances;
  double s0Apriori = 0.001;
  // Free network: translation, rotation and scale of the points marked as datum stay.
  bool datumTranslation = false;
  bool datumRotation = false;
  bool datumScale = false;
  // The coordinates that the datum goes back to; those of the points when empty.
  std::vector<sXYZ_ObjectCoord> datumPoints;
};

struct Result {
  bool converged = false;
  int iterations = 0;
  Real s0 = 0;
  int observations = 0;
  int unknowns = 0;
  int constraints = 0;
  Real redundancySum = 0;
  // Adjusted groups in the order of the network, values and standard deviations filled.
  Network adjusted;
  // Residuals and redundancy numbers of all components: image points, measured coordinates,
  // distances.
  std::vector<Real> residuals;
  std::vector<Real> redundancy;
};

[[nodiscard]] Result Adjust(const Network& network);

}  // namespace reference
