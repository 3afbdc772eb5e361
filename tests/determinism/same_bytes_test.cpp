// One result for one input: the bits of every figure and the bytes of the protocol, whatever else
// the process has done, wherever its memory lies and whatever language its numbers speak.

#include "determinism/samples.h"
#include "golden/golden_run.h"
#include "golden/networks.h"
#include "reference/network_builder.h"
#include "support/comma_locale.h"
#include "support/job.h"

#include <alloca.h>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace determinism {
namespace {

struct Case {
  std::string name;
  Steps steps;
};

std::vector<Case> Cases() {
  std::vector<Case> cases;
  for (const Sample& sample : Samples()) cases.push_back({sample.name, sample.steps()});
  cases.push_back({"Everything", {golden::BuildEverything}});
  cases.push_back({"FixedGroups", {golden::BuildFixedGroups}});
  cases.push_back({"Measured", {golden::BuildMeasured}});
  cases.push_back({"FreePlate", {golden::BuildFreePlate}});
  cases.push_back({"DatumMissing", {[](void* job) {
                     golden::BuildFreePlate(job);
                     XYZ_SetParam(job, eXYZ_ParamDatum, 0);
                   }}});
  return cases;
}

class SameBytes : public testing::TestWithParam<Case> {
 protected:
  // A run before anything unusual happens.
  SameBytes() : fPlain(RunSteps(GetParam().steps)) {}

  void ExpectSame(const Outcome& run) const {
    EXPECT_EQ(run.status, fPlain.status);
    EXPECT_FALSE(fPlain.protocol.empty());
    EXPECT_EQ(golden::Masked(run.protocol), golden::Masked(fPlain.protocol));
    EXPECT_EQ(ToText(run.figures), ToText(fPlain.figures));
  }

  Outcome fPlain;
};

INSTANTIATE_TEST_SUITE_P(Networks, SameBytes, testing::ValuesIn(Cases()), [](const auto& instance) {
  return instance.param.name;
});

TEST_P(SameBytes, SecondJobRepeatsTheFirst) { ExpectSame(RunSteps(GetParam().steps)); }

TEST_P(SameBytes, JobsOfOtherNetworksBetweenThemChangeNothing) {
  for (const Case& other : Cases())
    if (other.name != GetParam().name) {
      EXPECT_NE(RunSteps(other.steps).status, -1);
    }
  ExpectSame(RunSteps(GetParam().steps));
}

// Both languages of numbers: that of the C library and that of the streams.
TEST_P(SameBytes, GermanLocaleOfTheProcessChangesNothing) {
  ::setenv("LOCPATH", CARDO_LOCALE_DIR, 1);
  ASSERT_NE(std::setlocale(LC_ALL, "de_DE"), nullptr) << CARDO_LOCALE_DIR;
  char number[16];
  std::snprintf(number, sizeof number, "%.1f", 0.5);
  Outcome run;
  {
    const vermo::test::CommaLocale streams;
    // Replacing the global locale of the streams may have reset that of the C library.
    std::setlocale(LC_ALL, "de_DE");
    run = RunSteps(GetParam().steps);
  }
  std::setlocale(LC_ALL, "C");
  EXPECT_STREQ(number, "0,5");
  ExpectSame(run);
}

// So much of the stack, with whatever stands in it, lies between the caller and the run.
[[gnu::noinline]] Outcome DeepInTheStack(const Steps& steps, std::size_t bytes, int value) {
  void* const gap = alloca(bytes);
  std::memset(gap, value, bytes);
  // The compiler has to assume that someone reads the gap.
  asm volatile("" : : "r"(gap) : "memory");
  return RunSteps(steps);
}

TEST_P(SameBytes, StackAndHeapWithOtherAddressesAndOldContentsChangeNothing) {
  reference::Random random(20);
  for (int turn = 0; turn < 6; ++turn) {
    // Blocks of all sizes, filled, every second given back: the run's memory comes from between.
    std::vector<std::unique_ptr<char[]>> blocks;
    for (int i = 0; i < 400; ++i) {
      const std::size_t size = 1 + random.Below(i % 10 == 0 ? 40000 : 600);
      blocks.push_back(std::make_unique<char[]>(size));
      std::memset(blocks.back().get(), turn % 2 == 0 ? 0xFF : 0x3C, size);
    }
    for (std::size_t i = 0; i < blocks.size(); i += 2) blocks[i].reset();
    ExpectSame(
        DeepInTheStack(GetParam().steps, 1 + random.Below(200000), turn % 2 == 0 ? 0xA5 : 0));
  }
}

TEST_P(SameBytes, AnotherThreadChangesNothing) {
  Outcome run;
  std::thread([&] { run = RunSteps(GetParam().steps); }).join();
  ExpectSame(run);
}

// A job that is filled while others exist, runs after others have run and died.
TEST_P(SameBytes, JobsThatLiveAtTheSameTimeChangeNothing) {
  std::vector<vermo::test::Job> jobs;
  for (int i = 0; i < 3; ++i) {
    jobs.emplace_back(XYZ_CreateJob("determinism.htm"));
    for (const auto& step : GetParam().steps) step(jobs.back().get());
  }
  EXPECT_EQ(XYZ_CalcBundle(jobs[0].get()), fPlain.status);
  jobs.erase(jobs.begin());
  const int status = XYZ_CalcBundle(jobs[1].get());
  EXPECT_EQ(ToText(ReadFigures(jobs[1].get(), status)), ToText(fPlain.figures));
}

}  // namespace
}  // namespace determinism
