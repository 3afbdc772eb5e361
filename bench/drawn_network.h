#pragma once

#include <cstdint>
#include <filesystem>

namespace cardo::bench {

enum class Layout {
  // Convergent images on a hemisphere about a compact object. Each point is measured in images
  // drawn from all of them, so every two images share points: the reduced system is full.
  kDome,
  // Stations on a grid before a relief. Each point is measured in images drawn from the pool of
  // the nearest ones: the reduced system is sparse, but for the camera.
  kGrid
};

struct NetworkPlan {
  Layout layout = Layout::kDome;
  std::uint32_t images = 0, points = 0;
  std::uint32_t rays = 0;  // of every point
  std::uint32_t pool = 0;  // of the grid
  std::uint64_t seed = 1;
};

// Draws a free network, its measurements and its approximate values, and writes it as a job
// folder; the same plan gives the same files. Metres in the object, millimetres in the image, one
// camera of which ck, xh, yh, a1, a2, a3, b1 and b2 are to be estimated; all points carry the
// datum. Throws std::runtime_error if a point has fewer images than rays or a file cannot be
// written.
void DrawNetwork(const NetworkPlan& plan, const std::filesystem::path& folder);

}  // namespace cardo::bench
