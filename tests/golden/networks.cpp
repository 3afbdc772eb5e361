#include "golden/networks.h"

#include "golden/scene.h"

#include <cmath>

namespace golden {
namespace {

constexpr double kCk = -30.0;
constexpr double kSigma = 0.001;

// Record flags.
constexpr int kFree = 0x01;
constexpr int kFixed = 0x11;
constexpr int kInactive = 0x00;
constexpr int kUsed = 0x01;
constexpr int kRejected = 0x11;
constexpr int kProtected = 0x21;

constexpr std::uint32_t kDatumPoint = 0x1;
constexpr std::uint32_t kExempt = 0x2;

class Plate {
 public:
  explicit Plate(void* job) : fJob(job) {}

  std::array<double, 2> Noisy(std::array<double, 2> position, double sigma = kSigma) {
    for (double& value : position) value += sigma * fNoise.Next();
    return position;
  }
  // The image of a point of the plate with noise and, in x, an error in standard deviations.
  void Ray(int point, int image, int flags = kUsed, double error = 0.0, int tag = 0) {
    Ray(point, PlatePoint(point), image, flags, error, tag);
  }
  void Ray(int point,
           const Vector& position,
           int image,
           int flags = kUsed,
           double error = 0.0,
           int tag = 0) {
    auto xy = Noisy(Project(ToCamera(ImageOf(image), position), kCk));
    xy[0] += error * kSigma;
    AddImagePoint(fJob, point, image, xy, kSigma, flags, tag);
  }
  // A point between two others in an image, shifted by noise.
  void LineRay(int id,
               int line,
               int image,
               const Vector& a,
               const Vector& b,
               double t,
               int flags = kUsed,
               double error = 0.0,
               int tag = 0) {
    Vector p{};
    for (unsigned i = 0; i < 3; ++i) p[i] = a[i] + t * (b[i] - a[i]);
    auto xy = Noisy(Project(ToCamera(ImageOf(image), p), kCk));
    xy[1] += error * kSigma;
    AddLinePoint(fJob, id, line, image, xy, kSigma, flags, tag);
  }
  Vector Approximate(const Vector& position, double spread) {
    Vector result = position;
    for (double& value : result) value += spread * fNoise.Next();
    return result;
  }

 private:
  void* fJob;
  Noise fNoise;
};

Image Base() { return {Turn(0.02, -0.03, 0.1), {40.0, 10.0, -5.0}}; }

void AddGroups(void* job, Plate& plate) {
  AddCamera(job, 1, kCk, kFree, 0x1007, 3);  // Ck, Xh, Yh, AZ1
  AddCamera(job, 2, kCk, kFixed, 0x0, 13);
  AddCamera(job, 3, kCk, kInactive, 0x7);
  AddCamera(job, 4, kCk, kFree, 0x0);  // nothing to estimate

  AddImage(job, 1, 1, ImageOf(1), kFree, 0x101, -1, 1);
  AddImage(job, 2, 1, ImageOf(2), kFree, 0x201);
  AddImage(job, 3, 1, ImageOf(3), kFree, 0x402);
  AddImage(job, 4, 1, ImageOf(4), kFree, 0x204, -1, 11);
  AddImage(job, 5, 1, ImageOf(5), kFree, 0x3);
  AddImage(job, 6, 2, ImageOf(6), kFree, 0x3, 1);
  AddImage(job, 7, 2, ImageOf(7), kFixed, 0x401, 2);
  AddImage(job, 8, 1, ImageOf(8), kInactive);
  AddImage(job, 9, 4, Base(), kFree);
  AddImage(job, 10, 3, ImageOf(10), kFree);  // on a camera that is not active
  AddProjection(job, 1, kCk, 0.0, 0.0, kFree, 2);
  AddProjection(job, 2, kCk, 0.0, 0.0, kFixed);
  AddProjection(job, 3, kCk, 0.0, 0.0, kInactive);
  AddRelative(job, 100, 5, 9);
  AddRelative(job, 101, 5, 77);
  AddRelative(job, 102, 78, 9);
  AddRelative(job, 103, 8, 9);

  for (int id = 1; id <= 16; ++id) {
    const bool control = id == 1 || id == 4 || id == 13;
    const bool datum = id == 6 || id == 7 || id == 11;
    AddPoint(job,
             id,
             control ? PlatePoint(id) : plate.Approximate(PlatePoint(id), 0.02),
             control ? kFixed : kFree,
             datum ? kDatumPoint : 0,
             -1,
             id == 2    ? 1
             : id == 16 ? 121
                        : 0);
  }
  const Image first = ImageOf(1);
  AddPoint(job, 17, ToCamera(first, {10.0, 15.0, 30.0}), kFree, 0, 1);  // moves with image 1
  AddPoint(job, 18, {0.0, 0.0, 5.0}, kFree);                            // one ray
  AddPoint(job, 19, {5.0, 5.0, 5.0}, kInactive);
  AddPoint(job, 20, {9.0, 9.0, 9.0}, kFree, kExempt);              // no ray at all
  AddPoint(job, 21, {1.0, 1.0, 1.0}, kFree, 0, 8);                 // image 8 is not active
  AddPoint(job, 22, plate.Approximate({60, 70, 3}, 0.01), kFree);  // two rays

  AddLine(job, 1, PlatePoint(5), plate.Approximate(PlatePoint(8), 0.01), kFree, 5);
  AddLine(job, 2, PlatePoint(1), PlatePoint(13), kFixed);
  AddLine(job, 3, {-30.0, 50.0, 16.0}, {30.0, -50.0, 16.0}, kFree);
  AddLine(job, 4, PlatePoint(1), PlatePoint(4), kInactive);
  AddPlane(job, 50, plate.Approximate({0.0, 0.0, 12.0}, 0.01), {0.0, -0.1, 1.0}, kFree, 7);
  // Oblique: a coordinate that a constraint fixes alone has a cofactor of rounding only.
  AddPlane(job, 51, PlatePoint(9), {2.0, 0.5, 1.0}, kFixed);
  AddPlane(job, 52, {0.0, 0.0, 0.0}, {0.0, 0.0, 1.0}, kInactive);
}

void AddImageObservations(void* job, Plate& plate) {
  for (int image = 1; image <= 6; ++image)
    for (int point = 1; point <= 16; ++point) {
      if (image == 6 && point % 2 == 0) continue;
      double error = 0.0;
      int flags = kUsed;
      if (image == 2 && point == 10) error = 60.0;
      if (image == 4 && point == 3) error = -14.0;
      if (image == 3 && point == 7) error = 7.0;
      if (image == 5 && point == 12) flags = kProtected;
      if (image == 1 && point == 14) flags = kRejected;
      // More of this point is wrong than right.
      if (point == 15 && image <= 4) {
        error = image % 2 == 0 ? 150.0 + 20.0 * image : -150.0 - 30.0 * image;
        flags = kRejected;
      }
      const int tag = image == 1 ? (point == 1 ? 1 : point == 2 ? 10001 : 0) : 0;
      plate.Ray(point, image, flags, error, tag);
    }
  plate.Ray(3, 5, kInactive);
  // Through the base, in whose frame image 9 is given.
  const Image image = ImageOf(5);
  for (const int point : {2, 5, 8, 9, 11, 14, 16}) {
    const Vector inner = ToCamera(Base(), ToCamera(image, PlatePoint(point)));
    AddImagePoint(job, point, 100, plate.Noisy(Project(inner, kCk)), kSigma);
  }
  for (const int of : {1, 2, 3, 5}) plate.Ray(17, {10.0, 15.0, 30.0}, of);
  plate.Ray(18, {0.0, 0.0, 5.0}, 1);
  for (const int of : {1, 3}) plate.Ray(22, {60, 70, 3}, of);
  // Observations without one of their groups, more than the protocol tells.
  for (int point = 1; point <= 6; ++point) plate.Ray(point, 8);
  for (int point = 7; point <= 9; ++point) plate.Ray(point, 10);
  for (const int of : {1, 2, 3}) plate.Ray(99, {0.0, 0.0, 0.0}, of);
  plate.Ray(19, {5.0, 5.0, 5.0}, 1);
}

void AddOtherObservations(void* job, Plate& plate) {
  for (const int image : {1, 2, 3, 4}) {
    for (int i = 0; i < 4; ++i)
      plate.LineRay(10 * image + i,
                    1,
                    image,
                    PlatePoint(5),
                    PlatePoint(8),
                    0.1 + 0.25 * i,
                    image == 2 && i == 3 ? kProtected : kUsed,
                    image == 3 && i == 1 ? 40.0 : 0.0,
                    image == 1 && i == 0 ? 5 : 0);
    for (int i = 0; i < 3; ++i)
      plate.LineRay(50 + 10 * image + i, 3, image, {-30, 50, 16}, {30, -50, 16}, 0.15 + 0.3 * i);
  }
  plate.LineRay(98, 1, 4, PlatePoint(5), PlatePoint(8), 0.5, kInactive);
  plate.LineRay(99, 4, 1, PlatePoint(1), PlatePoint(4), 0.5);  // on a line that is not active
  plate.LineRay(97, 2, 1, PlatePoint(1), PlatePoint(13), 0.5);

  const double sigma = 0.02;
  AddMeasured(job, 16, plate.Approximate(PlatePoint(16), sigma), sigma, kUsed, -1, 4);
  AddMeasured(job, 2, plate.Approximate(PlatePoint(2), sigma), sigma, kProtected);
  Vector wrong = plate.Approximate(PlatePoint(9), sigma);
  wrong[2] += 0.9;
  AddMeasured(job, 9, wrong, sigma);
  AddMeasured(job, 8, ToCamera(ImageOf(2), PlatePoint(8)), sigma, kUsed, 2);
  AddMeasured(job, 11, PlatePoint(11), sigma, kInactive);
  AddMeasured(job, 5, PlatePoint(5), sigma, kUsed, 8);  // in an image that is not active

  const auto distance = [&](int a, int b, double error, int flags, int tag) {
    const double true_ = Length(PlatePoint(a), PlatePoint(b));
    AddDistance(
        job, a, b, true_ + sigma * plate.Approximate({}, 1.0)[0] + error, sigma, flags, tag);
  };
  distance(2, 15, 0.0, kUsed, 0);
  distance(3, 16, 0.8, kUsed, 22);
  distance(5, 12, 0.0, kProtected, 0);
  distance(7, 10, 0.0, kInactive, 0);
  distance(2, 99, 0.0, kUsed, 0);

  AddPointOnLine(job, 1, 6, 1);
  AddPointOnLine(job, 2, 7, 1, kInactive);
  AddPointOnLine(job, 3, 5, 4);  // the line is not active
  AddPointOnPlane(job, 1, 10, 50);
  AddPointOnPlane(job, 2, 11, 50);
  AddPointOnPlane(job, 3, 6, 50);
  AddPointOnPlane(job, 4, 12, 50);
  AddPointOnPlane(job, 5, 9, 51);
  AddPointOnPlane(job, 6, 99, 50);
}

// Control points at the corners, four points between them.
constexpr int kSmallPlate[] = {1, 4, 6, 7, 10, 11, 13};

// Four free images of the points; the camera is already there.
void AddSmallPlate(void* job, int controlFlags, std::uint32_t pointFlags) {
  Plate plate(job);
  for (int image = 1; image <= 4; ++image) AddImage(job, image, 1, ImageOf(image), kFree);
  for (const int id : kSmallPlate) {
    const bool control = id == 1 || id == 4 || id == 13;
    AddPoint(job,
             id,
             control ? PlatePoint(id) : plate.Approximate(PlatePoint(id), 0.01),
             control ? controlFlags : kFree,
             pointFlags);
    for (int image = 1; image <= 4; ++image) plate.Ray(id, image);
  }
  XYZ_SetParam(job, eXYZ_ParamS0Apriori, 0.001);
}

}  // namespace

void BuildEverything(void* job) {
  Plate plate(job);
  AddGroups(job, plate);
  AddImageObservations(job, plate);
  AddOtherObservations(job, plate);
  XYZ_SetParam(job, eXYZ_ParamS0Apriori, 0.001);
  XYZ_SetParam(job, eXYZ_ParamMinRays, 2);
  XYZ_SetParam(job, eXYZ_ParamDatum, 0x700);
}

void BuildPlate(void* job) {
  Plate plate(job);
  AddCamera(job, 1, kCk, kFixed);
  for (int image = 1; image <= 4; ++image) AddImage(job, image, 1, ImageOf(image), kFree);
  for (int id = 1; id <= 16; ++id) {
    const bool control = id == 1 || id == 4 || id == 13;
    AddPoint(job,
             id,
             control ? PlatePoint(id) : plate.Approximate(PlatePoint(id), 0.01),
             control ? kFixed : kFree);
    for (int image = 1; image <= 4; ++image) plate.Ray(id, image);
  }
  XYZ_SetParam(job, eXYZ_ParamS0Apriori, 0.001);
}

void BuildSmallPlate(void* job) {
  AddCamera(job, 1, kCk, kFixed);
  AddSmallPlate(job, kFixed, 0);
}

void BuildCameraImages(void* job) {
  Plate plate(job);
  AddCamera(job, 1, kCk, kFree, 0x110);  // A1, B1
  for (const int point : kSmallPlate) AddPoint(job, point, PlatePoint(point), kFixed);
  for (const int image : {1, 2}) {
    AddImage(job, image, 1, ImageOf(image), kFree);
    for (const int point : kSmallPlate) plate.Ray(point, image);
  }
  XYZ_SetParam(job, eXYZ_ParamS0Apriori, 0.001);
}

void BuildFreePlate(void* job) {
  AddCamera(job, 1, kCk, kFixed);
  AddSmallPlate(job, kFree, kDatumPoint);
  XYZ_SetParam(job, eXYZ_ParamDatum, 0x7F00);
}

void AddWrongRay(void* job, int point, int image, double error) {
  auto xy = Project(ToCamera(ImageOf(image), PlatePoint(point)), kCk);
  xy[0] += error * kSigma;
  AddImagePoint(job, point, image, xy, kSigma);
}

void AddLineUnderStraightImage(void* job,
                               const std::array<double, 3>& first,
                               const std::array<double, 3>& second) {
  AddImage(job, 50, 1, {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0.0, 0.0, 500.0}}, kFixed);
  AddLine(job, 1, first, second, kFixed);
  AddLinePoint(job, 1, 1, 50, {1.0, 2.0}, kSigma);
}

void BuildImages(void* job, std::span<const std::uint32_t> formats) {
  Plate plate(job);
  AddCamera(job, 1, kCk, kFixed);
  for (const int point : kSmallPlate) AddPoint(job, point, PlatePoint(point), kFixed);
  int image = 1;
  for (const std::uint32_t format : formats) {
    AddImage(job, image, 1, ImageOf(image), kFree, format);
    for (const int point : kSmallPlate) plate.Ray(point, image);
    ++image;
  }
  AddImage(job, image, 1, ImageOf(image), kFixed, 0x202);
  XYZ_SetParam(job, eXYZ_ParamS0Apriori, 0.001);
}

void BuildFixedGroups(void* job) {
  Plate plate(job);
  AddCamera(job, 1, kCk, kFixed, 0x7);
  AddCamera(job, 2, kCk, kFixed, 0x0, 3);
  AddProjection(job, 1, kCk, 0.5, -0.25, kFixed);
  AddProjection(job, 2, kCk, 0.0, 0.0, kFixed, 2);
  for (const int image : {1, 2, 3}) AddImage(job, image, 1, ImageOf(image), kFixed, 0x201);
  AddPoint(job, 1, PlatePoint(1), kFixed);
  AddPoint(job, 4, PlatePoint(4), kFixed, 0, -1, 6);
  AddPoint(job, 6, plate.Approximate(PlatePoint(6), 0.01), kFree);
  AddLine(job, 1, PlatePoint(5), PlatePoint(8), kFixed);
  AddLine(job, 2, PlatePoint(1), PlatePoint(13), kFixed, 4);
  AddLine(job, 3, PlatePoint(1), PlatePoint(4), kInactive);
  AddLine(job, 4, PlatePoint(2), PlatePoint(3), kFixed);
  AddPlane(job, 50, {-120.0, 0.0, 0.0}, {2.0, 0.0, 0.0}, kFixed);
  AddPlane(job, 51, {0.0, 0.0, 10.0}, {0.0, 0.0, 1.0}, kFixed, 12);
  for (const int image : {1, 2, 3})
    for (const int point : {1, 4, 6}) plate.Ray(point, image);
  plate.LineRay(1, 1, 1, PlatePoint(5), PlatePoint(8), 0.5);
  AddMeasured(job, 4, plate.Approximate(PlatePoint(4), 0.02), 0.02);
  AddDistance(job, 1, 4, 240.8, 0.02);
  XYZ_SetParam(job, eXYZ_ParamS0Apriori, 0.001);
}

void BuildMeasured(void* job) {
  const double sigma = 0.02;
  Plate plate(job);
  for (const int point : {1, 4, 13}) {
    AddPoint(job, point, plate.Approximate(PlatePoint(point), 0.1));
    AddMeasured(job, point, plate.Approximate(PlatePoint(point), sigma), sigma);
    AddMeasured(job, point, plate.Approximate(PlatePoint(point), sigma), sigma);
  }
  for (const auto& [a, b] : {std::array{1, 4}, std::array{4, 13}, std::array{1, 13}})
    AddDistance(job,
                a,
                b,
                Length(PlatePoint(a), PlatePoint(b)) + sigma * plate.Approximate({}, 1.0)[0],
                sigma);
}

}  // namespace golden
