// Many jobs on many threads at once, each with its own callbacks, against the same jobs one after
// the other.

#include "determinism/samples.h"
#include "golden/golden_run.h"
#include "golden/networks.h"
#include "golden/scene.h"
#include "support/job.h"

#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using determinism::Figures;
using determinism::Sample;
using determinism::Steps;
using vermo::test::Job;

constexpr int kThreads = 8;
constexpr int kJobsPerThread = 6;

// A network, and the iteration in which its progress function cancels; 0 never.
struct Task {
  Steps steps;
  int cancelIn = 0;
};

std::vector<Task> Tasks() {
  std::vector<Task> tasks;
  for (const Sample& sample : determinism::Samples()) tasks.push_back({sample.steps(), 0});
  tasks.push_back({{golden::BuildEverything}, 0});
  tasks.push_back({{golden::BuildMeasured}, 0});
  tasks.push_back({{golden::BuildPlate}, 2});
  // Singular: nothing tells where the point is.
  tasks.push_back({{[](void* job) {
                     golden::BuildMeasured(job);
                     golden::AddPoint(job, 7, golden::PlatePoint(7));
                     XYZ_SetParam(job, eXYZ_ParamSolvabilityCheck, 0);
                   }},
                   0});
  return tasks;
}

struct Result {
  int status = -1;
  int checked = -1;
  std::string figures;
  std::string protocol;
  int iterations = 0;
  // Calls that came for another job or on another thread.
  int strays = 0;
};

// What the callbacks of one job know.
struct Listener {
  void* job = nullptr;
  std::thread::id thread;
  int cancelIn = 0;
  Result* result = nullptr;

  void Check(const void* of) const {
    if (of != job || std::this_thread::get_id() != thread) ++result->strays;
  }
};

int Progress(void* job, sXYZ_CBProgressInfo* info, void* userData) {
  auto& listener = *static_cast<Listener*>(userData);
  listener.Check(job);
  listener.result->iterations = info->Iteration;
  return info->Iteration == listener.cancelIn ? 1 : 0;
}

void Protocol(void* job, char* text, void* userData) {
  auto& listener = *static_cast<Listener*>(userData);
  listener.Check(job);
  listener.result->protocol += text;
}

Result RunTask(const Task& task, const std::string& protocolFile) {
  Result result;
  const Job job(XYZ_CreateJob(protocolFile.c_str()));
  Listener listener{job.get(), std::this_thread::get_id(), task.cancelIn, &result};
  XYZ_SetProgressCallback(job.get(), Progress, &listener);
  XYZ_SetProtocolCallback(job.get(), Protocol, &listener);
  for (const auto& step : task.steps) step(job.get());
  result.checked = XYZ_CheckSettings(job.get());
  result.status = XYZ_CalcBundle(job.get());
  result.figures = determinism::ToText(determinism::ReadFigures(job.get(), result.status));
  result.protocol = golden::Masked(result.protocol);
  return result;
}

void SetLanguage(int language) {
  const Job job(XYZ_CreateJob("unused.htm"));
  XYZ_SetParam(job.get(), eXYZ_ParamLanguage, language);
}

std::string FileOf(int thread) {
  return "threads_" + std::to_string(::getpid()) + "_" + std::to_string(thread) + ".htm";
}

// All threads start when the last is ready.
template <typename Work>
void OnThreads(Work work) {
  std::atomic<int> waiting = kThreads;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&, i] {
      --waiting;
      while (waiting.load() > 0) std::this_thread::yield();
      work(i);
    });
  for (std::thread& thread : threads) thread.join();
}

class ManyJobs : public testing::Test {
 protected:
  ManyJobs() {
    for (const Task& task : fTasks) fAlone.push_back(RunTask(task, FileOf(-1)));
  }
  ~ManyJobs() override {
    SetLanguage(1);
    for (int i = -1; i < kThreads; ++i) ::unlink(FileOf(i).c_str());
  }

  // Every thread begins with another task, so that all kinds meet all others.
  std::vector<std::vector<Result>> RunAll() {
    std::vector<std::vector<Result>> results(kThreads);
    OnThreads([&](int thread) {
      for (int i = 0; i < kJobsPerThread; ++i)
        results[static_cast<std::size_t>(thread)].push_back(
            RunTask(fTasks[TaskOf(thread, i)], FileOf(thread)));
    });
    return results;
  }
  template <typename Check>
  void ForAll(const std::vector<std::vector<Result>>& results, Check check) const {
    for (int thread = 0; thread < kThreads; ++thread)
      for (int i = 0; i < kJobsPerThread; ++i) {
        const Result& result =
            results[static_cast<std::size_t>(thread)][static_cast<std::size_t>(i)];
        const Result& alone = fAlone[TaskOf(thread, i)];
        SCOPED_TRACE("thread " + std::to_string(thread) + ", job " + std::to_string(i));
        EXPECT_EQ(result.strays, 0);
        EXPECT_EQ(result.status, alone.status);
        EXPECT_EQ(result.checked, alone.checked);
        EXPECT_EQ(result.iterations, alone.iterations);
        EXPECT_EQ(result.figures, alone.figures);
        check(result, alone);
      }
  }
  [[nodiscard]] std::size_t TaskOf(int thread, int job) const {
    return static_cast<std::size_t>(thread + job) % fTasks.size();
  }

  std::vector<Task> fTasks = Tasks();
  std::vector<Result> fAlone;
};

TEST_F(ManyJobs, AloneTheyEndAsTheyShould) {
  EXPECT_EQ(fAlone[0].status, eXYZ_Ok);
  EXPECT_EQ(fAlone[6].status, eXYZ_CalcFailed);
  EXPECT_EQ(fAlone[6].iterations, 2);
  EXPECT_EQ(fAlone[7].status, eXYZ_SingularSystem);
}

TEST_F(ManyJobs, OnManyThreadsGiveTheBitsAndTheProtocolOfOneAlone) {
  ForAll(RunAll(), [](const Result& result, const Result& alone) {
    EXPECT_EQ(result.protocol, alone.protocol);
  });
}

TEST_F(ManyJobs, LanguageSetBeforeTheThreadsStartIsThatOfAllProtocols) {
  SetLanguage(2);
  fAlone.clear();
  for (const Task& task : fTasks) fAlone.push_back(RunTask(task, FileOf(-1)));
  ForAll(RunAll(), [](const Result& result, const Result& alone) {
    EXPECT_NE(result.protocol.find("adjustment"), std::string::npos);
    EXPECT_EQ(result.protocol, alone.protocol);
  });
}

// A protocol may then speak both languages; its numbers and those of the records stay.
TEST_F(ManyJobs, LanguageChangedDuringTheRunsChangesNoResult) {
  std::atomic<bool> done = false;
  std::atomic<int> changes = 0;
  std::thread changing([&] {
    const Job job(XYZ_CreateJob("unused.htm"));
    while (!done.load()) {
      XYZ_SetParam(job.get(), eXYZ_ParamLanguage, 1 + changes % 2);
      int language = 0;
      XYZ_GetParam(job.get(), eXYZ_ParamLanguage, &language);
      if (language != 1 + changes % 2) break;
      ++changes;
      std::this_thread::yield();
    }
  });
  const auto results = RunAll();
  done = true;
  changing.join();
  EXPECT_GT(changes.load(), 0);
  ForAll(results, [](const Result& result, const Result&) {
    EXPECT_NE(result.protocol.find("</html>"), std::string::npos);
  });
}

// A job belongs to no thread; it is used by one at a time.
TEST_F(ManyJobs, MadeOnOneThreadRunOnAnotherAndDestroyedOnAThird) {
  std::vector<void*> jobs(kThreads);
  OnThreads([&](int thread) {
    void* job = XYZ_CreateJob(FileOf(thread).c_str());
    for (const auto& step : fTasks[TaskOf(thread, 0)].steps) step(job);
    jobs[static_cast<std::size_t>(thread)] = job;
  });
  std::vector<std::string> figures(kThreads);
  OnThreads([&](int thread) {
    // The jobs of task 6 are cancelled by their own listener; here they run to their end.
    if (TaskOf((thread + 1) % kThreads, 0) == 6) return;
    void* job = jobs[static_cast<std::size_t>((thread + 1) % kThreads)];
    const int status = XYZ_CalcBundle(job);
    figures[static_cast<std::size_t>((thread + 1) % kThreads)] =
        determinism::ToText(determinism::ReadFigures(job, status));
  });
  OnThreads([&](int thread) {
    EXPECT_EQ(XYZ_DestroyJob(jobs[static_cast<std::size_t>((thread + 2) % kThreads)]), 0);
  });
  for (int thread = 0; thread < kThreads; ++thread)
    if (TaskOf(thread, 0) != 6) {
      EXPECT_EQ(figures[static_cast<std::size_t>(thread)], fAlone[TaskOf(thread, 0)].figures);
    }
}

// A callback may use other jobs, here a whole run of one.
TEST_F(ManyJobs, RunInsideTheCallbackOfAnotherRunDisturbsNeither) {
  struct Nested {
    const Task* task;
    std::string file;
    std::string figures;
  };
  const auto runInside = [](void*, sXYZ_CBProgressInfo* info, void* userData) {
    auto& nested = *static_cast<Nested*>(userData);
    if (info->Iteration == 2) nested.figures = RunTask(*nested.task, nested.file).figures;
    return 0;
  };
  OnThreads([&](int thread) {
    Nested nested{&fTasks[5], FileOf(thread), {}};
    const Job job(XYZ_CreateJob("/dev/null"));
    XYZ_SetProgressCallback(job.get(), runInside, &nested);
    for (const auto& step : fTasks[3].steps) step(job.get());
    const int status = XYZ_CalcBundle(job.get());
    EXPECT_EQ(determinism::ToText(determinism::ReadFigures(job.get(), status)), fAlone[3].figures);
    EXPECT_EQ(nested.figures, fAlone[5].figures);
  });
}

TEST(FirstCalls, OnManyThreadsAtOnceAnswerAlike) {
  std::vector<std::string> answers(kThreads);
  OnThreads([&](int thread) {
    gXYZ_sVersion version{};
    XYZ_GetVersion(&version);
    std::string text(static_cast<std::size_t>(XYZ_GetIdentificationCnt()), ' ');
    XYZ_GetIdentification(text.data());
    answers[static_cast<std::size_t>(thread)] =
        text + version.Name + std::to_string(version.Major) + std::to_string(version.Minor);
  });
  for (const std::string& answer : answers) EXPECT_EQ(answer, answers[0]);
}

}  // namespace
