#include "cli/job_scene.h"
#include "failure_help.h"
#include "network_survey.h"
#include "run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <xyz_api.h>

namespace cardo {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

std::string Describe(int status, std::optional<ProtocolFailure> failure = {}) {
  RunOutcome outcome;
  outcome.status = status;
  outcome.failure = std::move(failure);
  return DescribeFailure(outcome, NetworkSurvey{}, JobFile{});
}

TEST(ProtocolFailure, IsFoundInBothLanguages) {
  const auto german = FindFailure(
      "text\n<h3>Abbruch: Fehler -12003 - Ung\xFCltige Parameter</h3>\n\n\n<h3>Berechnung nicht");
  ASSERT_TRUE(german);
  EXPECT_EQ(german->code, -12003);
  EXPECT_EQ(german->text, "Ung\xC3\xBCltige Parameter");
  const auto english = FindFailure("<h3>Abbort: Error -39007 - </h3>\n\n");
  ASSERT_TRUE(english);
  EXPECT_EQ(english->code, -39007);
  EXPECT_EQ(english->text, "");
  EXPECT_FALSE(FindFailure(""));
  EXPECT_FALSE(FindFailure("<h3>Abbort: Error x"));
}

TEST(FailureHelp, NamesStatusCodeAndWhatToDo) {
  EXPECT_THAT(Describe(eXYZ_CalcFailed, ProtocolFailure{-12006, "no unknown"}),
              StartsWith("the run failed: eXYZ_CalcFailed (status 8), error -12006 - no unknown\n"
                         "There is nothing to estimate"));
  EXPECT_THAT(Describe(eXYZ_NoProgress, ProtocolFailure{-12009, "x"}),
              HasSubstr("eXYZ_NoProgress (status 20), error -12009 - x\nThe iterations make no "
                        "progress"));
  EXPECT_THAT(Describe(eXYZ_LineCoordsWithPrincipalPoint), HasSubstr("projection of its own"));
  EXPECT_THAT(Describe(99), StartsWith("the run failed: 99 (status 99)\n"));
}

TEST(FailureHelp, EveryKnownCodeHasItsAdvice) {
  const std::string unknown = Describe(eXYZ_CalcFailed, ProtocolFailure{-1, ""});
  const std::string advice = unknown.substr(unknown.find('\n'));
  for (const int code :
       {-12003, -12004, -12006, -12007, -12008, -12011, -13001, -39004, -41001, -9999}) {
    EXPECT_THAT(Describe(eXYZ_CalcFailed, ProtocolFailure{code, ""}), Not(HasSubstr(advice)))
        << code;
  }
}

TEST(FailureHelp, SingularSystemNamesSuspects) {
  NetworkSurvey survey;
  survey.weakPoints = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  survey.weakImages = {7};
  survey.unusedCameras = {3};
  survey.parts = {{1, 2}, {5}};
  RunOutcome outcome;
  outcome.status = eXYZ_SingularSystem;
  JobFile job;
  job.parameters["datum"] = 0x3F00;
  const std::string text = DescribeFailure(outcome, survey, job);
  EXPECT_THAT(text, HasSubstr("eXYZ_SingularSystem (status 23)"));
  EXPECT_THAT(text, HasSubstr("datum lacks \"scale\""));
  EXPECT_THAT(text, HasSubstr("falls into 2 parts"));
  EXPECT_THAT(text, HasSubstr("    images 1, 2\n    images 5\n"));
  EXPECT_THAT(text, HasSubstr("fewer than two images: 1, 2, 3, 4, 5, 6, 7, 8, 9, 10 and 2 more\n"));
  EXPECT_THAT(text, HasSubstr("Images with fewer than three points: 7\n"));
  EXPECT_THAT(text, HasSubstr("Cameras without an image that has points: 3\n"));

  NetworkSurvey sound;
  sound.hasControl = true;
  EXPECT_THAT(DescribeFailure(outcome, sound, job), HasSubstr("Nothing of the usual kind"));
}

TEST(NetworkSurvey, FindsWhatIsWeak) {
  test::JobScene scene;
  ASSERT_THAT(scene.Messages(), IsEmpty());
  const NetworkSurvey survey = SurveyNetwork(scene.Job(), scene.Tables());
  // Point 10 is measured, 11 and 12 are seen once; the relative orientation joins both images.
  EXPECT_THAT(survey.weakPoints, ElementsAre(11, 12));
  EXPECT_THAT(survey.weakImages, ElementsAre(1, 2));
  EXPECT_THAT(survey.unusedCameras, IsEmpty());
  EXPECT_THAT(survey.parts, ElementsAre(ElementsAre(1, 2)));
  EXPECT_TRUE(survey.hasControl);
  EXPECT_EQ(survey.measuredPoints, 1);
  EXPECT_EQ(survey.distances, 1);
}

TEST(NetworkSurvey, FindsPartsThatNothingConnects) {
  test::JobScene scene;
  scene.Remove("relative_orientations.csv");
  scene.Remove("distances.csv");
  scene.Remove("measured_coordinates.csv");
  scene.Write("cameras.csv", "id,ck,estimate\n1,-7,ck\n2,-7,ck\n");
  scene.Write("image_coordinates.csv",
              "point,image,x,y,outlier\n10,1,0,0,0\n11,2,0,0,0\n10,2,0,0,1\n");
  ASSERT_THAT(scene.Messages(), IsEmpty());
  const NetworkSurvey survey = SurveyNetwork(scene.Job(), scene.Tables());
  EXPECT_THAT(survey.parts, ElementsAre(ElementsAre(1), ElementsAre(2)));
  EXPECT_THAT(survey.weakPoints, ElementsAre(10, 11, 12));
  EXPECT_THAT(survey.unusedCameras, ElementsAre(2));
  EXPECT_FALSE(survey.hasControl);
}

// A point with one ray on a line, one with one ray on a plane; two images that a line joins.
TEST(NetworkSurvey, CountsWhatLinesAndConstraintsGive) {
  test::JobScene scene;
  for (const char* name :
       {"relative_orientations.csv", "distances.csv", "measured_coordinates.csv"}) {
    scene.Remove(name);
  }
  scene.Write("lines.csv", "id,x1,y1,z1,x2,y2,z2\n20,0,0,0,1,0,0\n21,0,0,0,0,1,0\n");
  scene.Write("planes.csv", "id,x,y,z,nx,ny,nz\n30,0,0,0,0,0,1\n");
  scene.Write("image_coordinates.csv",
              "point,image,x,y\n10,1,0,0\n11,1,0,0\n12,1,0,0\n12,1,0,0\n12,1,0,0\n");
  // However many coordinates, one line gives an image two equations.
  scene.Write("line_image_coordinates.csv",
              "line,image,x,y\n20,1,0,0\n20,2,0,0\n20,2,1,0\n20,2,2,0\n20,2,3,0\n");
  scene.Write("points_on_lines.csv", "id,point,line\n1,10,21\n");
  scene.Write("points_on_planes.csv", "id,point,plane\n1,11,30\n");
  ASSERT_THAT(scene.Messages(), IsEmpty());
  const NetworkSurvey survey = SurveyNetwork(scene.Job(), scene.Tables());
  EXPECT_THAT(survey.parts, ElementsAre(ElementsAre(1, 2)));
  EXPECT_THAT(survey.weakPoints, ElementsAre(12));
  EXPECT_THAT(survey.weakImages, ElementsAre(2));
  EXPECT_THAT(survey.weakLines, ElementsAre(21));
  EXPECT_THAT(survey.weakPlanes, ElementsAre(30));
}

// What is fixed needs nothing to determine it.
TEST(NetworkSurvey, PassesOverFixedLinesAndPlanes) {
  test::JobScene scene;
  scene.Write("lines.csv", "id,x1,y1,z1,x2,y2,z2,fixed\n20,0,0,0,1,0,0,1\n21,0,0,0,0,1,0,0\n");
  scene.Write("planes.csv", "id,x,y,z,nx,ny,nz,fixed\n30,0,0,0,0,0,1,0\n31,0,0,0,0,0,1,1\n");
  ASSERT_THAT(scene.Messages(), IsEmpty());
  const NetworkSurvey survey = SurveyNetwork(scene.Job(), scene.Tables());
  EXPECT_THAT(survey.weakLines, ElementsAre(21));
  EXPECT_THAT(survey.weakPlanes, ElementsAre(30));
}

// Line image coordinates beyond the count of image coordinates are not read back.
TEST(NetworkSurvey, CountsWhatTheLibraryDoesNotGiveBack) {
  test::JobScene scene;
  scene.Remove("relative_orientations.csv");
  scene.Write("lines.csv", "id,x1,y1,z1,x2,y2,z2\n20,0,0,0,1,0,0\n21,0,0,0,1,0,0\n");
  scene.Write("image_coordinates.csv", "point,image,x,y\n10,1,0,0\n");
  scene.Write("line_image_coordinates.csv",
              "line,image,x,y,outlier\n20,1,0,0,0\n20,2,0,0,0\n21,1,0,0,0\n21,2,0,0,1\n");
  ASSERT_THAT(scene.Messages(), IsEmpty());
  const NetworkSurvey survey = SurveyNetwork(scene.Job(), scene.Tables());
  EXPECT_THAT(survey.weakLines, ElementsAre(21));
  EXPECT_THAT(survey.parts, ElementsAre(ElementsAre(1, 2)));
}

TEST(FailureHelp, LostGroupsAreNamedWithTheWayTheyGo) {
  JobFile job;
  EXPECT_EQ(DescribeLostGroups({}, job), "");
  GroupIds lost;
  lost[kPoints] = {7, 9};
  lost[kImages] = {2};
  EXPECT_THAT(DescribeLostGroups(lost, job),
              StartsWith("the run left out images 2; points 7, 9\nThe solvability check leaves out "
                         "one group"));
  EXPECT_THAT(DescribeLostGroups(lost, job), HasSubstr("takes long"));
  EXPECT_THAT(DescribeLostGroups(lost, job), Not(HasSubstr("min_rays")));
  job.parameters["solvability_check"] = 0;
  job.parameters["min_rays"] = 3;
  EXPECT_THAT(DescribeLostGroups(lost, job), Not(HasSubstr("takes long")));
  EXPECT_THAT(DescribeLostGroups(lost, job), HasSubstr("fewer than min_rays = 3 rays"));
}

TEST(NetworkSurvey, ListsIds) {
  EXPECT_EQ(ListOfIds({}), "");
  EXPECT_EQ(ListOfIds({4, 5}), "4, 5");
}

}  // namespace
}  // namespace cardo
