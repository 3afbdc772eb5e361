#include "golden/scene.h"

#include <cmath>
#include <stdexcept>

namespace golden {
namespace {

void Must(int status) {
  if (status != eXYZ_Ok) throw std::runtime_error("record refused: " + std::to_string(status));
}

template <typename Record>
void Mark(Record& record, int flags, int tag) {
  record.Flags = static_cast<std::uint16_t>(flags);
  record.Tag = static_cast<std::uint16_t>(tag);
}

Matrix Multiply(const Matrix& a, const Matrix& b) {
  Matrix c{};
  for (unsigned i = 0; i < 3; ++i)
    for (unsigned j = 0; j < 3; ++j)
      for (unsigned k = 0; k < 3; ++k) c[3 * i + j] += a[3 * i + k] * b[3 * k + j];
  return c;
}

// The angles of a matrix in another form, as a job reads them back.
std::array<double, 3> AnglesOf(const Image& image, std::uint32_t format) {
  const Job job(XYZ_CreateJob("unused.htm"));
  AddImage(job.get(), 1, 1, image, 0x01);
  Must(XYZ_SetParam(job.get(), eXYZ_ParamEorFormat, static_cast<int>(format)));
  sXYZ_ExteriorOrient2 record{};
  Must(XYZ_GetExteriorOrientAt(job.get(), 0, &record));
  return {record.Rotation[0], record.Rotation[1], record.Rotation[2]};
}

}  // namespace

double Noise::Next() {
  double sum = -6.0;
  for (int i = 0; i < 12; ++i) {
    fState = fState * 6364136223846793005U + 1442695040888963407U;
    sum += static_cast<double>(fState >> 11U) * 0x1p-53;
  }
  return sum;
}

Matrix Turn(double rotX, double rotY, double rotZ) {
  const double cx = std::cos(rotX), sx = std::sin(rotX);
  const double cy = std::cos(rotY), sy = std::sin(rotY);
  const double cz = std::cos(rotZ), sz = std::sin(rotZ);
  const Matrix x = {1, 0, 0, 0, cx, -sx, 0, sx, cx};
  const Matrix y = {cy, 0, sy, 0, 1, 0, -sy, 0, cy};
  const Matrix z = {cz, -sz, 0, sz, cz, 0, 0, 0, 1};
  return Multiply(z, Multiply(y, x));
}

Vector PlatePoint(int id) {
  const int row = (id - 1) / 4;
  const int column = (id - 1) % 4;
  // The rows 2 and 3 are straight and flat: lines and planes run through them.
  const double bump = row == 0 ? 20.0 * (column % 2) : row == 3 ? 35.0 - 10.0 * column : 8.0 * row;
  return {80.0 * column - 120.0, 80.0 * row - 120.0, bump};
}

Image ImageOf(int id) {
  const double angle = 0.9 * id;
  const double tilt = 0.25;
  // The tilt turns the view back to the middle of the plate.
  return {Turn(-tilt * std::sin(angle), tilt * std::cos(angle), 0.4 * id),
          {150.0 * std::cos(angle), 150.0 * std::sin(angle), 560.0 + 25.0 * (id % 3)}};
}

Vector ToCamera(const Image& image, const Vector& point) {
  Vector result{};
  for (unsigned j = 0; j < 3; ++j)
    for (unsigned i = 0; i < 3; ++i)
      result[j] += image.rotation[3 * i + j] * (point[i] - image.centre[i]);
  return result;
}

std::array<double, 2> Project(const Vector& camera, double ck, double xh, double yh) {
  return {ck * camera[0] / camera[2] + xh, ck * camera[1] / camera[2] + yh};
}

void AddCamera(void* job, int id, double ck, int flags, std::uint32_t mask, int tag) {
  sXYZ_InteriorOrient record{};
  record.Id = id;
  record.Ck = ck;
  record.R0 = 12.0;
  record.ParameterMask = mask;
  Mark(record, flags, tag);
  Must(XYZ_SetInteriorOrientation(job, &record));
}

void AddImage(void* job,
              int id,
              int camera,
              const Image& image,
              int flags,
              std::uint32_t format,
              int projection,
              int tag) {
  sXYZ_ExteriorOrient2 record{};
  record.Id = id;
  record.IorId = camera;
  record.ProjectionId = projection;
  record.Format = format;
  record.X0 = image.centre[0];
  record.Y0 = image.centre[1];
  record.Z0 = image.centre[2];
  if ((format & 0xFFU) == 3) {
    for (unsigned i = 0; i < 9; ++i) record.Rotation[i] = image.rotation[i];
  } else {
    const std::array<double, 3> angles = AnglesOf(image, format);
    for (unsigned i = 0; i < 3; ++i) record.Rotation[i] = angles[i];
  }
  Mark(record, flags, tag);
  Must(XYZ_SetExteriorOrientation2(job, &record));
}

void AddPoint(void* job,
              int id,
              const Vector& position,
              int flags,
              std::uint32_t pointFlags,
              int reference,
              int tag) {
  sXYZ_ObjectCoord record{};
  record.Id = id;
  record.X = position[0];
  record.Y = position[1];
  record.Z = position[2];
  record.PointFlags = pointFlags;
  record.ReferenceEor = reference;
  Mark(record, flags, tag);
  Must(XYZ_SetObjectCoord(job, &record));
}

void AddImagePoint(void* job,
                   int point,
                   int image,
                   const std::array<double, 2>& position,
                   double sigma,
                   int flags,
                   int tag) {
  sXYZ_PictureCoord record{};
  record.PointId = point;
  record.EorId = image;
  record.X = position[0];
  record.Y = position[1];
  record.Sx = record.Sy = sigma;
  Mark(record, flags, tag);
  Must(XYZ_SetPictureCoord(job, &record));
}

void AddLinePoint(void* job,
                  int id,
                  int line,
                  int image,
                  const std::array<double, 2>& position,
                  double sigma,
                  int flags,
                  int tag) {
  sXYZ_PictureLineCoord record{};
  record.Id = id;
  record.LineId = line;
  record.EorId = image;
  record.X = position[0];
  record.Y = position[1];
  record.Sx = record.Sy = sigma;
  Mark(record, flags, tag);
  Must(XYZ_SetPictureLineCoord(job, &record));
}

void AddMeasured(
    void* job, int point, const Vector& position, double sigma, int flags, int reference, int tag) {
  sXYZ_MeasuredObjectCoord record{};
  record.PointId = point;
  record.X = position[0];
  record.Y = position[1];
  record.Z = position[2];
  record.Sx = record.Sy = record.Sz = sigma;
  record.ReferenceEor = reference;
  Mark(record, flags, tag);
  Must(XYZ_SetMeasuredObjectCoord(job, &record));
}

void AddDistance(
    void* job, int first, int second, double distance, double sigma, int flags, int tag) {
  sXYZ_Distance record{};
  record.Point1 = first;
  record.Point2 = second;
  record.S = distance;
  record.Sigma = sigma;
  Mark(record, flags, tag);
  Must(XYZ_SetDistance(job, &record));
}

void AddLine(void* job, int id, const Vector& first, const Vector& second, int flags, int tag) {
  sXYZ_Line record{};
  record.Id = id;
  for (unsigned i = 0; i < 3; ++i) {
    record.P1[i] = first[i];
    record.P2[i] = second[i];
  }
  Mark(record, flags, tag);
  Must(XYZ_SetLine(job, &record));
}

void AddPlane(void* job, int id, const Vector& point, const Vector& normal, int flags, int tag) {
  sXYZ_Plane record{};
  record.Id = id;
  for (unsigned i = 0; i < 3; ++i) {
    record.Point[i] = point[i];
    record.Normal[i] = normal[i];
  }
  Mark(record, flags, tag);
  Must(XYZ_SetPlane(job, &record));
}

void AddProjection(void* job, int id, double ck, double xh, double yh, int flags, int tag) {
  sXYZ_Projection record{};
  record.Id = id;
  record.Ck = ck;
  record.Xh = xh;
  record.Yh = yh;
  Mark(record, flags, tag);
  Must(XYZ_SetProjection(job, &record));
}

void AddRelative(void* job, int id, int image, int base) {
  const sXYZ_RelativeOrientation record{id, image, base};
  Must(XYZ_SetRelativeOrientation(job, &record));
}

void AddPointOnLine(void* job, int id, int point, int line, int flags) {
  const sXYZ_ConstraintPointOnLine record{id, point, line, flags};
  Must(XYZ_SetConstraintPointOnLine(job, &record));
}

void AddPointOnPlane(void* job, int id, int point, int plane, int flags) {
  const sXYZ_ConstraintPointOnPlane record{id, point, plane, flags};
  Must(XYZ_SetConstraintPointOnPlane(job, &record));
}

double Length(const Vector& a, const Vector& b) {
  return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) +
                   (a[2] - b[2]) * (a[2] - b[2]));
}

}  // namespace golden
