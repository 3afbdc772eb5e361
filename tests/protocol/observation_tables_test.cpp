// The tables of observations row by row.

#include "observations/bedingung_punkt.h"
#include "observations/messung_biko.h"
#include "observations/messung_linko.h"
#include "observations/messung_obko.h"
#include "observations/messung_strecke.h"
#include "protocol/recorded_writer.h"
#include "unknowns/data_linie.h"
#include "unknowns/data_obko.h"
#include "unknowns/data_plane.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>

namespace vermo::test {
namespace {

constexpr WriterLanguage kGerman = WriterLanguage::German;
constexpr WriterLanguage kEnglish = WriterLanguage::English;

// Residuals, redundancies and test values of the components in order.
struct Figures {
  double v;
  double r;
  double t;
};

void Fill(Messung& observation, std::initializer_list<Figures> figures) {
  auto* wert = observation.CollectComponents().data();
  for (const Figures& f : figures) {
    wert->SetResiduum(f.v);
    wert->SetRedundanz(f.r);
    wert->SetTestwert(f.t);
    ++wert;
  }
  observation.SetActive(true);
}

MessungBiko Biko(std::uint32_t point, std::uint32_t image, double vx = 0.001, double vy = -0.002) {
  MessungBiko biko;
  biko.SetNummer(point);
  biko.SetBildNummer(image);
  biko[0] = 1.25;
  biko[1] = -10.5;
  biko.SetSigma(0.001, 0.002);
  Fill(biko, {{vx, 0.5, 1.5}, {vy, 0.25, 2.5}});
  return biko;
}

template <typename Observation>
Observation Rejected(Observation observation) {
  observation.SetAusreisser();
  return observation;
}

std::string ImageTable(WriterLanguage language, std::initializer_list<const MessungBiko*> bikos) {
  return Written(language, [&](RecordedWriter& w) { w->WriteImageCoordinates(bikos); });
}

// Behind the heading and the head.
std::string Rows(const std::string& table, const std::string& endOfHead) {
  const std::size_t begin = table.find(endOfHead);
  return begin == std::string::npos ? table : table.substr(begin + endOfHead.size());
}

TEST(ImageCoordinateTable, OutlierOpensAGroupOfItsOwnBeforeItsImageFollows) {
  const MessungBiko first = Biko(1, 6);
  const MessungBiko second = Rejected(Biko(2, 7, 0.5, 0.25));
  const MessungBiko third = Biko(3, 7);
  EXPECT_EQ(Rows(ImageTable(kGerman, {&first, &second, &third}), "Testwerte \n"),
            "\n"
            "     2      7          1.250000    -10.500000    0.500000    0.250000    0.001000    "
            "0.002000 "
            "  0.50   0.25  1.50  2.50  ***\n"
            "\n"
            "     1      6          1.250000    -10.500000    0.001000   -0.002000    0.001000    "
            "0.002000 "
            "  0.50   0.25  1.50  2.50 \n"
            "\n"
            "     3      7          1.250000    -10.500000    0.001000   -0.002000    0.001000    "
            "0.002000 "
            "  0.50   0.25  1.50  2.50 \n"
            "\n"
            "                             Max Verbesserung:   0.001000  -0.002000 \n");
}

TEST(ImageCoordinateTable, OutlierOfTheFirstImageStandsWithItsOtherRows) {
  const MessungBiko plain = Biko(1, 7);
  const MessungBiko outlier = Rejected(Biko(2, 7));
  const std::string rows = Rows(ImageTable(kEnglish, {&plain, &outlier}), "Test values\n");
  EXPECT_EQ(rows.find("\n     2      7 "), 0U);
  EXPECT_NE(rows.find("  ***\n     1      7 "), std::string::npos);
}

TEST(ImageCoordinateTable, RowsAscendByImageAndPointAndGroupsShareOneBlankLine) {
  const MessungBiko a = Biko(2, 8);
  const MessungBiko b = Biko(9, 7);
  const MessungBiko c = Biko(10, 7);
  const std::string rows = Rows(ImageTable(kEnglish, {&a, &c, &b}), "Test values\n");
  const std::size_t first = rows.find("\n     9      7 ");
  const std::size_t second = rows.find("\n    10      7 ");
  const std::size_t third = rows.find("\n\n     2      8 ");
  EXPECT_EQ(first, 0U);
  EXPECT_LT(first, second);
  EXPECT_LT(second, third);
  EXPECT_NE(third, std::string::npos);
}

TEST(ImageCoordinateTable, InactiveObservationLeavesNoRowAndNoResidual) {
  const MessungBiko used = Biko(1, 7);
  MessungBiko absent = Biko(2, 8, 9.0, 9.0);
  absent.SetActive(false);
  const std::string rows = Rows(ImageTable(kEnglish, {&absent, &used}), "Test values\n");
  EXPECT_EQ(rows.find("     2      8"), std::string::npos);
  EXPECT_NE(rows.find("\n                           maximum residuals:   0.001000  -0.002000 \n"),
            std::string::npos);
}

TEST(ImageCoordinateTable, OnlyOutliersHaveNoLargestResidual) {
  const MessungBiko outlier = Rejected(Biko(1, 7));
  const std::string german = ImageTable(kGerman, {&outlier});
  const std::string english = ImageTable(kEnglish, {&outlier});
  EXPECT_NE(german.find("  ***\n\n                             Max Verbesserung:   0.000000   "
                        "0.000000 \n"),
            std::string::npos);
  EXPECT_NE(english.find("  ***\n\n                           maximum residuals:   0.000000   "
                         "0.000000 \n"),
            std::string::npos);
}

TEST(ImageCoordinateTable, LargestResidualKeepsItsSignAndTheEarlierOfEquals) {
  const MessungBiko a = Biko(1, 7, 0.004, -0.004);
  const MessungBiko b = Biko(2, 7, -0.004, 0.004);
  const MessungBiko c = Biko(3, 7, -0.003, 0.001);
  EXPECT_NE(ImageTable(kEnglish, {&a, &b, &c}).find("residuals:   0.004000  -0.004000 \n"),
            std::string::npos);
  EXPECT_NE(ImageTable(kEnglish, {&b, &a, &c}).find("residuals:  -0.004000   0.004000 \n"),
            std::string::npos);
}

TEST(ImageCoordinateTable, OrdinalProtectionAndLargeTestValuesShiftARow) {
  MessungBiko biko = Biko(1, 7);
  biko.SetOrdinal(12);
  biko.SetNoBlunderTest(true);
  biko.CollectComponents()[0].SetTestwert(12345.678);
  EXPECT_NE(ImageTable(kGerman, {&biko})
                .find("\n     1      7 (12)      1.250000    -10.500000    0.001000   -0.002000    "
                      "0.001000    0.002000   0.50   0.25 12345.68  2.50  ---\n"),
            std::string::npos);
}

TEST(ImageCoordinateTable, HeadIsTwoTextsAndEachRowIsOne) {
  const MessungBiko a = Biko(1, 7);
  const MessungBiko b = Biko(2, 7);
  RecordedWriter writer(kGerman);
  writer->WriteImageCoordinates({&a, &b});
  ASSERT_EQ(writer.Texts().size(), 9U);
  EXPECT_EQ(writer.Texts()[0], "\n");
  EXPECT_EQ(writer.Texts()[1].substr(0, 30), "<h4><a name=\"image_coordinates");
  EXPECT_EQ(writer.Texts()[2], " Punkt| Bild |   |      x      |      y      |");
  EXPECT_EQ(writer.Texts()[4], "\n");
  EXPECT_EQ(writer.Texts()[8], "\n");
}

MessungLinko Linko(std::uint32_t number, double v) {
  MessungLinko linko;
  linko.SetNummer(number);
  linko.SetLinienNummer(4);
  linko.SetBildNummer(7);
  linko[0] = 1.25;
  linko[1] = -10.5;
  linko.SetSigma(0.001, 0.001);
  Fill(linko, {{v, 0.75, 3.125}});
  return linko;
}

TEST(LineCoordinateTable, DoesNotEndItsLastLine) {
  const MessungLinko a = Linko(2, 0.5);
  const MessungLinko b = Linko(1, -0.25);
  const MessungLinko c = Rejected(Linko(3, 9.0));
  const auto act = [&](RecordedWriter& w) { w->WriteLineCoordinates({&a, &b, &c}); };
  const std::string rows =
      "\n"
      "     3      7      4          1.2500    -10.5000   9.0000   0.7500  3.12  ***\n"
      "     1      7      4          1.2500    -10.5000  -0.2500   0.7500  3.12 \n"
      "     2      7      4          1.2500    -10.5000   0.5000   0.7500  3.12 \n"
      "\n";
  EXPECT_EQ(Rows(Written(kGerman, act), "Testwerte\n"),
            rows + "                               Max Verbesserung:   0.5000 ");
  EXPECT_EQ(Rows(Written(kEnglish, act), "Test values\n"),
            rows + "                              maximum residuals:   0.5000 ");
}

MessungObko Obko(std::uint32_t number, double v) {
  MessungObko obko;
  obko.SetNummer(number);
  for (unsigned i = 0; i < 3; ++i) obko[i] = 1.5 + i;
  Fill(obko, {{v, 0.5, 1.25}, {-v, 0.25, 2.5}, {0.0, 0.125, 3.75}});
  return obko;
}

TEST(MeasuredPointTable, OutliersStandFirstAndMarksHaveTwoBlanks) {
  const MessungObko plain = Obko(1, 0.25);
  const MessungObko outlier = Rejected(Obko(2, 5.0));
  const auto act = [&](RecordedWriter& w) { w->WriteMeasuredObjectPoints({&plain, &outlier}); };
  const std::string rows =
      "     2          1.5000      2.5000      3.5000   5.0000  -5.0000   0.0000     0.50     0.25 "
      "  "
      "  0.12   1.25   2.50   3.75  ***\n"
      "     1          1.5000      2.5000      3.5000   0.2500  -0.2500   0.0000     0.50     0.25 "
      "  "
      "  0.12   1.25   2.50   3.75\n"
      "\n";
  EXPECT_EQ(Rows(Written(kGerman, act), "Testwerte\n"),
            rows + "                             Max Verbesserung:   0.2500  -0.2500   0.0000 \n");
  EXPECT_EQ(Rows(Written(kEnglish, act), "Test values\n"),
            rows + "                            maximum residuals:   0.2500  -0.2500   0.0000 \n");
}

TEST(MeasuredPointTable, ProtectedRowHasItsMark) {
  MessungObko obko = Obko(1, 0.25);
  obko.SetNoBlunderTest(true);
  EXPECT_NE(Written(kGerman, [&](RecordedWriter& w) { w->WriteMeasuredObjectPoints({&obko}); })
                .find("   3.75  ---\n"),
            std::string::npos);
}

MessungStrecke Strecke(std::uint32_t first, std::uint32_t second, double v) {
  MessungStrecke strecke;
  strecke.SetNummern(first, second);
  strecke.SetStrecke(100.25, 0.02);
  Fill(strecke, {{v, 0.5, 1.25}});
  return strecke;
}

TEST(DistanceTable, KeepsTheOrderOfTheNetwork) {
  const MessungStrecke outlier = Rejected(Strecke(3, 1, 9.0));
  const MessungStrecke first = Strecke(5, 6, -0.4);
  MessungStrecke second = Strecke(1, 2, 0.3);
  second.SetNoBlunderTest(true);
  second.SetOrdinal(7);
  MessungStrecke absent = Strecke(8, 9, 5.0);
  absent.SetActive(false);
  const auto act = [&](RecordedWriter& w) {
    w->WriteDistances({&first, &outlier, &absent, &second});
  };
  // The root of (0.16 + 0.09) / 2.
  const std::string rows =
      "      5       6        100.2500    -0.4000     0.5000     0.0200       1.25\n"
      "      3       1        100.2500     9.0000     0.5000     0.0200       1.25  ***\n"
      "      1       2 (7)    100.2500     0.3000     0.5000     0.0200       1.25  ---\n"
      "\n";
  EXPECT_EQ(Rows(Written(kGerman, act), "Testwerte\n"),
            rows +
                "         RMS der Verbesserungen:    0.3536 \n"
                "               Max Verbesserung:   -0.4000 \n");
  EXPECT_EQ(Rows(Written(kEnglish, act), "Test value\n"),
            rows +
                "                  rms residuals:    0.3536 \n"
                "               maximum residual:   -0.4000 \n");
}

TEST(DistanceTable, OnlyOutliersHaveZeroForBothFigures) {
  const MessungStrecke outlier = Rejected(Strecke(3, 1, 9.0));
  const std::string german =
      Written(kGerman, [&](RecordedWriter& w) { w->WriteDistances({&outlier}); });
  EXPECT_NE(german.find("\n         RMS der Verbesserungen:    0.0000 \n"
                        "               Max Verbesserung:    0.0000 \n"),
            std::string::npos);
}

TEST(PointConstraintTables, ActiveConstraintsHaveARowAndOthersNone) {
  DataObko point;
  point.SetActive(true);
  DataLinie line;
  line.SetActive(true);
  DataPlane plane;
  plane.SetActive(true);
  BedingungPunktGerade onLine;
  onLine.SetNummern(11, 22, 33);
  onLine.SetLinks(&point, &line);
  onLine.SetActive(true);
  BedingungPunktGerade without = onLine;
  without.SetActive(false);
  ConstraintPointOnPlane onPlane;
  onPlane.SetNummern(1, 2, 123456789);
  onPlane.SetLinks(&point, &plane);
  onPlane.SetActive(true);
  const auto act = [&](RecordedWriter& w) {
    w->WriteConstraintsPointOnLine({&without, &onLine});
    w->WriteConstraintsPointOnPlane({&onPlane});
  };
  EXPECT_EQ(Written(kEnglish, act),
            "\n<h4><a name=\"constraints_point_on_line\">*** Constaint points on a linie ***</a> "
            "<a href=\"#Start\">(return to start)</a></h4>\n"
            "   ID   | Point  |  Line  |\n"
            "      11       22       33\n"
            "\n"
            "\n<h4><a name=\"constraints_point_on_plane\">*** Constraint points on a plane ***</a> "
            "<a href=\"#Start\">(return to start)</a></h4>\n"
            "   ID   | Point  | Plane  |\n"
            "       1        2 123456789\n"
            "\n");
}

TEST(ObservationTables, EmptyContainersLeaveNoTrace) {
  for (const WriterLanguage language : {kGerman, kEnglish}) {
    RecordedWriter writer(language);
    writer->WriteImageCoordinates({});
    writer->WriteLineCoordinates({});
    writer->WriteMeasuredObjectPoints({});
    writer->WriteDistances({});
    writer->WriteConstraintsPointOnLine({});
    writer->WriteConstraintsPointOnPlane({});
    EXPECT_TRUE(writer.Texts().empty());
  }
}

}  // namespace
}  // namespace vermo::test
