#include "checks/version.h"

#include "checks/container_exception.h"
#include "checks/language.h"
#include "checks/latin1.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace {

TEST(Version, LibraryAndTensorsRegisterInThisOrder) {
  const auto& versions = VersionTracker::Instance().Versions();
  ASSERT_GE(versions.size(), 2U);
  EXPECT_EQ(versions[0], &LibraryVersion());
  EXPECT_EQ(versions[0]->GetName(), "CardoBundleLib 1.10.9");
  EXPECT_EQ(versions[0]->GetMajor(), 1U);
  EXPECT_EQ(versions[0]->GetMinor(), 10U);
  EXPECT_EQ(versions[0]->GetPatch(), 9U);
  EXPECT_EQ(versions[1]->GetName(), "Ostra");
  EXPECT_EQ(versions[1]->GetMajor(), 1U);
  EXPECT_EQ(versions[1]->GetMinor(), 12U);
  EXPECT_EQ(versions[1]->GetPatch(), 1U);
}

TEST(Version, ConstructionRegistersTheObjectItself) {
  // Lives as long as the tracker points to it.
  static const VersionBase version(2, 30, 4, "component");
  EXPECT_EQ(VersionTracker::Instance().Versions().back(), &version);
  std::string text;
  EXPECT_EQ(&version.GetVersionText(text), &text);
  EXPECT_EQ(text, "2.30.4");
}

TEST(Version, TextJoinsTheNumbers) {
  std::string text = "old";
  EXPECT_EQ(LibraryVersion().GetVersionText(text), "1.10.9");
  EXPECT_EQ(text, "1.10.9");
  EXPECT_STREQ(LibraryVersionName(), "CardoBundleLib 1.10.9");
  EXPECT_EQ(IdentificationText(), "Cardo Bundle 1.10");
}

TEST(Language, IsGermanAtLoadAndPicksTexts) {
  EXPECT_EQ(vermo::CurrentLanguage(), vermo::Language::German);
  EXPECT_STREQ(vermo::ByLanguage("de", "en"), "de");
  vermo::SetLanguage(vermo::Language::English);
  EXPECT_STREQ(vermo::ByLanguage("de", "en"), "en");
  vermo::SetLanguage(vermo::Language::German);
}

TEST(Latin1, LiteralsBecomeSingleBytes) {
  using vermo::operator""_latin1;
  EXPECT_STREQ("äöüßÄé"_latin1, "\xE4\xF6\xFC\xDF\xC4\xE9");
  EXPECT_STREQ("plain"_latin1, "plain");
  EXPECT_STREQ(""_latin1, "");
}

TEST(ContainerException, TellsItselfInGerman) {
  using vermo::ContainerException;
  const std::pair<int, const char*> texts[] = {{0, "Kein Fehler"},
                                               {1, "Ung\xFCltige Dimension des Containers"},
                                               {2, "Nicht gen\xFCgend Arbeitsspeicher"},
                                               {3,
                                                "Zugriff au\xDF"
                                                "erhalb des Containerbereichs"},
                                               {4, "Ung\xFCltiger Container"},
                                               {5, "Undefinierter Fehler"},
                                               {-1, "Undefinierter Fehler"}};
  for (const auto& [code, text] : texts) {
    const ContainerException exception(code);
    EXPECT_STREQ(exception.GetText(), text);
    EXPECT_EQ(exception.GetCode(), code);
    const vermo::StandardException& base = exception;
    EXPECT_STREQ(base.GetText(), text);
  }
  EXPECT_STREQ(vermo::StandardException().GetText(), "Undefinierter Fehler");
}

}  // namespace
