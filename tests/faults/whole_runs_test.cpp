// Whole runs in which one allocation fails, or all from one on. The network has every kind of
// element, gross errors of several sizes, and its protocol in a file and in a function.

#include "faults/failing_allocations.h"
#include "faults/job_picture.h"
#include "golden/networks.h"
#include "golden/scene.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace faults {
namespace {

using golden::Job;
using Memory = FailingAllocations::Memory;

// Every allocation up to kExhaustive fails once; behind it one of every stride, at a place within
// the stride that a seeded generator chooses, so that repeated runs of the program look at the
// same ones and no period of the allocations is missed systematically.
constexpr std::uint64_t kExhaustive = 600;
constexpr std::uint64_t kStrides = 1200;

class Places {
 public:
  explicit Places(std::uint64_t last) {
    const std::uint64_t stride = last > kExhaustive ? (last - kExhaustive) / kStrides + 1 : 1;
    for (std::uint64_t k = 1; k <= std::min(last, kExhaustive); ++k) fPlaces.push_back(k);
    for (std::uint64_t first = kExhaustive + 1; first <= last; first += stride)
      fPlaces.push_back(std::min(last, first + Next() % stride));
  }
  [[nodiscard]] auto begin() const { return fPlaces.begin(); }
  [[nodiscard]] auto end() const { return fPlaces.end(); }

 private:
  std::uint64_t Next() {
    fState = fState * 6364136223846793005U + 1442695040888963407U;
    return fState >> 33U;
  }

  std::uint64_t fState = 6;
  std::vector<std::uint64_t> fPlaces;
};

// What the callbacks of a run have seen.
struct Witness {
  std::string texts;
  std::vector<std::string> values;  // of the groups, at each iteration
};

void CollectText(void* /*job*/, char* text, void* userData) {
  const OwnAllocations own;
  static_cast<Witness*>(userData)->texts += text;
}

int CollectValues(void* job, sXYZ_CBProgressInfo* /*info*/, void* userData) {
  const OwnAllocations own;
  static_cast<Witness*>(userData)->values.push_back(ValuesOf(job));
  return 0;
}

class WholeRuns : public ::testing::Test {
 protected:
  ~WholeRuns() override {
    std::error_code ignored;
    std::filesystem::remove(fFile, ignored);
  }

  Job MakeJob(void (*build)(void*), Witness& witness) const {
    // A run without memory for its writer leaves no file, not even an empty one.
    std::filesystem::remove(fFile);
    Job job(XYZ_CreateJob(fFile.c_str()));
    build(job.get());
    witness.values.push_back(ValuesOf(job.get()));
    XYZ_SetProtocolCallback(job.get(), CollectText, &witness);
    XYZ_SetProgressCallback(job.get(), CollectValues, &witness);
    return job;
  }

  [[nodiscard]] std::string File() const {
    std::ostringstream text;
    text << std::ifstream(fFile, std::ios_base::binary).rdbuf();
    return text.str();
  }

  void Sweep(void (*build)(void*), int status, Memory memory);

  const std::string fFile = (std::filesystem::temp_directory_path() /
                             ("cardo_faults_runs_" + std::to_string(::getpid()) + ".htm"))
                                .string();
};

void WholeRuns::Sweep(void (*build)(void*), int status, Memory memory) {
  std::string wanted;
  Witness normal;
  std::uint64_t allocations = 0;
  {
    const Job job = MakeJob(build, normal);
    int found = -1;
    allocations = AllocationsOf([&] { found = XYZ_CalcBundle(job.get()); });
    ASSERT_EQ(found, status);
    wanted = PictureOf(job.get());
  }
  RecordProperty("allocations", std::to_string(allocations));
  ASSERT_GT(allocations, 100U);

  std::size_t lastIteration = 0;
  for (const std::uint64_t k : Places(allocations)) {
    SCOPED_TRACE(::testing::Message() << "allocation " << k << " of " << allocations);
    const std::int64_t live = LiveAllocations();
    {
      Witness witness;
      const Job job = MakeJob(build, witness);
      int found = -1;
      {
        const FailingAllocations failing(k, memory);
        found = XYZ_CalcBundle(job.get());
        ASSERT_TRUE(failing.Reached());
      }
      EXPECT_EQ(File(), witness.texts) << "a text is missing in the file";
      // With memory back at once the protocol is closed, unless the closing itself was hit.
      if (memory == Memory::ReturnsAtOnce) {
        EXPECT_TRUE(witness.texts.empty() || witness.texts.ends_with("</html>\n") ||
                    k + 20 > allocations)
            << "the protocol has no end";
      }
      if (found == eXYZ_CalcFailed) {
        // No group is half changed: the values are those of the start or of an iteration that
        // undisturbed runs pass as well, and a later failure never throws further back.
        const std::string values = ValuesOf(job.get());
        const auto place = std::find(normal.values.begin(), normal.values.end(), values);
        ASSERT_NE(place, normal.values.end()) << "the groups have values of no iteration";
        const auto iteration = static_cast<std::size_t>(place - normal.values.begin());
        EXPECT_GE(iteration, lastIteration);
        lastIteration = iteration;
      } else {
        // The library did without this block: then nothing may be missing.
        EXPECT_EQ(found, status);
        EXPECT_EQ(PictureOf(job.get()), wanted);
      }
      PictureOf(job.get());
    }
    ASSERT_EQ(LiveAllocations(), live) << "something leaks";
    if (HasFailure()) return;
  }
}

TEST_F(WholeRuns, SurviveEveryAllocationThatFailsOnce) {
  Sweep(golden::BuildEverything, eXYZ_Ok, Memory::ReturnsAtOnce);
}

TEST_F(WholeRuns, SurviveMemoryThatStaysExhausted) {
  Sweep(golden::BuildEverything, eXYZ_Ok, Memory::StaysExhausted);
}

TEST_F(WholeRuns, OfAFreeNetworkSurviveFailingAllocations) {
  for (const Memory memory : {Memory::ReturnsAtOnce, Memory::StaysExhausted})
    Sweep(golden::BuildFreePlate, eXYZ_Ok, memory);
}

// A run that fails of itself writes its failure with the memory that is left.
TEST_F(WholeRuns, ThatEndSingularSurviveFailingAllocations) {
  const auto build = [](void* job) {
    golden::BuildMeasured(job);
    golden::AddPoint(job, 7, golden::PlatePoint(7));
    XYZ_SetParam(job, eXYZ_ParamSolvabilityCheck, 0);
  };
  Sweep(build, eXYZ_SingularSystem, Memory::ReturnsAtOnce);
  Sweep(build, eXYZ_SingularSystem, Memory::StaysExhausted);
}

// A second run on a job whose first ran out of memory is not meant to give sense, but to end.
TEST_F(WholeRuns, MayFollowARunWithoutMemory) {
  for (std::uint64_t k = 1; k < 3000; k += 97) {
    const std::int64_t live = LiveAllocations();
    {
      Witness witness;
      const Job job = MakeJob(golden::BuildEverything, witness);
      int first = -1;
      {
        const FailingAllocations failing(k);
        first = XYZ_CalcBundle(job.get());
      }
      EXPECT_TRUE(first == eXYZ_Ok || first == eXYZ_CalcFailed) << first;
      EXPECT_GE(XYZ_CalcBundle(job.get()), 0);
      PictureOf(job.get());
    }
    ASSERT_EQ(LiveAllocations(), live) << k;
  }
}

// A run without iterations writes the tables of what is there: nothing in it may be taken for a
// part of the system that the first run numbered and never solved.
TEST_F(WholeRuns, MayBeFollowedByOneWithoutIterations) {
  unsigned failed = 0;
  for (std::uint64_t k = 1; k < 3000; k += 7) {
    SCOPED_TRACE(k);
    Witness witness;
    const Job job = MakeJob(golden::BuildEverything, witness);
    {
      const FailingAllocations failing(k);
      failed += XYZ_CalcBundle(job.get()) == eXYZ_Ok ? 0U : 1U;
    }
    XYZ_SetParam(job.get(), eXYZ_ParamMaxIterations, 0);
    witness.texts.clear();
    EXPECT_EQ(XYZ_CalcBundle(job.get()), eXYZ_Ok);
    EXPECT_TRUE(witness.texts.ends_with("</html>\n"));
    PictureOf(job.get());
  }
  EXPECT_GT(failed, 100U);
}

}  // namespace
}  // namespace faults
