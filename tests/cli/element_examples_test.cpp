// The examples with every kind of element and with a free datum, through the built program.

#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Row = std::map<std::string, std::string>;
using Rows = std::map<int, Row>;

std::vector<std::string> Split(const std::string& line) {
  std::vector<std::string> fields;
  std::istringstream stream(line);
  for (std::string field; std::getline(stream, field, ',');) fields.push_back(field);
  return fields;
}

Rows ReadById(const fs::path& name) {
  std::ifstream file(name);
  std::string line;
  std::getline(file, line);
  const std::vector<std::string> columns = Split(line);
  Rows rows;
  while (std::getline(file, line)) {
    const std::vector<std::string> fields = Split(line);
    Row row;
    for (std::size_t i = 0; i < columns.size(); ++i)
      row[columns[i]] = i < fields.size() ? fields[i] : "";
    rows[std::stoi(row.at("id"))] = row;
  }
  EXPECT_FALSE(rows.empty()) << name;
  return rows;
}

double Value(const Row& row, const std::string& column) { return std::stod(row.at(column)); }

using Vec = std::array<double, 3>;
Vec Triple(const Row& row, const char* x, const char* y, const char* z) {
  return {Value(row, x), Value(row, y), Value(row, z)};
}

class ExampleTest : public ::testing::Test {
 protected:
  ExampleTest()
      : fOutput(fs::temp_directory_path() /
                ("cardo_example_" + std::to_string(::getpid()) + "_" +
                 ::testing::UnitTest::GetInstance()->current_test_info()->name())) {}
  ~ExampleTest() override {
    std::error_code ignored;
    fs::remove_all(fOutput, ignored);
  }

  static fs::path Example(const std::string& name) { return fs::path(CARDO_EXAMPLES_DIR) / name; }

  void Adjust(const std::string& name, const std::string& options = "") {
    const std::string command = std::string("\"") + CARDO_BUNDLE_PROGRAM + "\" adjust \"" +
                                Example(name).string() + "\" " + options + " --quiet --output \"" +
                                fOutput.string() + "\" > /dev/null 2> /dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
    std::ifstream file(fOutput / "summary.json");
    fSummary = nlohmann::json::parse(file);
  }

  fs::path fOutput;
  nlohmann::json fSummary;
};

// Adjusted values lie within four of their standard deviations of the truth. Of some hundred
// values one beyond that is to be expected once in a hundred such jobs; the noise is fixed.
constexpr double kSigmas = 4.0;

TEST_F(ExampleTest, LinesAndPlanesLieWhereTheTruthHasThem) {
  Adjust("lines-and-planes");
  const fs::path truth = Example("lines-and-planes") / "truth";
  EXPECT_EQ(fSummary["observations"], 405);
  EXPECT_EQ(fSummary["unknowns"], 36 + 42 + 9 + 3 + 8 + 3);
  EXPECT_EQ(fSummary["constraints"], 11);
  EXPECT_EQ(fSummary["redundancy"], 405 - 101 + 11);
  EXPECT_NEAR(fSummary["redundancy_sum"].get<double>(), 315.0, 0.05);
  // S0 over its a-priori value spreads by 1 / sqrt(2 r).
  EXPECT_NEAR(fSummary["s0"].get<double>() / 0.001, 1.0, kSigmas / std::sqrt(2.0 * 315.0));

  const Rows points = ReadById(fOutput / "points.csv");
  for (const auto& [id, expected] : ReadById(truth / "points.csv"))
    for (const char* axis : {"x", "y", "z"})
      EXPECT_NEAR(Value(points.at(id), axis),
                  Value(expected, axis),
                  kSigmas * Value(points.at(id), std::string("s_") + axis))
          << "point " << id << ' ' << axis;

  const Rows images = ReadById(fOutput / "images.csv");
  for (const auto& [id, expected] : ReadById(truth / "images.csv"))
    for (const char* axis : {"x0", "y0", "z0", "omega", "phi", "kappa"})
      EXPECT_NEAR(std::remainder(Value(images.at(id), axis) - Value(expected, axis), 360.0),
                  0.0,
                  kSigmas * Value(images.at(id), std::string("s_") + axis))
          << "image " << id << ' ' << axis;

  const Rows cameras = ReadById(fOutput / "cameras.csv");
  for (const auto& [id, expected] : ReadById(truth / "cameras.csv"))
    for (const char* parameter : {"ck", "xh", "yh", "a1"})
      EXPECT_NEAR(Value(cameras.at(id), parameter),
                  Value(expected, parameter),
                  kSigmas * Value(cameras.at(id), std::string("s_") + parameter))
          << "camera " << id << ' ' << parameter;
  const Rows projections = ReadById(fOutput / "projections.csv");
  for (const auto& [id, expected] : ReadById(truth / "projections.csv"))
    for (const char* value : {"ck", "xh", "yh"})
      EXPECT_NEAR(Value(projections.at(id), value),
                  Value(expected, value),
                  kSigmas * Value(projections.at(id), std::string("s_") + value));

  const Rows lines = ReadById(fOutput / "lines.csv");
  for (const auto& [id, expected] : ReadById(truth / "lines.csv")) {
    const Row& line = lines.at(id);
    const Vec p = Triple(expected, "x1", "y1", "z1");
    Vec d = Triple(expected, "x2", "y2", "z2");
    double length = 0.0;
    for (std::size_t k = 0; k < 3; ++k) {
      d[k] -= p[k];
      length += d[k] * d[k];
    }
    const Vec base = Triple(line, "x1", "y1", "z1");
    double along = 0.0;
    for (std::size_t k = 0; k < 3; ++k) {
      d[k] /= std::sqrt(length);
      along += (base[k] - p[k]) * d[k];
    }
    const char* axes[] = {"x", "y", "z"};
    for (std::size_t k = 0; k < 3; ++k) {
      const std::string axis = axes[k];
      EXPECT_NEAR(base[k] - p[k] - along * d[k], 0.0, kSigmas * Value(line, "s_" + axis + "1"))
          << "line " << id << ' ' << axis;
      EXPECT_NEAR(Value(line, "d" + axis), d[k], kSigmas * Value(line, "s_d" + axis))
          << "line " << id << " direction " << axis;
    }
  }

  const Row plane = ReadById(fOutput / "planes.csv").at(5);
  const Row wall = ReadById(truth / "planes.csv").at(5);
  const Vec normal = Triple(wall, "nx", "ny", "nz");
  const double length = std::hypot(normal[0], normal[1], normal[2]);
  const Vec point = Triple(plane, "x", "y", "z");
  const Vec origin = Triple(wall, "x", "y", "z");
  double height = 0.0;
  double sigma = 0.0;
  const char* axes[] = {"x", "y", "z"};
  for (std::size_t k = 0; k < 3; ++k) {
    const std::string axis = axes[k];
    height += (point[k] - origin[k]) * normal[k] / length;
    sigma = std::hypot(sigma, Value(plane, "s_" + axis));
    EXPECT_NEAR(Value(plane, "n" + axis), normal[k] / length, kSigmas * Value(plane, "s_n" + axis));
  }
  EXPECT_NEAR(height, 0.0, kSigmas * sigma);
}

TEST_F(ExampleTest, PointsOfTheConstraintsLieOnTheirElements) {
  Adjust("lines-and-planes");
  const Rows points = ReadById(fOutput / "points.csv");
  const Row line = ReadById(fOutput / "lines.csv").at(1);
  const Vec p = Triple(line, "x1", "y1", "z1");
  const Vec d = Triple(line, "dx", "dy", "dz");
  for (const int id : {1, 2, 3}) {
    const Vec x = Triple(points.at(id), "x", "y", "z");
    double along = 0.0;
    for (std::size_t k = 0; k < 3; ++k) along += (x[k] - p[k]) * d[k];
    for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(x[k] - p[k] - along * d[k], 0.0, 1e-8);
  }
  const Row plane = ReadById(fOutput / "planes.csv").at(5);
  for (const int id : {4, 5, 6, 7, 8}) {
    const Vec x = Triple(points.at(id), "x", "y", "z");
    EXPECT_NEAR((x[0] - Value(plane, "x")) * Value(plane, "nx") +
                    (x[1] - Value(plane, "y")) * Value(plane, "ny") +
                    (x[2] - Value(plane, "z")) * Value(plane, "nz"),
                0.0,
                1e-8);
  }
}

TEST_F(ExampleTest, FreeNetworkHasItsCountsAndKeepsTheCentroid) {
  Adjust("free-network");
  EXPECT_EQ(fSummary["unknowns"], 434);
  EXPECT_EQ(fSummary["constraints"], 7);
  // The outlier test takes six image points of 2074.
  EXPECT_EQ(fSummary["rejected"].size(), 6U);
  EXPECT_EQ(fSummary["redundancy"], 3721 - 2 * 6);
  const Rows before = ReadById(Example("free-network") / "points.csv");
  const Rows after = ReadById(fOutput / "points.csv");
  for (const char* axis : {"x", "y", "z"}) {
    double drift = 0.0;
    for (const auto& [id, row] : before) drift += Value(after.at(id), axis) - Value(row, axis);
    EXPECT_NEAR(drift, 0.0, 1e-9) << axis;
  }
}

// The network in a datum of another kind, its job in a folder of its own.
struct Realisation {
  nlohmann::json summary;
  Rows points;
  Row camera;

  [[nodiscard]] double SquareSum() const {
    const auto s0 = summary["s0"].get<double>();
    return s0 * s0 * summary["redundancy"].get<double>();
  }
  // Sum of the cofactors of all point coordinates.
  [[nodiscard]] double Trace() const {
    const auto s0 = summary["s0"].get<double>();
    double sum = 0.0;
    for (const auto& [id, point] : points)
      for (const char* sigma : {"s_x", "s_y", "s_z"})
        sum += Value(point, sigma) * Value(point, sigma) / (s0 * s0);
    return sum;
  }
};

// A datum decides where the network lies and nothing else. Three of them, one without a condition
// in the system, give the same residuals and the same camera; among them all points together give
// the smallest mean variance.
TEST_F(ExampleTest, FreeNetworkIsTheSameInEveryDatumAndTheMostAccurateInItsOwn) {
  const fs::path job = fOutput.string() + "_job";
  const auto realise = [&](const std::map<int, std::string>& fixedAndDatum,
                           const std::string& other,
                           const std::string& more) {
    fs::remove_all(job);
    fs::copy(Example("free-network"), job);
    std::ofstream points(job / "points.csv");
    points << "id,x,y,z,fixed,datum\n";
    for (const auto& [id, row] : ReadById(Example("free-network") / "points.csv")) {
      const auto marked = fixedAndDatum.find(id);
      points << id << ',' << row.at("x") << ',' << row.at("y") << ',' << row.at("z") << ','
             << (marked == fixedAndDatum.end() ? other : marked->second) << '\n';
    }
    points.close();
    std::string settings;
    if (!more.empty()) {
      std::ofstream(job / "measured_coordinates.csv") << "point,x,y,z,sx,sy,sz\n" << more << '\n';
      settings = " --set datum=";
    }
    const std::string command = std::string("\"") + CARDO_BUNDLE_PROGRAM + "\" adjust \"" +
                                job.string() + "\"" + settings + " --quiet --output \"" +
                                fOutput.string() + "\" > /dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::ifstream file(fOutput / "summary.json");
    Realisation result{nlohmann::json::parse(file),
                       ReadById(fOutput / "points.csv"),
                       ReadById(fOutput / "cameras.csv").at(1)};
    fs::remove_all(job);
    return result;
  };
  const std::string corner = "0,1";
  const Realisation all = realise({}, corner, "");
  const Realisation corners =
      realise({{1001, corner}, {1002, corner}, {1003, corner}, {1004, corner}}, "0,0", "");
  // Two fixed points, and the height of a third; its x and y weigh nothing.
  const Realisation fixed =
      realise({{1001, "1,0"}, {1004, "1,0"}}, "0,0", "1002,1,1,0,1e6,1e6,1e-4");

  // The outlier test rejects the same in every datum.
  EXPECT_EQ(corners.summary["redundancy"], 3709);
  EXPECT_EQ(corners.summary["rejected"].size(), 6U);
  // Two points less to estimate, three observations more, no condition.
  EXPECT_EQ(fixed.summary["unknowns"], 434 - 6);
  EXPECT_EQ(fixed.summary["constraints"], 0);
  EXPECT_EQ(fixed.summary["redundancy"], 4136 + 3 - 428);
  // Each run ends where its changes are 1e-5 of S0, which is squared in the sum; another two
  // digits are left to rounding.
  constexpr double kSame = 1e-8;
  for (const Realisation* other : {&corners, &fixed}) {
    EXPECT_NEAR(other->SquareSum(), all.SquareSum(), kSame * all.SquareSum());
    const double ratio = other->summary["s0"].get<double>() / all.summary["s0"].get<double>();
    for (const std::string parameter : {"ck", "xh", "yh", "a1", "a2", "a3", "b1", "b2"}) {
      const double sigma = Value(all.camera, "s_" + parameter);
      // The changes that end the run, in standard deviations.
      EXPECT_NEAR(Value(other->camera, parameter), Value(all.camera, parameter), 1e-5 * sigma)
          << parameter;
      EXPECT_NEAR(Value(other->camera, "s_" + parameter), sigma * ratio, 1e-5 * sigma) << parameter;
    }
    EXPECT_GT(other->Trace(), 1.2 * all.Trace());
  }
}

// The five conditions that the fixed corners put on the shape of the sheet are gone: the free
// network fits better, and its camera is that of the controlled job within their accuracies.
TEST_F(ExampleTest, FreeNetworkFindsTheSameCameraWithoutTheControl) {
  Adjust("free-network", "--set blunder_test=off");
  const auto s0 = fSummary["s0"].get<double>();
  const Row camera = ReadById(fOutput / "cameras.csv").at(1);
  Adjust("camera-calibration");
  EXPECT_LT(s0, fSummary["s0"].get<double>());
  const Row controlled = ReadById(fOutput / "cameras.csv").at(1);
  for (const char* parameter : {"ck", "xh", "yh", "a1", "a2", "a3", "b1", "b2"})
    EXPECT_NEAR(Value(camera, parameter),
                Value(controlled, parameter),
                3.0 * Value(controlled, std::string("s_") + parameter))
        << parameter;
}

// Why the calibration example has the test off: it takes the image points of the fixed corners,
// which the free network keeps.
TEST_F(ExampleTest, OutlierTestBlamesTheCornersOnlyWhereTheyAreFixed) {
  const auto cornersAndOthers = [this] {
    std::array<int, 2> counts{};
    for (const auto& observation : fSummary["rejected"])
      ++counts[observation["point"] > 1000 ? 0 : 1];
    return counts;
  };
  Adjust("camera-calibration", "--set blunder_test=inner-reliability");
  EXPECT_EQ(cornersAndOthers(), (std::array<int, 2>{13, 3}));
  Adjust("free-network");
  EXPECT_EQ(cornersAndOthers(), (std::array<int, 2>{0, 6}));
}

}  // namespace
