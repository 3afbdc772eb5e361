#pragma once

#include "flat_network.h"

#include <ceres/problem.h>
#include <vector>

namespace cardo::bench {

// What a solution is worth. Standard deviations are 0 where nothing was estimated.
struct PeerAccuracy {
  std::vector<double> points;      // 3 of each
  std::vector<double> images;      // 6 of each
  std::vector<double> camera;      // of the estimated parameters
  std::vector<double> redundancy;  // numbers of x and y of each ray
};

// Of a solved problem whose parameter blocks are the points, the poses and the estimated camera
// parameters and whose residuals are those of the rays, in order.
//   held  6 of each image: whether the datum holds the parameter
//   s0    standard deviation of unit weight
// Throws std::runtime_error if the normal equations are singular.
[[nodiscard]] PeerAccuracy ComputeAccuracy(FlatNetwork& network,
                                           ceres::Problem& problem,
                                           double* camera,
                                           const std::vector<bool>& held,
                                           double s0);

}  // namespace cardo::bench
