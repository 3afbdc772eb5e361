#include "job_file.h"

#include "bundle_job.h"
#include "cli/job_scene.h"
#include "parameters.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <variant>
#include <vector>
#include <xyz_api.h>

namespace cardo {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
using namespace std::string_literals;

class JobFileTest : public ::testing::Test {
 protected:
  JobFile Read(const std::string& text) {
    fFolder.Write("job.toml", text);
    fDiagnostics = {};
    JobFile file = ReadJobFile(fFolder.Path() / "job.toml", fDiagnostics);
    CheckSettings(file, fDiagnostics);
    return file;
  }
  [[nodiscard]] std::vector<std::string> Messages() const { return test::Texts(fDiagnostics); }

  // What the library holds after the values were applied.
  static double InLibrary(const ParameterValues& values, const Parameter& parameter) {
    const BundleJob job;
    ApplyParameters(job.Handle(), values);
    int integer = -1;
    double real = -1.0;
    if (parameter.kind == ParameterKind::kReal) {
      EXPECT_EQ(XYZ_GetParam(job.Handle(), parameter.selector, &real), eXYZ_Ok);
      return real;
    }
    const int status = XYZ_GetParam(job.Handle(), parameter.selector, &integer);
    EXPECT_EQ(status, parameter.selector == eXYZ_ParamPivotSearch ? eXYZ_UnknownSelector : eXYZ_Ok);
    return integer;
  }

  test::TemporaryFolder fFolder;
  Diagnostics fDiagnostics;
};

double AsReal(const ParameterValue& value) {
  return std::visit([](auto number) { return static_cast<double>(number); }, value);
}

TEST_F(JobFileTest, EmptyFileIsAllDefaults) {
  const JobFile file = Read("");
  EXPECT_THAT(Messages(), IsEmpty());
  EXPECT_THAT(file.parameters, IsEmpty());
  EXPECT_EQ(file.title, "");
}

TEST_F(JobFileTest, DefaultsAreThoseOfTheLibrary) {
  for (const Parameter& parameter : AllParameters()) {
    EXPECT_EQ(InLibrary({}, parameter), AsReal(DefaultOf(parameter))) << parameter.name;
  }
}

TEST_F(JobFileTest, EveryParameterReachesTheLibrary) {
  const std::map<std::string, std::pair<std::string, double>> cases = {
      {"convergence_limit", {"0.001", 0.001}},
      {"s0_limit", {"100", 100.0}},
      {"max_iterations", {"17", 17}},
      {"datum", {"[\"translation\", \"scale\"]", 0x4700}},
      {"blunder_test", {"\"redundancy\"", 1}},
      {"solvability_check", {"false", 0}},
      {"dynamic_lower", {"1.5", 1.5}},
      {"dynamic_upper", {"5.5", 5.5}},
      {"damping", {"0.25", 0.25}},
      {"s0_apriori", {"0.001", 0.001}},
      {"language", {"\"english\"", 2}},
      {"s0_floor", {"1e-8", 1e-8}},
      {"hide_projections", {"true", 1}},
      {"min_rays", {"3", 3}},
      {"angle_limit", {"0.25", 0.25}},
      {"eor_format", {"\"ttg gon\"", 0x204}},
      {"progress_window", {"9", 9}},
      {"progress_tolerance", {"0.75", 0.75}},
      {"pivot_search", {"false", 0}},
  };
  ASSERT_EQ(cases.size(), AllParameters().size());
  for (const Parameter& parameter : AllParameters()) {
    const auto& [text, expected] = cases.at(parameter.name);
    const JobFile file = Read(parameter.name + " = " + text + "\n");
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(InLibrary(file.parameters, parameter), expected) << parameter.name;
    EXPECT_NE(AsReal(DefaultOf(parameter)), expected) << parameter.name;
  }
}

TEST_F(JobFileTest, EverySelectorOfTheLibraryHasAName) {
  std::vector<int> selectors;
  for (const Parameter& parameter : AllParameters()) selectors.push_back(parameter.selector);
  EXPECT_THAT(selectors,
              ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 15, 16, 17, 18, 19, 20, 21));
}

TEST_F(JobFileTest, EveryEorFormatReachesTheLibrary) {
  const Parameter& parameter = *FindParameter("eor_format");
  ASSERT_THAT(parameter.words, SizeIs(11));
  for (const auto& [word, code] : parameter.words) {
    const JobFile file = Read("eor_format = \"" + word + "\"\n");
    EXPECT_EQ(InLibrary(file.parameters, parameter), code) << word;
  }
}

TEST_F(JobFileTest, ReadsTitleAndUnits) {
  const JobFile file = Read(
      "title = \"Fa\xC3\xA7"
      "ade\"\nlength_unit = \"m\"\nimage_unit = \"mm\"\n");
  EXPECT_EQ(file.title,
            "Fa\xC3\xA7"
            "ade");
  EXPECT_EQ(file.lengthUnit, "m");
  EXPECT_EQ(file.imageUnit, "mm");
}

TEST_F(JobFileTest, TellsUnknownKeysWithTheNearestName) {
  Read("# comment\n  s0_apiori = 0.001\n");
  EXPECT_THAT(Messages(),
              ElementsAre("job.toml:2:3: unknown key \"s0_apiori\", did you mean \"s0_apriori\"?"));
}

TEST_F(JobFileTest, TellsSeveralMistakes) {
  Read("max_iterations = -1\ns0_apriori = 0\ndamping = 1.5\ntitle = 5\n");
  EXPECT_THAT(Messages(),
              ::testing::UnorderedElementsAre(
                  "job.toml:1:18: max_iterations must be a whole number from 0 to 2147483647, "
                  "found \"-1\"",
                  "job.toml:2:14: s0_apriori must be a number above 0, found \"0\"",
                  "job.toml:3:11: damping must be a number from 0 to 1, found \"1.5\"",
                  "job.toml:4:9: title must be a text in quotes, found \"5\""));
}

TEST_F(JobFileTest, TellsValuesOfTheWrongKind) {
  for (const std::string line : {"s0_apriori = \"0.1\"",
                                 "s0_apriori = nan",
                                 "s0_limit = inf",
                                 "s0_apriori = [1]",
                                 "max_iterations = 5.0",
                                 "max_iterations = 3000000000",
                                 "solvability_check = 1",
                                 "blunder_test = \"on\"",
                                 "blunder_test = [\"off\"]",
                                 "datum = \"scale\"",
                                 "datum = [\"scales\"]",
                                 "datum = [1]",
                                 "language = 1",
                                 "s0_apriori.x = 1",
                                 "s0_apriori = 2020-01-01"}) {
    Read(line + "\n");
    ASSERT_THAT(Messages(), SizeIs(1)) << line;
    EXPECT_THAT(Messages()[0], StartsWith("job.toml:1:")) << line;
    EXPECT_THAT(Messages()[0], HasSubstr(" must be ")) << line;
  }
}

TEST_F(JobFileTest, TellsSyntaxMistakesWithTheirPlace) {
  for (const std::string text : {"a b = 1\n",
                                 "title = \"open\n",
                                 "title = \n",
                                 "= 1\n",
                                 "[x\n",
                                 "[[[",
                                 "[[=]]\n",
                                 "title = [[[",
                                 "ge\xC3\x8Erman\n",
                                 "damping = t\n\n",
                                 "\xC3\xA4 = 1\n",
                                 "title = \xE1\x9A\x80\xE2\x81\xA0\xD2\x99\n",
                                 "title = \"a\"\ntitle = \"b\"\n"}) {
    Read(text);
    ASSERT_THAT(Messages(), SizeIs(1)) << text;
    EXPECT_THAT(Messages()[0], ::testing::ContainsRegex("^job.toml:[0-9]+:[0-9]+: ")) << text;
    EXPECT_EQ(Messages()[0].find('\n'), std::string::npos) << text;
  }
}

TEST_F(JobFileTest, TellsOtherEncodings) {
  Read("\xFF\xFEt\0"s);
  EXPECT_THAT(Messages(), ElementsAre("job.toml:1:1: the file is UTF-16, expected UTF-8"));
  Read("title = \"a\"\n# \xE4\n");
  EXPECT_THAT(Messages(), ElementsAre("job.toml:2:3: expected UTF-8, found the byte 0xE4"));
  Read("title = \"a\0\"\n"s);
  EXPECT_THAT(Messages(),
              ElementsAre("job.toml:1:11: expected text, found the control character 0x00"));
  const JobFile file = Read("\xEF\xBB\xBFtitle = \"a\"\r\n");
  EXPECT_THAT(Messages(), IsEmpty());
  EXPECT_EQ(file.title, "a");
}

TEST_F(JobFileTest, TellsAFileThatIsTooLargeOrMissing) {
  Read(std::string(2U << 20U, '#'));
  EXPECT_THAT(Messages(), ElementsAre(HasSubstr("job.toml: expected at most")));
  fDiagnostics = {};
  static_cast<void>(ReadJobFile(fFolder.Path() / "nowhere" / "job.toml", fDiagnostics));
  EXPECT_THAT(Messages(), ElementsAre(HasSubstr("job.toml: does not exist in ")));
}

TEST_F(JobFileTest, TellsACrossedDynamicRange) {
  Read("dynamic_lower = 5\n");
  EXPECT_THAT(Messages(),
              ElementsAre("job.toml: dynamic_lower must not be above dynamic_upper, found \"5\" "
                          "and \"4\""));
}

TEST_F(JobFileTest, SettingsOverrideTheFile) {
  JobFile file = Read("s0_apriori = 0.1\n");
  for (const char* setting : {"s0_apriori=0.2",
                              "max_iterations=5",
                              "datum=translation, rotation",
                              "language=english",
                              "pivot_search=false",
                              "title=A = B"}) {
    ApplySetting(setting, file, fDiagnostics);
  }
  EXPECT_THAT(Messages(), IsEmpty());
  EXPECT_EQ(AsReal(ValueOf(file.parameters, "s0_apriori")), 0.2);
  EXPECT_EQ(AsReal(ValueOf(file.parameters, "max_iterations")), 5.0);
  EXPECT_EQ(AsReal(ValueOf(file.parameters, "datum")), 0x3F00);
  EXPECT_EQ(AsReal(ValueOf(file.parameters, "pivot_search")), 0.0);
  EXPECT_EQ(file.title, "A = B");
}

TEST_F(JobFileTest, AnEmptyDatumSettingSwitchesItOff) {
  JobFile file = Read("datum = [\"scale\"]\n");
  ApplySetting("datum=", file, fDiagnostics);
  EXPECT_THAT(Messages(), IsEmpty());
  EXPECT_EQ(AsReal(ValueOf(file.parameters, "datum")), 0.0);
}

// The parser would call itself for each part of such keys.
TEST_F(JobFileTest, TellsKeysOfTooManyParts) {
  const auto key = [](std::size_t dots) {
    std::string parts = "a";
    for (std::size_t i = 0; i < dots; ++i) parts += ".a";
    return parts;
  };
  const std::string told = "expected at most 4096 dots in the file";
  Read(fmt::format("title = \"x\"\n{} = 1\n", key(300000)));
  EXPECT_THAT(Messages(), ElementsAre("job.toml:2: " + told));
  // One inside the other, over many lines.
  std::string nested;
  for (int i = 0; i < 200; ++i) nested += fmt::format("{}{} = [\n", i == 0 ? "" : "{", key(500));
  Read(nested);
  EXPECT_THAT(Messages(), ElementsAre("job.toml:9: " + told));
  // What is let pass is parsed, and is a mistake of another kind.
  Read(fmt::format("[{}]\n{} = 1", key(2000), key(2096)));
  EXPECT_THAT(Messages(), ElementsAre(StartsWith("job.toml:1:2: unknown key \"a\"")));
}

TEST_F(JobFileTest, TellsMistakenSettings) {
  JobFile file;
  for (const char* setting : {"s0",
                              "s0_apriory=1",
                              "damping=2",
                              "min_rays=1.5",
                              "hide_projections=1",
                              "blunder_test=none",
                              "title=\xFF",
                              "tit\x1Ble=\xFF",
                              "tit\nle=\xFF"}) {
    ApplySetting(setting, file, fDiagnostics);
  }
  EXPECT_THAT(
      Messages(),
      ElementsAre(
          "--set: expected name=value, found \"s0\"",
          "--set: unknown key \"s0_apriory\", did you mean \"s0_apriori\"?",
          "--set: damping must be a number from 0 to 1, found \"2\"",
          "--set: min_rays must be a whole number from 0 to 2147483647, found \"1.5\"",
          "--set: hide_projections must be true or false, found \"1\"",
          "--set: blunder_test must be one of \"off\", \"redundancy\", "
          "\"inner-reliability\", found \"none\"",
          "--set: title must be UTF-8 without control characters, found \"\\xFF\"",
          "--set: expected name=value, found \"tit\\x1Ble=\\xFF\"",
          "--set: \"tit\\x0Ale\" must be UTF-8 without control characters, found \"\\xFF\""));
}

}  // namespace
}  // namespace cardo
