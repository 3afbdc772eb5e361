#include "cli/job_scene.h"
#include "csv_writer.h"
#include "result_files.h"
#include "table_registry.h"

#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>
#include <xyz_api.h>

namespace cardo {
namespace {

using test::JobScene;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// One table replaced, the messages that follow.
std::vector<std::string> MessagesOf(const std::string& table, const std::string& text) {
  JobScene scene;
  scene.Write(table, text);
  return scene.Messages();
}

TEST(Tables, SceneIsWithoutMistake) {
  JobScene scene;
  EXPECT_THAT(scene.Messages(), IsEmpty());
  EXPECT_THAT(scene.Tables().tables, SizeIs(8));
}

TEST(Tables, CamerasTakeDefaults) {
  JobScene scene;
  ASSERT_THAT(scene.Messages(), IsEmpty());
  auto camera = std::make_unique<sXYZ_InteriorOrient>();
  ASSERT_EQ(XYZ_GetInteriorOrientAt(scene.Job(), 0, camera.get()), eXYZ_Ok);
  EXPECT_EQ(camera->Id, 1);
  EXPECT_EQ(camera->Ck, -7.0);
  EXPECT_EQ(camera->Xh, 0.0);
  EXPECT_EQ(camera->AZ2, 0.0);
  EXPECT_EQ(camera->R0, 0.0);
  EXPECT_EQ(camera->ParameterMask, 0U);
  // Nothing is estimated, so the library reads it back as fixed.
  EXPECT_EQ(camera->Flags, 0x11);
}

TEST(Tables, CamerasTakeEveryColumn) {
  JobScene scene;
  scene.Write("cameras.csv",
              "estimate,r0,az2,az1,c2,c1,b2,b1,a3,a2,a1,yh,xh,ck,id,fixed,active,tag\n"
              "ck xh yh a1 a2 a3 b1 b2 c1 c2 az1 az2,13,12,11,10,9,8,7,6,5,4,3,2,1,1,0,1,7\n"
              "  b2   ck ,13,12,11,10,9,8,7,6,5,4,3,2,1,2,1,0,0\n");
  ASSERT_THAT(scene.Messages(), IsEmpty());
  auto camera = std::make_unique<sXYZ_InteriorOrient>();
  ASSERT_EQ(XYZ_GetInteriorOrientAt(scene.Job(), 0, camera.get()), eXYZ_Ok);
  EXPECT_THAT((std::vector{camera->Ck,
                           camera->Xh,
                           camera->Yh,
                           camera->A1,
                           camera->A2,
                           camera->A3,
                           camera->B1,
                           camera->B2,
                           camera->C1,
                           camera->C2,
                           camera->AZ1,
                           camera->AZ2,
                           camera->R0}),
              ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13));
  EXPECT_EQ(camera->ParameterMask, 0x3F77U);
  ASSERT_EQ(XYZ_GetInteriorOrientAt(scene.Job(), 1, camera.get()), eXYZ_Ok);
  EXPECT_EQ(camera->ParameterMask, 0x201U);
  EXPECT_EQ(camera->Flags, 0x10);
}

TEST(Tables, ImagesTakeDefaults) {
  JobScene scene;
  ASSERT_THAT(scene.Messages(), IsEmpty());
  sXYZ_ExteriorOrient2 image{};
  ASSERT_EQ(XYZ_GetExteriorOrientAt(scene.Job(), 1, &image), eXYZ_Ok);
  EXPECT_EQ(image.Id, 2);
  EXPECT_EQ(image.IorId, 1);
  EXPECT_EQ(image.X0, 1.0);
  EXPECT_EQ(image.Z0, 5.0);
  EXPECT_EQ(image.Format, 0x401U);
  EXPECT_EQ(image.ProjectionId, -1);
  EXPECT_EQ(image.Flags, 0x01);
}

TEST(Tables, ImagesTakeEveryRotationTypeInOneTable) {
  JobScene scene;
  scene.Remove("relative_orientations.csv");
  scene.Write("image_coordinates.csv", "point,image,x,y\n");
  scene.Write("images.csv",
              "id,camera,x0,y0,z0,rotation_type,unit,omega,phi,kappa,alpha,beta,gamma,"
              "r11,r12,r13,r21,r22,r23,r31,r32,r33,projection,fixed\n"
              "1,1,0,0,0,1,,0,0,0,,,,,,,,,,,,,,\n"
              "2,1,0,0,0,arc,gon,,,,10,20,30,,,,,,,,,,,\n"
              "3,1,0,0,0,matrix,,,,,,,,0,-1,0,1,0,0,0,0,1,9,1\n"
              "4,1,0,0,0,4,radians,,,,0.1,0.2,0.3,,,,,,,,,,\n");
  // The last row lacks a field on purpose.
  EXPECT_THAT(scene.Messages(),
              ElementsAre("images.csv:5:45: expected 24 fields as in the first line, found 23"));
  scene.Write("images.csv",
              "id,camera,x0,y0,z0,rotation_type,unit,alpha,beta,gamma,"
              "r11,r12,r13,r21,r22,r23,r31,r32,r33,projection,fixed\n"
              "2,1,0,0,0,arc,gon,10,20,30,,,,,,,,,,,\n"
              "3,1,0,0,0,matrix,,,,,0,-1,0,1,0,0,0,0,1,9,1\n"
              "4,1,0,0,0,4,radians,0.1,0.2,0.3,,,,,,,,,,,\n");
  ASSERT_THAT(scene.Messages(), IsEmpty());
  sXYZ_ExteriorOrient2 image{};
  ASSERT_EQ(XYZ_GetExteriorOrientAt(scene.Job(), 0, &image), eXYZ_Ok);
  EXPECT_EQ(image.Format, 0x202U);
  ASSERT_EQ(XYZ_GetExteriorOrientAt(scene.Job(), 1, &image), eXYZ_Ok);
  EXPECT_EQ(image.Format & 0xFFU, 3U);
  EXPECT_NEAR(image.Rotation[1], -1.0, 1e-12);
  EXPECT_EQ(image.ProjectionId, 9);
  EXPECT_EQ(image.Flags, 0x11);
  ASSERT_EQ(XYZ_GetExteriorOrientAt(scene.Job(), 2, &image), eXYZ_Ok);
  EXPECT_EQ(image.Format, 0x104U);
}

TEST(Tables, PointsTakeDefaultsAndFlags) {
  JobScene scene;
  scene.Write("points.csv",
              "id,x,y,z,fixed,datum,reference_image,ray_rule_exempt,active,tag\n"
              "10,1,2,3,,,,,,\n"
              "11,1,2,3,1,0,2,1,1,5\n"
              "12,1,2,3,0,1,,0,1,0\n");
  ASSERT_THAT(scene.Messages(), IsEmpty());
  sXYZ_ObjectCoord point{};
  ASSERT_EQ(XYZ_GetObjectCoordAt(scene.Job(), 0, &point), eXYZ_Ok);
  EXPECT_EQ(point.Id, 10);
  EXPECT_EQ(point.Y, 2.0);
  EXPECT_EQ(point.Flags, 0x01);
  EXPECT_EQ(point.PointFlags & 1U, 0U);
  ASSERT_EQ(XYZ_GetObjectCoordAt(scene.Job(), 1, &point), eXYZ_Ok);
  EXPECT_EQ(point.Flags, 0x11);
  ASSERT_EQ(XYZ_GetObjectCoordAt(scene.Job(), 2, &point), eXYZ_Ok);
  EXPECT_EQ(point.PointFlags & 1U, 1U);
}

TEST(Tables, ImageCoordinatesTakeDefaults) {
  JobScene scene;
  scene.Write("job.toml", "s0_apriori = 0.25\n");
  scene.Write("image_coordinates.csv",
              "point,image,x,y,sx,sy,active,outlier,protected,tag\n"
              "10,1,0.1,0.2,,,,,,\n"
              "11,3,0.1,0.2,0.5,,1,1,1,3\n"
              "11,2,0.1,0.2,0.5,0.75,0,0,0,0\n");
  ASSERT_THAT(scene.Messages(), IsEmpty());
  sXYZ_PictureCoord ray{};
  ASSERT_EQ(XYZ_GetPictureCoordsAt(scene.Job(), 0, &ray), eXYZ_Ok);
  EXPECT_EQ(ray.Sx, 0.25);
  EXPECT_EQ(ray.Sy, 0.25);
  EXPECT_EQ(ray.Flags, 0x01);
  ASSERT_EQ(XYZ_GetPictureCoordsAt(scene.Job(), 1, &ray), eXYZ_Ok);
  EXPECT_EQ(ray.PointId, 11);
  EXPECT_EQ(ray.EorId, 3);
  EXPECT_EQ(ray.Sy, 0.5);
  EXPECT_EQ(ray.Flags, 0x31);
  ASSERT_EQ(XYZ_GetPictureCoordsAt(scene.Job(), 2, &ray), eXYZ_Ok);
  EXPECT_EQ(ray.Sy, 0.75);
  EXPECT_EQ(ray.Flags, 0x00);
}

TEST(Tables, RemainingTablesReachTheJob) {
  JobScene scene;
  ASSERT_THAT(scene.Messages(), IsEmpty());
  sXYZ_MeasuredObjectCoord measured{};
  ASSERT_EQ(XYZ_GetMeasuredObjectCoordAt(scene.Job(), 0, &measured), eXYZ_Ok);
  EXPECT_EQ(measured.PointId, 10);
  EXPECT_EQ(measured.Sz, 0.3);
  EXPECT_EQ(measured.ReferenceEor, -1);
  EXPECT_EQ(measured.Flags, 0x01);
  sXYZ_Distance distance{};
  ASSERT_EQ(XYZ_GetDistanceAt(scene.Job(), 0, &distance), eXYZ_Ok);
  EXPECT_EQ(distance.Point2, 11);
  EXPECT_EQ(distance.Sigma, 0.01);
  EXPECT_EQ(distance.Flags, 0x01);
  sXYZ_Projection projection{};
  ASSERT_EQ(XYZ_GetProjectionAt(scene.Job(), 0, &projection), eXYZ_Ok);
  EXPECT_EQ(projection.Ck, -7.0);
  EXPECT_EQ(projection.Flags, 0x01);
  sXYZ_RelativeOrientation orientation{};
  ASSERT_EQ(XYZ_GetRelativeOrientationAt(scene.Job(), 0, &orientation), eXYZ_Ok);
  EXPECT_EQ(orientation.EorId, 1);
  EXPECT_EQ(orientation.BaseEorId, 2);
}

TEST(Tables, TellFileLineColumnAndWhatWasFound) {
  EXPECT_THAT(
      MessagesOf("distances.csv", "point1,point2,distance,sigma\n10,11,1,0.01\n10,11,1,-0.01\n"),
      ElementsAre("distances.csv:3:9: sigma must be positive, found \"-0.01\""));
  EXPECT_THAT(MessagesOf("points.csv", "id,x,y,z\n10,1,abc,3\n11,nan,1,1e999\n12,1,1,1\n"),
              ElementsAre("points.csv:2:6: y must be a number, found \"abc\"",
                          "points.csv:3:4: x must be a finite number, found \"nan\"",
                          "points.csv:3:10: z must be a number in the range of double precision, "
                          "found \"1e999\""));
  EXPECT_THAT(MessagesOf("points.csv", "id,x,y,z\n10,,1,2\n11,1,1,1\n12,1,1,1\n"),
              ElementsAre("points.csv:2:4: x must be a number, found \"\""));
}

TEST(Tables, TellAtMostTwentyMistakesOfATable) {
  std::string text = "id,x,y,z\n";
  for (int i = 0; i < 100; ++i) text += std::to_string(i) + ",x,0,0\n";
  EXPECT_THAT(MessagesOf("points.csv", text), SizeIs(20));
}

TEST(Tables, TellUnknownDoubleAndMissingColumns) {
  EXPECT_THAT(MessagesOf("points.csv", "id,x,y,z,datun\n"),
              ElementsAre("points.csv:1:10: unknown column \"datun\", did you mean \"datum\"?"));
  EXPECT_THAT(MessagesOf("points.csv", "id,x,y,z,x\n"),
              ElementsAre("points.csv:1:10: column \"x\" is there twice, first as field 2"));
  EXPECT_THAT(MessagesOf("points.csv", "id,x\n"),
              ElementsAre("points.csv:1:5: expected the columns \"y\", \"z\" as well, found none "
                          "of that name"));
  EXPECT_THAT(MessagesOf("points.csv", "id;x;y;z\n10;1;2;3\n"),
              ElementsAre("points.csv:1:1: columns must be separated by commas, found "
                          "\"id;x;y;z\""));
  EXPECT_THAT(MessagesOf("points.csv", "id,x,y,z,\n"),
              ElementsAre("points.csv:1:10: expected the name of a column, found \"\""));
}

TEST(Tables, TellAtMostTwentyUnknownColumns) {
  std::string text = "id,x,y,z";
  for (int i = 0; i < 100000; ++i) text += ",c";
  const std::vector<std::string> messages = MessagesOf("points.csv", text + "\n");
  EXPECT_THAT(messages, SizeIs(20));
  EXPECT_THAT(messages.back(), HasSubstr("points.csv:1:48: unknown column \"c\""));
}

TEST(Tables, TellAnEmptyFile) {
  EXPECT_THAT(MessagesOf("points.csv", ""),
              ElementsAre("points.csv: is empty, expected a first line with the column names"));
  EXPECT_THAT(MessagesOf("points.csv", "\n\n"),
              ElementsAre("points.csv: is empty, expected a first line with the column names"));
}

TEST(Tables, TellRowsOfAnotherLength) {
  EXPECT_THAT(MessagesOf("points.csv", "id,x,y,z\n10,1,2\n11,1,2,3,4\n12,0,0,0\n"),
              ElementsAre("points.csv:2:7: expected 4 fields as in the first line, found 3",
                          "points.csv:3:10: expected 4 fields as in the first line, found 5"));
}

TEST(Tables, TellDoubleIdsWithBothLines) {
  EXPECT_THAT(MessagesOf("points.csv", "id,x,y,z\n10,0,0,0\n11,0,0,0\n12,0,0,0\n10,1,1,1\n"),
              ElementsAre("points.csv:5:1: id must be unique, line 2 has it too, found \"10\""));
  EXPECT_THAT(MessagesOf("cameras.csv", "id,ck\n1,1\n1,2\n"),
              ElementsAre("cameras.csv:3:1: id must be unique, line 2 has it too, found \"1\""));
  EXPECT_THAT(
      MessagesOf("projections.csv", "id,ck\n9,1\n9,2\n"),
      ElementsAre("projections.csv:3:1: id must be unique, line 2 has it too, found \"9\""));
  EXPECT_THAT(MessagesOf("relative_orientations.csv", "id,image,base_image\n3,1,2\n2,1,2\n3,2,1\n"),
              ElementsAre("relative_orientations.csv:3:1: id must not be an id of images.csv, "
                          "found \"2\"",
                          "relative_orientations.csv:4:1: id must be unique, line 2 has it too, "
                          "found \"3\""));
}

TEST(Tables, TellIdsThatDoNotExist) {
  EXPECT_THAT(MessagesOf("image_coordinates.csv", "point,image,x,y\n10,7,0,0\n99,1,0,0\n"),
              ElementsAre("image_coordinates.csv:2:4: image must be an id of images.csv or "
                          "relative_orientations.csv, found \"7\"",
                          "image_coordinates.csv:3:1: point must be an id of points.csv, found "
                          "\"99\""));
  EXPECT_THAT(MessagesOf("distances.csv", "point1,point2,distance,sigma\n10,13,1,1\n"),
              ElementsAre("distances.csv:2:4: point2 must be an id of points.csv, found \"13\""));
  EXPECT_THAT(
      MessagesOf("images.csv",
                 "id,camera,x0,y0,z0,omega,phi,kappa,projection\n1,4,0,0,0,0,0,0,8\n"
                 "2,1,0,0,0,0,0,0,\n"),
      ElementsAre("images.csv:2:3: camera must be an id of cameras.csv, found \"4\"",
                  "images.csv:2:17: projection must be an id of projections.csv, found \"8\""));
  EXPECT_THAT(MessagesOf("relative_orientations.csv", "id,image,base_image\n3,1,5\n"),
              ElementsAre("relative_orientations.csv:2:5: base_image must be an id of images.csv, "
                          "found \"5\""));
  EXPECT_THAT(MessagesOf("measured_coordinates.csv",
                         "point,x,y,z,sx,sy,sz,reference_image\n10,0,0,0,1,1,1,6\n"),
              ElementsAre("measured_coordinates.csv:2:16: reference_image must be an id of "
                          "images.csv, found \"6\""));
  EXPECT_THAT(
      MessagesOf("points.csv", "id,x,y,z,reference_image\n10,0,0,0,6\n11,0,0,0,\n12,0,0,0,\n"),
      ElementsAre("points.csv:2:10: reference_image must be an id of images.csv, found "
                  "\"6\""));
}

TEST(Tables, DoNotJudgeReferencesToATableWithMistakes) {
  EXPECT_THAT(MessagesOf("points.csv", "id,x,y,z\n10,0,0,zero\n"), SizeIs(1));
}

TEST(Tables, TellMissingTablesOnce) {
  JobScene scene;
  scene.Remove("cameras.csv");
  EXPECT_THAT(scene.Messages(),
              ElementsAre("images.csv:1:4: column camera refers to cameras.csv, which is missing"));
  JobScene empty;
  for (const char* table : {"image_coordinates.csv", "measured_coordinates.csv", "distances.csv"}) {
    empty.Remove(table);
  }
  EXPECT_THAT(empty.Messages(),
              ElementsAre(HasSubstr(": no observations, expected at least one table of "
                                    "image_coordinates.csv, line_image_coordinates.csv, "
                                    "measured_coordinates.csv, distances.csv")));
}

TEST(Tables, TellUnknownTables) {
  JobScene scene;
  scene.Write("distance.csv", "");
  scene.Write("notes.txt", "");
  EXPECT_THAT(scene.Messages(),
              ElementsAre("distance.csv: unknown table, did you mean \"distances.csv\"?"));
  // Nothing reads them, whatever the case of the ending.
  JobScene capitals;
  capitals.Write("DISTANCES.CSV", "");
  capitals.Write("x.Csv", "");
  EXPECT_THAT(capitals.Messages(),
              ElementsAre("DISTANCES.CSV: unknown table, did you mean \"distances.csv\"?",
                          HasSubstr("x.Csv: unknown table")));
  JobScene many;
  for (int i = 0; i < 30; ++i) many.Write(std::to_string(i) + ".csv", "");
  EXPECT_THAT(many.Messages(), SizeIs(20));
}

TEST(Tables, TellMistakesOfImages) {
  const std::string head = "id,camera,x0,y0,z0,";
  const auto messages = [&head](const std::string& rest) {
    return MessagesOf("images.csv", head + rest);
  };
  EXPECT_THAT(messages("omega,phi\n1,1,0,0,0,0,0\n2,1,0,0,0,0,0\n"),
              ElementsAre("images.csv:2:1: kappa must be a number for rotation type "
                          "omega-phi-kappa",
                          "images.csv:3:1: kappa must be a number for rotation type "
                          "omega-phi-kappa"));
  EXPECT_THAT(messages("unit\n"), ElementsAre(HasSubstr("expected columns of a rotation as well")));
  EXPECT_THAT(messages("alpha,beta,gamma\n"),
              ElementsAre(HasSubstr("expected the column \"rotation_type\" as well")));
  EXPECT_THAT(messages("rotation_type,unit,omega,phi,kappa\n1,1,0,0,0,air,grad,0,0,0\n"
                       "2,1,0,0,0,,,0,0,0\n"),
              ElementsAre("images.csv:2:11: rotation_type must be one of omega-phi-kappa, 1, arc, "
                          "2, matrix, 3, ttg, 4, found \"air\"",
                          "images.csv:2:15: unit must be one of degrees, gon, radians, found "
                          "\"grad\"",
                          "images.csv:3:11: rotation_type must be given where the column is there, "
                          "found \"\""));
  EXPECT_THAT(messages("rotation_type,omega,phi,kappa,alpha,beta,gamma\n"
                       "1,1,0,0,0,1,0,0,0,5,,\n2,1,0,0,0,2,,,,0,0,0\n"),
              ElementsAre("images.csv:2:19: alpha must be empty for rotation type "
                          "omega-phi-kappa, found \"5\""));
  EXPECT_THAT(messages("r11,r12,r13,r21,r22,r23,r31,r32,r33\n1,1,0,0,0,1,0,0,0,1,0,0,0,5\n"
                       "2,1,0,0,0,1,0,0,0,1,0,0,0,1\n"),
              ElementsAre("images.csv:2:11: r11 to r33 must be the rows of a rotation matrix, "
                          "found \"1\""));
}

TEST(Tables, TellMistakesBetweenFieldsOfARecord) {
  EXPECT_THAT(
      MessagesOf("points.csv", "id,x,y,z,fixed,datum\n10,0,0,0,1,1\n11,0,0,0,0,1\n12,0,0,0,1,0\n"),
      ElementsAre("points.csv:2:12: datum must be 0 for a fixed point, found \"1\""));
  EXPECT_THAT(
      MessagesOf("distances.csv", "point1,point2,distance,sigma\n10,10,1,1\n"),
      ElementsAre("distances.csv:2:4: point2 must be another point than point1, found \"10\""));
  EXPECT_THAT(MessagesOf("relative_orientations.csv", "id,image,base_image\n3,1,1\n"),
              ElementsAre("relative_orientations.csv:2:5: base_image must be another image than "
                          "image, found \"1\""));
  EXPECT_THAT(MessagesOf("cameras.csv", "id,ck,estimate\n1,0,\n2,1,ck xk\n"),
              ElementsAre("cameras.csv:2:3: ck must not be zero, found \"0\"",
                          "cameras.csv:3:5: estimate must be names of camera parameters, \"xk\" is "
                          "none, did you mean \"ck\"?, found \"ck xk\""));
  EXPECT_THAT(MessagesOf("image_coordinates.csv", "point,image,x,y,tag\n10,1,0,0,65536\n"),
              ElementsAre("image_coordinates.csv:2:10: tag must be a whole number from 0 to 65535, "
                          "found \"65536\""));
}

TEST(Tables, TellMeasuredCoordinatesOfInactivePoints) {
  JobScene scene;
  scene.Write("points.csv", "id,x,y,z,active\n10,0,0,0,0\n11,1,0,0,1\n12,0,1,0,1\n");
  EXPECT_THAT(scene.Messages(),
              ElementsAre("measured_coordinates.csv:2:1: point must be active, or the record "
                          "itself must have active = 0, found \"10\""));
  scene.Write("measured_coordinates.csv", "point,x,y,z,sx,sy,sz,active\n10,0,0,0,1,1,1,0\n");
  EXPECT_THAT(scene.Messages(), IsEmpty());
}

TEST(Tables, TellADatumWithoutDatumPoints) {
  JobScene scene;
  scene.Write("job.toml", "\ndatum = [\"scale\"]\n");
  EXPECT_THAT(scene.Messages(),
              ElementsAre("job.toml:2:1: datum is asked for, but no active point of points.csv has "
                          "datum = 1"));
  scene.Write("points.csv", "id,x,y,z,datum\n10,0,0,0,1\n11,1,0,0,1\n12,0,1,0,1\n");
  EXPECT_THAT(scene.Messages(), IsEmpty());
}

// Writes every table of the scene into a folder.
void WriteAll(const JobScene& scene, const test::TemporaryFolder& folder) {
  for (const auto& table : scene.Tables().tables) {
    ResultFile file(folder.Path() / table->FileName());
    CsvWriter writer(file);
    table->Write(writer, {scene.Job(), [] {}});
    file.Close();
  }
}

TEST(Tables, WrittenTablesReadBackToTheSameTables) {
  JobScene scene;
  scene.Write("cameras.csv",
              "id,ck,xh,a1,estimate,r0,tag\n1,-7.300000000000001,0.1,1e-300,ck a1 az2,3,65535\n");
  scene.Write("projections.csv", "id,ck,fixed,tag\n9,-7,1,4\n");
  scene.Write("images.csv",
              "id,camera,x0,y0,z0,rotation_type,unit,omega,phi,kappa,alpha,beta,gamma,"
              "r11,r12,r13,r21,r22,r23,r31,r32,r33,projection,fixed,active,tag\n"
              "1,1,0.1,0.2,0.3,1,gon,10,20,30,,,,,,,,,,,,,,1,1,3\n"
              "2,1,0,0,0,arc,degrees,,,,10,20,30,,,,,,,,,,9,1,1,0\n"
              "4,1,0,0,0,matrix,,,,,,,,0,-1,0,1,0,0,0,0,1,,0,0,0\n");
  scene.Write("points.csv",
              "id,x,y,z,fixed,datum,reference_image,ray_rule_exempt,active,tag\n"
              "10,0.1,0.30000000000000004,1e22,0,1,,1,1,0\n"
              "11,1,2,3,1,0,2,1,0,5\n12,0,0,0,0,0,,0,1,2\n");
  scene.Write("image_coordinates.csv",
              "point,image,x,y,sx,sy,active,outlier,protected,tag\n"
              "10,1,0.1,0.2,0.001,0.002,1,0,1,9\n11,3,-0.1,0.2,0.1,0.1,0,1,0,0\n");
  ASSERT_THAT(scene.Messages(), IsEmpty());
  const test::TemporaryFolder written;
  WriteAll(scene, written);

  JobScene again;
  for (const auto& table : scene.Tables().tables) {
    again.Write(table->FileName(), written.Read(table->FileName()));
  }
  ASSERT_THAT(again.Messages(), IsEmpty());
  const test::TemporaryFolder rewritten;
  WriteAll(again, rewritten);
  for (const auto& table : scene.Tables().tables) {
    EXPECT_EQ(written.Read(table->FileName()), rewritten.Read(table->FileName()));
  }
  const auto rows = test::ReadRows(written.Path() / "points.csv");
  EXPECT_EQ(rows[0].at("y"), "0.30000000000000004");
  EXPECT_EQ(rows[1].at("reference_image"), "2");
  EXPECT_EQ(rows[1].at("tag"), "5");
  const auto images = test::ReadRows(written.Path() / "images.csv");
  EXPECT_EQ(images[0].at("omega"), "10");
  EXPECT_EQ(images[1].at("beta"), "20");
  EXPECT_EQ(images[2].at("r12"), "-1");
  EXPECT_EQ(images[2].at("omega"), "");
}

TEST(Tables, EveryWrittenColumnIsKnown) {
  JobScene scene;
  ASSERT_THAT(scene.Messages(), IsEmpty());
  const test::TemporaryFolder written;
  WriteAll(scene, written);
  for (const auto& table : scene.Tables().tables) {
    std::set<std::string> known;
    for (const ColumnInfo& column : table->Columns()) known.insert(column.name);
    for (const auto& row : test::ReadRows(written.Path() / table->FileName())) {
      for (const auto& [name, value] : row) EXPECT_THAT(known, Contains(name));
    }
  }
}

TEST(Tables, ReadingEndsWhenThePollThrows) {
  JobScene scene;
  const BundleJob job;
  Diagnostics diagnostics;
  EXPECT_THROW(
      static_cast<void>(ReadTables(
          scene.Folder().Path(), JobFile{}, job.Handle(), diagnostics, [] { throw Cancelled(); })),
      Cancelled);
}

// The reference of the format names every table, column and key.
TEST(Documentation, NamesEveryTableColumnAndKey) {
  std::ifstream stream(std::string(CARDO_EXAMPLES_DIR) + "/../docs/job-folder.md");
  const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  ASSERT_FALSE(text.empty());
  for (const auto& table : MakeTables()) {
    const std::size_t start = text.find("## `" + table->FileName() + "`");
    ASSERT_NE(start, std::string::npos) << table->FileName();
    const std::string section = text.substr(start, text.find("\n## ", start) - start);
    for (const ColumnInfo& column : table->Columns()) {
      EXPECT_THAT(section, HasSubstr("`" + column.name + "`")) << table->FileName();
    }
  }
  for (const std::string& key : JobFileKeys()) EXPECT_THAT(text, HasSubstr("`" + key + "`"));
  for (const Parameter& parameter : AllParameters()) {
    for (const auto& [word, code] : parameter.words) EXPECT_THAT(text, HasSubstr(word));
  }
}

}  // namespace
}  // namespace cardo
