// Protocols that cannot be written. The run goes on as if nothing were, and the protocol function
// receives everything; the file holds the beginning of it that found room.

#include "faults/job_picture.h"
#include "golden/golden_run.h"
#include "golden/networks.h"
#include "golden/scene.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace faults {
namespace {

namespace fs = std::filesystem;
using golden::CollectText;
using golden::Job;

struct Outcome {
  int status = -1;
  std::string texts;
  std::string picture;
};

Outcome RunTo(const std::string& file,
              void (*build)(void*),
              XYZ_ProgressCallback progress = nullptr,
              void* userData = nullptr) {
  Outcome outcome;
  const Job job(XYZ_CreateJob(file.c_str()));
  build(job.get());
  XYZ_SetProtocolCallback(job.get(), CollectText, &outcome.texts);
  XYZ_SetProgressCallback(job.get(), progress, userData);
  outcome.status = XYZ_CalcBundle(job.get());
  outcome.picture = PictureOf(job.get());
  return outcome;
}

std::string Contents(const std::string& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios_base::binary).rdbuf();
  return text.str();
}

class ProtocolFailures : public ::testing::Test {
 protected:
  ProtocolFailures()
      : fFolder((fs::temp_directory_path() / ("cardo_faults_" + std::to_string(::getpid())))) {
    fs::create_directories(fFolder);
  }
  ~ProtocolFailures() override {
    std::error_code ignored;
    fs::remove_all(fFolder, ignored);
  }

  [[nodiscard]] std::string Path(const std::string& name) const {
    return (fFolder / name).string();
  }

  // Holds a run to a file that takes nothing, or not all, against a run to a good one.
  void ExpectUndisturbed(const Outcome& outcome, void (*build)(void*)) const {
    const std::string good = Path("good.htm");
    const Outcome wanted = RunTo(good, build);
    ASSERT_EQ(Contents(good), wanted.texts);
    EXPECT_EQ(outcome.status, wanted.status);
    EXPECT_EQ(outcome.picture, wanted.picture);
    EXPECT_EQ(golden::Masked(outcome.texts), golden::Masked(wanted.texts));
  }

  const fs::path fFolder;
};

TEST_F(ProtocolFailures, OfNamesThatCannotBeOpened) {
  for (const std::string& name : {std::string(),
                                  Path("missing") + "/protocol.htm",
                                  fFolder.string(),
                                  std::string("/"),
                                  Path(std::string(300, 'n')),
                                  Path(std::string(100000, 'n')),
                                  std::string("/dev/null/protocol.htm")}) {
    SCOPED_TRACE(name.substr(0, 80));
    ExpectUndisturbed(RunTo(name, golden::BuildEverything), golden::BuildEverything);
  }
  EXPECT_FALSE(fs::exists(Path("missing")));
}

TEST_F(ProtocolFailures, OfUnusualNamesAreNone) {
  for (const std::string& name :
       {Path("with blanks and % signs.htm"), Path("with\nline end"), Path("\xE4\xF6\xFC.htm")}) {
    const Outcome outcome = RunTo(name, golden::BuildMeasured);
    EXPECT_EQ(Contents(name), outcome.texts) << name;
    ExpectUndisturbed(outcome, golden::BuildMeasured);
  }
}

TEST_F(ProtocolFailures, NullNamesAreRefusedAndKeepTheOldOne) {
  EXPECT_EQ(XYZ_CreateJob(nullptr), nullptr);
  const Job job(XYZ_CreateJob(Path("kept.htm").c_str()));
  EXPECT_EQ(XYZ_SetNewProtocolFile(job.get(), nullptr), eXYZ_NullPointer);
  golden::BuildMeasured(job.get());
  EXPECT_EQ(XYZ_CalcBundle(job.get()), eXYZ_Ok);
  EXPECT_FALSE(Contents(Path("kept.htm")).empty());
}

TEST_F(ProtocolFailures, OfAFullDeviceDisturbNothing) {
  ExpectUndisturbed(RunTo("/dev/full", golden::BuildEverything), golden::BuildEverything);
}

TEST_F(ProtocolFailures, OfRunsThatFailKeepTheStatus) {
  const auto build = [](void* job) {
    golden::BuildMeasured(job);
    golden::AddPoint(job, 7, golden::PlatePoint(7));
    XYZ_SetParam(job, eXYZ_ParamSolvabilityCheck, 0);
  };
  for (const char* name : {"/dev/full", "", "/dev/null/protocol.htm"}) {
    const Outcome outcome = RunTo(name, build);
    EXPECT_EQ(outcome.status, eXYZ_SingularSystem);
    ExpectUndisturbed(outcome, build);
  }
}

int RemoveFolder(void* /*job*/, sXYZ_CBProgressInfo* /*info*/, void* userData) {
  std::error_code ignored;
  fs::remove_all(*static_cast<const fs::path*>(userData), ignored);
  return 0;
}

TEST_F(ProtocolFailures, OfAFolderThatVanishesInTheRunDisturbNothing) {
  fs::path folder = fFolder / "vanishing";
  fs::create_directories(folder);
  const Outcome outcome =
      RunTo((folder / "protocol.htm").string(), golden::BuildEverything, RemoveFolder, &folder);
  EXPECT_FALSE(fs::exists(folder));
  ExpectUndisturbed(outcome, golden::BuildEverything);
}

// Puts a descriptor that nobody can write to in the place of the protocol's.
int CloseFile(void* /*job*/, sXYZ_CBProgressInfo* info, void* userData) {
  if (info->Iteration != 2) return 0;
  const auto& file = *static_cast<const fs::path*>(userData);
  int found = -1;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;
    if (fs::read_symlink(entry.path(), ignored) == file) found = std::stoi(entry.path().filename());
  }
  EXPECT_GE(found, 0);
  const int unwritable = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(::dup2(unwritable, found), found);
  ::close(unwritable);
  return 0;
}

TEST_F(ProtocolFailures, OfAFileClosedFromOutsideDisturbNothing) {
  fs::path file = fs::canonical(fFolder) / "closed.htm";
  const Outcome outcome = RunTo(file.string(), golden::BuildEverything, CloseFile, &file);
  const std::string written = Contents(file.string());
  EXPECT_GT(written.size(), 0U);
  EXPECT_LT(written.size(), outcome.texts.size());
  EXPECT_TRUE(outcome.texts.starts_with(written));
  ExpectUndisturbed(outcome, golden::BuildEverything);
}

// In a process of its own: no file may grow beyond n bytes, n over the length of the protocol in
// steps. The answer is the number of the check that failed, or 0.
int RunWithFileLimits(const std::string& file, const Outcome& wanted, std::size_t step) {
  if (std::signal(SIGXFSZ, SIG_IGN) == SIG_ERR) return 1;
  rlimit limit{};
  if (::getrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
  for (std::size_t n = 0; n <= wanted.texts.size() + step; n += step) {
    limit.rlim_cur = n;
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 3;
    const Outcome outcome = RunTo(file, golden::BuildMeasured);
    if (outcome.status != wanted.status) return 4;
    if (outcome.picture != wanted.picture) return 5;
    if (!outcome.texts.ends_with("</html>\n")) return 6;
    const std::string written = Contents(file);
    if (written.size() != std::min(n, outcome.texts.size())) return 7;
    if (!outcome.texts.starts_with(written)) return 8;
  }
  return 0;
}

TEST_F(ProtocolFailures, OfADiskThatIsFullAfterAnyNumberOfBytesLeaveABeginning) {
  const Outcome wanted = RunTo(Path("good.htm"), golden::BuildMeasured);
  ASSERT_EQ(wanted.status, eXYZ_Ok);
  ASSERT_GT(wanted.texts.size(), 1000U);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) ::_exit(RunWithFileLimits(Path("limited.htm"), wanted, 3));
  int state = 0;
  ASSERT_EQ(::waitpid(child, &state, 0), child);
  ASSERT_TRUE(WIFEXITED(state));
  EXPECT_EQ(WEXITSTATUS(state), 0);
}

}  // namespace
}  // namespace faults
