#include "protocol_reader.h"

#include "timing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace cardo {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

ProtocolReader Read(const std::vector<std::string_view>& texts) {
  ProtocolReader reader;
  Timing timing;
  for (const std::string_view text : texts) reader.Take(text, timing);
  return reader;
}

TEST(ProtocolReader, CountsRoundsAndSeesChangedMarksInBothLanguages) {
  const std::vector<std::string_view> german = {"\n\nAnzahl der Beobachtungen      : 10\n",
                                                "\n",
                                                "Keine Ausrei\xDF"
                                                "er festgestellt. \n"};
  EXPECT_EQ(Read(german).BlunderRounds(), 1);
  EXPECT_FALSE(Read(german).LastRoundChangedMarks());
  const std::vector<std::string_view> english = {"\n\nNumber of observations        : 10\n",
                                                 "Blunders: \n\n",
                                                 "\n\nNumber of observations        : 8\n",
                                                 "No blunders found. \n"};
  EXPECT_EQ(Read(english).BlunderRounds(), 2);
  EXPECT_FALSE(Read(english).LastRoundChangedMarks());
  for (const std::string_view mark : {std::string_view("Ausrei\xDF"
                                                       "er: \n\n"),
                                      std::string_view("Reaktivierte Ausrei\xDF"
                                                       "er: \n\n"),
                                      std::string_view("Blunders: \n\n"),
                                      std::string_view("Reactivated Blunders: \n\n")}) {
    EXPECT_TRUE(Read({english[0], mark}).LastRoundChangedMarks());
  }
}

TEST(ProtocolReader, TakesWarningsOfTheirSectionOnly) {
  const std::string_view warning = "  105: Beobachtung hat geringe Redundanz   > Strecke 1\n";
  EXPECT_THAT(Read({warning}).Warnings(), IsEmpty());
  const ProtocolReader reader = Read({"<h4><a name=\"warnungen\">*** Warnungen ***</a></h4>\n",
                                      "  104: Daten haben viele Ausrei\xDF"
                                      "er         > Objektkoordinate 7\n",
                                      warning,
                                      "  107: ***",
                                      "  105: ... Weitere Warnungen vorhanden\n",
                                      "\nGesamtredundanz:   590.0000\n\n",
                                      warning});
  const std::vector<RunWarning>& warnings = reader.Warnings();
  ASSERT_EQ(warnings.size(), 3U);
  EXPECT_EQ(warnings[0].code, 104);
  EXPECT_EQ(warnings[0].text,
            "Daten haben viele Ausrei\xC3\x9F"
            "er");
  EXPECT_EQ(warnings[0].object, "Objektkoordinate 7");
  EXPECT_EQ(warnings[1].code, 105);
  EXPECT_EQ(warnings[1].object, "Strecke 1");
  EXPECT_EQ(warnings[2].code, 107);
  EXPECT_EQ(warnings[2].text, "Group enabled again");
  EXPECT_EQ(warnings[2].object, "");
  EXPECT_THAT(reader.CutWarnings(), ElementsAre(105));
}

TEST(ProtocolReader, TakesTheTimesOfIterationsAndTheFailure) {
  ProtocolReader reader;
  Timing timing;
  reader.Take("       \n\nCalculation:\n\n      Build: 0.125 s\n   Solution: 2.000 s\n", timing);
  // A row of a table that holds the same words is none.
  reader.Take("     1 \n      Build: 5.000 s\n", timing);
  EXPECT_EQ(timing.assembly, 0.125);
  EXPECT_EQ(timing.solution, 2.0);
  EXPECT_FALSE(reader.Failure());
  reader.Take("\n<h3>Abbort: Error -12006 - no unknown</h3>\n\n", timing);
  ASSERT_TRUE(reader.Failure());
  EXPECT_EQ(reader.Failure()->code, -12006);
  EXPECT_EQ(reader.Failure()->text, "no unknown");
}

}  // namespace
}  // namespace cardo
