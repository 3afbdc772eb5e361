// The real calibration: 21 images of a sheet, four fixed corners, eight camera parameters.

#include "networks/comparison.h"
#include "networks/library_run.h"

#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Table = std::vector<std::map<std::string, std::string>>;

std::vector<std::string> Split(const std::string& line) {
  std::vector<std::string> fields;
  std::istringstream stream(line);
  for (std::string field; std::getline(stream, field, ',');) fields.push_back(field);
  return fields;
}

Table ReadTable(const std::string& name) {
  std::ifstream file(std::string(CARDO_EXAMPLES_DIR) + "/camera-calibration/" + name);
  Table table;
  std::string line;
  std::getline(file, line);
  const std::vector<std::string> columns = Split(line);
  while (std::getline(file, line)) {
    const std::vector<std::string> fields = Split(line);
    auto& row = table.emplace_back();
    for (std::size_t i = 0; i < fields.size() && i < columns.size(); ++i)
      row[columns[i]] = fields[i];
  }
  EXPECT_FALSE(table.empty()) << name;
  return table;
}

double Number(const std::map<std::string, std::string>& row, const char* column) {
  return std::stod(row.at(column));
}

int Id(const std::map<std::string, std::string>& row, const char* column) {
  return std::stoi(row.at(column));
}

Network ReadCalibration() {
  Network network;
  for (const auto& row : ReadTable("cameras.csv")) {
    sXYZ_InteriorOrient c{};
    c.Id = Id(row, "id");
    c.Ck = Number(row, "ck");
    c.Flags = 0x01;
    EXPECT_EQ(row.at("estimate"), "ck xh yh a1 a2 a3 b1 b2");
    c.ParameterMask = 0x377;
    network.cameras.push_back(c);
  }
  for (const auto& row : ReadTable("images.csv")) {
    sXYZ_ExteriorOrient2 e{};
    e.Id = Id(row, "id");
    e.IorId = Id(row, "camera");
    e.ProjectionId = -1;
    e.X0 = Number(row, "x0");
    e.Y0 = Number(row, "y0");
    e.Z0 = Number(row, "z0");
    e.Rotation[0] = Number(row, "omega");
    e.Rotation[1] = Number(row, "phi");
    e.Rotation[2] = Number(row, "kappa");
    e.Format = 0x401;
    e.Flags = 0x01;
    network.images.push_back(e);
  }
  for (const auto& row : ReadTable("points.csv")) {
    sXYZ_ObjectCoord p{};
    p.Id = Id(row, "id");
    p.X = Number(row, "x");
    p.Y = Number(row, "y");
    p.Z = Number(row, "z");
    p.ReferenceEor = -1;
    p.Flags = row.at("fixed") == "1" ? 0x11 : 0x01;
    network.points.push_back(p);
  }
  for (const auto& row : ReadTable("image_coordinates.csv")) {
    sXYZ_PictureCoord o{};
    o.PointId = Id(row, "point");
    o.EorId = Id(row, "image");
    o.X = Number(row, "x");
    o.Y = Number(row, "y");
    o.Sx = Number(row, "sx");
    o.Sy = Number(row, "sy");
    o.Flags = 0x01;
    network.imagePoints.push_back(o);
  }
  network.s0Apriori = 0.001;
  return network;
}

TEST(Calibration, ConvergesFromTheGivenApproximationsInAHandfulOfIterations) {
  // The limit of examples/camera-calibration. Redundancy numbers are rows after the last
  // increments times cofactors before them, so their sum is as exact as the last step is small.
  const LibraryRun run = RunThroughLibrary(ReadCalibration(), 1e-5);
  EXPECT_EQ(run.status, 0);
  EXPECT_LE(run.iterations, 6);
  EXPECT_EQ(run.unknowns, 422);
  EXPECT_EQ(run.observations, 4148);
  EXPECT_EQ(run.constraints, 0);
  EXPECT_EQ(run.redundancy, 3726);
  EXPECT_NEAR(run.redundancySum, 3726.0, 1e-6);
}

TEST(Calibration, UsualLimitEndsOneIterationEarlier) {
  const LibraryRun usual = RunThroughLibrary(ReadCalibration(), 0.00032);
  const LibraryRun tight = RunThroughLibrary(ReadCalibration(), 1e-9);
  EXPECT_EQ(usual.status, 0);
  EXPECT_LE(usual.iterations, 5);
  Comparison c;
  ComparePoints(c, usual.adjusted, tight.adjusted);
  CompareCameras(c, usual.adjusted, tight.adjusted);
  // The last step was below 0.032 times S0 in every unknown; what is left is its square.
  c.Expect(1e-3);
}

// What the reference starts from: where the library ended, with the rotations as matrices.
Network StartFrom(const Network& network, LibraryRun& run) {
  Network start = network;
  start.points = run.adjusted.points;
  start.cameras = run.adjusted.cameras;
  start.images = run.adjusted.images;
  for (auto& p : start.points) p.ReferenceEor = -1;
  for (auto& e : start.images) {
    const double degree = 0.017453292519943295;
    const double a = e.Rotation[0] * degree, b = e.Rotation[1] * degree, c = e.Rotation[2] * degree;
    const double sa = std::sin(a), ca = std::cos(a), sb = std::sin(b), cb = std::cos(b),
                 sc = std::sin(c), cc = std::cos(c);
    const double r[9] = {cb * cc,
                         -cb * sc,
                         sb,
                         ca * sc + sa * sb * cc,
                         ca * cc - sa * sb * sc,
                         -sa * cb,
                         sa * sc - ca * sb * cc,
                         sa * cc + ca * sb * sc,
                         ca * cb};
    std::copy_n(r, 9, e.Rotation);
  }
  run.adjusted.images = start.images;
  return start;
}

TEST(Calibration, AgreesWithTheDenseReference) {
  const Network network = ReadCalibration();
  LibraryRun run = RunThroughLibrary(network, 1e-11);
  ASSERT_EQ(run.status, 0);
  const Network start = StartFrom(network, run);
  const Result expected = reference::Adjust(start);
  ASSERT_TRUE(expected.converged);
  EXPECT_EQ(expected.unknowns, 422);
  EXPECT_NEAR(run.s0 / static_cast<double>(expected.s0), 1.0, 1e-9);
  Comparison c;
  ComparePoints(c, run.adjusted, expected.adjusted);
  CompareImages(c, run.adjusted, expected.adjusted);
  CompareCameras(c, run.adjusted, expected.adjusted);
  CompareObservations(c, run.adjusted, expected);
  c.Expect(1e-9);
}

// The same images without control, all points carrying the datum. The reference has its own
// formulation of the datum and pivots where it must.
TEST(FreeNetwork, AgreesWithTheDenseReference) {
  Network network = ReadCalibration();
  for (auto& p : network.points) {
    p.Flags = 0x01;
    p.PointFlags = 0x1;
  }
  network.datumTranslation = network.datumRotation = network.datumScale = true;
  LibraryRun run = RunThroughLibrary(network, 1e-11);
  ASSERT_EQ(run.status, 0);
  EXPECT_EQ(run.unknowns, 434);
  EXPECT_EQ(run.constraints, 7);
  EXPECT_EQ(run.redundancy, 3721);
  Network start = StartFrom(network, run);
  start.datumPoints = network.points;
  const Result expected = reference::Adjust(start);
  ASSERT_TRUE(expected.converged);
  EXPECT_EQ(expected.unknowns, 434);
  EXPECT_EQ(expected.constraints, 7);
  EXPECT_NEAR(run.s0 / static_cast<double>(expected.s0), 1.0, 1e-9);
  Comparison c;
  ComparePoints(c, run.adjusted, expected.adjusted);
  CompareImages(c, run.adjusted, expected.adjusted);
  CompareCameras(c, run.adjusted, expected.adjusted);
  c.Expect(1e-9);
  // The centroid stays where the approximate coordinates had it.
  double drift[3] = {};
  for (std::size_t i = 0; i < network.points.size(); ++i) {
    drift[0] += run.adjusted.points[i].X - network.points[i].X;
    drift[1] += run.adjusted.points[i].Y - network.points[i].Y;
    drift[2] += run.adjusted.points[i].Z - network.points[i].Z;
  }
  for (const double sum : drift) EXPECT_NEAR(sum, 0.0, 1e-9);
}

}  // namespace
