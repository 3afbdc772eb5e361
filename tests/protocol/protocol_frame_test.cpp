#include "adjustment/adjustment_settings.h"
#include "adjustment/iteration_info.h"
#include "checks/language.h"
#include "protocol/old_style_message_handler.h"
#include "protocol/protocol_contents.h"
#include "protocol/protocol_date.h"
#include "protocol/protocol_stream.h"
#include "protocol/protocol_target.h"
#include "protocol/result_scene.h"
#include "support/comma_locale.h"
#include "support/language_guard.h"

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <ios>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace vermo {
namespace {

namespace fs = std::filesystem;

// The local time of one scope; the zone of the process comes back.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    if (const char* before = std::getenv("TZ")) fBefore = before;
    Set(zone);
  }
  ~TimeZone() { Set(fBefore ? fBefore->c_str() : nullptr); }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

 private:
  static void Set(const char* zone) {
    if (zone != nullptr)
      ::setenv("TZ", zone, 1);
    else
      ::unsetenv("TZ");
    ::tzset();
  }

  std::optional<std::string> fBefore;
};

// A folder for the files of a test, German and universal time; all is put back afterwards.
class ProtocolFrame : public ::testing::Test {
 protected:
  ProtocolFrame() : fFolder(fs::temp_directory_path() / UniqueName()) {
    fs::create_directories(fFolder);
  }
  ~ProtocolFrame() override {
    std::error_code ignored;
    fs::remove_all(fFolder, ignored);
  }

  static std::string UniqueName() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    return std::string("cardo_protocol_") + info->name() + "_" + std::to_string(::getpid());
  }
  [[nodiscard]] std::string File(const char* name = "protocol.htm") const {
    return (fFolder / name).string();
  }
  static std::string Contents(const std::string& name) {
    std::ifstream file(name, std::ios_base::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }

 private:
  fs::path fFolder;
  test::LanguageGuard fLanguage{Language::German};
  TimeZone fZone{"UTC0"};
};

// Keeps the texts, and what the file held when each of them came.
class Listener : public ProtocolTarget {
 public:
  explicit Listener(std::string file = {}) : fFile(std::move(file)) {}

  void OnProtocolText(const char* text) override {
    texts.emplace_back(text);
    if (fFile.empty()) return;
    std::error_code error;
    const auto size = fs::file_size(fFile, error);
    sizes.push_back(error ? 0 : size);
  }
  [[nodiscard]] std::string All() const {
    std::string all;
    for (const std::string& text : texts) all += text;
    return all;
  }

  std::vector<std::string> texts;
  std::vector<std::uintmax_t> sizes;

 private:
  std::string fFile;
};

// 16.11.2026, a Monday.
constexpr std::int64_t kMonday = 1794787200;
constexpr std::int64_t At(int hour, int minute, int second, int days = 0) {
  return kMonday + days * 86400 + hour * 3600 + minute * 60 + second;
}

std::string Date(WriterLanguage language, std::int64_t time, DateGap gap) {
  ProtocolText out;
  AppendDate(out, language, time, gap);
  return out.Str();
}

TEST_F(ProtocolFrame, GermanDateHasFourDigitYearAndBlankFilledHour) {
  EXPECT_EQ(Date(WriterLanguage::German, At(9, 3, 5), DateGap::TwoBlanks),
            "Mo  16.11.2026   9:03:05");
  EXPECT_EQ(Date(WriterLanguage::German, At(0, 0, 0), DateGap::TwoBlanks),
            "Mo  16.11.2026   0:00:00");
  EXPECT_EQ(Date(WriterLanguage::German, At(12, 34, 56, -14), DateGap::OneBlank),
            "Mo 2.11.2026  12:34:56");
  EXPECT_EQ(Date(WriterLanguage::German, At(23, 0, 0, -300), DateGap::OneBlank),
            "Di 20.01.2026  23:00:00");
}

TEST_F(ProtocolFrame, EnglishDateCountsTwelveHours) {
  SetLanguage(Language::English);
  EXPECT_EQ(Date(WriterLanguage::English, At(9, 3, 5), DateGap::TwoBlanks),
            "Mo  16 November 2026   9:03:05 am");
  EXPECT_EQ(Date(WriterLanguage::English, At(0, 0, 7), DateGap::TwoBlanks),
            "Mo  16 November 2026  12:00:07 am");
  EXPECT_EQ(Date(WriterLanguage::English, At(12, 0, 0), DateGap::OneBlank),
            "Mo 16 November 2026  12:00:00 pm");
  EXPECT_EQ(Date(WriterLanguage::English, At(13, 5, 0, -14), DateGap::OneBlank),
            "Mo 2 November 2026   1:05:00 pm");
}

TEST_F(ProtocolFrame, DateIsLocal) {
  const TimeZone tokyo("JST-9");
  EXPECT_EQ(Date(WriterLanguage::German, At(16, 30, 0), DateGap::OneBlank),
            "Di 17.11.2026   1:30:00");
  EXPECT_EQ(Date(WriterLanguage::English, At(3, 0, 0), DateGap::OneBlank),
            "Mo 16 November 2026  12:00:00 pm");
}

TEST_F(ProtocolFrame, NamesOfDaysAndMonthsFollowTheProcessLanguage) {
  EXPECT_EQ(Date(WriterLanguage::English, At(9, 0, 0, -250), DateGap::OneBlank),
            "Mi 11 M\xE4rz 2026   9:00:00 am");
  const char* germanDays[] = {"So", "Mo", "Di", "Mi", "Do", "Fr", "Sa"};
  const char* englishDays[] = {"Su", "Mo", "Tu", "We", "Th", "Fr", "Sa"};
  const char* germanMonths[] = {"Januar",
                                "Februar",
                                "M\xE4rz",
                                "April",
                                "Mai",
                                "Juni",
                                "Juli",
                                "August",
                                "September",
                                "Oktober",
                                "November",
                                "Dezember"};
  const char* englishMonths[] = {"January",
                                 "February",
                                 "March",
                                 "April",
                                 "May",
                                 "June",
                                 "July",
                                 "August",
                                 "September",
                                 "October",
                                 "November",
                                 "December"};
  for (int i = 0; i < 7; ++i) EXPECT_STREQ(WeekdayName(i), germanDays[i]);
  for (int i = 0; i < 12; ++i) EXPECT_STREQ(MonthName(i), germanMonths[i]);
  SetLanguage(Language::English);
  for (int i = 0; i < 7; ++i) EXPECT_STREQ(WeekdayName(i), englishDays[i]);
  for (int i = 0; i < 12; ++i) EXPECT_STREQ(MonthName(i), englishMonths[i]);
  for (const int index : {-1, 7}) EXPECT_STREQ(WeekdayName(index), "**");
  for (const int index : {-1, 12}) EXPECT_STREQ(MonthName(index), "**");
}

TEST_F(ProtocolFrame, TimeBeyondTheCalendarIsNotWritten) {
  for (const WriterLanguage language : {WriterLanguage::German, WriterLanguage::English})
    for (const std::int64_t time :
         {std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()})
      EXPECT_EQ(Date(language, time, DateGap::OneBlank), "**");
}

std::string Start(OldStyleMessageHandler& writer,
                  const AdjustmentSettings& settings,
                  const ProtocolContents& contents) {
  Listener listener;
  writer.SetJob(&listener);
  const std::int64_t start = At(9, 3, 5);
  writer.RunStarted(&start, settings, contents);
  EXPECT_EQ(listener.texts.size(), 1U);
  return listener.All();
}

ProtocolContents Everything() {
  return {true, true, true, true, true, true, true, true, true, true, true, true, true};
}

TEST_F(ProtocolFrame, GermanStartWithEveryTable) {
  OldStyleMessageHandlerDE writer(File());
  EXPECT_EQ(Start(writer, AdjustmentSettings(), Everything()),
            "<html>\n<body>\n"
            "<p><a name=\"Start\">Protokoll B\xFCndelblockausgleichung, Version 1.10.9\n</a></p>"
            "<p><a href=\"#Zusammenfassung\">Zusammenfassung</a></p>"
            "<h1>\nUnbekannte</h1>"
            "<p><a href=\"#interior_orientations\">innere Orientierungen</a></p>"
            "<p><a href=\"#projections\">Projektionen</a></p>"
            "<p><a href=\"#exterior_orientations\">\xE4u\xDF"
            "ere Orientierungen</a></p>"
            "<p><a href=\"#relative_orientations\">relative Orientierungen</a></p>"
            "<p><a href=\"#object_points\">Objektpunkte</a></p>"
            "<p><a href=\"#lines\">Linien</a></p>"
            "<p><a href=\"#planes\">Ebenen</a></p>"
            "<h1>\nBedingungen</h1>"
            "<p><a href=\"#HlmTrn\">Translation</a></p>"
            "<p><a href=\"#HlmRot\">Rotation</a></p>"
            "<p><a href=\"#HlmM\">Ma\xDFstab</a></p>"
            "<p><a href=\"#constraints_point_on_line\">Punkt auf Linie</a></p>"
            "<p><a href=\"#constraints_point_on_plane\">Punkt auf Ebene</a></p>"
            "<h1>\nMessungen</h1>"
            "<p><a href=\"#image_coordinates\">Bildkoordinaten</a></p>"
            "<p><a href=\"#line_coordinates\">Linienkoordinaten</a></p>"
            "<p><a href=\"#measured_object_points\">Objektpunkte</a></p>"
            "<p><a href=\"#distances\">Strecken</a></p>"
            "<pre>\n"
            "\n\n<h3>Starte Ausgleichung:  Mo  16.11.2026   9:03:05</h3>\n\n\n"
            "Einstellungen: \n\n"
            "Loesbarkeitskontrolle.........: 1\n"
            "Daempfungsfaktor..............: 0.800000\n"
            "Dynamikbereich unterer Wert...: 1.000000\n"
            "Dynamikbereich oberer Wert....: 4.000000\n"
            "Ausrei\xDF"
            "ertest.................: 1\n"
            "Testverfahren Ausrei\xDF"
            "ertest...: Test per innere Zuverlaessigkeit\n"
            "\n\n");
}

TEST_F(ProtocolFrame, EnglishStartWithEveryTable) {
  SetLanguage(Language::English);
  OldStyleMessageHandlerEN writer(File());
  AdjustmentSettings settings;
  settings.fTestMethod = 0;
  EXPECT_EQ(Start(writer, settings, Everything()),
            "<html>\n<body>\n"
            "<p><a name=\"Start\">Protocol of bundle adjustment, Version 1.10.9\n</a></p>"
            "<p><a href=\"#summary\">summary</a></p>"
            "<h1>\nUnknowns</h1>"
            "<p><a href=\"#interior_orientations\">interior orientations</a></p>"
            "<p><a href=\"#projections\">projections</a></p>"
            "<p><a href=\"#exterior_orientations\">exterior orientations</a></p>"
            "<p><a href=\"#relative_orientations\">relative orientations</a></p>"
            "<p><a href=\"#object_points\">object points</a></p>"
            "<p><a href=\"#lines\">lines</a></p>"
            "<p><a href=\"#planes\">planes</a></p>"
            "<h1>\nConstraints</h1>"
            "<p><a href=\"#HlmTrn\">translation</a></p>"
            "<p><a href=\"#HlmRot\">rotation</a></p>"
            "<p><a href=\"#HlmM\">scale</a></p>"
            "<p><a href=\"#constraints_point_on_line\">constraints point on line</a></p>"
            "<p><a href=\"#constraints_point_on_plane\">constraints point on plane</a></p>"
            "<h1>\nMeasurements</h1>"
            "<p><a href=\"#image_coordinates\">image coordinates</a></p>"
            "<p><a href=\"#line_coordinates\">line coordinates</a></p>"
            "<p><a href=\"#measured_object_points\">object points</a></p>"
            "<p><a href=\"#distances\">distances</a></p>"
            "<pre>\n"
            "\n\n<h3>Start of bundle adjustment:  Mo  16 November 2026   9:03:05 am</h3>\n\n\n"
            "Options: \n\n"
            "Check for solvable calculation control for solving...: 1\n"
            "Factor of suppression................................: 0.8\n"
            "Dynamic range minimum value..........................: 1\n"
            "Dynamic range maximum value..........................: 4\n"
            "Blunder detection....................................: 1\n"
            "Type of blunder detection............................: Test by redundancy\n"
            "\n\n");
}

TEST_F(ProtocolFrame, EmptyNetworkKeepsGroupHeadsAndDatumLinks) {
  OldStyleMessageHandlerDE writer(File());
  const std::string text = Start(writer, AdjustmentSettings(), ProtocolContents());
  EXPECT_NE(text.find("</p><h1>\nUnbekannte</h1><h1>\nBedingungen</h1><p><a href=\"#HlmTrn\">"),
            std::string::npos);
  EXPECT_NE(text.find("Ma\xDFstab</a></p><h1>\nMessungen</h1><pre>\n"), std::string::npos);
}

TEST_F(ProtocolFrame, EveryLinkHangsOnItsOwnTable) {
  bool ProtocolContents::*const members[] = {&ProtocolContents::cameras,
                                             &ProtocolContents::projections,
                                             &ProtocolContents::exteriorOrientations,
                                             &ProtocolContents::relativeOrientations,
                                             &ProtocolContents::objectPoints,
                                             &ProtocolContents::lines,
                                             &ProtocolContents::planes,
                                             &ProtocolContents::pointOnLine,
                                             &ProtocolContents::pointOnPlane,
                                             &ProtocolContents::imageCoordinates,
                                             &ProtocolContents::lineCoordinates,
                                             &ProtocolContents::measuredObjectPoints,
                                             &ProtocolContents::distances};
  const char* anchors[] = {"interior_orientations",
                           "projections",
                           "exterior_orientations",
                           "relative_orientations",
                           "object_points",
                           "lines",
                           "planes",
                           "constraints_point_on_line",
                           "constraints_point_on_plane",
                           "image_coordinates",
                           "line_coordinates",
                           "measured_object_points",
                           "distances"};
  for (std::size_t i = 0; i < std::size(members); ++i) {
    ProtocolContents contents;
    contents.*members[i] = true;
    OldStyleMessageHandlerEN writer(File());
    const std::string text = Start(writer, AdjustmentSettings(), contents);
    for (std::size_t k = 0; k < std::size(anchors); ++k) {
      const std::string link = std::string("<a href=\"#") + anchors[k] + "\">";
      EXPECT_EQ(text.find(link) != std::string::npos, i == k) << anchors[k];
    }
  }
}

TEST_F(ProtocolFrame, SettingsWithoutTheOutlierTestLeaveItsMethodOut) {
  AdjustmentSettings settings;
  settings.SetBlunderTest(false);
  settings.SetSolvabilityCheck(false);
  settings.fDamping = 0.25;
  OldStyleMessageHandlerEN english(File());
  EXPECT_NE(Start(english, settings, {})
                .find("solving...: 0\n"
                      "Factor of suppression................................: 0.25\n"
                      "Dynamic range minimum value..........................: 1\n"
                      "Dynamic range maximum value..........................: 4\n"
                      "Blunder detection....................................: 0\n\n\n"),
            std::string::npos);
  settings.SetBlunderTest(true);
  settings.fTestMethod = 7;
  OldStyleMessageHandlerDE german(File("other.htm"));
  const std::string text = Start(german, settings, {});
  EXPECT_NE(text.find("Daempfungsfaktor..............: 0.250000\n"), std::string::npos);
  EXPECT_NE(text.find("Testverfahren Ausrei\xDF"
                      "ertest...: \n\n"),
            std::string::npos);
  settings.fTestMethod = 0;
  OldStyleMessageHandlerDE redundancy(File("third.htm"));
  EXPECT_NE(Start(redundancy, settings, {}).find(": Test per Redundanz\n\n\n"), std::string::npos);
  settings.fTestMethod = 1;
  OldStyleMessageHandlerEN reliability(File("fourth.htm"));
  EXPECT_NE(Start(reliability, settings, {}).find(": Test by interior reliability\n\n\n"),
            std::string::npos);
}

IterationInfo SomeIteration() {
  IterationInfo info;
  info.s0 = 1.2345678;
  info.mittlereAenderung = 0.000123456;
  info.aufbauSekunden = 0.5;
  info.loesungSekunden = 12.25;
  info.iterationGesamt = 12;
  info.iteration = 12;
  info.ausreisserRunde = 3;
  info.beobachtungen = 4148;
  info.unbekannte = 422;
  info.bedingungen = 7;
  info.s0APriori = 0.8;
  return info;
}

TEST_F(ProtocolFrame, IterationBlockInBothLanguages) {
  Listener listener;
  OldStyleMessageHandlerDE german(File());
  german.SetJob(&listener);
  german.WriteIteration(SomeIteration());
  ASSERT_EQ(listener.texts.size(), 2U);
  EXPECT_EQ(listener.texts[0],
            "       \n"
            "\nBerechnung des Systems:\n"
            "\nAufstellung: 0.500 s\n     L\xF6sung: 12.250 s\n     Gesamt: 12.750 s\n");
  EXPECT_EQ(listener.texts[1],
            "   Schleife: 12 (3)\n"
            "         S0:       1.234568      (S0 apriori:     0.8)\n"
            "       norm:       0.000123\n"
            "          n:           4148\n"
            "          u:            422\n"
            "          b:              7\n\n");
  listener.texts.clear();
  OldStyleMessageHandlerEN english(File("english.htm"));
  english.SetJob(&listener);
  english.WriteIteration(SomeIteration());
  ASSERT_EQ(listener.texts.size(), 2U);
  EXPECT_EQ(listener.texts[0],
            "       \n"
            "\nCalculation:\n"
            "\n      Build: 0.500 s\n   Solution: 12.250 s\n   Complete: 12.750 s\n");
  EXPECT_EQ(listener.texts[1],
            "       Loop: 12 (3)\n"
            "         S0:       1.234568      (S0 apriori:     0.8)\n"
            "       norm:       0.000123\n"
            "          n:           4148\n"
            "          u:            422\n"
            "          b:              7\n\n");
}

TEST_F(ProtocolFrame, EstimationAndBlunderTextsInBothLanguages) {
  Listener listener;
  OldStyleMessageHandlerDE german(File());
  german.SetJob(&listener);
  german.ReportRobustEstimation();
  german.ReportL2Estimation();
  german.ReportBlunderCount(5);
  EXPECT_EQ(listener.All(),
            "\n<h3>Robuste Sch\xE4tzung...</h3>\n"
            "\n<h3>L2-Parametersch\xE4tzung...</h3>\n"
            "\nAusrei\xDF"
            "er gefunden: 5\n\n");
  listener.texts.clear();
  OldStyleMessageHandlerEN english(File("english.htm"));
  english.SetJob(&listener);
  english.ReportRobustEstimation();
  english.ReportL2Estimation();
  english.ReportBlunderCount(0);
  EXPECT_EQ(listener.All(),
            "\n<h3>Robust estemation...</h3>\n"
            "\n<h3>L2-estemation...</h3>\n"
            "\nBlunder found: 0\n\n");
}

TEST_F(ProtocolFrame, FailureTextsOfAllCodes) {
  const std::pair<std::int32_t, BilingualText> expected[] = {
      {-12011, {"Keine Messungen vorhanden", "no observations"}},
      {-12010,
       {"Linienkoordinaten und variable Hauptpunktlage koennen nicht zusammen verarbeitet werden",
        "line coordinates and variable principal point can not be calculated together"}},
      {-12009, {"Kein Fortschritt in der Ausgleichung", "no progress in adjustment"}},
      {-12008, {"Doppelte Daten", "double data"}},
      {-12007, {"Interner Fehler", "internal error"}},
      {-12006, {"Keine Unbekannten", "no unknown"}},
      {-12005, {"Abbruch durch Nutzer", "abort by user"}},
      {-12004, {"S0 Zu Gross", "S0 too large"}},
      {-12003, {"Ung\xFCltige Parameter", "invalid parameter"}},
      {-12002, {"Keine Messungen vorhanden", "no observations"}},
      {-12001, {"Kii gleich Null", "Kii equal zeroNull"}},
      {-9999, {"", ""}},
      {-39007, {"", ""}},
      {-12012, {"", ""}},
      {-12000, {"", ""}},
      {0, {"", ""}}};
  OldStyleMessageHandlerDE german(File());
  OldStyleMessageHandlerEN english(File("english.htm"));
  for (const auto& [code, text] : expected) {
    Listener listener;
    german.SetJob(&listener);
    german.RunFailed(code);
    ASSERT_EQ(listener.texts.size(), 2U);
    EXPECT_EQ(listener.texts[0],
              "\n<h3>Abbruch: Fehler " + std::to_string(code) + " - " + text.german + "</h3>\n\n");
    EXPECT_EQ(listener.texts[1], "\n<h3>Berechnung nicht erfolgreich</h3>\n\n");
    Listener other;
    english.SetJob(&other);
    english.RunFailed(code);
    ASSERT_EQ(other.texts.size(), 2U);
    EXPECT_EQ(other.texts[0],
              "\n<h3>Abbort: Error " + std::to_string(code) + " - " + text.english + "</h3>\n\n");
    EXPECT_EQ(other.texts[1], "\n<h3>Calculation failed</h3>\n\n");
    german.SetJob(nullptr);
    english.SetJob(nullptr);
  }
}

TEST_F(ProtocolFrame, EndLineHasASingleBlankBehindTheWeekday) {
  const std::int64_t start = At(9, 3, 5);
  const std::int64_t end = At(9, 4, 15);
  Listener listener;
  OldStyleMessageHandlerDE german(File());
  german.SetJob(&listener);
  german.RunClosed(&start, &end);
  ASSERT_EQ(listener.texts.size(), 1U);
  EXPECT_EQ(listener.texts[0],
            "\n<h3>Ende der Ausgleichung: Mo 16.11.2026   9:04:15"
            "\n\n      Gesamtlaufzeit:  70 s</h3>\n\n</pre>\n</body>\n</html>\n");
  SetLanguage(Language::English);
  listener.texts.clear();
  OldStyleMessageHandlerEN english(File("english.htm"));
  english.SetJob(&listener);
  english.RunClosed(&start, &end);
  EXPECT_EQ(listener.texts[0],
            "\n<h3>End of bundle adjustment: Mo 16 November 2026   9:04:15 am"
            "\n\n      Time:  70 s</h3>\n\n</pre>\n</body>\n</html>\n");
}

TEST_F(ProtocolFrame, FinishedRunOverNothingHasDatumSummaryAndRedundancySum) {
  Listener listener;
  test::ResultScene scene;
  scene.results.redundancySum = 3725.99996;
  const std::string back =
      "</a> <a href=\"#Start\">(zur\xFC"
      "ck zum Anfang)</a></h4>\n";
  OldStyleMessageHandlerDE german(File());
  german.SetJob(&listener);
  german.RunFinished(scene.results);
  EXPECT_EQ(listener.All(),
            "<h2>\nBerechnung fertig</h2>\n\n\n"
            "<h4><a name=\"HlmTrn\">*** Bedingung Translation ***" +
                back +
                "Aktiv: nein\n\n"
                "<h4><a name=\"HlmRot\">*** Bedingung Rotation ***" +
                back +
                "Aktiv: nein\n\n"
                "<h4><a name=\"HlmM\">*** Bedingung Ma\xDFstab ***" +
                back +
                "Aktiv: nein\n\n"
                "\n<h4><a name=\"Zusammenfassung\">*** Zusammenfassung ***" +
                back +
                "<h5>Gesamtstatistik</h5>"
                "                 Standardabweichung:   0.000000\n"
                "               Anzahl Beobachtungen:        0\n"
                "                  Anzahl Unbekannte:        0\n"
                "                 Anzahl Bedingungen:        0\n"
                "                    Gesamtredundanz:        0\n"
                "             Durchlaufene Schleifen:        0\n"
                " Durchgef\xFChrte Ausrei\xDF"
                "ererkennungen:        0\n"
                "\n"
                "\nGesamtredundanz:  3726.0000\n\n");
  EXPECT_EQ(listener.texts.size(), 10U);
}

TEST_F(ProtocolFrame, SectionHeadingIsWordedInTheLanguageOfTheMoment) {
  EXPECT_EQ(SectionHeading("lines", "Linien"),
            "<h4><a name=\"lines\">*** Linien ***</a> <a href=\"#Start\">(zur\xFC"
            "ck zum Anfang)</a></h4>\n");
  SetLanguage(Language::English);
  EXPECT_EQ(SectionHeading("lines", "Linien"),
            "<h4><a name=\"lines\">*** Linien ***</a> <a href=\"#Start\">(return to "
            "start)</a></h4>\n");
}

TEST_F(ProtocolFrame, TextReachesTheTargetFirstAndIsInTheFileWhenTheCallReturns) {
  Listener listener(File());
  OldStyleMessageHandlerDE writer(File());
  writer.SetJob(&listener);
  writer.WriteText("one\n");
  EXPECT_EQ(Contents(File()), "one\n");
  writer.WriteText("two");
  EXPECT_EQ(Contents(File()), "one\ntwo");
  EXPECT_EQ(listener.texts, (std::vector<std::string>{"one\n", "two"}));
  EXPECT_EQ(listener.sizes, (std::vector<std::uintmax_t>{0, 4}));
}

TEST_F(ProtocolFrame, OpeningTruncatesAnExistingFile) {
  std::ofstream(File()) << "something older and longer";
  OldStyleMessageHandlerDE writer(File());
  EXPECT_TRUE(writer.OpenProtocol());
  writer.WriteText("new");
  EXPECT_EQ(Contents(File()), "new");
}

TEST_F(ProtocolFrame, DetachedTargetHearsNoMoreWhileTheFileGoesOn) {
  Listener listener;
  OldStyleMessageHandlerDE writer(File());
  writer.WriteText("before ");
  writer.SetJob(&listener);
  writer.WriteText("heard ");
  writer.SetJob(nullptr);
  writer.WriteText("unheard");
  EXPECT_EQ(listener.All(), "heard ");
  EXPECT_EQ(Contents(File()), "before heard unheard");
}

void WriteWholeRun(BundleMessageHandlerItf& writer) {
  const std::int64_t time = At(9, 3, 5);
  writer.RunStarted(&time, AdjustmentSettings(), Everything());
  writer.WriteIteration(SomeIteration());
  writer.ReportBlunderCount(12345);
  const test::ResultScene scene;
  writer.RunFinished(scene.results);
  writer.RunFailed(-12011);
  writer.RunClosed(&time, &time);
}

TEST_F(ProtocolFrame, FileThatCannotBeOpenedLeavesTheTargetEverything) {
  Listener whole;
  OldStyleMessageHandlerEN writable(File());
  writable.SetJob(&whole);
  WriteWholeRun(writable);
  Listener alone;
  OldStyleMessageHandlerEN writer(File("no/such/folder/protocol.htm"));
  EXPECT_FALSE(writer.OpenProtocol());
  writer.SetJob(&alone);
  WriteWholeRun(writer);
  EXPECT_EQ(alone.texts.size(), 17U);
  EXPECT_EQ(alone.texts, whole.texts);
  EXPECT_EQ(Contents(File()), whole.All());
}

TEST_F(ProtocolFrame, RunThatNobodySeesLeavesNothing) {
  class Deaf final : public Listener {
   public:
    [[nodiscard]] bool IsListening() const override { return false; }
  };
  Deaf deaf;
  for (Listener* listener : {static_cast<Listener*>(nullptr), static_cast<Listener*>(&deaf)}) {
    OldStyleMessageHandlerEN writer(File("no/such/folder/protocol.htm"));
    writer.SetJob(listener);
    const test::ResultScene scene;
    writer.RunFinished(scene.results);
    EXPECT_FALSE(std::filesystem::exists(File("no")));
  }
  EXPECT_TRUE(deaf.texts.empty());
}

TEST_F(ProtocolFrame, ForwarderWithoutWriterIsSilent) {
  BundleMessageHandler handler;
  Listener listener;
  const std::int64_t time = 0;
  EXPECT_FALSE(handler.OpenProtocol());
  handler.SetJob(&listener);
  handler.WriteText("text");
  handler.RunStarted(&time, AdjustmentSettings(), ProtocolContents());
  handler.ReportRobustEstimation();
  handler.ReportL2Estimation();
  handler.ReportBlunderCount(1);
  const test::ResultScene scene;
  handler.RunFinished(scene.results);
  handler.RunFailed(-1);
  handler.RunClosed(&time, &time);
  handler.WriteIteration(IterationInfo());
  EXPECT_TRUE(listener.texts.empty());
}

TEST_F(ProtocolFrame, ForwarderPassesEveryOperationOnAndClosesTheOldWriter) {
  BundleMessageHandler handler;
  handler.SetHandler(std::make_unique<OldStyleMessageHandlerDE>(File()));
  EXPECT_TRUE(handler.OpenProtocol());
  Listener listener;
  handler.SetJob(&listener);
  const std::int64_t time = At(9, 3, 5);
  handler.WriteText("text");
  handler.RunStarted(&time, AdjustmentSettings(), ProtocolContents());
  handler.ReportRobustEstimation();
  handler.ReportL2Estimation();
  handler.ReportBlunderCount(1);
  handler.WriteIteration(IterationInfo());
  const test::ResultScene scene;
  handler.RunFinished(scene.results);
  handler.RunFailed(-1);
  handler.RunClosed(&time, &time);
  EXPECT_EQ(listener.texts.size(), 20U);
  EXPECT_EQ(Contents(File()), listener.All());
  handler.SetHandler(std::make_unique<OldStyleMessageHandlerDE>(File("second.htm")));
  handler.WriteText("other");
  EXPECT_EQ(Contents(File("second.htm")), "other");
  EXPECT_EQ(listener.texts.size(), 20U);
  handler.ClearHandler();
  EXPECT_FALSE(handler.OpenProtocol());
}

TEST_F(ProtocolFrame, ForwarderClosesTheOldFileBeforeTheSameNameOpensAgain) {
  BundleMessageHandler handler;
  handler.SetHandler(std::make_unique<OldStyleMessageHandlerDE>(File()));
  handler.WriteText("a first and longer report");
  handler.ClearHandler();
  EXPECT_EQ(Contents(File()), "a first and longer report");
  handler.SetHandler(std::make_unique<OldStyleMessageHandlerDE>(File()));
  handler.WriteText("second");
  EXPECT_EQ(Contents(File()), "second");
}

TEST_F(ProtocolFrame, ProcessLocaleDoesNotReachTheText) {
  Listener classic;
  Listener comma;
  {
    OldStyleMessageHandlerDE writer(File("classic.htm"));
    writer.SetJob(&classic);
    WriteWholeRun(writer);
  }
  {
    const test::CommaLocale locale;
    OldStyleMessageHandlerDE writer(File("comma.htm"));
    writer.SetJob(&comma);
    WriteWholeRun(writer);
  }
  EXPECT_EQ(classic.texts, comma.texts);
  EXPECT_EQ(Contents(File("classic.htm")), Contents(File("comma.htm")));
}

TEST_F(ProtocolFrame, StreamKeepsItsFiveDefaults) {
  const ProtocolStream stream(File());
  EXPECT_EQ(stream.fIntWidth, 8);
  EXPECT_EQ(stream.fIntFlags, std::ios_base::right);
  EXPECT_EQ(stream.fDoubleWidth, 12);
  EXPECT_EQ(stream.fDoublePrecision, 4);
  EXPECT_EQ(stream.fDoubleFlags, std::ios_base::fixed | std::ios_base::right);
}

}  // namespace
}  // namespace vermo
