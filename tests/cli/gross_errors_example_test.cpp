// The example with planted errors: what its README says of them is what the program finds.

#include "cli/job_scene.h"
#include "exit_status.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace cardo {
namespace {

namespace fs = std::filesystem;
using test::ProgramResult;
using test::RunProgram;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::string kExample = std::string(CARDO_EXAMPLES_DIR) + "/gross-errors";

using Row = std::map<std::string, std::string>;
using Ray = std::pair<std::string, std::string>;  // point, image

std::string ReadText(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// A row of the README's table.
struct Planted {
  Ray ray;
  std::string rays, axis;
  double size, redundancy, expected, testValue;
  std::string outcome;
};

std::vector<Planted> PlantedOfReadme() {
  static const std::regex row(
      R"(\n\| (\d+) \| (\d) \| (\d) \| ([xy]) \| (\d+) \| ([\d.]+) \| ([\d.]+) \| ([\d.]+) \| ([^|]+) \|)");
  const std::string text = ReadText(kExample + "/README.md");
  std::vector<Planted> planted;
  for (std::sregex_iterator it(text.begin(), text.end(), row), end; it != end; ++it) {
    const auto field = [&it](std::size_t i) { return (*it)[i].str(); };
    const auto number = [&field](std::size_t i) { return std::stod(field(i)); };
    planted.push_back({{field(1), field(3)},
                       field(2),
                       field(4),
                       number(5),
                       number(6),
                       number(7),
                       number(8),
                       field(9)});
  }
  return planted;
}

// Half a unit of the last digit that the README prints.
constexpr double kTwoDigits = 0.005 + 1e-9;
constexpr double kThreeDigits = 0.0005 + 1e-9;

class GrossErrorsTest : public ::testing::Test {
 protected:
  ProgramResult Adjust(const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {"adjust", kExample, "--output", Path().string()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    ProgramResult result = RunProgram(arguments);
    EXPECT_EQ(result.status, kExitOk);
    fRays.clear();
    for (const Row& row : test::ReadRows(Path() / "image_coordinates.csv"))
      fRays[{row.at("point"), row.at("image")}] = row;
    fPoints.clear();
    for (const Row& row : test::ReadRows(Path() / "points.csv")) fPoints[row.at("id")] = row;
    fSummary = nlohmann::json::parse(fOutput.Read("out/summary.json"));
    return result;
  }

  [[nodiscard]] fs::path Path() const { return fOutput.Path() / "out"; }

  // Round and test value with which the protocol last rejects an image coordinate, 0 and 0 if none.
  [[nodiscard]] std::pair<int, double> LastRejection(const Ray& ray) const {
    const std::string text = fOutput.Read("out/protocol.htm");
    const std::string rounds = text.substr(0, text.find("Calculation done"));
    const std::string label = "Image coordinate point" + ray.first + " ,Image " + ray.second + " (";
    const std::size_t found = rounds.rfind(label);
    if (found == std::string::npos) return {0, 0.0};
    int round = 0;
    const std::string head = "Number of observations        : ";
    for (std::size_t at = rounds.find(head); at < found; at = rounds.find(head, at + 1)) ++round;
    return {round, std::stod(rounds.substr(found + label.size()))};
  }

  test::TemporaryFolder fOutput;
  std::map<Ray, Row> fRays;
  std::map<std::string, Row> fPoints;
  nlohmann::json fSummary;
};

TEST_F(GrossErrorsTest, ReadmeListsThePlantedErrors) {
  const std::vector<Planted> readme = PlantedOfReadme();
  const auto truth = test::ReadRows(kExample + "/truth/errors.csv");
  ASSERT_EQ(readme.size(), 14U);
  ASSERT_EQ(truth.size(), readme.size());
  for (std::size_t i = 0; i < truth.size(); ++i) {
    EXPECT_EQ(readme[i].ray, Ray(truth[i].at("point"), truth[i].at("image")));
    EXPECT_EQ(readme[i].axis, truth[i].at("axis"));
    EXPECT_EQ(readme[i].size, std::stod(truth[i].at("size")));
  }
}

TEST_F(GrossErrorsTest, RedundanciesAndExpectedTestValuesAreThoseOfTheReadme) {
  Adjust({"--set", "blunder_test=off"});
  EXPECT_EQ(fSummary["rejected"].size(), 0U);
  EXPECT_EQ(fSummary["outlier_rounds"], 0);
  for (const Planted& planted : PlantedOfReadme()) {
    const double r = std::stod(fRays.at(planted.ray).at("r_" + planted.axis));
    EXPECT_NEAR(r, planted.redundancy, kThreeDigits) << planted.ray.first;
    EXPECT_NEAR(planted.size * std::sqrt(r), planted.expected, kTwoDigits) << planted.ray.first;
  }
}

TEST_F(GrossErrorsTest, FindsAndMissesWhatTheReadmeSays) {
  const ProgramResult result = Adjust();
  // Good observations that go with a bad one on the same point.
  std::set<Ray> expected = {{"203", "3"}, {"204", "8"}, {"302", "3"}};
  std::set<std::string> lost;
  for (const Planted& planted : PlantedOfReadme()) {
    SCOPED_TRACE(planted.ray.first);
    const auto [round, testValue] = LastRejection(planted.ray);
    const Row& ray = fRays.at(planted.ray);
    if (planted.outcome == "missed") {
      EXPECT_EQ(round, 0);
      EXPECT_NEAR(std::stod(ray.at("t_" + planted.axis)), planted.testValue, kTwoDigits);
      continue;
    }
    expected.insert(planted.ray);
    EXPECT_THAT(planted.outcome, StartsWith("found in round " + std::to_string(round)));
    EXPECT_NEAR(testValue, planted.testValue, kTwoDigits);
    if (planted.outcome.find("lost") == std::string::npos) {
      EXPECT_EQ(ray.at("active"), "1");
      // The misclosure of a rejected observation is the whole error, but for the noise.
      EXPECT_NEAR(std::stod(ray.at("t_" + planted.axis)), planted.size, 4.0);
    } else {
      lost.insert(planted.ray.first);
    }
  }
  std::set<Ray> marked;
  for (const auto& [ray, row] : fRays)
    if (row.at("outlier") == "1") marked.insert(ray);
  EXPECT_EQ(marked, expected);
  EXPECT_EQ(lost, (std::set<std::string>{"203", "204", "302"}));
  for (const auto& [id, row] : fPoints)
    EXPECT_EQ(row.at("active"), lost.contains(id) ? "0" : "1") << id;
  EXPECT_THAT(result.err, HasSubstr("the run left out points 203, 204, 302\n"));
}

TEST_F(GrossErrorsTest, AnErrorWithoutRedundancyGoesIntoThePoint) {
  Adjust();
  const auto truth = test::ReadRows(kExample + "/truth/points.csv");
  for (const Row& row : truth) {
    if (row.at("id") != "305") continue;
    const Row& point = fPoints.at("305");
    const double dx = std::stod(point.at("x")) - std::stod(row.at("x"));
    const double dz = std::stod(point.at("z")) - std::stod(row.at("z"));
    // Millimetres, as the README rounds them.
    EXPECT_NEAR(dx, 0.015, 0.0005);
    EXPECT_NEAR(dz, -0.020, 0.0005);
    EXPECT_GT(std::abs(dx), 50.0 * std::stod(point.at("s_x")));
    EXPECT_GT(std::abs(dz), 50.0 * std::stod(point.at("s_z")));
    return;
  }
  FAIL() << "no point 305";
}

TEST_F(GrossErrorsTest, SummaryListsRejectedObservationsWarningsAndRounds) {
  const ProgramResult result = Adjust();
  EXPECT_EQ(fSummary["outlier_rounds"], 6);
  EXPECT_EQ(fSummary["converged"], true);
  const auto& rejected = fSummary["rejected"];
  ASSERT_EQ(rejected.size(), 12U);
  EXPECT_EQ(rejected[0]["table"], "image_coordinates");
  EXPECT_EQ(rejected[0]["point"], 134);
  EXPECT_EQ(rejected[0]["image"], 4);
  EXPECT_EQ(rejected[0]["active"], true);
  // The row of the table, the first record being 1.
  const auto rows = test::ReadRows(Path() / "image_coordinates.csv");
  EXPECT_EQ(rows.at(rejected[0]["row"].get<std::size_t>() - 1).at("point"), "134");
  EXPECT_NEAR(rejected[0]["test_values"][0].get<double>(), 100.0, 4.0);
  const auto largest = [&rejected](std::size_t i) {
    const auto values = rejected[i]["test_values"].get<std::vector<double>>();
    return *std::max_element(values.begin(), values.end());
  };
  for (std::size_t i = 1; i < rejected.size(); ++i) EXPECT_LE(largest(i), largest(i - 1));

  EXPECT_EQ(fSummary["lost_groups"]["points"], (std::vector<int>{203, 204, 302}));
  EXPECT_EQ(fSummary["lost_groups"]["images"], std::vector<int>{});
  EXPECT_EQ(fSummary["datum_check"]["verdict"], 0);
  std::map<int, std::vector<std::string>> objects;
  for (const auto& warning : fSummary["warnings"])
    objects[warning["code"].get<int>()].push_back(warning["object"]);
  EXPECT_THAT(
      objects[101],
      ElementsAre("Object coordinate 204", "Object coordinate 302", "Object coordinate 203"));
  EXPECT_EQ(objects[105].size(), 9U);
  EXPECT_THAT(objects[105], Contains("Image coordinate point303 ,Image 3"));
  EXPECT_EQ(fSummary["more_warnings"], std::vector<int>{105});

  EXPECT_THAT(result.out, HasSubstr("Rejected          12\n"));
  EXPECT_THAT(result.out, HasSubstr("Outlier tests              6    Critical value  3.98\n"));
  EXPECT_THAT(result.out, HasSubstr("\nRejected observations, 12 of 12\n"));
  EXPECT_THAT(result.out, HasSubstr("point 302, image 3               not active\n"));
  EXPECT_THAT(result.out, HasSubstr("\n  101 Data disabled: Object coordinate 204\n"));
  EXPECT_THAT(result.out, HasSubstr("\n  105 and more\n"));
}

TEST_F(GrossErrorsTest, SettingsTradeErrorsForPointsAsTheReadmeSays) {
  const auto expect =
      [this](const std::string& setting, std::size_t rejected, const std::vector<int>& lost) {
        Adjust({"--set", setting});
        EXPECT_EQ(fSummary["rejected"].size(), rejected) << setting;
        EXPECT_EQ(fSummary["lost_groups"]["points"], lost) << setting;
      };
  expect("damping=0", 11, {203, 302});
  expect("blunder_test=redundancy", 19, {202, 203, 204, 301, 302, 305});
}

TEST_F(GrossErrorsTest, ProgressShowsTheRoundOfEveryIteration) {
  const ProgramResult result =
      RunProgram({"adjust", kExample, "--output", Path().string()}, {.isTerminal = true});
  // Tests made so far, and what the last of them rejected.
  EXPECT_THAT(result.out, HasSubstr("\n        1      0 "));
  EXPECT_THAT(result.out, ::testing::ContainsRegex("\n        5      1 +0\\.0023[0-9]+ .* 1 "));
  EXPECT_THAT(result.out, HasSubstr("\n       17      5 "));
}

// The marks come back with the results: a run on them begins where the first one ended.
TEST_F(GrossErrorsTest, ResultsAreAJobWithTheMarksInPlace) {
  Adjust();
  const double s0 = fSummary["s0"].get<double>();
  const test::TemporaryFolder job;
  for (const char* name : {"cameras.csv", "images.csv", "points.csv", "image_coordinates.csv"})
    job.Write(name, fOutput.Read(std::string("out/") + name));
  job.Write("job.toml", ReadText(kExample + "/job.toml"));
  const test::TemporaryFolder output;
  ASSERT_EQ(RunProgram({"adjust", job.String(), "--output", output.String() + "/out"}).status,
            kExitOk);
  const auto again = nlohmann::json::parse(output.Read("out/summary.json"));
  EXPECT_EQ(again["outlier_rounds"], 1);
  EXPECT_EQ(again["rejected"].size(), 12U);
  EXPECT_EQ(again["redundancy"], fSummary["redundancy"]);
  EXPECT_NEAR(again["s0"].get<double>(), s0, 1e-6 * s0);
}

TEST_F(GrossErrorsTest, GermanProtocolGivesTheSameSummary) {
  Adjust();
  const nlohmann::json english = fSummary;
  Adjust({"--set", "language=german"});
  EXPECT_EQ(fSummary["outlier_rounds"], english["outlier_rounds"]);
  EXPECT_EQ(fSummary["more_warnings"], english["more_warnings"]);
  EXPECT_EQ(fSummary["rejected"], english["rejected"]);
  ASSERT_EQ(fSummary["warnings"].size(), english["warnings"].size());
  EXPECT_EQ(fSummary["warnings"][0]["code"], 101);
  EXPECT_EQ(fSummary["warnings"][0]["text"], "Daten deaktiviert");
}

// A limit that comes between a round that changed marks and the next adjustment.
TEST_F(GrossErrorsTest, LimitRightBehindATestIsNotConverged) {
  Adjust({"--set", "max_iterations=4"});
  EXPECT_EQ(fSummary["outlier_rounds"], 1);
  EXPECT_EQ(fSummary["rejected"].size(), 1U);
  EXPECT_EQ(fSummary["converged"], false);
}

}  // namespace
}  // namespace cardo
