#include "api/job_fixture.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <numbers>

namespace {

using Matrix = std::array<double, 9>;

Matrix Product(const Matrix& a, const Matrix& b) {
  Matrix c{};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j)
      for (std::size_t k = 0; k < 3; ++k) c[3 * i + j] += a[3 * i + k] * b[3 * k + j];
  return c;
}
Matrix Transposed(const Matrix& m) {
  return {m[0], m[3], m[6], m[1], m[4], m[7], m[2], m[5], m[8]};
}

// Plane rotations as the angle conventions 2 and 4 use them.
Matrix Rx(double t) { return {1, 0, 0, 0, std::cos(t), std::sin(t), 0, -std::sin(t), std::cos(t)}; }
Matrix Ry(double t) { return {std::cos(t), 0, -std::sin(t), 0, 1, 0, std::sin(t), 0, std::cos(t)}; }
Matrix Rz(double t) { return {std::cos(t), std::sin(t), 0, -std::sin(t), std::cos(t), 0, 0, 0, 1}; }

Matrix FromAngles(int type, double a, double b, double c) {
  if (type == 1) return Product(Product(Transposed(Rx(a)), Transposed(Ry(b))), Transposed(Rz(c)));
  if (type == 2)
    return Transposed(Product(Product(Product(Rz(c), Rx(a)), Ry(b)), Rx(std::numbers::pi / 2)));
  return Transposed(Product(Product(Rz(b), Rx(a)), Ry(c)));
}

class RecordTest : public JobTest {
 protected:
  int SetImage(const sXYZ_ExteriorOrient2& image) {
    return XYZ_SetExteriorOrientation2(fJob, &image);
  }
  // The image at a position, as a matrix whatever its own format is.
  Matrix ReadMatrix(int index) {
    Set(18, 3);
    sXYZ_ExteriorOrient2 e{};
    EXPECT_EQ(XYZ_GetExteriorOrientAt(fJob, index, &e), 0);
    Set(18, 0);
    Matrix m{};
    std::copy_n(e.Rotation, 9, m.begin());
    return m;
  }
  static void ExpectNear(const Matrix& a, const Matrix& b, double tolerance) {
    for (std::size_t i = 0; i < 9; ++i) EXPECT_NEAR(a[i], b[i], tolerance) << "element " << i;
  }
};

TEST_F(RecordTest, ObjectPointComesBack) {
  sXYZ_ObjectCoord p = MakePoint(42, 1.5, -2.5, 3.5);
  p.Tag = 7;
  p.PointFlags = 0x3;
  p.ReferenceEor = 9;
  p.Sx = p.RayCount = 5;
  ASSERT_EQ(XYZ_SetObjectCoord(fJob, &p), 0);
  EXPECT_EQ(XYZ_GetObjectCoordCnt(fJob), 1);
  sXYZ_ObjectCoord read;
  std::memset(&read, 0x5A, sizeof read);
  ASSERT_EQ(XYZ_GetObjectCoordAt(fJob, 0, &read), 0);
  EXPECT_EQ(read.Id, 42);
  EXPECT_EQ(read.X, 1.5);
  EXPECT_EQ(read.Y, -2.5);
  EXPECT_EQ(read.Z, 3.5);
  EXPECT_EQ(read.Sx, 0.0);
  EXPECT_EQ(read.RayCount, 0);
  EXPECT_EQ(read.BlunderCount, 0);
  EXPECT_EQ(read.Flags, 0x01);
  EXPECT_EQ(read.Tag, 0);
  EXPECT_EQ(read.PointFlags, 0x1U);  // the exemption goes in only
  EXPECT_EQ(read.ReferenceEor, -1);  // no run has linked it
}

TEST_F(RecordTest, FlagsOfAPointComeBackAndTheMarkNeedsAnActivePoint) {
  for (const int flags : {0x00, 0x01, 0x10, 0x11}) {
    sXYZ_ObjectCoord p = MakePoint(flags, 0, 0, 0, flags);
    p.PointFlags = 0x1;
    ASSERT_EQ(XYZ_SetObjectCoord(fJob, &p), 0);
    sXYZ_ObjectCoord read{};
    XYZ_GetObjectCoordAt(fJob, XYZ_GetObjectCoordCnt(fJob) - 1, &read);
    EXPECT_EQ(read.Flags, flags);
    EXPECT_EQ(read.PointFlags, (flags & 0x01) != 0 ? 1U : 0U);
  }
}

TEST_F(RecordTest, DuplicateIdsAreRefusedAndLeaveTheCount) {
  const auto camera = MakeCamera(1);
  EXPECT_EQ(XYZ_SetInteriorOrientation(fJob, &camera), 0);
  EXPECT_EQ(XYZ_SetInteriorOrientation(fJob, &camera), 18);
  EXPECT_EQ(XYZ_GetInteriorOrientCnt(fJob), 1);
  const auto point = MakePoint(1, 0, 0, 0);
  EXPECT_EQ(XYZ_SetObjectCoord(fJob, &point), 0);
  EXPECT_EQ(XYZ_SetObjectCoord(fJob, &point), 18);
  EXPECT_EQ(XYZ_GetObjectCoordCnt(fJob), 1);
  sXYZ_Projection projection{};
  projection.Id = 1;
  EXPECT_EQ(XYZ_SetProjection(fJob, &projection), 0);
  EXPECT_EQ(XYZ_SetProjection(fJob, &projection), 18);
  EXPECT_EQ(XYZ_GetProjectionCnt(fJob), 1);
  const auto image = MakeImage(1, 1, 0, 0, 0);
  EXPECT_EQ(SetImage(image), 0);
  EXPECT_EQ(SetImage(image), 18);
  EXPECT_EQ(XYZ_GetExteriorOrientCnt(fJob), 1);
}

TEST_F(RecordTest, ImagesAndRelativeOrientationsShareTheirIds) {
  const auto image = MakeImage(1, 1, 0, 0, 0);
  ASSERT_EQ(SetImage(image), 0);
  const sXYZ_RelativeOrientation same{1, 2, 3};
  EXPECT_EQ(XYZ_SetRelativeOrientation(fJob, &same), 18);
  const sXYZ_RelativeOrientation pair{5, 1, 2};
  EXPECT_EQ(XYZ_SetRelativeOrientation(fJob, &pair), 0);
  EXPECT_EQ(XYZ_SetRelativeOrientation(fJob, &pair), 18);
  EXPECT_EQ(SetImage(MakeImage(5, 1, 0, 0, 0)), 18);
  EXPECT_EQ(XYZ_GetRelativeOrientationCnt(fJob), 1);
  sXYZ_RelativeOrientation read{};
  ASSERT_EQ(XYZ_GetRelativeOrientationAt(fJob, 0, &read), 0);
  EXPECT_EQ(read.Id, 5);
  EXPECT_EQ(read.EorId, 1);
  EXPECT_EQ(read.BaseEorId, 2);
}

TEST_F(RecordTest, CameraComesBack) {
  sXYZ_InteriorOrient c{};
  c.Id = 3;
  c.Ck = -30.0;
  c.Reserved1[0] = 99.0;
  c.Xh = 1, c.Yh = 2, c.A1 = 3, c.A2 = 4, c.A3 = 5, c.B1 = 6, c.B2 = 7, c.C1 = 8, c.C2 = 9;
  c.AZ1 = 10, c.AZ2 = 11, c.R0 = 12.5;
  c.Flags = 0x01;
  c.Tag = 4;
  c.ParameterMask = 0xFFFFFFFF;
  ASSERT_EQ(XYZ_SetInteriorOrientation(fJob, &c), 0);
  sXYZ_InteriorOrient read;
  std::memset(&read, 0x5A, sizeof read);
  ASSERT_EQ(XYZ_GetInteriorOrientAt(fJob, 0, &read), 0);
  EXPECT_EQ(read.Ck, -30.0);
  EXPECT_EQ(read.Reserved1[0], 0.0);
  EXPECT_EQ(read.Xh, 1);
  EXPECT_EQ(read.Yh, 2);
  EXPECT_EQ(read.A1, 3);
  EXPECT_EQ(read.A2, 4);
  EXPECT_EQ(read.A3, 5);
  EXPECT_EQ(read.B1, 6);
  EXPECT_EQ(read.B2, 7);
  EXPECT_EQ(read.C1, 8);
  EXPECT_EQ(read.C2, 9);
  EXPECT_EQ(read.AZ1, 10);
  EXPECT_EQ(read.AZ2, 11);
  EXPECT_EQ(read.R0, 12.5);
  EXPECT_EQ(read.Id, 3);
  EXPECT_EQ(read.Reserved2[0], 0);
  EXPECT_EQ(read.Reserved2[1], 0);
  EXPECT_EQ(read.Flags, 0x01);
  EXPECT_EQ(read.Tag, 0);
  EXPECT_EQ(read.ParameterMask, 0x3F77U);
  for (int i = 0; i < 12; ++i) {
    EXPECT_EQ(read.Sigma[i], 0.0);
    EXPECT_EQ(read.Correlation[i][i], 0.0);
  }
}

TEST_F(RecordTest, EveryMaskBitIsItsOwn) {
  const std::uint32_t bits[] = {
      0x1, 0x2, 0x4, 0x10, 0x20, 0x40, 0x100, 0x200, 0x400, 0x800, 0x1000, 0x2000, 0x8, 0x4000};
  int id = 0;
  for (const std::uint32_t bit : bits) {
    auto c = MakeCamera(id, -30.0, 0x01);
    c.ParameterMask = bit;
    ASSERT_EQ(XYZ_SetInteriorOrientation(fJob, &c), 0);
    sXYZ_InteriorOrient read{};
    ASSERT_EQ(XYZ_GetInteriorOrientAt(fJob, id++, &read), 0);
    EXPECT_EQ(read.ParameterMask, bit & 0x3F77U);
    // A free camera without an estimated parameter counts as fixed.
    EXPECT_EQ(read.Flags, (bit & 0x3F77U) != 0 ? 0x01 : 0x11);
  }
}

TEST_F(RecordTest, ProjectionComesBack) {
  sXYZ_Projection p{};
  p.Ck = -31.0;
  p.Xh = 0.5;
  p.Yh = -0.25;
  p.Id = 8;
  p.Flags = 0x11;
  p.Tag = 2;
  ASSERT_EQ(XYZ_SetProjection(fJob, &p), 0);
  sXYZ_Projection read;
  std::memset(&read, 0x5A, sizeof read);
  ASSERT_EQ(XYZ_GetProjectionAt(fJob, 0, &read), 0);
  EXPECT_EQ(read.Ck, -31.0);
  EXPECT_EQ(read.Xh, 0.5);
  EXPECT_EQ(read.Yh, -0.25);
  EXPECT_EQ(read.SCk, 0.0);
  EXPECT_EQ(read.Id, 8);
  EXPECT_EQ(read.Flags, 0x01);  // the fixed bit does not come back
  EXPECT_EQ(read.Tag, 0);
}

TEST_F(RecordTest, ObservationsComeBack) {
  sXYZ_PictureCoord b = MakeImagePoint(4, 5, 1.5, -2.5);
  b.Sy = 0.25;
  b.Flags = 0x31;
  b.Tag = 9;
  b.Vx = b.Rx = b.Tx = 77.0;
  ASSERT_EQ(XYZ_SetPictureCoord(fJob, &b), 0);
  sXYZ_PictureCoord br;
  std::memset(&br, 0x5A, sizeof br);
  ASSERT_EQ(XYZ_GetPictureCoordsAt(fJob, 0, &br), 0);
  EXPECT_EQ(br.X, 1.5);
  EXPECT_EQ(br.Y, -2.5);
  EXPECT_EQ(br.Sx, 0.005);
  EXPECT_EQ(br.Sy, 0.25);
  EXPECT_EQ(br.Vx, 0.0);
  EXPECT_EQ(br.Rx, 0.0);
  EXPECT_EQ(br.Tx, 0.0);
  EXPECT_EQ(br.PointId, 4);
  EXPECT_EQ(br.EorId, 5);
  EXPECT_EQ(br.Flags, 0x31);
  EXPECT_EQ(br.Tag, 0);

  sXYZ_MeasuredObjectCoord m = MakeMeasured(4, 1, 2, 3);
  m.Sy = 0.5;
  m.Sz = 0.75;
  m.ReferenceEor = 6;
  m.Flags = 0x21;
  ASSERT_EQ(XYZ_SetMeasuredObjectCoord(fJob, &m), 0);
  sXYZ_MeasuredObjectCoord mr;
  std::memset(&mr, 0x5A, sizeof mr);
  ASSERT_EQ(XYZ_GetMeasuredObjectCoordAt(fJob, 0, &mr), 0);
  EXPECT_EQ(mr.Z, 3.0);
  EXPECT_EQ(mr.Sy, 0.5);
  EXPECT_EQ(mr.Sz, 0.75);
  EXPECT_EQ(mr.Vz, 0.0);
  EXPECT_EQ(mr.Tz, 0.0);
  EXPECT_EQ(mr.PointId, 4);
  EXPECT_EQ(mr.ReferenceEor, -1);  // no run has linked it
  EXPECT_EQ(mr.Flags, 0x21);

  sXYZ_Distance d = MakeDistance(7, 8, 12.5, 0.125);
  d.Flags = 0x10;
  ASSERT_EQ(XYZ_SetDistance(fJob, &d), 0);
  sXYZ_Distance dr;
  std::memset(&dr, 0x5A, sizeof dr);
  ASSERT_EQ(XYZ_GetDistanceAt(fJob, 0, &dr), 0);
  EXPECT_EQ(dr.S, 12.5);
  EXPECT_EQ(dr.Sigma, 0.125);
  EXPECT_EQ(dr.V + dr.R + dr.T, 0.0);
  EXPECT_EQ(dr.Point1, 7);
  EXPECT_EQ(dr.Point2, 8);
  EXPECT_EQ(dr.Flags, 0x10);
  EXPECT_EQ(XYZ_GetDistanceAt(fJob, 1, &dr), 7);
}

TEST_F(RecordTest, IdenticalObservationsAreBothStored) {
  const auto b = MakeImagePoint(4, 5, 1.5, -2.5);
  XYZ_SetPictureCoord(fJob, &b);
  XYZ_SetPictureCoord(fJob, &b);
  EXPECT_EQ(XYZ_GetPictureCoordCnt(fJob), 2);
  auto inactive = b;
  inactive.Flags = 0;
  XYZ_SetPictureCoord(fJob, &inactive);
  EXPECT_EQ(XYZ_GetPictureCoordCnt(fJob), 3);
  sXYZ_PictureCoord read{};
  EXPECT_EQ(XYZ_GetPictureCoordsAt(fJob, 2, &read), 0);
  EXPECT_EQ(read.Flags, 0);
}

TEST_F(RecordTest, SigmasMustBeAboveZero) {
  for (const double sigma : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
    auto b = MakeImagePoint(1, 1, 0, 0);
    b.Sx = sigma;
    EXPECT_EQ(XYZ_SetPictureCoord(fJob, &b), 17);
    b = MakeImagePoint(1, 1, 0, 0);
    b.Sy = sigma;
    EXPECT_EQ(XYZ_SetPictureCoord(fJob, &b), 17);
    for (int k = 0; k < 3; ++k) {
      auto m = MakeMeasured(1, 0, 0, 0);
      (k == 0 ? m.Sx : k == 1 ? m.Sy : m.Sz) = sigma;
      EXPECT_EQ(XYZ_SetMeasuredObjectCoord(fJob, &m), 17);
    }
    const auto d = MakeDistance(1, 2, 1.0, sigma);
    EXPECT_EQ(XYZ_SetDistance(fJob, &d), 17);
  }
  EXPECT_EQ(XYZ_GetPictureCoordCnt(fJob), 0);
  EXPECT_EQ(XYZ_GetMeasuredObjectCoordCnt(fJob), 0);
  EXPECT_EQ(XYZ_GetDistanceCnt(fJob), 0);
}

// --- rotations ------------------------------------------------------------

TEST_F(RecordTest, ZeroAnglesAreTheUnitMatrix) {
  auto e = MakeImage(1, 1, 0, 0, 0);
  std::fill(std::begin(e.Rotation), std::end(e.Rotation), 0.0);
  e.Format = 0x0101;
  ASSERT_EQ(SetImage(e), 0);
  ExpectNear(ReadMatrix(0), {1, 0, 0, 0, 1, 0, 0, 0, 1}, 0.0);
}

TEST_F(RecordTest, AnglesOfEveryTypeAndUnitMakeTheirMatrix) {
  const std::pair<std::uint32_t, double> units[] = {
      {0x100, 1.0}, {0x200, 200.0 / std::numbers::pi}, {0x400, 180.0 / std::numbers::pi}};
  int id = 0;
  for (const int type : {1, 2, 4})
    for (const auto& [unit, factor] : units) {
      auto e = MakeImage(id, 1, 0, 0, 0);
      const double a = 0.3, b = -0.7, c = 1.9;
      e.Rotation[0] = a * factor;
      e.Rotation[1] = b * factor;
      e.Rotation[2] = c * factor;
      e.Format = static_cast<std::uint32_t>(type) | unit;
      ASSERT_EQ(SetImage(e), 0);
      ExpectNear(ReadMatrix(id++), FromAngles(type, a, b, c), 1e-15);
    }
}

TEST_F(RecordTest, FormatsWithoutUnitOrTypeAreRefused) {
  auto e = MakeImage(1, 1, 0, 0, 0);
  for (const std::uint32_t format :
       {0x0001U, 0x0002U, 0x0004U, 0x0301U, 0x0100U, 0x0105U, 0x0106U, 0U}) {
    e.Format = format;
    EXPECT_EQ(SetImage(e), 6) << std::hex << format;
  }
  EXPECT_EQ(XYZ_GetExteriorOrientCnt(fJob), 0);
  e.Format = 3;
  EXPECT_EQ(SetImage(e), 0);
}

TEST_F(RecordTest, MatrixIsOrthonormalised) {
  auto e = MakeImage(1, 1, 0, 0, 0);
  const Matrix r = FromAngles(1, 0.3, -0.7, 1.9);
  for (std::size_t i = 0; i < 9; ++i) e.Rotation[i] = r[i] + (i % 2 == 0 ? 1e-6 : -0.5e-6);
  ASSERT_EQ(SetImage(e), 0);
  const Matrix q = ReadMatrix(0);
  ExpectNear(Product(Transposed(q), q), {1, 0, 0, 0, 1, 0, 0, 0, 1}, 1e-14);
  ExpectNear(q, r, 3e-6);
}

TEST_F(RecordTest, MatrixTooFarFromARotationIsRefused) {
  auto e = MakeImage(1, 1, 0, 0, 0);
  e.Rotation[0] = 0.0;
  e.Rotation[4] = 0.0;
  EXPECT_EQ(SetImage(e), 4);
  std::fill(std::begin(e.Rotation), std::end(e.Rotation), 1.0);
  EXPECT_EQ(SetImage(e), 4);
  e = MakeImage(1, 1, 0, 0, 0);
  e.Rotation[1] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(SetImage(e), 4);
  // A scale of 1.15 is within the reach of the series, a scale of 2 is not.
  e = MakeImage(1, 1, 0, 0, 0);
  for (double& element : e.Rotation) element *= 2.0;
  EXPECT_EQ(SetImage(e), 4);
  e = MakeImage(1, 1, 0, 0, 0);
  for (double& element : e.Rotation) element *= 1.15;
  EXPECT_EQ(SetImage(e), 0);
  ExpectNear(ReadMatrix(0), {1, 0, 0, 0, 1, 0, 0, 0, 1}, 5e-5);
}

TEST_F(RecordTest, AnglesOfAVariableImageComeBackInEveryTypeAndUnit) {
  // Within the range in which the second convention is unique: |cos c| above |sin c|.
  int id = 0;
  for (const std::uint32_t format :
       {0x101U, 0x201U, 0x401U, 0x102U, 0x202U, 0x402U, 0x104U, 0x204U, 0x404U}) {
    auto e = MakeImage(id, 1, 1.5, 2.5, 3.5, 0x01);
    std::fill(std::begin(e.Rotation), std::end(e.Rotation), 0.0);
    e.Rotation[0] = 0.4;
    e.Rotation[1] = -0.3;
    e.Rotation[2] = 0.2;
    e.Format = format;
    e.Tag = 5;
    ASSERT_EQ(SetImage(e), 0);
    sXYZ_ExteriorOrient2 read;
    std::memset(&read, 0x5A, sizeof read);
    ASSERT_EQ(XYZ_GetExteriorOrientAt(fJob, id, &read), 0);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(read.Rotation[k], e.Rotation[k], 1e-9) << format;
    for (int k = 3; k < 9; ++k) EXPECT_EQ(read.Rotation[k], 0.0);
    EXPECT_EQ(read.X0, 1.5);
    EXPECT_EQ(read.Z0, 3.5);
    EXPECT_EQ(read.Format, format);
    EXPECT_EQ(read.Id, id++);
    EXPECT_EQ(read.IorId, 1);
    EXPECT_EQ(read.ProjectionId, -1);
    EXPECT_EQ(read.Flags, 0x01);
    EXPECT_EQ(read.Tag, 0);
    EXPECT_EQ(read.RayCount, 0);
    EXPECT_EQ(read.RmsVx, 0.0);
  }
}

TEST_F(RecordTest, FixedImageReadsTypeOneFromItsOwnMatrix) {
  auto e = MakeImage(1, 1, 0, 0, 0, 0x11);
  e.Rotation[0] = 0.4;
  e.Rotation[1] = -0.3;
  e.Rotation[2] = 0.2;
  e.Rotation[4] = e.Rotation[8] = 0.0;
  e.Format = 0x101;
  ASSERT_EQ(SetImage(e), 0);
  sXYZ_ExteriorOrient2 read{};
  ASSERT_EQ(XYZ_GetExteriorOrientAt(fJob, 0, &read), 0);
  EXPECT_EQ(read.Flags, 0x11);
  // The angles that make the transposed matrix.
  ExpectNear(FromAngles(1, read.Rotation[0], read.Rotation[1], read.Rotation[2]),
             Transposed(FromAngles(1, 0.4, -0.3, 0.2)),
             1e-10);
  EXPECT_GT(std::fabs(read.Rotation[0] - 0.4), 0.1);
}

TEST_F(RecordTest, SecondConventionKeepsItsNumerator) {
  // With |sin c| above |cos c| the first angle comes from T12 / sin c, which is not T02 / sin c.
  auto e = MakeImage(1, 1, 0, 0, 0, 0x01);
  const double c = 1.2;
  e.Rotation[0] = 0.4;
  e.Rotation[1] = -0.3;
  e.Rotation[2] = c;
  e.Rotation[4] = e.Rotation[8] = 0.0;
  e.Format = 0x102;
  ASSERT_EQ(SetImage(e), 0);
  sXYZ_ExteriorOrient2 read{};
  ASSERT_EQ(XYZ_GetExteriorOrientAt(fJob, 0, &read), 0);
  const Matrix t = Transposed(FromAngles(2, 0.4, -0.3, c));
  const double angle = std::atan2(t[2], t[5]);
  EXPECT_NEAR(read.Rotation[2], angle, 1e-14);
  EXPECT_NEAR(read.Rotation[0], std::atan2(-t[8], t[5] / std::sin(angle)), 1e-14);
  EXPECT_NEAR(read.Rotation[1], std::atan2(t[6], -t[7]), 1e-14);
}

TEST_F(RecordTest, OutputFormatOfTheJobStandsForAllImages) {
  auto e = MakeImage(1, 1, 0, 0, 0, 0x01);
  e.Rotation[0] = 0.4;
  e.Rotation[4] = e.Rotation[8] = 0.0;
  e.Format = 0x101;
  ASSERT_EQ(SetImage(e), 0);
  ASSERT_EQ(SetImage(MakeImage(2, 1, 0, 0, 0)), 0);
  Set(18, 0x0203);
  for (int i = 0; i < 2; ++i) {
    sXYZ_ExteriorOrient2 read{};
    ASSERT_EQ(XYZ_GetExteriorOrientAt(fJob, i, &read), 0);
    EXPECT_EQ(read.Format, 0x0203U);
    EXPECT_NEAR(read.Rotation[8], i == 0 ? std::cos(0.4) : 1.0, 1e-15);
  }
  Set(18, 0x0401);
  sXYZ_ExteriorOrient2 read{};
  ASSERT_EQ(XYZ_GetExteriorOrientAt(fJob, 0, &read), 0);
  EXPECT_NEAR(read.Rotation[0], 0.4 * 180.0 / std::numbers::pi, 1e-9);
}

TEST_F(RecordTest, ReadWithoutUnitEndsWithValuesOfZero) {
  auto e = MakeImage(1, 1, 5.0, 0, 0, 0x01);
  ASSERT_EQ(SetImage(e), 0);
  Set(18, 0x0001);
  sXYZ_ExteriorOrient2 read{};
  read.Rotation[0] = 9.0;
  EXPECT_EQ(XYZ_GetExteriorOrientAt(fJob, 0, &read), 6);
  EXPECT_EQ(read.Rotation[0], 0.0);
  EXPECT_EQ(read.X0, 5.0);
  Set(18, 0x0105);
  EXPECT_EQ(XYZ_GetExteriorOrientAt(fJob, 0, &read), 6);
}

// --- links between records ------------------------------------------------

// Two fixed images of one camera look down on fixed and free points; measurements are exact.
class SceneTest : public RecordTest {
 protected:
  void SetUp() override {
    const auto camera = MakeCamera(1);
    XYZ_SetInteriorOrientation(fJob, &camera);
    for (int i = 0; i < 3; ++i) SetImage(MakeImage(10 + i, 1, i - 1.0, 0.3 * i, 5.0));
    for (int i = 0; i < 4; ++i) {
      const auto point = MakePoint(100 + i, 0.3 * i - 0.4, 0.2 * i, 0.1 * i);
      XYZ_SetObjectCoord(fJob, &point);
    }
    for (int image = 0; image < 3; ++image)
      for (int i = 0; i < 4; ++i) Observe(100 + i, 10 + image);
    Set(5, 0);
  }

  // The exact image coordinate: the images look down along their third axis with a negative Ck.
  void Observe(int point, int image) {
    const double x = 0.3 * (point - 100) - 0.4 - (image - 11.0);
    const double y = 0.2 * (point - 100) - 0.3 * (image - 10);
    const double z = 0.1 * (point - 100) - 5.0;
    const auto o = MakeImagePoint(point, image, -30.0 * x / z, -30.0 * y / z);
    XYZ_SetPictureCoord(fJob, &o);
  }

  sXYZ_PictureCoord Last() {
    sXYZ_PictureCoord read{};
    XYZ_GetPictureCoordsAt(fJob, XYZ_GetPictureCoordCnt(fJob) - 1, &read);
    return read;
  }
};

TEST_F(SceneTest, ExactIntersectionKeepsThePoints) {
  EXPECT_EQ(XYZ_CalcBundle(fJob), 0);
  EXPECT_EQ(IntResult(6), 12);
  EXPECT_EQ(IntResult(9), 12);
  sXYZ_ObjectCoord point{};
  XYZ_GetObjectCoordAt(fJob, 3, &point);
  EXPECT_NEAR(point.X, 0.5, 1e-12);
  EXPECT_EQ(point.RayCount, 3);
  sXYZ_ExteriorOrient2 image{};
  XYZ_GetExteriorOrientAt(fJob, 0, &image);
  EXPECT_EQ(image.RayCount, 4);
  EXPECT_EQ(image.BlunderCount, 0);
}

TEST_F(SceneTest, ImageCoordinateWithoutItsGroupsIsLeftOut) {
  auto o = MakeImagePoint(999, 10, 0.0, 0.0);
  XYZ_SetPictureCoord(fJob, &o);
  o = MakeImagePoint(100, 999, 0.0, 0.0);
  XYZ_SetPictureCoord(fJob, &o);
  EXPECT_EQ(XYZ_CalcBundle(fJob), 0);
  EXPECT_EQ(IntResult(7), 24);
  EXPECT_EQ(Last().Flags, 0);
}

TEST_F(SceneTest, ImageCoordinateOnAnInactiveCameraIsLeftOut) {
  const auto camera = MakeCamera(2, -30.0, 0x10);
  XYZ_SetInteriorOrientation(fJob, &camera);
  SetImage(MakeImage(20, 2, 0, 0, 5));
  SetImage(MakeImage(21, 77, 0, 0, 5));
  for (const int image : {20, 21}) {
    const auto o = MakeImagePoint(100, image, 1.0, 1.0);
    XYZ_SetPictureCoord(fJob, &o);
  }
  EXPECT_EQ(XYZ_CalcBundle(fJob), 0);
  EXPECT_EQ(IntResult(7), 24);
  EXPECT_EQ(IntResult(3), 1);
}

TEST_F(SceneTest, InactiveProjectionTakesItsImageCoordinatesOut) {
  sXYZ_Projection projection{};
  projection.Id = 5;
  projection.Ck = -30.0;
  projection.Flags = 0x10;
  XYZ_SetProjection(fJob, &projection);
  auto image = MakeImage(20, 1, 0, 0, 5);
  image.ProjectionId = 5;
  SetImage(image);
  const auto o = MakeImagePoint(100, 20, 1.0, 1.0);
  XYZ_SetPictureCoord(fJob, &o);
  EXPECT_EQ(XYZ_CalcBundle(fJob), 0);
  EXPECT_EQ(Last().Flags, 0);
  EXPECT_EQ(IntResult(7), 24);
}

TEST_F(SceneTest, RelativeOrientationWithoutAnImageTakesItsImageCoordinatesOut) {
  const sXYZ_RelativeOrientation pair{30, 10, 999};
  XYZ_SetRelativeOrientation(fJob, &pair);
  const auto o = MakeImagePoint(100, 30, 1.0, 1.0);
  XYZ_SetPictureCoord(fJob, &o);
  EXPECT_EQ(XYZ_CalcBundle(fJob), 0);
  EXPECT_EQ(Last().Flags, 0);
}

TEST_F(SceneTest, MeasuredCoordinateWithoutAPointEndsTheLinkingOfThoseBehind) {
  for (const int point : {100, 999, 101}) {
    const auto measured = MakeMeasured(point, 0.0, 0.0, 0.0);
    XYZ_SetMeasuredObjectCoord(fJob, &measured);
  }
  EXPECT_EQ(XYZ_CalcBundle(fJob), 0);
  EXPECT_EQ(IntResult(7), 24 + 3);
  sXYZ_MeasuredObjectCoord read{};
  XYZ_GetMeasuredObjectCoordAt(fJob, 0, &read);
  EXPECT_EQ(read.Flags, 1);
  XYZ_GetMeasuredObjectCoordAt(fJob, 2, &read);
  EXPECT_EQ(read.Flags, 0);
  EXPECT_EQ(read.Vx, 0.0);
}

TEST_F(SceneTest, LinkedReferencesComeBackAfterARun) {
  auto point = MakePoint(200, 0.1, 0.1, -5.0);
  point.ReferenceEor = 10;
  XYZ_SetObjectCoord(fJob, &point);
  point = MakePoint(201, 0.1, 0.1, -5.0);
  point.ReferenceEor = 999;
  XYZ_SetObjectCoord(fJob, &point);
  auto measured = MakeMeasured(200, 0.1, 0.1, -5.0);
  measured.ReferenceEor = 10;
  XYZ_SetMeasuredObjectCoord(fJob, &measured);
  EXPECT_EQ(XYZ_CalcBundle(fJob), 0);
  sXYZ_ObjectCoord read{};
  XYZ_GetObjectCoordAt(fJob, 4, &read);
  EXPECT_EQ(read.ReferenceEor, 10);
  XYZ_GetObjectCoordAt(fJob, 5, &read);
  EXPECT_EQ(read.ReferenceEor, -1);
  EXPECT_EQ(read.Flags, 0);
  sXYZ_MeasuredObjectCoord back{};
  XYZ_GetMeasuredObjectCoordAt(fJob, 0, &back);
  EXPECT_EQ(back.ReferenceEor, 10);
}

TEST_F(SceneTest, PointBelowTheSmallestNumberOfRaysIsDisabled) {
  const auto point = MakePoint(300, 0.1, 0.1, 0.0);
  XYZ_SetObjectCoord(fJob, &point);
  auto exempt = MakePoint(301, 0.2, 0.1, 0.0);
  exempt.PointFlags = 0x2;
  XYZ_SetObjectCoord(fJob, &exempt);
  for (const int id : {300, 301})
    for (const int image : {10, 11}) {
      const auto o = MakeImagePoint(id, image, 0.5, 0.5);
      XYZ_SetPictureCoord(fJob, &o);
    }
  // Two parallel rays do not hold a point.
  const auto held = MakeMeasured(301, 0.2, 0.1, 0.0);
  XYZ_SetMeasuredObjectCoord(fJob, &held);
  Set(5, 0);
  Set(16, 3);
  Set(17, 10.0);
  XYZ_CalcBundle(fJob);
  sXYZ_ObjectCoord read{};
  XYZ_GetObjectCoordAt(fJob, 4, &read);
  EXPECT_EQ(read.Flags & 1, 0);
  EXPECT_EQ(read.RayCount, 0);
  XYZ_GetObjectCoordAt(fJob, 5, &read);
  EXPECT_EQ(read.Flags & 1, 1);
  XYZ_GetObjectCoordAt(fJob, 0, &read);
  EXPECT_EQ(read.Flags & 1, 1);
}

TEST_F(SceneTest, RayFarFromTheApproximateOrientationIsMarkedAtTheStart) {
  const auto o = MakeImagePoint(100, 10, 200.0, 0.0);
  XYZ_SetPictureCoord(fJob, &o);
  EXPECT_EQ(XYZ_CalcBundle(fJob), 0);
  EXPECT_EQ(Last().Flags, 0x11);
  EXPECT_EQ(IntResult(7), 24);
  sXYZ_ExteriorOrient2 image{};
  XYZ_GetExteriorOrientAt(fJob, 0, &image);
  EXPECT_EQ(image.BlunderCount, 1);
  sXYZ_ObjectCoord point{};
  XYZ_GetObjectCoordAt(fJob, 0, &point);
  EXPECT_EQ(point.BlunderCount, 1);
}

TEST_F(SceneTest, ObservationHandedInAsOutlierGetsAResidualAndFullRedundancy) {
  auto o = MakeImagePoint(100, 10, 1.0, 1.0);
  o.Flags = 0x11;
  XYZ_SetPictureCoord(fJob, &o);
  EXPECT_EQ(XYZ_CalcBundle(fJob), 0);
  EXPECT_EQ(IntResult(7), 24);
  EXPECT_EQ(Last().Rx, 1.0);
  EXPECT_NE(Last().Vx, 0.0);
}

TEST_F(SceneTest, InactiveObservationIsResetByTheRun) {
  auto o = MakeImagePoint(100, 10, 1.0, 1.0);
  o.Flags = 0;
  XYZ_SetPictureCoord(fJob, &o);
  EXPECT_EQ(XYZ_CalcBundle(fJob), 0);
  EXPECT_EQ(Last().Vx, 0.0);
  EXPECT_EQ(Last().Rx, 0.0);
}

TEST_F(SceneTest, DistanceOfCoincidingPointsHasAResidualAndNoInfluence) {
  const auto twin = MakePoint(400, -0.4, 0.0, 0.0, 0x11);
  XYZ_SetObjectCoord(fJob, &twin);
  const auto other = MakePoint(401, -0.4, 0.0, 0.0, 0x11);
  XYZ_SetObjectCoord(fJob, &other);
  const auto d = MakeDistance(400, 401, 0.25);
  XYZ_SetDistance(fJob, &d);
  EXPECT_EQ(XYZ_CalcBundle(fJob), 0);
  sXYZ_Distance read{};
  XYZ_GetDistanceAt(fJob, 0, &read);
  EXPECT_EQ(read.V, -0.25);
  EXPECT_EQ(read.R, 1.0);
}

}  // namespace
