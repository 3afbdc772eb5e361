// The example of the facade: what its README says is what the program finds.

#include "cli/job_scene.h"
#include "exit_status.h"

#include <array>
#include <cstddef>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace cardo {
namespace {

using test::RunProgram;

const std::string kExample = std::string(CARDO_EXAMPLES_DIR) + "/facade";

std::string ReadText(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// The mean of the columns x, y and z of a table of points.
std::array<double, 3> Centroid(const std::string& table) {
  std::istringstream stream(table);
  std::string line;
  std::getline(stream, line);
  std::array<double, 3> sum{};
  int points = 0;
  while (std::getline(stream, line)) {
    std::istringstream fields(line);
    std::string field;
    std::getline(fields, field, ',');
    for (double& s : sum) {
      std::getline(fields, field, ',');
      s += std::stod(field);
    }
    ++points;
  }
  EXPECT_EQ(points, 26321);
  for (double& s : sum) s /= points;
  return sum;
}

// The figures of the README's table by their names.
std::map<std::string, double> FiguresOfReadme() {
  static const std::regex row(R"(\n\| ([^|]+) \| (-?[\d.]+) (?=\|))");
  const std::string text = ReadText(kExample + "/README.md");
  std::map<std::string, double> figures;
  for (std::sregex_iterator it(text.begin(), text.end(), row), end; it != end; ++it)
    figures[(*it)[1].str()] = std::stod((*it)[2].str());
  return figures;
}

class FacadeTest : public ::testing::Test {
 protected:
  void Adjust(const std::vector<std::string>& settings) {
    std::vector<std::string> arguments = {
        "adjust", kExample, "--quiet", "--output", fOutput.String() + "/out"};
    arguments.insert(arguments.end(), settings.begin(), settings.end());
    ASSERT_EQ(RunProgram(arguments).status, kExitOk);
    fSummary = nlohmann::json::parse(fOutput.Read("out/summary.json"));
  }

  test::TemporaryFolder fOutput;
  nlohmann::json fSummary;
};

TEST_F(FacadeTest, HasTheCountsOfItsReadmeAndKeepsTheCentroid) {
  // Tighter than the job, so that the redundancy numbers belong to the last values.
  Adjust({"--set", "blunder_test=off", "--set", "convergence_limit=1e-7"});
  EXPECT_EQ(fSummary["observations"], 2 * 90561);
  EXPECT_EQ(fSummary["unknowns"], 6 * 60 + 3 * 26321 + 5);
  EXPECT_EQ(fSummary["constraints"], 7);
  EXPECT_EQ(fSummary["redundancy"], 101801);
  EXPECT_EQ(fSummary["lost_groups"]["points"], nlohmann::json::array());
  // 181,122 numbers, each to nine digits.
  EXPECT_NEAR(fSummary["redundancy_sum"].get<double>(), 101801.0, 1e-4);
  // The minimum of the sum of squares as a general solver finds it, to its printed digits.
  EXPECT_NEAR(fSummary["s0"].get<double>() / 0.006410256, 0.57587359, 1e-8);
  // The conditions of the datum are linear in the translation, so the mean stays to rounding of
  // the 17 digits in the table.
  const std::array<double, 3> before = Centroid(ReadText(kExample + "/points.csv"));
  const std::array<double, 3> after = Centroid(fOutput.Read("out/points.csv"));
  for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(after[k], before[k], 1e-9) << "axis " << k;
}

TEST_F(FacadeTest, OutlierTestRejectsWhatItsReadmeSays) {
  Adjust({});
  const std::map<std::string, double> figures = FiguresOfReadme();
  ASSERT_EQ(figures.size(), 6U);
  EXPECT_EQ(fSummary["outlier_rounds"], figures.at("outlier tests"));
  EXPECT_EQ(fSummary["iterations"], figures.at("iterations"));
  EXPECT_EQ(fSummary["rejected"].size(), figures.at("rejected image points"));
  EXPECT_EQ(fSummary["lost_groups"]["points"].size(), figures.at("points left out"));
  // Digits of the README.
  EXPECT_NEAR(
      fSummary["s0"].get<double>() / 0.006410256, figures.at("S0 over its a-priori value"), 0.5e-3);
  EXPECT_NEAR(fSummary["cameras"][0]["parameters"]["ck"]["value"].get<double>(),
              figures.at("ck [mm]"),
              0.5e-4);

  const auto& worst = fSummary["rejected"][0];
  EXPECT_EQ(worst["point"], 20069);
  EXPECT_EQ(worst["image"], 37);
  EXPECT_NEAR(worst["residuals"][1].get<double>(), 0.70, 0.005);

  // A point is left out when fewer than two of its rays remain.
  std::map<int, int> rejected;
  for (const auto& observation : fSummary["rejected"]) ++rejected[observation["point"].get<int>()];
  for (const auto& point : fSummary["lost_groups"]["points"])
    EXPECT_GE(rejected[point.get<int>()], 2) << "point " << point;
}

}  // namespace
}  // namespace cardo
