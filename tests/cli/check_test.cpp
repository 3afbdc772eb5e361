#include "cli/job_scene.h"
#include "datum_check.h"
#include "exit_status.h"
#include "timing.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace cardo {
namespace {

using test::JobScene;
using test::ProgramResult;
using test::RunProgram;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

std::string Example(const std::string& name) {
  return std::string(CARDO_EXAMPLES_DIR) + "/" + name;
}

// The tables of an example and its job file.
void CopyJob(const std::string& name, const test::TemporaryFolder& job) {
  for (const auto& entry : std::filesystem::directory_iterator(Example(name))) {
    const auto extension = entry.path().extension();
    if (extension == ".csv" || extension == ".toml")
      std::filesystem::copy_file(entry.path(), job.Path() / entry.path().filename());
  }
}

TEST(Check, AllowsTheExamplesWhoseDatumIsDetermined) {
  for (const char* name : {"camera-calibration", "free-network"}) {
    const ProgramResult result = RunProgram({"check", Example(name)});
    EXPECT_EQ(result.status, kExitOk) << name;
    EXPECT_THAT(result.out, StartsWith("Datum: the datum is determined, and not twice.\n"));
    EXPECT_THAT(result.err, IsEmpty());
  }
}

TEST(Check, TellsTheVerdictAndACureAndAnswersOne) {
  const ProgramResult open =
      RunProgram({"check", Example("free-network"), "--set", "datum=translation"});
  EXPECT_EQ(open.status, kExitRunFailed);
  EXPECT_THAT(open.out, StartsWith("Datum: the scale is not determined"));
  EXPECT_THAT(open.out, HasSubstr("\"scale\" in datum"));
  // Two control points beside the free scale.
  const test::TemporaryFolder job;
  CopyJob("free-network", job);
  std::string points = job.Read("points.csv");
  for (int i = 0; i < 2; ++i) points.replace(points.find(",0,1\n"), 4, ",1,0");
  job.Write("points.csv", points);
  const ProgramResult twice = RunProgram({"check", job.String()});
  EXPECT_EQ(twice.status, kExitRunFailed);
  EXPECT_THAT(twice.out, StartsWith("Datum: the scale is determined twice"));
  EXPECT_THAT(twice.out, HasSubstr("Take \"scale\" out of datum"));
  EXPECT_THAT(twice.out, HasSubstr("2 fixed points"));
}

TEST(Check, TellsThatMeasuredControlCountsOnlyWhenProtected) {
  const ProgramResult result = RunProgram({"check", Example("lines-and-planes")});
  EXPECT_EQ(result.status, kExitRunFailed);
  EXPECT_THAT(result.out, HasSubstr("Not counted: 4 measured coordinates and 1 distances"));
}

TEST(Check, MistakesInTheInputAnswerTwo) {
  EXPECT_EQ(RunProgram({"check", Example("no-such-job")}).status, kExitBadInput);
  EXPECT_EQ(RunProgram({"check"}).status, kExitBadInput);
}

// Every verdict of the library has its words, and no two have the same.
TEST(Check, EveryVerdictHasItsOwnWords) {
  std::vector<std::string> words;
  for (const int verdict : {0, 0x1, 0x10, 0x100, 0x1000, 0x10000, 0x100000, 0x1000000, 14}) {
    words.push_back(DatumVerdict(verdict));
    EXPECT_THAT(words.back(), Not(IsEmpty()));
  }
  std::sort(words.begin(), words.end());
  EXPECT_EQ(std::unique(words.begin(), words.end()), words.end());
}

TEST(Adjust, ShowsWhatTheCheckObjectsToAndRunsAllTheSame) {
  const test::TemporaryFolder output;
  const ProgramResult result =
      RunProgram({"adjust", Example("lines-and-planes"), "--output", output.String() + "/out"});
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_THAT(result.err, HasSubstr("the check objects: "));
  EXPECT_THAT(result.out, HasSubstr("Redundancy       315"));
  const ProgramResult quiet = RunProgram(
      {"adjust", Example("lines-and-planes"), "--output", output.String() + "/quiet", "--quiet"});
  EXPECT_EQ(quiet.status, kExitOk);
  EXPECT_THAT(quiet.err, IsEmpty());
}

TEST(Adjust, NamesTheGroupsThatTheRunLeftOut) {
  const test::TemporaryFolder job;
  CopyJob("camera-calibration", job);
  job.Write("points.csv", job.Read("points.csv") + "7777,0.5,0.5,0,0,0\n");
  const test::TemporaryFolder output;
  const ProgramResult result =
      RunProgram({"adjust", job.String(), "--output", output.String() + "/out"});
  EXPECT_EQ(result.status, kExitOk);
  EXPECT_THAT(result.err, HasSubstr("the run left out points 7777"));
  EXPECT_THAT(result.err, HasSubstr("Points seen by fewer than two images: 7777"));
}

TEST(Adjust, NamesTheSuspectsOfASingularSystem) {
  const test::TemporaryFolder job;
  CopyJob("lines-and-planes", job);
  job.Write("lines.csv", job.Read("lines.csv") + "77,0,0,0,1,0,0\n");
  job.Write("planes.csv", job.Read("planes.csv") + "88,0,0,0,1,0,0\n");
  const test::TemporaryFolder output;
  const ProgramResult result =
      RunProgram({"adjust", job.String(), "--output", output.String() + "/out"});
  EXPECT_EQ(result.status, kExitRunFailed);
  EXPECT_THAT(result.err, HasSubstr("(status 23)"));
  EXPECT_THAT(result.err, HasSubstr("or two points on them: 77\n"));
  EXPECT_THAT(result.err, HasSubstr("fewer than three points on them: 88\n"));
  EXPECT_THAT(result.err, HasSubstr("The check of the datum: "));
}

TEST(Adjust, TimingShowsEveryStageAndTheMemory) {
  const test::TemporaryFolder output;
  const ProgramResult result = RunProgram(
      {"adjust", Example("camera-calibration"), "--output", output.String() + "/out", "--timing"});
  EXPECT_EQ(result.status, kExitOk);
  for (const char* stage : {"reading",
                            "assembly",
                            "factorisation and statistics",
                            "accuracy and protocol",
                            "results",
                            "total",
                            "Peak memory [MiB]"})
    EXPECT_THAT(result.out, HasSubstr(stage));
}

TEST(Timing, AddsTheTimesOfBothLanguages) {
  Timing timing;
  AddIterationTimes("\nBerechnung des Systems:\n\nAufstellung: 0.250 s\n     L\xF6sung: 1.500 s\n",
                    timing);
  AddIterationTimes("\nCalculation:\n\n      Build: 0.125 s\n   Solution: 2.000 s\n", timing);
  AddIterationTimes("another text", timing);
  EXPECT_DOUBLE_EQ(timing.assembly, 0.375);
  EXPECT_DOUBLE_EQ(timing.solution, 3.5);
}

// --- the tables of lines, planes and constraints -----------------------------

TEST(Tables, LinesPlanesAndConstraintsReachTheJob) {
  JobScene scene;
  scene.Remove("projections.csv");
  scene.Write("lines.csv", "id,x1,y1,z1,x2,y2,z2,fixed,active,tag\n5,0,0,0,2,0,0,1,0,3\n");
  scene.Write("planes.csv", "id,x,y,z,nx,ny,nz\n6,0,0,1,0,0,4\n");
  scene.Write("line_image_coordinates.csv",
              "line,image,x,y,sx,sy,protected\n5,1,0.1,0.2,0.3,0.4,1\n");
  scene.Write("points_on_lines.csv", "id,point,line,active\n1,10,5,0\n");
  scene.Write("points_on_planes.csv", "id,point,plane\n2,11,6\n");
  ASSERT_THAT(scene.Messages(), IsEmpty());
  sXYZ_Line line{};
  ASSERT_EQ(XYZ_GetLineAt(scene.Job(), 0, &line), 0);
  EXPECT_EQ(line.Id, 5);
  EXPECT_EQ(line.P2[0], 1.0);
  EXPECT_EQ(line.Flags, 0);
  sXYZ_Plane plane{};
  ASSERT_EQ(XYZ_GetPlaneAt(scene.Job(), 0, &plane), 0);
  EXPECT_EQ(plane.Normal[2], 1.0);
  EXPECT_EQ(plane.Flags, 1);
  sXYZ_PictureLineCoord coord{};
  ASSERT_EQ(XYZ_GetLinePictureCoordAt(scene.Job(), 0, &coord), 0);
  EXPECT_EQ(coord.LineId, 5);
  EXPECT_EQ(coord.EorId, 1);
  EXPECT_EQ(coord.Sx, 0.3);
  EXPECT_EQ(coord.Flags, 0x21);
  sXYZ_ConstraintPointOnLine onLine{};
  ASSERT_EQ(XYZ_GetConstraintPointOnLineAt(scene.Job(), 0, &onLine), 0);
  EXPECT_EQ(onLine.LineId, 5);
  EXPECT_EQ(onLine.Flags, 0);
  sXYZ_ConstraintPointOnPlane onPlane{};
  ASSERT_EQ(XYZ_GetConstraintPointOnPlaneAt(scene.Job(), 0, &onPlane), 0);
  EXPECT_EQ(onPlane.PlaneId, 6);
  EXPECT_EQ(onPlane.Flags, 1);
}

TEST(Tables, MistakesInLinesAndPlanesAreTold) {
  JobScene scene;
  scene.Write("lines.csv", "id,x1,y1,z1,x2,y2,z2\n5,1,2,3,1,2,3\n");
  EXPECT_THAT(scene.Messages(), ElementsAre(HasSubstr("lines.csv:2")));
  JobScene planes;
  planes.Write("planes.csv", "id,x,y,z,nx,ny,nz\n5,1,2,3,0,0,0\n");
  EXPECT_THAT(planes.Messages(), ElementsAre(HasSubstr("planes.csv:2")));
  JobScene both;
  both.Write("lines.csv", "id,x1,y1,z1,x2,y2,z2\n5,1,2,3,1,2,4\n");
  both.Write("planes.csv", "id,x,y,z,nx,ny,nz\n5,1,2,3,0,0,1\n");
  EXPECT_THAT(both.Messages(),
              ElementsAre("planes.csv:2:1: id must not be an id of lines.csv, found \"5\""));
  JobScene reference;
  reference.Write("lines.csv", "id,x1,y1,z1,x2,y2,z2\n5,1,2,3,1,2,4\n");
  reference.Write("points_on_lines.csv", "id,point,line\n1,10,6\n");
  EXPECT_THAT(reference.Messages(), ElementsAre(HasSubstr("points_on_lines.csv:2")));
}

}  // namespace
}  // namespace cardo
