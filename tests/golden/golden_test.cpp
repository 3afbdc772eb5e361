// Whole protocols byte for byte. Every golden file was read by hand before it was taken over.

#include "golden/golden_run.h"
#include "golden/networks.h"
#include "golden/scene.h"
#include "golden/scenes.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <tuple>

namespace golden {
namespace {

const char* NameOf(Language language) {
  return language == Language::German ? "German" : "English";
}

class GoldenScene : public testing::TestWithParam<std::tuple<Scene, Language>> {};

INSTANTIATE_TEST_SUITE_P(Protocols,
                         GoldenScene,
                         testing::Combine(testing::ValuesIn(Scenes().begin(), Scenes().end()),
                                          testing::Values(Language::German, Language::English)),
                         [](const auto& instance) {
                           std::string name = std::get<0>(instance.param).name;
                           name += '_';
                           name += NameOf(std::get<1>(instance.param));
                           return name;
                         });

TEST_P(GoldenScene, IsItsGoldenFile) {
  const auto& [scene, language] = GetParam();
  const Outcome outcome = RunScene(language, scene);
  EXPECT_EQ(outcome.status, scene.status);
  EXPECT_EQ(outcome.texts, outcome.file);
  ExpectGolden(scene.name, language, outcome.file);
}

class Golden : public testing::TestWithParam<Language> {};

INSTANTIATE_TEST_SUITE_P(Protocols,
                         Golden,
                         testing::Values(Language::German, Language::English),
                         [](const auto& instance) { return std::string(NameOf(instance.param)); });

TEST_P(Golden, Failures) {
  std::string protocols;
  for (const Scene& scene : FailingScenes()) {
    const Outcome outcome = RunScene(GetParam(), scene);
    EXPECT_EQ(outcome.status, scene.status) << scene.name;
    EXPECT_EQ(outcome.texts, outcome.file) << scene.name;
    std::string code = " ";
    code += scene.name;
    code += " - ";
    EXPECT_NE(outcome.file.find(code), std::string::npos) << outcome.file;
    protocols += outcome.file;
  }
  ExpectGolden("failures", GetParam(), protocols);
}

// The file is that of the second run alone, the warnings are those of both.
TEST_P(Golden, SecondRunOfAJob) {
  const Outcome outcome = RunTwice(GetParam());
  EXPECT_EQ(outcome.status, eXYZ_Ok);
  ASSERT_GT(outcome.texts.size(), outcome.file.size());
  EXPECT_EQ(outcome.texts.substr(outcome.texts.size() - outcome.file.size()), outcome.file);
  ExpectGolden("second_run", GetParam(), outcome.file);
}

TEST_P(Golden, Rotations) { ExpectGolden("rotations", GetParam(), RotationTables(GetParam())); }

// Without a file the protocol function gets what the file would hold.
TEST_P(Golden, FileThatCannotBeWrittenLosesNothingOfTheTexts) {
  const Outcome written = RunGolden(GetParam(), BuildEverything);
  SetProcessLanguage(GetParam());
  const ProtocolFile file;
  const std::string unwritable = file.Name() + "_missing/protocol.htm";
  std::string texts;
  {
    const Job job(XYZ_CreateJob(unwritable.c_str()));
    XYZ_SetProtocolCallback(job.get(), CollectText, &texts);
    BuildEverything(job.get());
    EXPECT_EQ(XYZ_CalcBundle(job.get()), written.status);
  }
  SetProcessLanguage(Language::German);
  EXPECT_FALSE(std::filesystem::exists(unwritable));
  EXPECT_FALSE(written.file.empty());
  EXPECT_EQ(Masked(texts), Masked(written.file));
}

}  // namespace
}  // namespace golden
