// What is told of outlier tests and disabled groups, and the summary, text by text.

#include "adjustment/blunder_round_info.h"
#include "checks/latin1.h"
#include "observations/messung_biko.h"
#include "observations/messung_strecke.h"
#include "protocol/recorded_writer.h"
#include "protocol/result_scene.h"
#include "support/fake_observation.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_ior.h"
#include "unknowns/data_obko.h"

#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace vermo::test {
namespace {

constexpr WriterLanguage kGerman = WriterLanguage::German;
constexpr WriterLanguage kEnglish = WriterLanguage::English;

class BlunderBlock : public testing::Test {
 protected:
  BlunderBlock() {
    round.beobachtungen = 10;
    round.unbekannte = 14;
    round.bedingungen = 7;
    round.redundanz = 3;
    round.testwertKritisch = 3.5;
    round.testwertAusreisser = 12.25;
    round.testwertReaktivierung = 1234567.5;
    biko.SetNummer(3);
    biko.SetBildNummer(4);
    distance.SetNummern(1, 2);
  }

  std::string Test(WriterLanguage language) {
    return Written(language, [&](RecordedWriter& w) { w->WriteAusreisserTest(round); });
  }
  std::string Final(WriterLanguage language) {
    return Written(language, [&](RecordedWriter& w) { w->WriteFinalIteration(round); });
  }

  BlunderRoundInfo round;
  MessungBiko biko;
  MessungStrecke distance;
};

TEST_F(BlunderBlock, WithoutOutliers) {
  EXPECT_EQ(Test(kGerman),
            "\n\nAnzahl der Beobachtungen      : 10\n"
            "Anzahl der Unbekannten        : 14\n"
            "Anzahl der Bedingungen        : 7\n"
            "Gesamtredundanz               : 3\n"
            "Testwert für den Ausreißertest: 3.500000\n"
            "\n"
            "    Aktueller Testwert        : 12.250000\n"
            "    Testwert für Reaktivierung: 1234567.500000\n"
            "\n"
            "\n"
            "Keine Ausreißer festgestellt. \n"
            "\n"_latin1);
  EXPECT_EQ(Test(kEnglish),
            "\n\nNumber of observations        : 10\n"
            "Number of unknowns            : 14\n"
            "Number of constraints         : 7\n"
            "Redundancy                    : 3\n"
            "Test value for blunder test   : 3.500000\n"
            "\n"
            "  Current test value          : 12.250000\n"
            "  Test value for reactivation : 1234567.500000\n"
            "\n"
            "\n"
            "No blunders found. \n"
            "\n");
}

TEST_F(BlunderBlock, ReactivatedEntriesHaveTheirWidthInFrontOfTheBracket) {
  round.ausreisser = {{&biko, 12.345}, {&distance, 12345.678}};
  round.reaktiviert = {{&distance, 2.5}, {&biko, 1234.5}};
  const std::string german = Test(kGerman);
  EXPECT_EQ(german.substr(german.find("\nAusr")),
            "\nAusreißer: \n\n"
            "Bildkoordinate Punkt 3 ,Bild 4 ( 12.35)\n"
            "Strecke 1 - 2 (12345.68)\n"
            "\n"
            "Reaktivierte Ausreißer: \n\n"
            "Strecke 1 - 2     (2.50)\n"
            "Bildkoordinate Punkt 3 ,Bild 4     (1234.50)\n"
            "\n"_latin1);
  const std::string english = Test(kEnglish);
  EXPECT_EQ(english.substr(english.find("\nBlunders")),
            "\nBlunders: \n\n"
            "Image coordinate point3 ,Image 4 ( 12.35)\n"
            "Distance 1 - 2 (12345.68)\n"
            "\n"
            "Reactivated Blunders: \n\n"
            "Distance 1 - 2     (2.50)\n"
            "Image coordinate point3 ,Image 4     (1234.50)\n"
            "\n");
}

TEST_F(BlunderBlock, ReactivationWithoutOutliers) {
  round.reaktiviert = {{&distance, 2.5}};
  const std::string english = Test(kEnglish);
  EXPECT_EQ(english.substr(english.find("\nNo ")),
            "\nNo blunders found. \n"
            "\n"
            "Reactivated Blunders: \n\n"
            "Distance 1 - 2     (2.50)\n"
            "\n");
}

TEST_F(BlunderBlock, EntriesAreTextsOfTheirOwn) {
  round.ausreisser = {{&biko, 12.345}};
  RecordedWriter writer(kEnglish);
  writer->WriteAusreisserTest(round);
  ASSERT_EQ(writer.Texts().size(), 5U);
  EXPECT_EQ(writer.Texts()[1], "\n");
  EXPECT_EQ(writer.Texts()[2], "Blunders: \n\n");
  EXPECT_EQ(writer.Texts()[3], "Image coordinate point3 ,Image 4 ( 12.35)\n");
  EXPECT_EQ(writer.Texts()[4], "\n");
}

// The redundancy of this variant does not know the constraints.
TEST_F(BlunderBlock, FirstVariant) {
  round.reaktiviert = {{&distance, 2.5}};
  EXPECT_EQ(Final(kGerman),
            "\n\nAnzahl der Beobachtungen     : 10\n"
            "Anzahl der Unbekannten       : 14\n"
            "Anzahl der Bedingungen       : 7\n"
            "Gesamtredundanz              : -4\n"
            "Testwert für den Auseißertest: 3.500000\n"
            "\n"
            "   Aktueller Testwert        : 12.250000\n"
            "   Testwert für Reaktivierung: 1234567.500000\n"
            "\n"
            "\n"
            "Keine Ausreißer festgestellt. \n"
            "\n"
            "Reaktivierte Ausreißer: \n\n"
            "Strecke 1 - 2     (2.50)\n"
            "\n"_latin1);
  EXPECT_EQ(Final(kEnglish),
            "\n\nNumber of observations      : 10\n"
            "Number of unknowns          : 14\n"
            "Redundancy                  : -4\n"
            "Test value for blunder test   : 3.500000\n"
            "\n"
            "  Current test value         : 12.250000\n"
            "  Test value for reactivation: 1234567.500000\n"
            "\n"
            "\n"
            "No blunders found. \n"
            "\n"
            "Reactivated blunders: \n\n"
            "Distance 1 - 2     (2.50)\n"
            "\n");
}

class GroupLists : public testing::Test {
 protected:
  GroupLists() {
    enough.SetId(5);
    enough.SetEnoughRays(true);
    enough.AddMessung(&ray);
    lonely.SetId(6);
    lonely.SetEnoughRays(false);
    image.SetId(7);
  }

  FakeObservation ray{MessungKind::Biko};
  DataObko enough;
  DataObko lonely;
  DataEor image;
};

TEST_F(GroupLists, DisabledPointsTellTheirRaysOrTheirObservations) {
  const std::vector<Data*> groups = {&enough, &lonely, &image};
  const auto act = [&](RecordedWriter& w) { w->WriteDatenDeaktiviert(groups); };
  EXPECT_EQ(Written(kGerman, act),
            "\nWarnung: Unbekannte deaktiviert - zugehörige Messwerte fehlen\n"
            "Objektkoordinate 5\n"
            "zu wenig Strahlen (0)\n"
            "Objektkoordinate 6\n"
            "zugehörige Messwerte fehlen\n"
            "Äussere Orientierung 7\n"
            "\n"_latin1);
  EXPECT_EQ(Written(kEnglish, act),
            "\nWarning: Unknown disabled - not enough observations\n"
            "Object coordinate 5\n"
            "not enough rays (0)\n"
            "Object coordinate 6\n"
            "not enough observations\n"
            "Exterior Orientation 7\n"
            "\n");
}

// The two writers ask for opposite states.
TEST_F(GroupLists, EnabledPointsTellTheirRaysInOppositeStates) {
  const std::vector<Data*> groups = {&enough, &lonely, &image};
  const auto act = [&](RecordedWriter& w) { w->WriteDatenReaktiviert(groups); };
  EXPECT_EQ(Written(kGerman, act),
            "\nWarnung: Unbekannte reaktiviert - Anzahl Strahlen gültig (1)\n"
            "Objektkoordinate 5\n"
            "\n"
            "Objektkoordinate 6\n"
            "\n"
            "Äussere Orientierung 7\n"
            "\n"_latin1);
  EXPECT_EQ(Written(kEnglish, act),
            "\nWarning: Unknown reactivated - \n"
            "Object coordinate 5\n"
            "enough rays (0)\n"
            "Object coordinate 6\n"
            "\n"
            "Exterior Orientation 7\n"
            "\n");
}

TEST_F(GroupLists, EmptyListsAreALineEnd) {
  for (const WriterLanguage language : {kGerman, kEnglish}) {
    EXPECT_EQ(Written(language, [](RecordedWriter& w) { w->WriteDatenDeaktiviert({}); }), "\n");
    EXPECT_EQ(Written(language, [](RecordedWriter& w) { w->WriteDatenReaktiviert({}); }), "\n");
  }
}

class Summary : public testing::Test, public ResultScene {
 protected:
  // Behind the figures of the whole run.
  std::string Tables(WriterLanguage language) {
    const std::string text =
        Written(language, [&](RecordedWriter& w) { w->WriteSummary(results); });
    const std::string last = language == kGerman ? "Durchgeführte Ausreißererkennungen: "_latin1
                                                 : "Blunder detections executed: ";
    return text.substr(text.find(last) + last.size());
  }
};

TEST_F(Summary, OverallFigures) {
  results.statistics.fS0 = 0.0012345678;
  results.statistics.fBeobachtungen = 123456789;
  results.statistics.fUnbekannte = 5;
  results.statistics.fBedingungsAnzahl = 6;
  results.statistics.fRedundanz = -7;
  results.statistics.fIteration = 8;
  results.statistics.fAusreisserRunde = 9;
  EXPECT_EQ(Written(kGerman, [&](RecordedWriter& w) { w->WriteSummary(results); }),
            "\n<h4><a name=\"Zusammenfassung\">*** Zusammenfassung ***</a> <a "
            "href=\"#Start\">(zurück zum Anfang)</a></h4>\n"
            "<h5>Gesamtstatistik</h5>"
            "                 Standardabweichung:   0.001235\n"
            "               Anzahl Beobachtungen: 123456789\n"
            "                  Anzahl Unbekannte:        5\n"
            "                 Anzahl Bedingungen:        6\n"
            "                    Gesamtredundanz:       -7\n"
            "             Durchlaufene Schleifen:        8\n"
            " Durchgeführte Ausreißererkennungen:        9\n"
            "\n"_latin1);
  EXPECT_EQ(Written(kEnglish, [&](RecordedWriter& w) { w->WriteSummary(results); }),
            "\n<h4><a name=\"summary\">*** Summary ***</a> <a href=\"#Start\">(return to "
            "start)</a></h4>\n"
            "<h5>Summary of statistics</h5>"
            "                 Standard deviation:   0.001235\n"
            "             Number of observations: 123456789\n"
            "                 Number of unknowns:        5\n"
            "              Number of constraints:        6\n"
            "                  Redundancy at all:       -7\n"
            "                              Loops:        8\n"
            "        Blunder detections executed:        9\n"
            "\n");
}

TEST_F(Summary, OnlyFixedPointsHaveNoAccuracies) {
  results.figures.objectPoints.fixed = 3;
  results.figures.objectPoints.meanRays = 2.3456;
  EXPECT_EQ(Tables(kGerman),
            "       0\n"
            "\n<h5>Statistik der Objektpunkte</h5>"
            "             Anzahl der festen Objektpunkte:        3\n"
            "        Anzahl der geschätzten Objektpunkte:        0\n"
            "        Durchschn. Strahlen pro Objektpunkt:        2.35\n"
            "\n"_latin1);
}

TEST_F(Summary, EstimatedPointsHaveAccuracies) {
  results.figures.objectPoints.estimated = 2;
  results.figures.objectPoints.rms = {0.25, 0.5, 0.75};
  results.figures.objectPoints.largest = {1.25, 1.5, 12345.75};
  EXPECT_EQ(Tables(kEnglish),
            "       0\n"
            "\n<h5>Object coordinate statistics</h5>"
            "              Number of fixed object points:        0\n"
            "          Number of estimated object points:        2\n"
            "      Mean number of rays per object points:        0.00\n"
            "\n"
            "                                             |     x    |     y    |     z    |\n"
            "                    Mean standard deviation:   0.250000   0.500000   0.750000\n"
            "                 Maximum standard deviation:   1.250000   1.500000 12345.750000\n"
            "\n");
}

TEST_F(Summary, HeadingOfTheImagesFollowsOnTheLineOfTheDistances) {
  results.figures.distances = {0.125, -0.25, 2};
  results.figures.images.count = 1;
  results.figures.images.meanRays = 4.26;
  results.figures.images.fewest = 3;
  results.figures.images.fewestId = 17;
  results.figures.images.rows.push_back({17, 3, 0.5, 0.25, -0.75, 0.125});
  EXPECT_EQ(Tables(kGerman),
            "       0\n"
            "\n<h5>Statistik der Strecken</h5>"
            "       Anzahl der verwendeten Strecken:        2\n"
            "                RMS der Verbesserungen:     0.1250\n"
            "                 Maximale Verbesserung:    -0.2500"
            "<h5>Statistik der Bilder</h5>"
            "         Anzahl der verwendeten Bilder:        1\n"
            " Mittlere Anzahl der Strahlen pro Bild:        4.3   pro Bild\n"
            "          Minimale Anzahl von Strahlen:        3     in Bild  17\n"
            "\nStatistik der Bildkoordinaten für die Bilder:\n\n"
            "   EOR  |    n     |  rms vx  |  rms vy  |  max vx  |  max vy  |\n"
            "      17          3   0.500000   0.250000  -0.750000   0.125000\n"
            "\n"_latin1);
  EXPECT_EQ(Tables(kEnglish),
            "       0\n"
            "\n<h5>Distance statistics</h5>"
            "     Number of used distances:        2\n"
            "             RMS of residuals:     0.1250\n"
            "             Maximum residual:    -0.2500"
            "<h5>Images statistic</h5>"
            "        Number of used images:        1\n"
            "Mean number of rays per image:        4.3\n"
            "       Minimum number of rays:        3   in image  17\n"
            "\nImage coordinate statistics per image:\n\n"
            "   EOR  |    n     |  rms vx  |  rms vy  |  max vx  |  max vy  |\n"
            "      17          3   0.500000   0.250000  -0.750000   0.125000\n"
            "\n");
}

TEST_F(Summary, InactiveCamerasHaveTheirRowToo) {
  MessungBiko ray;
  ray.SetActive(true);
  ray.CollectComponents()[0].SetResiduum(0.5);
  ray.CollectComponents()[1].SetResiduum(-0.25);
  MessungBiko rejected = ray;
  rejected.CollectComponents()[0].SetResiduum(9.0);
  rejected.SetAusreisser();
  DataIor used;
  used.SetId(1);
  used.SetActive(true);
  DataIor inactive;
  inactive.SetId(2);
  inactive.AddMessung(&ray);
  inactive.AddMessung(&rejected);
  results.cameras = {&used, &inactive};
  results.figures.cameras = {1, 0};
  EXPECT_EQ(Tables(kGerman),
            "       0\n"
            "<h5>Statistik der Kameras</h5>"
            "      Anzahl der festen Kameras:        1\n"
            " Anzahl der geschätzten Kameras:        0\n"
            "\n"
            "\nStatistik der Bildkoordinaten für die Kameras:\n\n"
            "   IOR  |    n     |  rms vx  |  rms vy  |  max vx  |  max vy  |\n"
            "       1          0   0.000000   0.000000   0.000000   0.000000\n"
            "       2          1   0.500000   0.250000   0.500000  -0.250000\n"
            "\n"_latin1);
}

TEST_F(Summary, WithoutAnActiveCameraThereIsNoTableOfThem) {
  DataIor inactive;
  results.cameras = {&inactive};
  EXPECT_EQ(Tables(kEnglish), "       0\n\n");
}

}  // namespace
}  // namespace vermo::test
