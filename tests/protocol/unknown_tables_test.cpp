// The tables of the unknown groups row by row.

#include "checks/latin1.h"
#include "linalg/envelope_system.h"
#include "protocol/recorded_writer.h"
#include "support/fake_observation.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_ior.h"
#include "unknowns/data_linie.h"
#include "unknowns/data_obko.h"
#include "unknowns/data_plane.h"
#include "unknowns/data_projektion.h"
#include "unknowns/doppel_orientierung.h"

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace vermo::test {
namespace {

constexpr WriterLanguage kGerman = WriterLanguage::German;
constexpr WriterLanguage kEnglish = WriterLanguage::English;

template <typename Group>
Group Active(std::uint32_t id, bool variable) {
  Group group;
  group.SetId(id);
  group.SetActive(true);
  group.SetVariable(variable);
  return group;
}

std::string After(const std::string& text, const std::string& mark) {
  const std::size_t begin = text.find(mark);
  return begin == std::string::npos ? "no " + mark : text.substr(begin + mark.size());
}

constexpr const char* kHeadingEnd = "</h4>\n";

DataIor Camera(bool variable, unsigned mask) {
  auto camera = Active<DataIor>(5, variable);
  camera.SetParameter(DataIor::kCk, -30.5);
  camera.SetParameter(DataIor::kAz2, 0.5);
  camera.SetR0(12.0);
  camera.SetParameterMask(DataIor::Mask(mask));
  return camera;
}

std::string CameraTable(WriterLanguage language, const DataIor& camera) {
  const EnvelopeSystem system;
  return After(Written(language,
                       [&](RecordedWriter& w) { w->WriteInteriorOrientations({&camera}, system); }),
               kHeadingEnd);
}

TEST(CameraTable, FixedCameraHasTheWordInEveryRowAndNoCorrelations) {
  EXPECT_EQ(CameraTable(kGerman, Camera(false, 0x1FFF)),
            "\n"
            " Kamera/R0:               5     1.200000e+01\n"
            " Ck       :   -3.050000e+01            fest\n"
            " Xh       :    0.000000e+00            fest\n"
            " Yh       :    0.000000e+00            fest\n"
            " A1       :    0.000000e+00            fest\n"
            " A2       :    0.000000e+00            fest\n"
            " A3       :    0.000000e+00            fest\n"
            " B1       :    0.000000e+00            fest\n"
            " B2       :    0.000000e+00            fest\n"
            " C1       :    0.000000e+00            fest\n"
            " C2       :    0.000000e+00            fest\n"
            "\n\n"
            "\n");
  EXPECT_EQ(CameraTable(kEnglish, Camera(false, 0x1FFF)),
            "\n"
            " Camera/R0:               5        0x1.8p+3\n"
            " Ck       :      -0x1.e8p+4             fix\n"
            " Xh       :          0x0p+0             fix\n"
            " Yh       :          0x0p+0             fix\n"
            " A1       :          0x0p+0             fix\n"
            " A2       :          0x0p+0             fix\n"
            " A3       :          0x0p+0             fix\n"
            " B1       :          0x0p+0             fix\n"
            " B2       :          0x0p+0             fix\n"
            " C1       :          0x0p+0             fix\n"
            " C2       :          0x0p+0             fix\n"
            "\n\n"
            "\n");
}

TEST(CameraTable, WithoutDepthTermsThereAreNeitherRowsNorColumnsOfThem) {
  const std::string table = CameraTable(kGerman, Camera(true, 0x3FF));
  EXPECT_EQ(table.find("AZ"), std::string::npos);
  EXPECT_NE(table.find("         Ck      Xh      Yh      A1      A2      A3      B1      B2      "
                       "C1      C2      \n\n\n"),
            std::string::npos);
}

// The camera has no columns: all its correlations are zero.
TEST(CameraTable, DepthTermsHaveTwoBlanksThenOne) {
  EXPECT_EQ(After(CameraTable(kGerman, Camera(true, 0x1C01)), " C2       :    0.000000e+00"),
            "            fest\n"
            " AZ1      :    0.000000e+00     0.000000e+00\n"
            " AZ2      :    5.000000e-01    0.000000e+00\n"
            " AZ3      :    0.000000e+00    0.000000e+00\n"
            "\nKorrelation:\n\n"
            "Ck     0.000\n"
            "AZ1     0.000   0.000\n"
            "AZ2     0.000   0.000   0.000\n"
            "AZ3     0.000   0.000   0.000   0.000\n"
            "         Ck      AZ1      AZ2      AZ3      \n\n"
            "\n");
}

TEST(CameraTable, CorrelationsAreTheNormalizedCofactors) {
  // N = (4 2; 2 2), whose inverse (0.5 -0.5; -0.5 1) has the correlation -1 / sqrt(2).
  EnvelopeSystem system;
  DataIor camera = Camera(true, 0x3);
  camera.SetFirstUnknown(0);
  system.Reset(2, 0);
  system.WidenRow(0, 0);
  system.WidenRow(1, 0);
  system.StoreElement(0, 0, 4.0);
  system.StoreElement(1, 0, 2.0);
  system.StoreElement(1, 1, 2.0);
  system.FactorizeAndSolve(false);
  EXPECT_NE(
      Written(kEnglish, [&](RecordedWriter& w) { w->WriteInteriorOrientations({&camera}, system); })
          .find(
              "\nCorrelation:\n\nCk     1.000\nXh    -0.707   1.000\n         Ck      Xh      \n"),
      std::string::npos);
}

TEST(CameraTable, InactiveCameraLeavesAnEmptyRow) {
  DataIor camera = Camera(true, 0x1);
  camera.SetActive(false);
  EXPECT_EQ(CameraTable(kGerman, camera), "\n\n");
}

TEST(ProjectionTable, NumbersAreHexadecimalInBothLanguages) {
  auto projection = Active<DataProjektion>(3, true);
  projection.SetValues(-30.5, 0.5, 0.0);
  projection.SetOrdinal(12);
  auto fixed = Active<DataProjektion>(4, false);
  auto inactive = Active<DataProjektion>(5, true);
  inactive.SetActive(false);
  const auto act = [&](RecordedWriter& w) {
    w->WriteProjections({&projection, &fixed, &inactive});
  };
  EXPECT_EQ(After(Written(kGerman, act), kHeadingEnd),
            "\n"
            " Projektion:            3\n"
            "(12)  Ck       :   -0x1.e8p+4        0x0p+0\n"
            " Xh       :       0x1p-1        0x0p+0\n"
            " Yh       :       0x0p+0        0x0p+0\n"
            "\n"
            " Projektion:            4\n"
            "     Ck       :       0x0p+0          fest\n"
            " Xh       :       0x0p+0          fest\n"
            " Yh       :       0x0p+0          fest\n"
            "\n"
            "\n");
  EXPECT_NE(Written(kEnglish, act)
                .find("\n Projection:            4\n     Ck       :       0x0p+0 "
                      "          fix\n"),
            std::string::npos);
}

TEST(ImageTable, InactiveImageHasAMessage) {
  auto image = Active<DataEor>(7, true);
  image.SetActive(false);
  const EnvelopeSystem system;
  const auto act = [&](RecordedWriter& w) { w->WriteExteriorOrientations({&image}, system, 0); };
  EXPECT_EQ(After(Written(kGerman, act), "  max vx  |  max vy  |\n"),
            "\n\n       7   *** Unbekannte deaktiviert ***\n\n\n");
  EXPECT_EQ(After(Written(kEnglish, act), "  max vx  |  max vy  |\n"),
            "\n\n       7   *** Unknown disabled ***\n\n\n");
}

TEST(ImageTable, FixedImageHasTheWordOnEachOfItsThreeLines) {
  auto image = Active<DataEor>(7, false);
  image.SetIorId(2);
  image.fTranslation = {1.5, -2.5, 1000.25};
  image.fRotation = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  const EnvelopeSystem system;
  const auto act = [&](RecordedWriter& w) {
    w->WriteExteriorOrientations({&image}, system, 0x201);
  };
  EXPECT_EQ(After(Written(kGerman, act), "  max vx  |  max vy  |\n"),
            "\n\n"
            "       7            2      1.5000     -2.5000   1000.2500       fest       fest       "
            "fest          0\n"
            "           air  gon   -0.00000000  0.00000000  0.00000000       fest       fest       "
            "fest   0.000000   0.000000\n"
            "                                                                fest       fest       "
            "fest   0.000000   0.000000\n"
            "\n"
            "\n");
}

TEST(ImageTable, RotationWithoutAnglesLosesItsRow) {
  auto lost = Active<DataEor>(7, false);
  std::ranges::fill(lost.fRotation, std::numeric_limits<double>::quiet_NaN());
  auto inactive = Active<DataEor>(8, false);
  inactive.SetActive(false);
  const EnvelopeSystem system;
  RecordedWriter writer(kGerman);
  writer->WriteExteriorOrientations({&lost, &inactive}, system, 0);
  EXPECT_EQ(After(writer.Joined(), "  max vx  |  max vy  |\n"),
            "\n\n       8   *** Unbekannte deaktiviert ***\n\n\n");
}

TEST(ImageTable, HeadIsNineTexts) {
  auto image = Active<DataEor>(7, false);
  const EnvelopeSystem system;
  RecordedWriter writer(kEnglish);
  writer->WriteExteriorOrientations({&image}, system, 0);
  ASSERT_EQ(writer.Texts().size(), 14U);
  EXPECT_EQ(writer.Texts()[2], "  Image no. | Ior no.|     x     |     y     |     z     |");
  EXPECT_EQ(writer.Texts()[10], "  max vx  |  max vy  |\n");
  EXPECT_EQ(writer.Texts()[11], "\n\n");
}

TEST(RelativeTable, MissingAndInactiveImagesDisableAPair) {
  auto image = Active<DataEor>(1, true);
  image.SetIorId(9);
  auto base = Active<DataEor>(2, true);
  auto inactive = Active<DataEor>(3, true);
  inactive.SetActive(false);
  const auto pair = [](std::uint32_t id, std::uint32_t eor, std::uint32_t of) {
    DoppelOrientierung relative;
    relative.SetIds(id, eor, of);
    relative.SetActive(true);
    return relative;
  };
  const DoppelOrientierung good = pair(100, 1, 2);
  const DoppelOrientierung noFirst = pair(101, 77, 2);
  const DoppelOrientierung noBase = pair(102, 1, 77);
  const DoppelOrientierung inactiveBase = pair(103, 1, 3);
  DoppelOrientierung off = pair(104, 1, 2);
  off.SetActive(false);
  const auto act = [&](RecordedWriter& w) {
    w->WriteRelativeOrientations({&good, &noFirst, &noBase, &inactiveBase, &off},
                                 {&image, &base, &inactive});
  };
  EXPECT_EQ(After(Written(kGerman, act), "Abs.Ori |\n"),
            "     100        9        1        2\n"
            "     101                77        2  *** deaktiviert ***\n"
            "     102        9        1       77  *** deaktiviert ***\n"
            "     103        9        1        3  *** deaktiviert ***\n"
            "     104        9        1        2  *** deaktiviert ***\n"
            "\n");
  EXPECT_NE(Written(kEnglish, act).find("     104        9        1        2  *** disabled ***\n"),
            std::string::npos);
}

DataObko Point(std::uint32_t id, bool variable) {
  auto point = Active<DataObko>(id, variable);
  point.SetCoordinates({1.5, -2.25, 1000.125});
  point.SetEnoughRays(true);
  return point;
}

TEST(PointTable, OrdinalOfTwoDigitsShiftsTheRow) {
  DataObko short1 = Point(1, false);
  short1.SetOrdinal(2);
  DataObko long2 = Point(2, false);
  long2.SetOrdinal(12);
  FakeObservation ray(MessungKind::Biko);
  FakeObservation rejected(MessungKind::Biko);
  rejected.SetAusreisser();
  FakeObservation distance(MessungKind::Strecke);
  for (FakeObservation* observation : {&ray, &rejected, &distance}) long2.AddMessung(observation);
  const auto act = [&](RecordedWriter& w) { w->WriteObjectPoints({&short1, &long2}); };
  EXPECT_EQ(
      After(Written(kGerman, act), "Ausreißer|\n"_latin1),
      "       1 (2)       1.5000      -2.2500    1000.1250      fest      fest      fest        "
      "0        0\n"
      "       2 (12)       1.5000      -2.2500    1000.1250      fest      fest      fest       "
      " 1        1\n"
      "\n"
      "                        Minimale Standardabweichung:   0.0000    0.0000    0.0000\n"
      "                        Maximale Standardabweichung:   0.0000    0.0000    0.0000\n"
      "                       RMS der Standardabweichungen:   0.0000    0.0000    0.0000\n"
      "\n");
}

TEST(PointTable, InactivePointTellsWhetherItLacksRays) {
  DataObko off = Point(1, true);
  off.SetActive(false);
  DataObko lonely = Point(2, true);
  lonely.SetActive(false);
  lonely.SetEnoughRays(false);
  const auto act = [&](RecordedWriter& w) { w->WriteObjectPoints({&off, &lonely}); };
  EXPECT_NE(Written(kGerman, act)
                .find("       1   *** Unbekannte deaktiviert ***\n"
                      "       2   *** Unbekannte deaktiviert - zu wenig Strahlen "
                      "***\n\n"),
            std::string::npos);
  EXPECT_NE(Written(kEnglish, act)
                .find("       1   *** unknown disabled ***\n"
                      "       2   *** unknown disabled - not enough rays ***\n\n"),
            std::string::npos);
}

TEST(LineTable, FixedLineDoesNotEndItsRow) {
  auto first = Active<DataLinie>(1, false);
  first.SetPoints({0.0, 0.0, 1.0}, {5.0, 0.0, 1.0});
  auto inactive = Active<DataLinie>(2, false);
  inactive.SetActive(false);
  auto second = Active<DataLinie>(3, false);
  second.SetPoints({0.0, 2.0, 0.0}, {0.0, 2.0, 9.0});
  second.SetOrdinal(1);
  const auto act = [&](RecordedWriter& w) { w->WriteLines({&first, &inactive, &second}); };
  EXPECT_EQ(
      After(Written(kGerman, act), "sz2     |\n\n"),
      "       1            0.0000        0.0000        1.0000        1.0000        0.0000        "
      "0.0000\n"
      "                      fest          fest          fest          fest          fest         "
      " fest "
      "       3 (1)        0.0000        2.0000        0.0000        0.0000        0.0000        "
      "1.0000\n"
      "                      fest          fest          fest          fest          fest         "
      " fest "
      "\n\n");
  EXPECT_EQ(
      After(Written(kEnglish, act), "       3 (1) "),
      "       0.0000        2.0000        0.0000        0.0000        0.0000        1.0000\n"
      "                       fix           fix           fix           fix           fix        "
      "   fix "
      "\n\n");
}

TEST(LineTable, VariableLineEndsItsRow) {
  auto line = Active<DataLinie>(1, true);
  line.SetPoints({0.0, 0.0, 1.0}, {5.0, 0.0, 1.0});
  EXPECT_EQ(
      After(Written(kGerman, [&](RecordedWriter& w) { w->WriteLines({&line}); }), "sz2     |\n\n"),
      "       1            0.0000        0.0000        1.0000        1.0000        0.0000        "
      "0.0000\n"
      "                  0.000000      0.000000      0.000000      0.000000      0.000000      "
      "0.000000 \n\n"
      "\n\n");
}

TEST(PlaneTable, FixedPlaneEndsItsRow) {
  auto plane = Active<DataPlane>(50, false);
  plane.SetPointAndNormal({0.0, 0.0, 7.5}, {0.0, 0.0, 2.0});
  auto inactive = Active<DataPlane>(51, true);
  inactive.SetActive(false);
  const auto act = [&](RecordedWriter& w) { w->WritePlanes({&inactive, &plane}); };
  EXPECT_EQ(
      After(Written(kGerman, act), "sz2     |\n\n"),
      "      50            0.0000        0.0000        7.5000        0.0000        0.0000        "
      "1.0000\n"
      "                      fest          fest          fest          fest          fest         "
      " fest\n\n"
      "\n\n");
  EXPECT_EQ(
      After(Written(kEnglish, act), "1.0000\n"),
      "                       fix           fix           fix           fix           fix        "
      "   fix \n\n"
      "\n\n");
}

TEST(UnknownTables, EmptyContainersLeaveNoTrace) {
  const EnvelopeSystem system;
  const auto image = Active<DataEor>(1, true);
  for (const WriterLanguage language : {kGerman, kEnglish}) {
    RecordedWriter writer(language);
    writer->WriteInteriorOrientations({}, system);
    writer->WriteProjections({});
    writer->WriteExteriorOrientations({}, system, 0x201);
    writer->WriteRelativeOrientations({}, {&image});
    writer->WriteObjectPoints({});
    writer->WriteLines({});
    writer->WritePlanes({});
    EXPECT_TRUE(writer.Texts().empty());
  }
}

}  // namespace
}  // namespace vermo::test
