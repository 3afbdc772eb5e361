// Callbacks that misbehave: they cancel, detach themselves, attach another, look at the job, change
// the process, throw. The run ends as the interface says, and nothing leaks.

#include "faults/failing_allocations.h"
#include "faults/job_picture.h"
#include "golden/golden_run.h"
#include "golden/networks.h"
#include "golden/scene.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace faults {
namespace {

using golden::Job;

// A run whose callbacks do what the test says. Iterations and texts are counted from 1.
struct Script {
  std::function<int(void* job, int iteration)> atIteration;
  std::function<void(void* job, int text)> atText;
  int iterations = 0;
  int texts = 0;
  std::string received;
};

int Progress(void* job, sXYZ_CBProgressInfo* info, void* userData) {
  auto& script = *static_cast<Script*>(userData);
  ++script.iterations;
  EXPECT_EQ(info->Iteration, script.iterations);
  return script.atIteration ? script.atIteration(job, script.iterations) : 0;
}

void Protocol(void* job, char* text, void* userData) {
  auto& script = *static_cast<Script*>(userData);
  ++script.texts;
  script.received += text;
  if (script.atText) script.atText(job, script.texts);
}

class Callbacks : public ::testing::Test {
 protected:
  Callbacks() {
    Script none;
    fWantedStatus = Run(golden::BuildEverything, none);
    fWantedPicture = fPicture;
    fIterations = none.iterations;
    Script small;
    Run(golden::BuildMeasured, small);
    fSmallPicture = fPicture;
    fSmallTexts = small.texts;
  }
  ~Callbacks() override {
    golden::SetProcessLanguage(golden::Language::German);
    std::error_code ignored;
    std::filesystem::remove(fFile, ignored);
  }

  // The status; the picture of the job, the values of its groups and the file stay for the checks.
  int Run(void (*build)(void*), Script& script) {
    const Job job(XYZ_CreateJob(fFile.c_str()));
    build(job.get());
    XYZ_SetProgressCallback(job.get(), Progress, &script);
    XYZ_SetProtocolCallback(job.get(), Protocol, &script);
    const int status = XYZ_CalcBundle(job.get());
    fPicture = PictureOf(job.get());
    fValues = ValuesOf(job.get());
    fText = File();
    return status;
  }

  [[nodiscard]] std::string File() const {
    std::ostringstream text;
    text << std::ifstream(fFile, std::ios_base::binary).rdbuf();
    return text.str();
  }

  const std::string fFile = (std::filesystem::temp_directory_path() /
                             ("cardo_faults_callbacks_" + std::to_string(::getpid()) + ".htm"))
                                .string();
  std::string fPicture;
  std::string fValues;
  std::string fText;
  int fWantedStatus = -1;
  std::string fWantedPicture;
  int fIterations = 0;
  std::string fSmallPicture;
  int fSmallTexts = 0;
};

TEST_F(Callbacks, TheNormalRunHasIterationsAndTexts) {
  EXPECT_EQ(fWantedStatus, eXYZ_Ok);
  EXPECT_GE(fIterations, 5);
  EXPECT_GE(fSmallTexts, 20);
}

TEST_F(Callbacks, MayCancelInAnyIteration) {
  for (int k = 1; k <= fIterations; ++k) {
    SCOPED_TRACE(k);
    std::string values;
    Script script;
    script.atIteration = [&](void* job, int iteration) {
      values = ValuesOf(job);
      return iteration == k ? -1 : 0;
    };
    EXPECT_EQ(Run(golden::BuildEverything, script), eXYZ_CalcFailed);
    EXPECT_EQ(script.iterations, k);
    EXPECT_EQ(fValues, values);
    EXPECT_NE(fText.find("Abbruch: Fehler -12005 - "), std::string::npos);
    EXPECT_TRUE(fText.ends_with("</html>\n"));
    EXPECT_EQ(fText, script.received);
  }
}

TEST_F(Callbacks, ProgressMayDetachItselfInAnyIteration) {
  for (int k = 1; k <= fIterations; ++k) {
    Script script;
    script.atIteration = [k](void* job, int iteration) {
      if (iteration == k) XYZ_SetProgressCallback(job, nullptr, nullptr);
      return 0;
    };
    EXPECT_EQ(Run(golden::BuildEverything, script), eXYZ_Ok);
    EXPECT_EQ(script.iterations, k);
    EXPECT_EQ(fPicture, fWantedPicture);
  }
}

TEST_F(Callbacks, ProtocolMayDetachItselfAtAnyText) {
  for (int k = 1; k <= fSmallTexts; ++k) {
    Script script;
    script.atText = [k](void* job, int text) {
      if (text == k) XYZ_SetProtocolCallback(job, nullptr, nullptr);
    };
    EXPECT_EQ(Run(golden::BuildMeasured, script), eXYZ_Ok);
    EXPECT_EQ(script.texts, k);
    EXPECT_EQ(fPicture, fSmallPicture);
    EXPECT_TRUE(fText.starts_with(script.received));
    EXPECT_TRUE(fText.ends_with("</html>\n"));
  }
}

TEST_F(Callbacks, MayAttachOthersAtAnyTextAndIteration) {
  for (int k = 1; k <= fSmallTexts; ++k) {
    Script second;
    Script first;
    first.atText = [&](void* job, int text) {
      if (text == k) XYZ_SetProtocolCallback(job, Protocol, &second);
    };
    EXPECT_EQ(Run(golden::BuildMeasured, first), eXYZ_Ok);
    EXPECT_EQ(first.texts + second.texts, fSmallTexts);
    EXPECT_EQ(first.received + second.received, fText);
  }
  for (int k = 1; k < fIterations; ++k) {
    Script second;
    second.iterations = k;
    Script first;
    first.atIteration = [&](void* job, int iteration) {
      if (iteration == k) XYZ_SetProgressCallback(job, Progress, &second);
      return 0;
    };
    EXPECT_EQ(Run(golden::BuildEverything, first), eXYZ_Ok);
    EXPECT_EQ(first.iterations, k);
    EXPECT_EQ(second.iterations, fIterations);
  }
}

TEST_F(Callbacks, MayChangeTheLanguageAtEveryTextAndIteration) {
  const auto change = [](void* job, int count) {
    XYZ_SetParam(job, eXYZ_ParamLanguage, 1 + count % 2);
    return 0;
  };
  Script script;
  script.atIteration = change;
  script.atText = change;
  EXPECT_EQ(Run(golden::BuildEverything, script), eXYZ_Ok);
  EXPECT_EQ(fPicture, fWantedPicture);
  EXPECT_EQ(fText, script.received);
}

TEST_F(Callbacks, MayReadEverythingAtEveryTextAndIteration) {
  std::size_t seen = 0;
  Script script;
  script.atIteration = [&](void* job, int) {
    seen += PictureOf(job).size();
    return 0;
  };
  script.atText = [&](void* job, int) { seen += PictureOf(job).size(); };
  EXPECT_EQ(Run(golden::BuildEverything, script), eXYZ_Ok);
  EXPECT_GT(seen, fWantedPicture.size() * static_cast<std::size_t>(fIterations));
  EXPECT_EQ(fPicture, fWantedPicture);
}

TEST_F(Callbacks, MayNameAnotherProtocolFileForTheNextRun) {
  const std::string other = fFile + ".other";
  Script script;
  script.atText = [&](void* job, int) { XYZ_SetNewProtocolFile(job, other.c_str()); };
  EXPECT_EQ(Run(golden::BuildMeasured, script), eXYZ_Ok);
  EXPECT_FALSE(std::filesystem::exists(other));
  EXPECT_EQ(fText, script.received);
}

TEST_F(Callbacks, MayWriteIntoTheirText) {
  const Job job(XYZ_CreateJob(fFile.c_str()));
  golden::BuildMeasured(job.get());
  const auto wipe = [](void*, char* text, void*) {
    for (; *text != '\0'; ++text) *text = 'x';
  };
  XYZ_SetProtocolCallback(job.get(), wipe, nullptr);
  EXPECT_EQ(XYZ_CalcBundle(job.get()), eXYZ_Ok);
  EXPECT_TRUE(File().starts_with("<html>"));
}

// Every parameter takes every one of some values in the middle: the run ends with a status.
TEST_F(Callbacks, MayChangeEveryParameterInEveryIteration) {
  for (int selector = 0; selector <= 22; ++selector)
    for (const int value : {-1, 0, 1, 3, 0x7F00}) {
      if (selector == eXYZ_ParamLanguage) continue;
      Script script;
      script.atIteration = [=](void* job, int) {
        XYZ_SetParam(job, static_cast<eXYZ_Parameter>(selector), value);
        if (selector != eXYZ_ParamS0Apriori || value > 0)
          XYZ_SetParam(job, static_cast<eXYZ_Parameter>(selector), value * 0.7);
        return 0;
      };
      const int status = Run(golden::BuildSmallPlate, script);
      EXPECT_TRUE(status == eXYZ_Ok || status == eXYZ_CalcFailed || status == eXYZ_NoProgress)
          << selector << " " << value << ": " << status;
      EXPECT_TRUE(fText.ends_with("</html>\n"));
    }
}

// What a callback throws. None of it leaves the library.
using Throw = void (*)();
constexpr Throw kThrows[] = {
    [] { throw std::runtime_error("the caller's own"); },
    [] { throw std::bad_alloc(); },
    [] { throw 1; },
    [] { throw vermo::KlException(-12345); },
    [] { throw vermo::KlException(0); },
};

TEST_F(Callbacks, ProgressMayThrowInAnyIteration) {
  for (const Throw fail : kThrows)
    for (int k = 1; k <= fIterations; ++k) {
      std::string values;
      Script script;
      script.atIteration = [&](void* job, int iteration) {
        values = ValuesOf(job);
        if (iteration == k) fail();
        return 0;
      };
      EXPECT_EQ(Run(golden::BuildEverything, script), eXYZ_CalcFailed);
      EXPECT_EQ(script.iterations, k);
      EXPECT_EQ(fValues, values);
      EXPECT_NE(fText.find("Abbruch: Fehler "), std::string::npos);
      EXPECT_TRUE(fText.ends_with("</html>\n"));
    }
}

TEST_F(Callbacks, ProtocolMayThrowAtAnyText) {
  for (const bool always : {false, true})
    for (const Throw fail : kThrows)
      for (int k = 1; k <= fSmallTexts; ++k) {
        SCOPED_TRACE(k);
        Script script;
        script.atText = [=](void*, int text) {
          if (text == k || (always && text > k)) fail();
        };
        EXPECT_EQ(Run(golden::BuildMeasured, script), eXYZ_CalcFailed);
      }
}

// The library's own failure, thrown through a callback of a run.
TEST_F(Callbacks, MayProvokeTheLibraryToThrow) {
  Script script;
  script.atIteration = [](void* job, int) { return XYZ_SetParam(job, eXYZ_ParamS0Apriori, 0.0); };
  EXPECT_EQ(Run(golden::BuildMeasured, script), eXYZ_CalcFailed);
  EXPECT_NE(fText.find("Abbruch: Fehler -35001 - "), std::string::npos);
}

TEST_F(Callbacks, CannotStartTheirOwnRunAnew) {
  std::vector<int> statuses;
  Script script;
  script.atIteration = [&](void* job, int) {
    statuses.push_back(XYZ_CalcBundle(job));
    return 0;
  };
  script.atText = [&](void* job, int) { statuses.push_back(XYZ_CalcBundle(job)); };
  EXPECT_EQ(Run(golden::BuildMeasured, script), eXYZ_Ok);
  EXPECT_GT(statuses.size(), 20U);
  for (const int status : statuses) EXPECT_EQ(status, eXYZ_CalcFailed);
  EXPECT_EQ(script.texts, fSmallTexts);
  EXPECT_EQ(fPicture, fSmallPicture);
  EXPECT_EQ(fText, script.received);
}

TEST_F(Callbacks, MayRunAnotherJobInTheMiddle) {
  std::vector<int> statuses;
  Script script;
  script.atIteration = [&](void*, int) {
    const Job other(XYZ_CreateJob("/dev/null"));
    golden::BuildMeasured(other.get());
    statuses.push_back(XYZ_CalcBundle(other.get()));
    return 0;
  };
  EXPECT_EQ(Run(golden::BuildEverything, script), eXYZ_Ok);
  EXPECT_EQ(statuses, std::vector<int>(static_cast<std::size_t>(fIterations), eXYZ_Ok));
  EXPECT_EQ(fPicture, fWantedPicture);
}

// Records that come in the middle of a run: it goes on without the job losing its shape.
TEST_F(Callbacks, MayAddRecordsOfEveryKindAtAnyTextAndIteration) {
  int added = 0;
  const auto add = [&added](void* job, int n) {
    const int id = 1000 + n;
    for (const int flags : {0x01, 0x11}) {
      const int own = 2 * id + (flags == 0x11 ? 1 : 0);
      golden::AddCamera(job, own, -30.0, flags, 0x1007);
      golden::AddImage(job, own, 1, golden::ImageOf(1), flags);
      golden::AddPoint(job, own, {1.0, 2.0, 3.0}, flags);
      golden::AddProjection(job, own, -30.0, 0.0, 0.0, flags);
      golden::AddLine(job, own, {0.0, 0.0, 0.0}, {1.0, 0.0, 0.0}, flags);
      golden::AddPlane(job, 100000 + own, {0.0, 0.0, 0.0}, {0.0, 0.0, 1.0}, flags);
    }
    golden::AddRelative(job, 10 * id, 1, 2 * id);
    golden::AddImagePoint(job, 2 * id, 1, {1.0, 2.0}, 0.001);
    golden::AddLinePoint(job, 1, 2 * id, 1, {1.0, 2.0}, 0.001);
    golden::AddMeasured(job, 2 * id, {1.0, 2.0, 3.0}, 0.001);
    golden::AddDistance(job, 2 * id, 1, 1.0, 0.001);
    golden::AddPointOnLine(job, id, 2 * id, 2 * id);
    golden::AddPointOnPlane(job, id, 2 * id, 100000 + 2 * id);
    ++added;
    return 0;
  };
  for (int k = 1; k <= fIterations; ++k) {
    Script script;
    script.atIteration = [&](void* job, int iteration) {
      return iteration == k ? add(job, iteration) : 0;
    };
    const int status = Run(golden::BuildEverything, script);
    EXPECT_TRUE(status == eXYZ_Ok || status == eXYZ_CalcFailed) << status;
    EXPECT_TRUE(fText.ends_with("</html>\n"));
  }
  for (int k = 1; k <= fSmallTexts; ++k) {
    Script script;
    script.atText = [&](void* job, int text) {
      if (text == k) add(job, text);
    };
    const int status = Run(golden::BuildMeasured, script);
    // What comes early takes part, and is not determined by anything.
    EXPECT_TRUE(status == eXYZ_Ok || status == eXYZ_CalcFailed || status == eXYZ_SingularSystem)
        << k << ": " << status;
    EXPECT_TRUE(fText.ends_with("</html>\n"));
  }
  EXPECT_EQ(added, fIterations + fSmallTexts);
}

TEST_F(Callbacks, LeakNothingWhenTheyThrow) {
  for (const Throw fail : kThrows)
    for (int k = 1; k <= fSmallTexts; ++k) {
      const std::int64_t live = LiveAllocations();
      {
        Script script;
        script.atText = [=](void*, int text) {
          if (text >= k) fail();
        };
        const Job job(XYZ_CreateJob("/dev/null"));
        golden::BuildMeasured(job.get());
        XYZ_SetProtocolCallback(job.get(), Protocol, &script);
        XYZ_CalcBundle(job.get());
      }
      ASSERT_EQ(LiveAllocations(), live);
    }
}

}  // namespace
}  // namespace faults
