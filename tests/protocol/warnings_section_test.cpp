// The section of the warnings and its limit.

#include "checks/latin1.h"
#include "checks/warnings.h"
#include "observations/bedingung_hlm.h"
#include "observations/messung_strecke.h"
#include "protocol/recorded_writer.h"
#include "protocol/warning_text.h"
#include "unknowns/data_obko.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

namespace vermo::test {
namespace {

constexpr WriterLanguage kGerman = WriterLanguage::German;
constexpr WriterLanguage kEnglish = WriterLanguage::English;

class WarningsSection : public testing::Test {
 protected:
  WarningsSection() {
    point.SetId(5);
    distance.SetNummern(1, 2);
  }

  // The rows behind the heading.
  std::string Rows(WriterLanguage language) {
    const std::string text =
        Written(language, [&](RecordedWriter& w) { w->WriteWarnings(warnings); });
    return text.substr(text.find("</h4>\n") + 6);
  }
  static std::string Repeated(const std::string& row, unsigned times) {
    std::string rows;
    for (unsigned i = 0; i < times; ++i) rows += row;
    return rows;
  }

  DataObko point;
  MessungStrecke distance;
  BedingungHlmM scale;
  WarningList warnings;
};

TEST_F(WarningsSection, EmptyListWritesNothing) {
  RecordedWriter writer(kGerman);
  writer->WriteWarnings(warnings);
  EXPECT_TRUE(writer.Texts().empty());
}

TEST_F(WarningsSection, NineOfANumberAreToldAndTheTenthEndsThem) {
  const std::string row = "  101: Data disabled                       > Object coordinate 5\n";
  const std::string more = "  101: ... More warnings pending\n";
  for (unsigned count = 1; count <= 12; ++count) {
    warnings.AddWarningDataDisabled(&point);
    EXPECT_EQ(Rows(kEnglish), count < 10 ? Repeated(row, count) : Repeated(row, 9) + more) << count;
  }
  EXPECT_EQ(warnings.Size(), 12U);
  const std::string german = Rows(kGerman);
  EXPECT_TRUE(german.ends_with("Objektkoordinate 5\n  101: ... Weitere Warnungen vorhanden\n"));
}

TEST_F(WarningsSection, EachNumberHasItsOwnLimitAndTheOrderStays) {
  for (unsigned i = 0; i < 11; ++i) {
    warnings.AddWarningDataDisabled(&point);
    if (i % 2 == 0) warnings.AddWarningObsevationWithoutData(&distance);
  }
  const std::string a = "  101: Data disabled                       > Object coordinate 5\n";
  const std::string b = "  102: Missing data for observation        > Distance 1 - 2\n";
  EXPECT_EQ(Rows(kEnglish),
            Repeated(a + b + a, 4) + a + b + "  101: ... More warnings pending\n" + b);
}

TEST_F(WarningsSection, EachWarningIsATextOfItsOwn) {
  for (unsigned i = 0; i < 10; ++i) warnings.AddWarningDataDisabled(&point);
  RecordedWriter writer(kGerman);
  writer->WriteWarnings(warnings);
  ASSERT_EQ(writer.Texts().size(), 12U);
  EXPECT_EQ(writer.Texts()[0], "\n");
  EXPECT_EQ(writer.Texts()[1],
            "<h4><a name=\"warnungen\">*** Warnungen ***</a> <a href=\"#Start\">(zurück zum "
            "Anfang)</a></h4>\n"_latin1);
  EXPECT_EQ(writer.Texts()[11], "  101: ... Weitere Warnungen vorhanden\n");
}

TEST_F(WarningsSection, EveryKindInBothLanguages) {
  warnings.AddWarningDataDisabled(&point);
  warnings.AddWarningObsevationWithoutData(&distance);
  warnings.AddWarningDataWithoutSubData(&point);
  warnings.AddWarningDataHasManyBlunder(&point, 8, 5);
  warnings.AddWarningObservationHasLessRedundancy(&distance);
  warnings.AddWarningConstraintShouldBeFree(&scale);
  warnings.AddWarningDataEnabled(&point);
  EXPECT_EQ(Rows(kGerman),
            "  101: Daten deaktiviert                   > Objektkoordinate 5\n"
            "  102: Fehlende Daten für die Beobachtung  > Strecke 1 - 2\n"
            "  103: Fehlende Basisdaten für Daten       > Objektkoordinate 5\n"
            "  104: Daten haben viele Ausreißer         > Objektkoordinate 5\n"
            "  105: Beobachtung hat geringe Redundanz   > Strecke 1 - 2\n"
            "  106: Bedingung sollte zwangsfrei sein    > Bedingung Maßstab\n"
            "  107: ***\n"_latin1);
  EXPECT_EQ(Rows(kEnglish),
            "  101: Data disabled                       > Object coordinate 5\n"
            "  102: Missing data for observation        > Distance 1 - 2\n"
            "  103: Data without subdata                > Object coordinate 5\n"
            "  104: Data has many blunder               > Object coordinate 5\n"
            "  105: Observation has less redundancy     > Distance 1 - 2\n"
            "  106: Constraint should be free           > Constraint scale\n"
            "  107: ***\n");
}

// A number that the texts do not know.
TEST(WarningLine, OtherNumbersHaveStars) {
  class Strange final : public WarningItf {
   public:
    [[nodiscard]] std::int32_t GetCode() const override { return 1234567; }
  };
  EXPECT_EQ(WarningText(kGerman, Strange()), "1234567: ***\n");
  EXPECT_EQ(WarningText(kEnglish, Strange()), "1234567: ***\n");
}

}  // namespace
}  // namespace vermo::test
