#pragma once

#include "reference/dense_adjustment.h"

#include <cstdint>
#include <random>

namespace reference {

// Uniform and normal numbers that are the same with every standard library.
class Random {
 public:
  explicit Random(std::uint64_t seed) : fGenerator(seed) {}
  [[nodiscard]] double Uniform();  // in (-1, 1)
  [[nodiscard]] double Normal();
  [[nodiscard]] std::uint32_t Below(std::uint32_t n);

 private:
  std::mt19937_64 fGenerator;
};

// What a seeded network is made of. Images look at a cloud of points about the origin from all
// sides; four points are control.
struct Shape {
  std::uint64_t seed = 1;
  int cameras = 1;
  int images = 4;
  int points = 12;
  double ck = -30.0;
  std::uint32_t mask = 0x7;  // estimated camera parameters
  bool freeCameras = true;
  bool distortion = false;  // true values of the parameters of the mask are not zero
  double r0 = 0.0;
  bool fixedControl = true;  // otherwise control is measured
  int fixedImages = 0;
  bool projections = false;  // one for every second image, free
  bool fixedProjections = false;
  bool relative = false;          // a rig: a base image given in the frame of each image
  bool bodyPoints = false;        // points in the frame of an image
  bool measuredInImages = false;  // measured coordinates in the frame of an image
  int distances = 0;
  bool freeNetwork = false;  // no control: every second point carries the datum
  double noise = 0.001;      // image units
};

// The network with noisy observations and disturbed approximate values.
[[nodiscard]] Network Build(const Shape& shape);

}  // namespace reference
