#include "result_files.h"

#include "cli/job_scene.h"
#include "csv_writer.h"

#include <clocale>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace cardo {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

void WriteText(const std::filesystem::path& path, const std::string& text) {
  ResultFile file(path);
  file.Write(text);
  file.Close();
}

TEST(ResultFiles, AppearOnlyWithTheCommit) {
  const test::TemporaryFolder folder;
  folder.Write("out/a.csv", "old");
  ResultFiles results(folder.Path() / "out");
  WriteText(results.Add("a.csv"), "new");
  WriteText(results.Add("b.csv"), "b");
  EXPECT_EQ(folder.Read("out/a.csv"), "old");
  EXPECT_FALSE(folder.Has("out/b.csv"));
  results.Commit();
  EXPECT_EQ(folder.Read("out/a.csv"), "new");
  EXPECT_THAT(folder.Names(), ElementsAre("out", "out/a.csv", "out/b.csv"));
}

TEST(ResultFiles, LeaveNothingWithoutACommit) {
  const test::TemporaryFolder folder;
  {
    ResultFiles results(folder.Path() / "out");
    WriteText(results.Add("a.csv"), "new");
    WriteText(results.AddElsewhere(folder.Path() / "p.htm"), "p");
    EXPECT_FALSE(folder.Has("p.htm"));
  }
  EXPECT_THAT(folder.Names(), IsEmpty());
}

TEST(ResultFiles, TakeAnotherNameAndRemoveOldFiles) {
  const test::TemporaryFolder folder;
  folder.Write("old.htm", "");
  ResultFiles results(folder.Path());
  const auto path = results.Add("a.htm");
  WriteText(path, "a");
  results.Rename(path, "b.htm");
  results.AddRemoval("old.htm");
  results.Commit();
  EXPECT_THAT(folder.Names(), ElementsAre("b.htm"));
}

TEST(ResultFiles, TellWhyTheyCannotBeWritten) {
  const test::TemporaryFolder folder;
  folder.Write("file", "");
  try {
    const ResultFiles results(folder.Path() / "file" / "out");
    FAIL() << "expected an error";
  } catch (const ResultError& error) {
    EXPECT_THAT(error.what(), HasSubstr("cannot be made: "));
  }
  EXPECT_THROW(ResultFile(folder.Path() / "no" / "where"), ResultError);
}

TEST(ResultFiles, TellAFullDevice) {
  ResultFile file("/dev/full");
  EXPECT_THROW(
      {
        file.Write("text");
        file.Close();
      },
      ResultError);
}

TEST(CsvWriter, WritesNumbersThatReadBackToTheSameBits) {
  const test::TemporaryFolder folder;
  ResultFile file(folder.Path() / "t.csv");
  CsvWriter writer(file);
  writer.Names({"a", "b"}).EndRecord();
  writer.Real(0.1).Real(1.0 / 3.0).Real(std::numeric_limits<double>::denorm_min());
  writer.Real(-1e300).Integer(-5).Flag(true).Empty(2).EndRecord();
  file.Close();
  EXPECT_EQ(folder.Read("t.csv"), "a,b\n0.1,0.3333333333333333,5e-324,-1e+300,-5,1,,\n");
}

TEST(CsvWriter, QuotesTextsThatNeedIt) {
  const test::TemporaryFolder folder;
  ResultFile file(folder.Path() / "t.csv");
  CsvWriter writer(file);
  writer.Text("plain").Text("a,b").Text("say \"x\"").Text("two\nlines").Text(" edge").EndRecord();
  file.Close();
  EXPECT_EQ(folder.Read("t.csv"), "plain,\"a,b\",\"say \"\"x\"\"\",\"two\nlines\",\" edge\"\n");
}

}  // namespace
}  // namespace cardo
