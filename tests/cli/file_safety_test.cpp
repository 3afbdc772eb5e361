#include "cli/job_scene.h"
#include "exit_status.h"
#include "result_files.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace cardo {
namespace {

namespace fs = std::filesystem;
using test::ProgramResult;
using test::RunProgram;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

const std::string kExample = std::string(CARDO_EXAMPLES_DIR) + "/camera-calibration";
const std::vector<std::string> kInputs = {
    "cameras.csv", "image_coordinates.csv", "images.csv", "job.toml", "points.csv"};

// A child process that does the work; what it answers and what it writes into the pipe.
struct ChildResult {
  int status;
  std::string err;
};

ChildResult InChild(const std::function<int(int pipe)>& work) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) return {-1, "no pipe"};
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    // Nothing of the parent's is run at the end.
    _exit(work(ends[1]));
  }
  close(ends[1]);
  ChildResult result{-1, {}};
  std::array<char, 4096> buffer{};
  for (ssize_t got = 0; (got = read(ends[0], buffer.data(), buffer.size())) > 0;) {
    result.err.append(buffer.data(), static_cast<std::size_t>(got));
  }
  close(ends[0]);
  int status = 0;
  if (child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status)) {
    result.status = WEXITSTATUS(status);
  }
  return result;
}

// The program inside a child.
int RunInto(int pipe, const std::vector<std::string>& arguments) {
  const ProgramResult result = RunProgram(arguments);
  const ssize_t written = write(pipe, result.err.data(), result.err.size());
  return written < 0 ? -1 : result.status;
}

// No file larger than this, as a disk with so many bytes left for each.
void LimitFiles(rlim_t bytes) {
  const rlimit limit{bytes, bytes};
  setrlimit(RLIMIT_FSIZE, &limit);
}

// A job folder that a test may change, and a folder for its results.
class FileSafetyTest : public ::testing::Test {
 protected:
  FileSafetyTest() {
    for (const std::string& name : kInputs) {
      fs::copy_file(fs::path(kExample) / name, fJob.Path() / name);
      fs::permissions(fJob.Path() / name, fs::perms::owner_all | fs::perms::others_read);
      fBefore.push_back(fJob.Read(name));
    }
  }

  [[nodiscard]] std::vector<std::string> Arguments(std::vector<std::string> more = {}) const {
    std::vector<std::string> arguments = {
        "adjust", fJob.String(), "--output", fOutput.String() + "/out"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }

  // The process goes on as the built program; it comes back only if that cannot be.
  [[nodiscard]] int BecomeProgram() const {
    const std::string output = fOutput.String() + "/out";
    execl(CARDO_BUNDLE_PROGRAM,
          "cardo-bundle",
          "adjust",
          fJob.String().c_str(),
          "--output",
          output.c_str(),
          static_cast<char*>(nullptr));
    return -1;
  }

  void ExpectInputsUnchanged() const {
    for (std::size_t i = 0; i < kInputs.size(); ++i) {
      EXPECT_TRUE(fJob.Read(kInputs[i]) == fBefore[i]) << kInputs[i];
    }
  }

  void ExpectRefused(const std::vector<std::string>& arguments, const std::string& message) const {
    const auto names = fOutput.Names();
    const ProgramResult result = RunProgram(arguments);
    EXPECT_EQ(result.status, kExitBadInput) << message;
    EXPECT_THAT(result.err, HasSubstr(message));
    EXPECT_EQ(fOutput.Names(), names);
    ExpectInputsUnchanged();
  }

  test::TemporaryFolder fJob;
  test::TemporaryFolder fOutput;
  std::vector<std::string> fBefore;
};

TEST_F(FileSafetyTest, InputThatIsALinkToAResultIsNotWrittenOver) {
  fOutput.Write("out/points.csv", fJob.Read("points.csv"));
  fs::remove(fJob.Path() / "points.csv");
  fs::create_symlink(fOutput.Path() / "out/points.csv", fJob.Path() / "points.csv");
  ExpectRefused(Arguments(), "out/points.csv\" is \"points.csv\" of the job");
}

TEST_F(FileSafetyTest, InputUnderAnotherNameIsNotWrittenOver) {
  fs::create_directory(fOutput.Path() / "out");
  fs::create_hard_link(fJob.Path() / "images.csv", fOutput.Path() / "out/summary.json");
  ExpectRefused(Arguments(), "out/summary.json\" is \"images.csv\" of the job");
  fs::remove(fOutput.Path() / "out/summary.json");
  fs::create_symlink(fJob.Path() / "job.toml", fOutput.Path() / "out/protocol-failed.htm");
  ExpectRefused(Arguments(), "out/protocol-failed.htm\" is \"job.toml\" of the job");
}

TEST_F(FileSafetyTest, ProtocolIsNotWrittenOverAnInput) {
  // The input lies elsewhere, and the job has a link to it.
  fOutput.Write("shared.csv", fJob.Read("cameras.csv"));
  fs::remove(fJob.Path() / "cameras.csv");
  fs::create_symlink(fOutput.Path() / "shared.csv", fJob.Path() / "cameras.csv");
  ExpectRefused(Arguments({"--protocol", fOutput.String() + "/shared.csv"}),
                "is an input of the job");
  ExpectRefused(Arguments({"--protocol", fOutput.String() + "/./x/../shared.csv"}),
                "is an input of the job");
  fs::create_symlink(fJob.Path() / "job.toml", fOutput.Path() / "run.htm");
  ExpectRefused(Arguments({"--protocol", fOutput.String() + "/run.htm"}), "is an input of the job");
  fs::create_directory_symlink(fJob.Path(), fOutput.Path() / "link");
  ExpectRefused(Arguments({"--protocol", fOutput.String() + "/link/images.csv"}),
                "is an input of the job");
  fOutput.Write("other/job.toml", "");
  ExpectRefused(Arguments({"--protocol", fOutput.String() + "/other/lines.csv"}),
                "is an input of another job");
}

TEST_F(FileSafetyTest, OutputFolderIsNotTheJobFolderUnderAnotherName) {
  fs::create_directory_symlink(fJob.Path(), fJob.Path() / "results");
  ExpectRefused({"adjust", fJob.String()}, "must not be the job folder itself");
  fs::create_directory(fOutput.Path() / "a");
  fs::create_directory_symlink(fJob.Path(), fOutput.Path() / "a/link");
  const std::string job = fJob.Path().filename().string();
  // The parent of the linked folder, not of the link.
  ExpectRefused({"adjust", fJob.String(), "--output", fOutput.String() + "/a/link/../" + job},
                "must not be the job folder itself");
  ExpectRefused({"adjust", fJob.String(), "--output", fJob.String() + "/new/.."},
                "must not be the job folder itself");
}

TEST_F(FileSafetyTest, ProtocolReplacesNoDevice) {
  ASSERT_EQ(mkfifo((fOutput.Path() / "pipe.htm").c_str(), 0600), 0);
  ExpectRefused(Arguments({"--protocol", fOutput.String() + "/pipe.htm"}),
                "must be a file, is a device or a pipe");
  ExpectRefused(Arguments({"--protocol", fOutput.String() + "/out/protocol-failed.htm"}),
                "is the name of another result");
}

TEST_F(FileSafetyTest, LinksAmongTheResultsAreReplacedAndNotFollowed) {
  fOutput.Write("precious", "kept");
  fs::create_directory(fOutput.Path() / "out");
  fs::create_symlink(fOutput.Path() / "precious", fOutput.Path() / "out/points.csv");
  fs::create_symlink(fOutput.Path() / "precious", fOutput.Path() / "out/protocol.htm");
  EXPECT_EQ(RunProgram(Arguments()).status, kExitOk);
  EXPECT_EQ(fOutput.Read("precious"), "kept");
  EXPECT_FALSE(fs::is_symlink(fOutput.Path() / "out/points.csv"));
  EXPECT_FALSE(fs::is_symlink(fOutput.Path() / "out/protocol.htm"));
}

TEST_F(FileSafetyTest, PipesAndLinksThatLeadNowhereAreNoTables) {
  fs::remove(fJob.Path() / "points.csv");
  ASSERT_EQ(mkfifo((fJob.Path() / "points.csv").c_str(), 0600), 0);
  EXPECT_THAT(RunProgram(Arguments()).err,
              HasSubstr("points.csv: is a device or a pipe, expected a table\n"));
  fs::remove(fJob.Path() / "points.csv");
  fs::create_symlink("/dev/zero", fJob.Path() / "points.csv");
  EXPECT_THAT(RunProgram(Arguments()).err, HasSubstr("points.csv: is a device or a pipe"));
  fs::remove(fJob.Path() / "points.csv");
  fs::create_symlink(fOutput.Path() / "nowhere", fJob.Path() / "points.csv");
  EXPECT_THAT(RunProgram(Arguments()).err, HasSubstr("points.csv: cannot be opened: "));
  fs::remove(fJob.Path() / "job.toml");
  ASSERT_EQ(mkfifo((fJob.Path() / "job.toml").c_str(), 0600), 0);
  const ProgramResult result = RunProgram(Arguments());
  EXPECT_EQ(result.status, kExitBadInput);
  EXPECT_THAT(result.err, HasSubstr("job.toml: is a device or a pipe, expected a file"));
  EXPECT_THAT(fOutput.Names(), IsEmpty());
}

// No text of the input is a path: ids are numbers, texts are shown.
TEST_F(FileSafetyTest, TextsOfTheInputReachNoFile) {
  const std::string target = fOutput.String() + "/reached";
  fOutput.Write("secret.csv", "secret");
  const ProgramResult titled =
      RunProgram(Arguments({"--set", "title=" + target, "--set", "image_unit=../../reached"}));
  EXPECT_EQ(titled.status, kExitOk) << titled.err;
  EXPECT_THAT(titled.out, HasSubstr(target));
  EXPECT_THAT(fOutput.Names(), Not(Contains("reached")));
  for (const std::string key : {"output", "protocol", "points", "include", "file"}) {
    const ProgramResult result = RunProgram(Arguments({"--set", key + "=" + target}));
    EXPECT_EQ(result.status, kExitBadInput);
    EXPECT_THAT(result.err, HasSubstr("unknown key"));
  }
  for (const std::string& text : {target,
                                  fOutput.String() + "/secret.csv",
                                  std::string("../x"),
                                  std::string("file:///etc/hostname"),
                                  std::string("@secret.csv"),
                                  std::string("|touch reached"),
                                  std::string("$(touch reached)")}) {
    fJob.Write("points.csv", "id,x,y,z\n\"" + text + "\",0,0,0\n");
    const ProgramResult result = RunProgram(Arguments());
    EXPECT_EQ(result.status, kExitBadInput);
    EXPECT_THAT(result.err, HasSubstr("points.csv:2:1: id must be"));
    EXPECT_THAT(result.err, Not(HasSubstr("secret\n")));
  }
  EXPECT_THAT(fOutput.Names(), Not(Contains("reached")));
  EXPECT_EQ(fOutput.Read("secret.csv"), "secret");
}

// A disk that fills at every size of file, until all fit: nothing or everything is there.
TEST_F(FileSafetyTest, FullDiskLeavesNothingAndIsTold) {
  bool passed = false;
  int failures = 0;
  for (rlim_t bytes = 1; !passed && bytes < (rlim_t{1} << 24U); bytes *= 4) {
    const ChildResult result = InChild([&](int pipe) {
      std::signal(SIGXFSZ, SIG_IGN);
      LimitFiles(bytes);
      return RunInto(pipe, Arguments());
    });
    passed = result.status == kExitOk;
    if (passed) break;
    ++failures;
    EXPECT_EQ(result.status, kExitRunFailed) << bytes;
    EXPECT_THAT(result.err, HasSubstr("\" cannot be written: "));
    EXPECT_THAT(fOutput.Names(), IsEmpty()) << bytes;
  }
  EXPECT_TRUE(passed);
  EXPECT_GE(failures, 5);
  EXPECT_TRUE(fOutput.Has("out/summary.json"));
  ExpectInputsUnchanged();
}

TEST_F(FileSafetyTest, FullDiskKeepsEarlierResults) {
  ASSERT_EQ(RunProgram(Arguments()).status, kExitOk);
  const auto names = fOutput.Names();
  const std::string table = fOutput.Read("out/image_coordinates.csv");
  const std::string protocol = fOutput.Read("out/protocol.htm");
  // The second limit lets the protocol pass, but not the table.
  ASSERT_LT(protocol.size(), table.size());
  for (const rlim_t bytes : {rlim_t{1000}, rlim_t{table.size() - 1}}) {
    const ChildResult result = InChild([&](int pipe) {
      std::signal(SIGXFSZ, SIG_IGN);
      LimitFiles(bytes);
      return RunInto(pipe, Arguments());
    });
    EXPECT_EQ(result.status, kExitRunFailed) << bytes;
    EXPECT_EQ(fOutput.Names(), names);
    EXPECT_TRUE(fOutput.Read("out/image_coordinates.csv") == table);
    EXPECT_TRUE(fOutput.Read("out/protocol.htm") == protocol);
  }
}

TEST_F(FileSafetyTest, FullDiskDuringAFailedRunTellsBoth) {
  const ChildResult result = InChild([&](int pipe) {
    std::signal(SIGXFSZ, SIG_IGN);
    LimitFiles(100);
    return RunInto(pipe, Arguments({"--set", "s0_limit=1e-9"}));
  });
  EXPECT_EQ(result.status, kExitRunFailed);
  EXPECT_THAT(result.err, HasSubstr("S0 is above s0_limit"));
  EXPECT_THAT(result.err, HasSubstr("protocol.htm\" cannot be written: 100 of "));
  EXPECT_THAT(fOutput.Names(), IsEmpty());
}

// The built program is not killed by the signal of the limit.
TEST_F(FileSafetyTest, ProgramSurvivesTheLimitOfItsFiles) {
  const test::TemporaryFolder counters;
  const ChildResult result = InChild([&](int pipe) {
    dup2(pipe, STDERR_FILENO);
    // Counters of an instrumented build go elsewhere, for they would not fit either.
    setenv("GCOV_PREFIX", counters.String().c_str(), 1);
    LimitFiles(10000);
    return BecomeProgram();
  });
  EXPECT_EQ(result.status, kExitRunFailed);
  EXPECT_THAT(result.err, HasSubstr("protocol.htm\" cannot be written: 10000 of "));
  EXPECT_THAT(fOutput.Names(), IsEmpty());
}

TEST_F(FileSafetyTest, OutputThatCannotBeShownIsTold) {
  const ChildResult result = InChild([&](int pipe) {
    dup2(pipe, STDERR_FILENO);
    dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO);
    execl(CARDO_BUNDLE_PROGRAM, "cardo-bundle", "--version", static_cast<char*>(nullptr));
    return -1;
  });
  EXPECT_EQ(result.status, kExitRunFailed);
  EXPECT_EQ(result.err, "cardo-bundle: the standard output cannot be written\n");
}

TEST_F(FileSafetyTest, ReaderWhoLeavesCostsNoResult) {
  const ChildResult result = InChild([&](int pipe) {
    dup2(pipe, STDERR_FILENO);
    int nobody[2];
    if (::pipe(nobody) != 0) return -1;
    dup2(nobody[1], STDOUT_FILENO);
    close(nobody[0]);
    close(nobody[1]);
    return BecomeProgram();
  });
  EXPECT_EQ(result.status, kExitRunFailed);
  EXPECT_THAT(result.err, HasSubstr("cardo-bundle: the standard output cannot be written\n"));
  EXPECT_TRUE(fOutput.Has("out/summary.json"));
  for (const std::string& name : fOutput.Names()) EXPECT_THAT(name, Not(HasSubstr(".part")));
}

TEST_F(FileSafetyTest, ProtocolMayBeANewFileOfTheCurrentFolder) {
  const fs::path before = fs::current_path();
  fs::current_path(fOutput.Path());
  const test::ProgramResult result = test::RunProgram(Arguments({"--protocol", "new.htm"}));
  fs::current_path(fJob.Path());
  ExpectRefused(Arguments({"--protocol", "lines.csv"}), "is an input of the job");
  fs::current_path(before);
  EXPECT_EQ(result.status, kExitOk) << result.err;
  EXPECT_TRUE(fOutput.Has("new.htm"));
}

// Told before the run, not after it.
TEST_F(FileSafetyTest, FoldersThatTakeNoFilesAreTold) {
  fs::permissions(fJob.Path(), fs::perms::all);
  fs::permissions(fOutput.Path(), fs::perms::all);
  fs::create_directory(fOutput.Path() / "closed");
  fs::permissions(fOutput.Path() / "closed", fs::perms(0555));
  const auto adjust = [&](const std::string& output, const std::string& protocol) {
    return InChild([&](int pipe) {
      // Permissions do not bind the superuser.
      if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return -1;
      int iterations = 0;
      const ProgramResult result =
          RunProgram({"adjust",
                      fJob.String(),
                      "--output",
                      fOutput.String() + output,
                      "--protocol",
                      fOutput.String() + protocol},
                     {.afterIteration = [&](const auto&) { ++iterations; }});
      const ssize_t written = write(pipe, result.err.data(), result.err.size());
      return written < 0 || iterations != 0 ? -1 : result.status;
    });
  };
  const auto names = fOutput.Names();
  const ChildResult folder = adjust("/closed", "/run.htm");
  EXPECT_EQ(folder.status, kExitRunFailed);
  EXPECT_THAT(folder.err, HasSubstr("/closed\" cannot be written to: Permission denied"));
  const ChildResult below = adjust("/closed/a/b", "/run.htm");
  EXPECT_EQ(below.status, kExitRunFailed);
  EXPECT_THAT(below.err, HasSubstr("/closed/a/b\" cannot be made: Permission denied"));
  const ChildResult protocol = adjust("/a/b", "/closed/run.htm");
  EXPECT_EQ(protocol.status, kExitRunFailed);
  EXPECT_THAT(protocol.err, HasSubstr("/closed/run.htm\" cannot be written: Permission denied"));
  EXPECT_EQ(fOutput.Names(), names);
}

TEST_F(FileSafetyTest, ResultThatCannotBeReplacedLeavesAllOthers) {
  ASSERT_EQ(RunProgram(Arguments({"--set", "max_iterations=1"})).status, kExitOk);
  fs::remove(fOutput.Path() / "out/summary.json");
  fs::remove(fOutput.Path() / "out/images.csv");
  fOutput.Write("out/summary.json/occupied", "");
  const auto names = fOutput.Names();
  const std::string points = fOutput.Read("out/points.csv");
  const ProgramResult result = RunProgram(Arguments());
  EXPECT_EQ(result.status, kExitRunFailed);
  EXPECT_THAT(result.err, HasSubstr("summary.json\" cannot be replaced: Is a directory"));
  EXPECT_EQ(fOutput.Names(), names);
  EXPECT_TRUE(fOutput.Read("out/points.csv") == points);
}

TEST(ResultFiles, TemporaryNamesAreNewFiles) {
  const test::TemporaryFolder folder;
  folder.Write("precious", "kept");
  fs::path first;
  {
    ResultFiles results(folder.Path());
    first = results.Add("a.csv");
    EXPECT_NE(results.Add("a.csv"), first);
  }
  // Somebody knows the name that would come next.
  fs::create_symlink(folder.Path() / "precious", first);
  ResultFiles results(folder.Path());
  EXPECT_NE(results.Add("a.csv"), first);
  EXPECT_EQ(folder.Read("precious"), "kept");
}

TEST(ResultFiles, TakeTheLongestName) {
  const test::TemporaryFolder folder;
  const std::string name(255, 'x');
  ResultFiles results(folder.Path());
  ResultFile(results.Add(name)).Close();
  results.Commit();
  EXPECT_THAT(folder.Names(), ElementsAre(name));
}

TEST(ResultFiles, RemoveTheFoldersThatTheyMade) {
  const test::TemporaryFolder folder;
  folder.Write("a/old", "");
  { const ResultFiles results(folder.Path() / "a/b/c/"); }
  { const ResultFiles results(folder.Path() / "d/../e"); }
  EXPECT_THAT(folder.Names(), ElementsAre("a", "a/old"));
}

}  // namespace
}  // namespace cardo
