#pragma once

#include "support/job.h"
#include "xyz_api.h"

#include <array>
#include <cstdint>
#include <string>

namespace golden {

using Vector = std::array<double, 3>;
using Matrix = std::array<double, 9>;  // by rows

using vermo::test::Job;

// Numbers that are the same on every machine: no library of random numbers stands behind them.
class Noise {
 public:
  // Of mean 0 and standard deviation 1: the sum of twelve equally distributed numbers.
  double Next();

 private:
  std::uint64_t fState = 20261121;
};

// The object and the images of the golden networks, in millimetres. Sixteen points stand in four
// rows on a bumpy plate; images look down at them. The camera frame of an image looks along its
// negative z axis and principal distances are negative.
struct Image {
  Matrix rotation;  // x object = R x camera + centre
  Vector centre;
};

// Turns by rotX, then rotY, then rotZ about the axes of the object.
Matrix Turn(double rotX, double rotY, double rotZ);
Vector PlatePoint(int id);  // 1 to 16
// The image numbered from 1 on a circle above the plate.
Image ImageOf(int id);
Vector ToCamera(const Image& image, const Vector& point);
// Of a point of the camera frame, without distortion.
std::array<double, 2> Project(const Vector& camera, double ck, double xh = 0.0, double yh = 0.0);

// Records.
void AddCamera(void* job, int id, double ck, int flags, std::uint32_t mask = 0, int tag = 0);
// The rotation goes in in the type and unit of the format.
void AddImage(void* job,
              int id,
              int camera,
              const Image& image,
              int flags,
              std::uint32_t format = 3,
              int projection = -1,
              int tag = 0);
void AddPoint(void* job,
              int id,
              const Vector& position,
              int flags = 0x01,
              std::uint32_t pointFlags = 0,
              int reference = -1,
              int tag = 0);
void AddImagePoint(void* job,
                   int point,
                   int image,
                   const std::array<double, 2>& position,
                   double sigma,
                   int flags = 0x01,
                   int tag = 0);
void AddLinePoint(void* job,
                  int id,
                  int line,
                  int image,
                  const std::array<double, 2>& position,
                  double sigma,
                  int flags = 0x01,
                  int tag = 0);
void AddMeasured(void* job,
                 int point,
                 const Vector& position,
                 double sigma,
                 int flags = 0x01,
                 int reference = -1,
                 int tag = 0);
void AddDistance(
    void* job, int first, int second, double distance, double sigma, int flags = 0x01, int tag = 0);
void AddLine(void* job, int id, const Vector& first, const Vector& second, int flags, int tag = 0);
void AddPlane(void* job, int id, const Vector& point, const Vector& normal, int flags, int tag = 0);
void AddProjection(void* job, int id, double ck, double xh, double yh, int flags, int tag = 0);
void AddRelative(void* job, int id, int image, int base);
void AddPointOnLine(void* job, int id, int point, int line, int flags = 0x01);
void AddPointOnPlane(void* job, int id, int point, int plane, int flags = 0x01);

double Length(const Vector& a, const Vector& b);

}  // namespace golden
