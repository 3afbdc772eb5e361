#include "cli/job_scene.h"
#include "exit_status.h"
#include "interrupt.h"

#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <vector>
#include <xyz_api.h>

namespace cardo {
namespace {

namespace fs = std::filesystem;
using test::ProgramResult;
using test::RunProgram;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

const std::string kExample = std::string(CARDO_EXAMPLES_DIR) + "/camera-calibration";

// A job folder that a test may change: the example's.
class AdjustTest : public ::testing::Test {
 protected:
  AdjustTest() {
    for (const char* name :
         {"job.toml", "cameras.csv", "images.csv", "points.csv", "image_coordinates.csv"}) {
      fs::copy_file(fs::path(kExample) / name, fFolder.Path() / name);
    }
    fs::permissions(fFolder.Path(), fs::perms::owner_all);
    fInputs = fFolder.Names();
  }

  [[nodiscard]] std::string Job() const { return fFolder.String(); }
  [[nodiscard]] std::string Output() const { return fOutput.String() + "/out"; }
  [[nodiscard]] ProgramResult Adjust(std::vector<std::string> more = {},
                                     const test::ProgramSettings& settings = {}) const {
    std::vector<std::string> arguments = {"adjust", Job(), "--output", Output()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunProgram(arguments, settings);
  }

  test::TemporaryFolder fFolder;
  test::TemporaryFolder fOutput;
  std::vector<std::string> fInputs;
};

TEST_F(AdjustTest, CalibrationExampleConverges) {
  const ProgramResult result = Adjust();
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, StartsWith("Camera calibration sheet\n"));
  EXPECT_THAT(result.out, HasSubstr("Redundancy      3726"));
  EXPECT_THAT(result.out, HasSubstr("strongest correlations"));
  EXPECT_THAT(result.out, HasSubstr("worst points"));
  EXPECT_THAT(fOutput.Names(),
              ElementsAre("out",
                          "out/cameras.csv",
                          "out/image_coordinates.csv",
                          "out/images.csv",
                          "out/points.csv",
                          "out/protocol.htm",
                          "out/summary.json"));
  const auto json = nlohmann::json::parse(fOutput.Read("out/summary.json"));
  EXPECT_EQ(json["observations"], 4148);
  EXPECT_EQ(json["unknowns"], 422);
  EXPECT_EQ(json["constraints"], 0);
  EXPECT_EQ(json["redundancy"], 3726);
  EXPECT_EQ(json["converged"], true);
  EXPECT_EQ(json["records"]["image_coordinates"], 2074);
  EXPECT_EQ(json["cameras"][0]["correlations"].size(), 28U);
  EXPECT_EQ(json["images"].size(), 21U);
  EXPECT_EQ(json["points"]["worst"].size(), 10U);
  EXPECT_EQ(fFolder.Names(), fInputs);
}

TEST_F(AdjustTest, WritesResidualsAndStandardDeviationsOfTheRecords) {
  ASSERT_EQ(Adjust().status, kExitOk);
  const auto json = nlohmann::json::parse(fOutput.Read("out/summary.json"));
  const auto rays = test::ReadRows(fOutput.Path() / "out/image_coordinates.csv");
  ASSERT_EQ(rays.size(), 2074U);
  double redundancy = 0.0;
  double squares = 0.0;
  for (const auto& ray : rays) {
    redundancy += std::stod(ray.at("r_x")) + std::stod(ray.at("r_y"));
    const double wx = std::stod(ray.at("v_x")) / std::stod(ray.at("sx"));
    const double wy = std::stod(ray.at("v_y")) / std::stod(ray.at("sy"));
    squares += wx * wx + wy * wy;
  }
  EXPECT_NEAR(redundancy, json["redundancy_sum"].get<double>(), 1e-9);
  // Redundancy numbers add up to the redundancy but for rounding: 4148 terms of a system whose
  // condition is near 1e10.
  EXPECT_NEAR(redundancy, 3726.0, 4148 * 1e10 * std::numeric_limits<double>::epsilon());
  const double s0 = 0.001 * std::sqrt(squares / 3726.0);
  EXPECT_NEAR(json["s0"].get<double>(), s0, 1e-9 * s0);
  const auto cameras = test::ReadRows(fOutput.Path() / "out/cameras.csv");
  EXPECT_GT(std::stod(cameras.at(0).at("s_ck")), 0.0);
  EXPECT_EQ(cameras.at(0).at("s_c1"), "0");
  EXPECT_EQ(cameras.at(0).at("estimate"), "ck xh yh a1 a2 a3 b1 b2");
  for (const auto& point : test::ReadRows(fOutput.Path() / "out/points.csv")) {
    EXPECT_EQ(point.at("fixed") == "1", std::stod(point.at("s_x")) == 0.0) << point.at("id");
  }
}

TEST_F(AdjustTest, ResultsAreAJobThatHasConverged) {
  ASSERT_EQ(Adjust().status, kExitOk);
  const auto first = nlohmann::json::parse(fOutput.Read("out/summary.json"));
  for (const char* name : {"cameras.csv", "images.csv", "points.csv", "image_coordinates.csv"}) {
    fFolder.Write(name, fOutput.Read(std::string("out/") + name));
  }
  ASSERT_EQ(Adjust().status, kExitOk);
  const auto second = nlohmann::json::parse(fOutput.Read("out/summary.json"));
  EXPECT_EQ(second["redundancy"], 3726);
  EXPECT_LE(second["iterations"], 3);
  // Both ends of the iteration agree to the convergence limit, squared in S0.
  const double s0 = first["s0"].get<double>();
  EXPECT_NEAR(second["s0"].get<double>(), s0, 1e-6 * s0);
}

TEST_F(AdjustTest, DefaultOutputIsAFolderOfTheJob) {
  EXPECT_EQ(RunProgram({"adjust", Job(), "--quiet"}).status, kExitOk);
  EXPECT_TRUE(fFolder.Has("results/summary.json"));
  EXPECT_TRUE(fFolder.Has("results/protocol.htm"));
  EXPECT_EQ(RunProgram({"adjust", Job(), "--quiet"}).status, kExitOk);
}

TEST_F(AdjustTest, QuietSaysNothing) {
  const ProgramResult result = Adjust({"--quiet"}, {.isTerminal = true});
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(result.out + result.err, "");
}

TEST_F(AdjustTest, ProgressIsForTerminalsOnly) {
  EXPECT_THAT(Adjust().out, Not(HasSubstr("elapsed")));
  const ProgramResult result = Adjust({}, {.isTerminal = true});
  EXPECT_THAT(result.out,
              StartsWith("iteration  round             S0           norm  outliers    elapsed"));
  EXPECT_THAT(result.out, HasSubstr("\n        1 "));
}

TEST_F(AdjustTest, ProtocolGoesWhereItIsWanted) {
  const std::string file = fOutput.String() + "/run.htm";
  EXPECT_EQ(Adjust({"--protocol", file}).status, kExitOk);
  EXPECT_TRUE(fOutput.Has("run.htm"));
  EXPECT_FALSE(fOutput.Has("out/protocol.htm"));
  EXPECT_THAT(fOutput.Read("run.htm"), HasSubstr("Protocol of bundle adjustment"));
}

TEST_F(AdjustTest, SettingsReachTheRun) {
  EXPECT_EQ(Adjust({"--set", "max_iterations=1", "--set", "language=german"}).status, kExitOk);
  const auto json = nlohmann::json::parse(fOutput.Read("out/summary.json"));
  EXPECT_EQ(json["iterations"], 1);
  EXPECT_EQ(json["converged"], false);
  EXPECT_THAT(fOutput.Read("out/protocol.htm"), HasSubstr("Protokoll B\xFCndelblockausgleichung"));
}

TEST_F(AdjustTest, LimitOfIterationsIsTold) {
  EXPECT_THAT(Adjust({"--set", "max_iterations=2"}).out,
              HasSubstr("NOT CONVERGED: the limit of 2 iterations was reached"));
  EXPECT_THAT(Adjust({"--set", "max_iterations=0"}).out, HasSubstr("No iteration was asked for"));
}

TEST_F(AdjustTest, MistakesAreToldAndNothingIsWritten) {
  fFolder.Write("points.csv", "id,x,y,z\n1,a,2,3\n");
  const ProgramResult result = Adjust();
  EXPECT_EQ(result.status, kExitBadInput);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "points.csv:2:3: x must be a number, found \"a\"\n");
  EXPECT_THAT(fOutput.Names(), IsEmpty());
}

TEST_F(AdjustTest, FolderAndJobFileMustExist) {
  EXPECT_THAT(RunProgram({"adjust", Job() + "/nowhere"}).err,
              HasSubstr("nowhere: does not exist, expected a job folder"));
  EXPECT_THAT(RunProgram({"adjust", Job() + "/job.toml"}).err,
              HasSubstr("job.toml: is a file, expected a job folder"));
  fs::remove(fFolder.Path() / "job.toml");
  const ProgramResult result = Adjust();
  EXPECT_EQ(result.status, kExitBadInput);
  EXPECT_THAT(result.err, StartsWith("job.toml: does not exist in "));
}

TEST_F(AdjustTest, OutputNeverReplacesInputs) {
  const auto refuse = [](const std::vector<std::string>& arguments, const std::string& message) {
    const ProgramResult result = RunProgram(arguments);
    EXPECT_EQ(result.status, kExitBadInput) << message;
    EXPECT_THAT(result.err, HasSubstr(message));
  };
  refuse({"adjust", Job(), "--output", Job()}, "--output: must not be the job folder itself");
  refuse({"adjust", Job(), "--output", Job() + "/./x/.."}, "must not be the job folder itself");
  fs::create_directory_symlink(fFolder.Path(), fOutput.Path() / "link");
  refuse({"adjust", Job(), "--output", fOutput.String() + "/link/"},
         "must not be the job folder itself");
  fOutput.Write("other/job.toml", "");
  refuse({"adjust", Job(), "--output", fOutput.String() + "/other"}, "is a job folder");
  refuse({"adjust", Job(), "--output", Job() + "/job.toml"}, "must be a folder, is a file");
  refuse({"adjust", Job(), "--output", ""}, "--output: must be a folder");
  refuse({"adjust", Job(), "--protocol", Job() + "/points.csv"}, "is an input of the job");
  refuse({"adjust", Job(), "--protocol", Job() + "/job.toml"}, "is an input of the job");
  refuse({"adjust", Job(), "--protocol", Job()}, "must be a file, is a folder");
  refuse({"adjust", Job(), "--output", Output(), "--protocol", Output() + "/points.csv"},
         "is the name of another result");
  refuse({"adjust", Job(), "--protocol", fOutput.String() + "/no/where.htm"},
         "must be in a folder that exists");
  EXPECT_EQ(fFolder.Names(), fInputs);
}

TEST_F(AdjustTest, CancelledRunLeavesNothing) {
  for (const int iteration : {1, 2, 3}) {
    std::atomic<bool> cancelled = false;
    int reached = 0;
    const ProgramResult result =
        Adjust({}, {.cancelled = &cancelled, .afterIteration = [&](const auto& info) {
                      reached = info.Iteration;
                      cancelled = info.Iteration == iteration;
                    }});
    EXPECT_EQ(result.status, kExitCancelled);
    EXPECT_EQ(reached, iteration);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "cardo-bundle: cancelled, nothing has been written\n");
    EXPECT_THAT(fOutput.Names(), IsEmpty());
  }
}

TEST_F(AdjustTest, CancelledRunKeepsEarlierResults) {
  ASSERT_EQ(Adjust().status, kExitOk);
  const std::string before = fOutput.Read("out/points.csv");
  const auto names = fOutput.Names();
  std::atomic<bool> cancelled = true;
  EXPECT_EQ(Adjust({}, {.cancelled = &cancelled}).status, kExitCancelled);
  EXPECT_EQ(fOutput.Read("out/points.csv"), before);
  EXPECT_EQ(fOutput.Names(), names);
}

TEST_F(AdjustTest, InterruptSignalCancels) {
  CatchInterrupts();
  InterruptFlag() = false;
  const ProgramResult result =
      Adjust({}, {.cancelled = &InterruptFlag(), .afterIteration = [](const auto& info) {
                    if (info.Iteration == 2) std::raise(SIGINT);
                  }});
  InterruptFlag() = false;
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGTERM, SIG_DFL);
  EXPECT_EQ(result.status, kExitCancelled);
  EXPECT_THAT(fOutput.Names(), IsEmpty());
}

TEST_F(AdjustTest, ExceptionsOfACallbackReachTheCaller) {
  const ProgramResult result =
      Adjust({}, {.afterIteration = [](const auto&) { throw std::runtime_error("out of paper"); }});
  EXPECT_EQ(result.status, kExitRunFailed);
  EXPECT_EQ(result.err, "cardo-bundle: out of paper\n");
  EXPECT_THAT(fOutput.Names(), IsEmpty());
}

TEST_F(AdjustTest, NetworkWithoutDatumIsExplained) {
  ASSERT_EQ(Adjust().status, kExitOk);
  const std::string before = fOutput.Read("out/summary.json");
  std::string points = fFolder.Read("points.csv");
  for (std::size_t at = points.find(",1,0\n"); at != std::string::npos;
       at = points.find(",1,0\n")) {
    points[at + 1] = '0';
  }
  fFolder.Write("points.csv", points);
  const ProgramResult result = Adjust();
  EXPECT_EQ(result.status, kExitRunFailed);
  EXPECT_THAT(result.err, HasSubstr("cardo-bundle: the run failed: eXYZ_"));
  EXPECT_THAT(result.err, HasSubstr("Nothing fixes the datum"));
  EXPECT_THAT(result.err, HasSubstr("datum lacks \"translation\", \"rotation\", \"scale\""));
  // The failed run shows in its own protocol; earlier results stay.
  EXPECT_THAT(fOutput.Read("out/protocol-failed.htm"), HasSubstr("Calculation failed"));
  EXPECT_EQ(fOutput.Read("out/summary.json"), before);
  EXPECT_EQ(Adjust({"--set", "max_iterations=0"}).status, kExitOk);
  EXPECT_FALSE(fOutput.Has("out/protocol-failed.htm"));
}

TEST_F(AdjustTest, RunWithoutObservationsIsExplained) {
  fFolder.Write("image_coordinates.csv", "point,image,x,y\n");
  const ProgramResult result = Adjust();
  EXPECT_EQ(result.status, kExitRunFailed);
  EXPECT_THAT(result.err,
              HasSubstr("the run failed: eXYZ_CalcFailed (status 8), error -12011 - no "
                        "observations\nNo observation is left"));
}

TEST_F(AdjustTest, S0LimitIsExplained) {
  const ProgramResult result = Adjust({"--set", "s0_limit=1e-9", "--set", "language=german"});
  EXPECT_EQ(result.status, kExitRunFailed);
  EXPECT_THAT(result.err, HasSubstr("error -12004 - S0 Zu Gross\nS0 is above s0_limit"));
}

TEST_F(AdjustTest, S0ThatCountsAsZeroIsTold) {
  const std::string told = "is not above s0_floor = 1 and counts as zero";
  EXPECT_THAT(Adjust({"--set", "s0_floor=1"}).err, HasSubstr(told));
  EXPECT_THAT(Adjust({"--set", "s0_floor=1", "--quiet"}).err, Not(HasSubstr(told)));
  EXPECT_THAT(Adjust().err, Not(HasSubstr("s0_floor")));
}

// S0 that is not a number passes every limit, and the library's run ends with status 0.
TEST_F(AdjustTest, RunThatEndsWithoutNumbersFailsAndKeepsEarlierResults) {
  ASSERT_EQ(Adjust().status, kExitOk);
  const std::string before = fOutput.Read("out/summary.json");
  std::string cameras = fFolder.Read("cameras.csv");
  const std::size_t ck = cameras.find(',', cameras.find('\n')) + 1;
  cameras.replace(ck, cameras.find(',', ck) - ck, "1e308");
  fFolder.Write("cameras.csv", cameras);
  const ProgramResult result = Adjust();
  EXPECT_EQ(result.status, kExitRunFailed);
  EXPECT_THAT(result.err, HasSubstr("the run failed: S0 is not a number, so no result is one\n"));
  EXPECT_EQ(fOutput.Read("out/summary.json"), before);
  EXPECT_TRUE(fOutput.Has("out/protocol-failed.htm"));
}

TEST_F(AdjustTest, TitleAndUnitsDoNothingToATerminal) {
  fFolder.Write("job.toml", fFolder.Read("job.toml") + "\n");
  const ProgramResult plain = Adjust({"--set", "title=T\xC3\xBCr"});
  EXPECT_THAT(plain.out, StartsWith("T\xC3\xBCr\n===\n"));
  std::string job = fFolder.Read("job.toml");
  for (const char* key : {"title", "length_unit"}) {
    const std::size_t at = job.find(key);
    if (at != std::string::npos) job.erase(at, job.find('\n', at) + 1 - at);
  }
  fFolder.Write("job.toml", "title = \"a\\u001b[2J\"\nlength_unit = \"\\u009bm\\u202e\"\n" + job);
  const ProgramResult result = Adjust();
  EXPECT_EQ(result.status, kExitOk) << result.err;
  EXPECT_THAT(result.out, StartsWith("a\\x1B[2J\n========\n"));
  EXPECT_THAT(result.out, HasSubstr("[\\xC2\\x9Bm\\xE2\\x80\\xAE]"));
}

TEST_F(AdjustTest, ResultsThatCannotBeWrittenAreTold) {
  fOutput.Write("file", "");
  const ProgramResult result =
      RunProgram({"adjust", Job(), "--output", fOutput.String() + "/file/out"});
  EXPECT_EQ(result.status, kExitRunFailed);
  EXPECT_THAT(result.err, HasSubstr("cannot be made"));
  fOutput.Write("out/summary.json/occupied", "");
  const ProgramResult occupied = Adjust();
  EXPECT_EQ(occupied.status, kExitRunFailed);
  EXPECT_THAT(occupied.err, HasSubstr("summary.json\" cannot be replaced"));
  for (const std::string& name : fOutput.Names()) EXPECT_THAT(name, Not(HasSubstr(".part")));
}

TEST(CommandLine, TellsItsVersion) {
  gXYZ_sVersion version{};
  XYZ_GetVersion(&version);
  const ProgramResult result = RunProgram({"--version"});
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_EQ(result.out, "cardo-bundle 1.10.9 (" + std::string(version.Name) + ")\n");
}

TEST(CommandLine, RefusesWrongArguments) {
  EXPECT_EQ(RunProgram({}).status, kExitBadInput);
  EXPECT_EQ(RunProgram({"adjust"}).status, kExitBadInput);
  EXPECT_EQ(RunProgram({"adjust", "a", "b"}).status, kExitBadInput);
  EXPECT_EQ(RunProgram({"calculate", "a"}).status, kExitBadInput);
  EXPECT_EQ(RunProgram({"adjust", "a", "--fast"}).status, kExitBadInput);
  EXPECT_EQ(RunProgram({"adjust", "a", "--set"}).status, kExitBadInput);
  EXPECT_EQ(RunProgram({"adjust", "--help"}).status, kExitOk);
  EXPECT_THAT(RunProgram({"adjust", "a", "--\x1B[31m"}).err, Not(HasSubstr("\x1B")));
  EXPECT_THAT(RunProgram({"adjust", "a\x1B\nb"}).err,
              StartsWith("a\\x1B\\x0Ab: does not exist, expected a job folder\n"));
}

// The built program, as a shell sees it.
int Shell(const std::string& arguments) {
  const std::string command =
      "\"" CARDO_BUNDLE_PROGRAM "\" " + arguments + " > /dev/null 2> /dev/null";
  const int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Program, AnswersItsExitStatus) {
  const test::TemporaryFolder output;
  EXPECT_EQ(Shell("--version"), 0);
  EXPECT_EQ(Shell("adjust /does/not/exist"), 2);
  const std::string job = "adjust \"" + kExample + "\" --output \"" + output.String() + "\"";
  EXPECT_EQ(Shell(job), 0);
  EXPECT_TRUE(output.Has("summary.json"));
  EXPECT_EQ(Shell(job + " --set s0_limit=1e-9"), 1);
}

}  // namespace
}  // namespace cardo
