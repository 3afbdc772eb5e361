#pragma once

#include "camera_model.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace cardo::bench {

// A network of images of one camera and points, as the peer adjusts it.
struct FlatNetwork {
  struct Image {
    std::int64_t id;
    // Projection centre, then omega, phi, kappa in radians.
    std::array<double, 6> pose;
  };
  struct Point {
    std::int64_t id;
    Vec3 x;
    bool isFixed, isDatum;
  };
  struct Ray {
    std::size_t point, image;  // places in the lists
    double x, y, sx, sy;
  };

  Camera camera;
  std::vector<CameraParameter> estimated;
  std::vector<Image> images;
  std::vector<Point> points;
  std::vector<Ray> rays;  // by point, in each by image

  // Nothing is fixed and the points carry the datum.
  [[nodiscard]] bool IsFree() const noexcept;
  [[nodiscard]] std::size_t Unknowns() const noexcept;
  // Observations less unknowns, and the seven conditions of a free network.
  [[nodiscard]] std::int64_t Redundancy() const noexcept;
};

// Reads cameras.csv, images.csv, points.csv and image_coordinates.csv of a job folder. Throws
// std::runtime_error for a table or a column that the network above has no place for.
[[nodiscard]] FlatNetwork ReadFlatNetwork(const std::filesystem::path& folder);

}  // namespace cardo::bench
