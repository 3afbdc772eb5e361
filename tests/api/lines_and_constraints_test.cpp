#include "api/job_fixture.h"

#include <cstring>
#include <limits>

namespace {

sXYZ_Line MakeLine(int id) {
  sXYZ_Line line{};
  line.Id = id;
  line.P1[0] = 1.0;
  line.P2[0] = 1.0;
  line.P2[2] = 4.0;
  line.Flags = 0x01;
  return line;
}

sXYZ_Plane MakePlane(int id) {
  sXYZ_Plane plane{};
  plane.Id = id;
  plane.Point[1] = 2.0;
  plane.Normal[1] = 5.0;
  plane.Flags = 0x01;
  return plane;
}

class ElementTest : public JobTest {
 protected:
  int SetLine(const sXYZ_Line& line) { return XYZ_SetLine(fJob, &line); }
  int SetPlane(const sXYZ_Plane& plane) { return XYZ_SetPlane(fJob, &plane); }
};

TEST_F(ElementTest, NullPointersAndPositionsHaveTheirStatuses) {
  sXYZ_Line line{};
  sXYZ_Plane plane{};
  sXYZ_PictureLineCoord coord{};
  sXYZ_ConstraintPointOnLine onLine{};
  sXYZ_ConstraintPointOnPlane onPlane{};
  EXPECT_EQ(XYZ_SetLine(nullptr, &line), 12);
  EXPECT_EQ(XYZ_SetLine(fJob, nullptr), 12);
  EXPECT_EQ(XYZ_GetLineCnt(nullptr), -1);
  EXPECT_EQ(XYZ_GetLineAt(fJob, 0, nullptr), 12);
  EXPECT_EQ(XYZ_GetLineAt(fJob, 0, &line), 7);
  EXPECT_EQ(XYZ_SetPlane(nullptr, &plane), 12);
  EXPECT_EQ(XYZ_SetPlane(fJob, nullptr), 12);
  EXPECT_EQ(XYZ_GetPlaneCnt(nullptr), -1);
  EXPECT_EQ(XYZ_GetPlaneAt(fJob, -1, &plane), 7);
  EXPECT_EQ(XYZ_SetPictureLineCoord(nullptr, &coord), 12);
  EXPECT_EQ(XYZ_SetPictureLineCoord(fJob, nullptr), 12);
  EXPECT_EQ(XYZ_GetLinePictureCoordCnt(nullptr), -1);
  EXPECT_EQ(XYZ_GetLinePictureCoordAt(fJob, 0, nullptr), 12);
  EXPECT_EQ(XYZ_SetConstraintPointOnLine(nullptr, &onLine), 12);
  EXPECT_EQ(XYZ_SetConstraintPointOnLine(fJob, nullptr), 12);
  EXPECT_EQ(XYZ_GetConstraintPointOnLineCnt(nullptr), -1);
  EXPECT_EQ(XYZ_GetConstraintPointOnLineAt(fJob, 0, &onLine), 7);
  EXPECT_EQ(XYZ_GetConstraintPointOnLineAt(nullptr, 0, &onLine), 12);
  EXPECT_EQ(XYZ_SetConstraintPointOnPlane(nullptr, &onPlane), 12);
  EXPECT_EQ(XYZ_SetConstraintPointOnPlane(fJob, nullptr), 12);
  EXPECT_EQ(XYZ_GetConstraintPointOnPlaneCnt(nullptr), -1);
  EXPECT_EQ(XYZ_GetConstraintPointOnPlaneAt(fJob, 0, &onPlane), 7);
  EXPECT_EQ(XYZ_CheckSettings(nullptr), 12);
}

TEST_F(ElementTest, LineComesBackAsPointAndDirection) {
  ASSERT_EQ(SetLine(MakeLine(3)), 0);
  EXPECT_EQ(XYZ_GetLineCnt(fJob), 1);
  sXYZ_Line read;
  std::memset(&read, 0x5A, sizeof read);
  ASSERT_EQ(XYZ_GetLineAt(fJob, 0, &read), 0);
  EXPECT_EQ(read.P1[0], 1.0);
  EXPECT_EQ(read.P2[0], 0.0);
  EXPECT_EQ(read.P2[2], 1.0);
  EXPECT_EQ(read.SP1[0], 0.0);
  EXPECT_EQ(read.Id, 3);
  EXPECT_EQ(read.Flags, 0x01);
  EXPECT_EQ(read.Tag, 0);
}

TEST_F(ElementTest, LineOfEqualPointsIsRefused) {
  auto line = MakeLine(3);
  line.P2[2] = 0.0;
  EXPECT_EQ(SetLine(line), 19);
  line.P2[2] = 0.9e-10;
  EXPECT_EQ(SetLine(line), 19);
  line.P2[2] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(SetLine(line), 19);
  EXPECT_EQ(XYZ_GetLineCnt(fJob), 0);
  EXPECT_EQ(SetLine(MakeLine(3)), 0);
  EXPECT_EQ(SetLine(MakeLine(3)), 18);
  EXPECT_EQ(XYZ_GetLineCnt(fJob), 1);
}

TEST_F(ElementTest, PlaneComesBackWithUnitNormal) {
  ASSERT_EQ(SetPlane(MakePlane(4)), 0);
  sXYZ_Plane read;
  std::memset(&read, 0x5A, sizeof read);
  ASSERT_EQ(XYZ_GetPlaneAt(fJob, 0, &read), 0);
  EXPECT_EQ(read.Point[1], 2.0);
  EXPECT_EQ(read.Normal[1], 1.0);
  for (const double sigma : read.SPlane) EXPECT_EQ(sigma, 0.0);
  EXPECT_EQ(read.Id, 4);
  EXPECT_EQ(read.Flags, 0x01);
  EXPECT_EQ(read.Tag, 0);
}

TEST_F(ElementTest, PlaneWithoutANormalIsRefused) {
  auto plane = MakePlane(4);
  for (const double length : {0.0, 1e-11, std::numeric_limits<double>::quiet_NaN()}) {
    plane.Normal[1] = length;
    EXPECT_EQ(SetPlane(plane), 22);
  }
  plane.Normal[1] = 1.1e-10;
  EXPECT_EQ(SetPlane(plane), 0);
}

TEST_F(ElementTest, PlaneIdsAreHeldAgainstTheLines) {
  ASSERT_EQ(SetLine(MakeLine(7)), 0);
  EXPECT_EQ(SetPlane(MakePlane(7)), 18);
  EXPECT_EQ(SetPlane(MakePlane(8)), 0);
  EXPECT_EQ(SetPlane(MakePlane(8)), 0);
  EXPECT_EQ(XYZ_GetPlaneCnt(fJob), 2);
  EXPECT_EQ(SetLine(MakeLine(8)), 0);
}

TEST_F(ElementTest, LineImageCoordinateComesBackWithItsFirstSigmaTwice) {
  sXYZ_PictureLineCoord o{};
  o.X = 1.5;
  o.Y = 2.5;
  o.Sx = 0.25;
  o.Sy = 0.5;
  o.Id = 11;
  o.LineId = 12;
  o.EorId = 13;
  o.Flags = 0x31;
  ASSERT_EQ(XYZ_SetPictureLineCoord(fJob, &o), 0);
  EXPECT_EQ(XYZ_GetLinePictureCoordCnt(fJob), 1);
  sXYZ_PictureLineCoord read{};
  // The bound is the count of image coordinates, of which there is none yet.
  EXPECT_EQ(XYZ_GetLinePictureCoordAt(fJob, 0, &read), 7);
  const auto b = MakeImagePoint(1, 1, 0, 0);
  XYZ_SetPictureCoord(fJob, &b);
  XYZ_SetPictureCoord(fJob, &b);
  ASSERT_EQ(XYZ_GetLinePictureCoordAt(fJob, 0, &read), 0);
  EXPECT_EQ(read.X, 1.5);
  EXPECT_EQ(read.Y, 2.5);
  EXPECT_EQ(read.Sx, 0.25);
  EXPECT_EQ(read.Sy, 0.25);
  EXPECT_EQ(read.Id, 11);
  EXPECT_EQ(read.LineId, 12);
  EXPECT_EQ(read.EorId, 13);
  EXPECT_EQ(read.Flags, 0x31);
  EXPECT_EQ(read.V + read.R + read.T, 0.0);
  // Beyond the line list but within the image coordinates: zeros, and no memory of others.
  ASSERT_EQ(XYZ_GetLinePictureCoordAt(fJob, 1, &read), 0);
  EXPECT_EQ(read.LineId, 0);
  EXPECT_EQ(read.X, 0.0);
  EXPECT_EQ(XYZ_GetLinePictureCoordAt(fJob, 2, &read), 7);
  for (const double sigma : {0.0, -1.0}) {
    auto bad = o;
    bad.Sy = sigma;
    EXPECT_EQ(XYZ_SetPictureLineCoord(fJob, &bad), 17);
    bad = o;
    bad.Sx = sigma;
    EXPECT_EQ(XYZ_SetPictureLineCoord(fJob, &bad), 17);
  }
}

TEST_F(ElementTest, ConstraintsOfOneIdAreAllStored) {
  for (int i = 0; i < 2; ++i) {
    const sXYZ_ConstraintPointOnLine onLine{5, 10 + i, 20, 0x01};
    EXPECT_EQ(XYZ_SetConstraintPointOnLine(fJob, &onLine), 0);
    const sXYZ_ConstraintPointOnPlane onPlane{6, 30 + i, 40, 0xF0};
    EXPECT_EQ(XYZ_SetConstraintPointOnPlane(fJob, &onPlane), 0);
  }
  EXPECT_EQ(XYZ_GetConstraintPointOnLineCnt(fJob), 2);
  EXPECT_EQ(XYZ_GetConstraintPointOnPlaneCnt(fJob), 2);
  sXYZ_ConstraintPointOnLine onLine{};
  ASSERT_EQ(XYZ_GetConstraintPointOnLineAt(fJob, 0, &onLine), 0);
  EXPECT_EQ(onLine.Id, 5);
  EXPECT_EQ(onLine.PointId, 10);
  EXPECT_EQ(onLine.LineId, 20);
  EXPECT_EQ(onLine.Flags, 1);
  sXYZ_ConstraintPointOnPlane onPlane{};
  ASSERT_EQ(XYZ_GetConstraintPointOnPlaneAt(fJob, 1, &onPlane), 0);
  EXPECT_EQ(onPlane.PointId, 31);
  EXPECT_EQ(onPlane.PlaneId, 40);
  EXPECT_EQ(onPlane.Flags, 0);
}

// --- the settings check ---------------------------------------------------

class CheckTest : public JobTest {
 protected:
  void AddPoint(int id, int flags) {
    const auto point = MakePoint(id, 0, 0, 0, flags);
    ASSERT_EQ(XYZ_SetObjectCoord(fJob, &point), 0);
  }
};

TEST_F(CheckTest, EmptyJobHasToldNothing) { EXPECT_EQ(XYZ_CheckSettings(fJob), 1); }

TEST_F(CheckTest, FixedPointsCountAlsoWhenInactive) {
  AddPoint(1, 0x01);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 1);
  AddPoint(2, 0x11);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 16);
  AddPoint(3, 0x10);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 4096);
  AddPoint(4, 0x11);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 0);
  // A refused duplicate adds nothing.
  const auto twin = MakePoint(4, 0, 0, 0, 0x11);
  EXPECT_EQ(XYZ_SetObjectCoord(fJob, &twin), 18);
  Set(4, 0x700);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 1048576);
}

TEST_F(CheckTest, RequestsAreNeverForgottenEvenWhenRefused) {
  EXPECT_EQ(Set(4, 0x4000 | 0x700 | 0x800), 6);
  EXPECT_EQ(IntParam(4), 0x700);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 4096);
  Set(4, 0x3800);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 0);
  Set(4, 0);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 0);
}

TEST_F(CheckTest, ProtectedObservationsCountOnlyWhileActive) {
  auto d = MakeDistance(1, 2, 1.0);
  for (const int flags : {0x00, 0x01, 0x20}) {
    d.Flags = static_cast<std::uint16_t>(flags);
    XYZ_SetDistance(fJob, &d);
    EXPECT_EQ(XYZ_CheckSettings(fJob), 1) << flags;
  }
  d.Flags = 0x21;
  XYZ_SetDistance(fJob, &d);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 256);
  auto m = MakeMeasured(1, 0, 0, 0);
  m.Flags = 0x01;
  XYZ_SetMeasuredObjectCoord(fJob, &m);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 256);
  m.Flags = 0x21;
  XYZ_SetMeasuredObjectCoord(fJob, &m);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 4096);
}

TEST_F(CheckTest, FixedImagesCountOnlyWhileActive) {
  auto image = MakeImage(1, 1, 0, 0, 0, 0x10);
  XYZ_SetExteriorOrientation2(fJob, &image);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 1);
  image = MakeImage(2, 1, 0, 0, 0, 0x11);
  XYZ_SetExteriorOrientation2(fJob, &image);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 16);
  auto d = MakeDistance(1, 2, 1.0);
  d.Flags = 0x21;
  XYZ_SetDistance(fJob, &d);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 0);
}

TEST_F(CheckTest, RelativeOrientationWithAFixedBaseGivesScaleOnly) {
  auto image = MakeImage(1, 1, 0, 0, 0, 0x11);
  XYZ_SetExteriorOrientation2(fJob, &image);
  image = MakeImage(2, 1, 0, 0, 0, 0x01);
  XYZ_SetExteriorOrientation2(fJob, &image);
  const sXYZ_RelativeOrientation pair{3, 2, 1};
  XYZ_SetRelativeOrientation(fJob, &pair);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 0);
  Set(4, 0x700 | 0x3800);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 0);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 0);
}

// --- runs with constraints ------------------------------------------------

TEST_F(ElementTest, PointsMeetALineExactly) {
  // Points measured beside a measured line: two fixed ends span it, a third point is held on it.
  ASSERT_EQ(SetLine(MakeLine(1)), 0);
  for (int i = 0; i < 3; ++i) {
    const auto point = MakePoint(10 + i, 1.0, 0.0, 1.0 * i);
    XYZ_SetObjectCoord(fJob, &point);
    const auto measured = MakeMeasured(10 + i, 1.0 + (i == 1 ? 0.03 : 0.0), 0.0, 1.0 * i);
    XYZ_SetMeasuredObjectCoord(fJob, &measured);
    const sXYZ_ConstraintPointOnLine constraint{i, 10 + i, 1, 0x01};
    XYZ_SetConstraintPointOnLine(fJob, &constraint);
  }
  Set(5, 0);
  // Beside constraints the right-hand side does not vanish, so the measure of convergence ends at
  // the root of the rounding.
  Set(1, 1e-6);
  Set(19, 100);
  ASSERT_EQ(XYZ_CalcBundle(fJob), 0);
  EXPECT_EQ(IntResult(6), 9 + 4);
  EXPECT_EQ(IntResult(8), 6);
  EXPECT_EQ(IntResult(9), 9 - 13 + 6);
  sXYZ_Line line{};
  XYZ_GetLineAt(fJob, 0, &line);
  // Three equally weighted points at equal steps: the line shifts by their mean, 0.01.
  for (int i = 0; i < 3; ++i) {
    sXYZ_ObjectCoord point{};
    XYZ_GetObjectCoordAt(fJob, i, &point);
    EXPECT_NEAR(point.X, 1.01, 1e-9);
  }
  EXPECT_NEAR(line.P1[0], 1.01, 1e-9);
  EXPECT_NEAR(line.P2[0], 0.0, 1e-9);
  // S0^2 = (0.01^2 + 0.02^2 + 0.01^2) / 2; the base point at z = 0 is one end of three points.
  const double s0 = std::sqrt((1e-4 + 4e-4 + 1e-4) / 2.0);
  EXPECT_NEAR(DoubleResult(0), s0, 1e-9);
  EXPECT_NEAR(line.SP1[0], s0 * std::sqrt(1.0 / 3.0 + 1.0 / 2.0), 1e-9);
  EXPECT_NEAR(line.SP2[0], s0 * std::sqrt(1.0 / 2.0), 1e-9);
  EXPECT_NEAR(line.SP1[2], 0.0, 1e-12);
}

TEST_F(ElementTest, PointsMeetAPlaneExactly) {
  ASSERT_EQ(SetPlane(MakePlane(1)), 0);
  const double heights[4] = {0.02, -0.02, 0.02, -0.02};
  const double xs[4] = {1.0, -1.0, -1.0, 1.0};
  const double zs[4] = {1.0, 1.0, -1.0, -1.0};
  for (int i = 0; i < 4; ++i) {
    const auto point = MakePoint(10 + i, xs[i], 2.0, zs[i]);
    XYZ_SetObjectCoord(fJob, &point);
    const auto measured = MakeMeasured(10 + i, xs[i], 2.0 + heights[i], zs[i]);
    XYZ_SetMeasuredObjectCoord(fJob, &measured);
    const sXYZ_ConstraintPointOnPlane constraint{i, 10 + i, 1, 0x01};
    XYZ_SetConstraintPointOnPlane(fJob, &constraint);
  }
  Set(5, 0);
  // Beside constraints the right-hand side does not vanish, so the measure of convergence ends at
  // the root of the rounding.
  Set(1, 1e-6);
  Set(19, 100);
  ASSERT_EQ(XYZ_CalcBundle(fJob), 0);
  EXPECT_EQ(IntResult(9), 12 - 15 + 4);
  sXYZ_Plane plane{};
  XYZ_GetPlaneAt(fJob, 0, &plane);
  // A saddle about the plane: it stays where it is.
  EXPECT_NEAR(plane.Point[1], 2.0, 1e-9);
  EXPECT_NEAR(plane.Normal[1], 1.0, 1e-9);
  const double s0 = std::sqrt(4.0 * 4e-4);
  EXPECT_NEAR(DoubleResult(0), s0, 1e-9);
  EXPECT_NEAR(plane.SPlane[1], s0 / 2.0, 1e-9);
  EXPECT_NEAR(plane.SPlane[3], s0 / 2.0, 1e-9);
  EXPECT_NEAR(plane.SPlane[4], 0.0, 1e-12);
}

TEST_F(ElementTest, ConstraintBetweenFixedElementsIsSingular) {
  auto line = MakeLine(1);
  line.Flags = 0x11;
  SetLine(line);
  const auto fixed = MakePoint(10, 1.0, 0.0, 0.0, 0x11);
  XYZ_SetObjectCoord(fJob, &fixed);
  const auto point = MakePoint(11, 1.0, 0.0, 0.0);
  XYZ_SetObjectCoord(fJob, &point);
  const auto measured = MakeMeasured(11, 1.0, 0.0, 0.0);
  XYZ_SetMeasuredObjectCoord(fJob, &measured);
  const sXYZ_ConstraintPointOnLine constraint{1, 10, 1, 0x01};
  XYZ_SetConstraintPointOnLine(fJob, &constraint);
  EXPECT_EQ(XYZ_CalcBundle(fJob), 23);
}

TEST_F(ElementTest, ConstraintOnADisabledPointGetsNoMultiplier) {
  SetLine(MakeLine(1));
  const auto off = MakePoint(10, 1.0, 0.0, 0.0, 0x00);
  XYZ_SetObjectCoord(fJob, &off);
  const auto point = MakePoint(11, 1.0, 0.0, 0.0);
  XYZ_SetObjectCoord(fJob, &point);
  for (int i = 0; i < 2; ++i) {
    const auto measured = MakeMeasured(11, 1.0, 0.0, 0.1 * i);
    XYZ_SetMeasuredObjectCoord(fJob, &measured);
  }
  const sXYZ_ConstraintPointOnLine constraint{1, 10, 1, 0x01};
  XYZ_SetConstraintPointOnLine(fJob, &constraint);
  XYZ_CalcBundle(fJob);
  EXPECT_EQ(IntResult(8), 0);
  sXYZ_ConstraintPointOnLine read{};
  XYZ_GetConstraintPointOnLineAt(fJob, 0, &read);
  EXPECT_EQ(read.Flags, 0);
}

TEST_F(ElementTest, LineImageCoordinateOnAnImageWithAProjectionFails) {
  const auto camera = MakeCamera(1);
  XYZ_SetInteriorOrientation(fJob, &camera);
  sXYZ_Projection projection{};
  projection.Id = 5;
  projection.Ck = -30.0;
  projection.Flags = 0x11;
  XYZ_SetProjection(fJob, &projection);
  auto image = MakeImage(10, 1, 0, 0, 5);
  image.ProjectionId = 5;
  XYZ_SetExteriorOrientation2(fJob, &image);
  SetLine(MakeLine(1));
  sXYZ_PictureLineCoord o{};
  o.Sx = o.Sy = 0.01;
  o.LineId = 1;
  o.EorId = 10;
  o.Flags = 0x01;
  XYZ_SetPictureLineCoord(fJob, &o);
  EXPECT_EQ(XYZ_CalcBundle(fJob), 21);
  EXPECT_NE(ReadFile(ProtocolFile())
                .find("-12010 - Linienkoordinaten und variable Hauptpunktlage koennen nicht "
                      "zusammen verarbeitet werden"),
            std::string::npos);
}

TEST_F(ElementTest, FreeTriangleOfDistancesKeepsItsCentroid) {
  // Three points and their distances, one too long: datum by translation and rotation.
  const double x[3] = {0.0, 3.0, 0.0};
  const double y[3] = {0.0, 0.0, 4.0};
  for (int i = 0; i < 3; ++i) {
    auto point = MakePoint(1 + i, x[i], y[i], 0.0);
    point.PointFlags = 0x1;
    XYZ_SetObjectCoord(fJob, &point);
  }
  const auto add = [this](int a, int b, double s) {
    const auto d = MakeDistance(a, b, s);
    XYZ_SetDistance(fJob, &d);
  };
  add(1, 2, 3.01);
  add(2, 3, 5.0);
  add(1, 3, 4.0);
  // A plane triangle does not hold its heights: these are measured.
  Set(4, 0x700 | 0x3800);
  Set(5, 0);
  Set(6, 0);
  EXPECT_EQ(XYZ_CheckSettings(fJob), 16);
  // n = 3, u = 9, b = 6: no redundancy, and the run ends at its limit of iterations.
  Set(3, 6);
  ASSERT_EQ(XYZ_CalcBundle(fJob), 0);
  EXPECT_EQ(IntResult(9), 0);
  EXPECT_EQ(IntResult(8), 6);
  double sum[3] = {0.0, 0.0, 0.0};
  sXYZ_ObjectCoord p[3];
  for (int i = 0; i < 3; ++i) {
    XYZ_GetObjectCoordAt(fJob, i, &p[i]);
    sum[0] += p[i].X;
    sum[1] += p[i].Y;
    sum[2] += p[i].Z;
  }
  EXPECT_NEAR(sum[0], 3.0, 1e-9);
  EXPECT_NEAR(sum[1], 4.0, 1e-9);
  EXPECT_NEAR(sum[2], 0.0, 1e-9);
  EXPECT_NEAR(std::hypot(p[0].X - p[1].X, p[0].Y - p[1].Y, p[0].Z - p[1].Z), 3.01, 1e-9);
  EXPECT_NEAR(std::hypot(p[1].X - p[2].X, p[1].Y - p[2].Y, p[1].Z - p[2].Z), 5.0, 1e-9);
  EXPECT_NEAR(std::hypot(p[0].X - p[2].X, p[0].Y - p[2].Y, p[0].Z - p[2].Z), 4.0, 1e-9);
}

}  // namespace
