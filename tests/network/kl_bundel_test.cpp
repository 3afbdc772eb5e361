// One calculation from the protocol's opening to its end.

#include "network/kl_bundel.h"

#include "checks/failure_codes.h"
#include "checks/language.h"
#include "network/network_scene.h"

#include <cmath>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <new>
#include <stdexcept>

namespace vermo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

double Distance(const DataObko::Vector& a, const DataObko::Vector& b) {
  return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

// --- lists of the adjustment --------------------------------------------------

TEST(CollectData, PointsComeFirstWhenTheyHaveAsManyUnknowns) {
  TestBundel job;
  DataEor& eor = job.Eor(10, 1);
  DataObko& a = job.Point(1);
  DataObko& b = job.Point(2);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_THAT(job.fDaten, ElementsAre(&a, &b, &eor));
}

TEST(CollectData, ImagesComeFirstWhenTheyHaveMore) {
  TestBundel job;
  DataObko& a = job.Point(1);
  DataObko& b = job.Point(2);
  DataObko& c = job.Point(3);
  DataEor& first = job.Eor(10, 1);
  DataEor& second = job.Eor(11, 1);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_THAT(job.fDaten, ElementsAre(&first, &second, &a, &b, &c));
}

TEST(CollectData, FixedAndInactiveGroupsCountLikeTheRest) {
  TestBundel job;
  DataEor& eor = job.Eor(10, 1);
  DataObko& fixed = job.Point(1);
  DataObko& inactive = job.Point(2);
  fixed.SetVariable(false);
  inactive.SetActive(false);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_THAT(job.fDaten, ElementsAre(&fixed, &inactive, &eor));
}

TEST(CollectData, ProjectionsAndCamerasComeLastAndPairsNever) {
  TestBundel job;
  DataIor& ior = job.Ior(1);
  DataProjektion& projektion = job.Projektion(7);
  DataEor& base = job.Eor(10, 1);
  DataEor& other = job.Eor(11, 1);
  job.Pair(20, 11, 10);
  DataObko& point = job.Point(1);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_THAT(job.fDaten, ElementsAre(&base, &other, &point, &projektion, &ior));
}

TEST(CollectMessungen, KindsComeInTheirOrderActiveOrNot) {
  TestBundel job;
  job.Point(1);
  MessungStrecke& strecke = job.Strecke(1, 1);
  MessungObko& obko = job.Obko(1);
  MessungBiko& first = job.Biko(1, 10);
  MessungBiko& second = job.Biko(1, 10);
  second.SetActive(false);
  EXPECT_EQ(job.LinkOnly(), 0);
  std::vector<Messung*> collected;
  for (const MessungEntry& entry : job.fMessungen) {
    collected.push_back(entry.messung);
    EXPECT_EQ(entry.fAusreisserZaehler, 0U);
  }
  EXPECT_THAT(collected, ElementsAre(&first, &second, &obko, &strecke));
}

// --- settings of the network --------------------------------------------------

TEST(KLBundel, WeightsRelateTheVarianceToS0) {
  TestBundel job;
  job.fNetworkSettings.SetS0Apriori(0.01);
  MessungBiko& biko = job.Biko(1, 10);
  biko.SetSigma(0.02, 0.005);
  MessungObko& obko = job.Obko(1);
  obko.SetSigma({0.01, 0.02, 0.04});
  MessungStrecke& strecke = job.Strecke(1, 2);
  strecke.SetStrecke(1.0, 0.1);
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_DOUBLE_EQ(biko.Wert(0).Gewicht(), 0.25);
  EXPECT_DOUBLE_EQ(biko.Wert(1).Gewicht(), 4.0);
  EXPECT_DOUBLE_EQ(obko.Wert(0).Gewicht(), 1.0);
  EXPECT_DOUBLE_EQ(obko.Wert(1).Gewicht(), 0.25);
  EXPECT_DOUBLE_EQ(obko.Wert(2).Gewicht(), 0.0625);
  EXPECT_DOUBLE_EQ(strecke.Wert(0).Gewicht(), 0.01);
}

TEST(KLBundel, AngleLimitReachesTheImages) {
  for (const double limit : {0.5, 1.0}) {
    TestBundel job;
    job.fNetworkSettings.SetAngleLimit(limit);
    job.Ior(1);
    job.Eor(10, 1);
    job.Point(5, {0.0, 0.0, -10.0});
    // atan(70 / 100) = 0.61 beside the ray of the point.
    const MessungBiko& biko = job.Biko(5, 10, 70.0, 0.0);
    EXPECT_EQ(job.LinkOnly(), 0);
    EXPECT_EQ(biko.IsAusreisser(), limit < 0.61) << limit;
    EXPECT_TRUE(biko.IsActive());
  }
}

TEST(KLBundel, IterationsAreReportedWithTheS0OfTheNetwork) {
  TestBundel job;
  job.fNetworkSettings.SetS0Apriori(0.25);
  job.Point(1);
  job.Obko(1);
  EXPECT_EQ(job.CalcBundle(), 0);
  ASSERT_FALSE(job.infos.empty());
  EXPECT_EQ(job.infos[0].s0APriori, 0.25);
}

// --- results ------------------------------------------------------------------

TEST(KLBundel, MeasuredCoordinatesGiveTheirWeightedMean) {
  TestBundel job;
  job.Settings().SetBlunderTest(false);
  job.fNetworkSettings.SetS0Apriori(0.01);
  DataObko& point = job.Point(1, {0.0, 0.0, 0.0});
  job.Obko(1, {1.0, 2.0, 3.0}).SetSigma({0.01, 0.01, 0.01});
  MessungObko& second = job.Obko(1, {1.03, 2.0, 3.0});
  second.SetSigma({0.01 / std::sqrt(2.0), 0.01, 0.01});
  EXPECT_EQ(job.CalcBundle(), 0);
  // Weights 1 and 2 in x. A last increment of 1e-16 remains.
  EXPECT_NEAR(point.Current()[0], 1.02, 1e-14);
  EXPECT_NEAR(point.Current()[1], 2.0, 1e-14);
  EXPECT_NEAR(second.Wert(0).Residuum(), -0.01, 1e-14);
  // 0.02^2 + 2 0.01^2 over 3 redundant coordinates.
  const double s0 = std::sqrt(6e-4 / 3.0);
  EXPECT_NEAR(job.Statistics().fS0, s0, 1e-14);
  EXPECT_NEAR(point.Sigma()[0], s0 / std::sqrt(3.0), 1e-14);
  EXPECT_NEAR(point.Sigma()[1], s0 / std::sqrt(2.0), 1e-14);
  EXPECT_NEAR(job.Statistics().fGesamtRedundanz, 3.0, 1e-13);
  EXPECT_EQ(job.Statistics().fRedundanz, 3);
}

TEST(KLBundel, DistancesToFixedPointsFindThePoint) {
  TestBundel job;
  const DataObko::Vector truth{1.0, 2.0, 3.0};
  const std::vector<DataObko::Vector> corners = {
      {0.0, 0.0, 0.0}, {10.0, 0.0, 0.0}, {0.0, 10.0, 0.0}, {0.0, 0.0, 10.0}, {10.0, 10.0, 10.0}};
  DataObko& point = job.Point(100, {1.2, 1.9, 3.3});
  for (std::uint32_t i = 0; i < corners.size(); ++i) {
    job.Point(i, corners[i]).SetVariable(false);
    job.Strecke(i, 100, Distance(corners[i], truth));
  }
  EXPECT_EQ(job.CalcBundle(), 0);
  // The run ends when S0 is under its floor of 1e-5. That is the misfit before the last increments,
  // which square it.
  for (unsigned i = 0; i < 3; ++i) EXPECT_NEAR(point.Current()[i], truth[i], 1e-9) << i;
  EXPECT_EQ(job.Statistics().fRedundanz, 2);
  EXPECT_EQ(job.fObkos.At(1).Current()[0], 0.0);
}

TEST(KLBundel, FixedPointsOrientAnImage) {
  TestBundel job;
  job.Ior(1);
  // An unrotated image at (0, 0, 10): the image point is 100 X / Z of the camera frame.
  DataEor& eor = job.Eor(10, 1);
  const std::vector<DataObko::Vector> points = {
      {-3.0, -3.0, 0.0}, {3.0, -3.0, 1.0}, {3.0, 3.0, -1.0}, {-3.0, 3.0, 2.0}, {0.0, 1.0, -2.0}};
  for (std::uint32_t i = 0; i < points.size(); ++i) {
    const DataObko::Vector& p = points[i];
    job.Point(i, p).SetVariable(false);
    job.Biko(i, 10, 100.0 * p[0] / (p[2] - 10.0), 100.0 * p[1] / (p[2] - 10.0));
  }
  eor.fTranslation = {0.1, -0.1, 10.2};
  EXPECT_EQ(job.CalcBundle(), 0);
  EXPECT_NEAR(eor.fTranslation[0], 0.0, 1e-9);
  EXPECT_NEAR(eor.fTranslation[1], 0.0, 1e-9);
  EXPECT_NEAR(eor.fTranslation[2], 10.0, 1e-9);
  EXPECT_EQ(job.Statistics().fUnbekannte, 6U);
  EXPECT_EQ(job.Statistics().fBeobachtungen, 10U);
}

// --- results of the call ------------------------------------------------------

TEST(KLBundel, EmptyJobFailsForWantOfObservations) {
  TestBundel job;
  EXPECT_EQ(job.CalcBundle(), failure::kNoMessungen);
}

TEST(KLBundel, FixedNetworkFailsForWantOfUnknowns) {
  TestBundel job;
  job.Point(1).SetVariable(false);
  job.Obko(1);
  EXPECT_EQ(job.CalcBundle(), failure::kNoUnknowns);
}

TEST(KLBundel, FailureOfTheLoopIsTheResult) {
  TestBundel job;
  job.Settings().fS0Limit = 1e-9;
  job.Point(1);
  job.Obko(1, {0.0, 0.0, 0.0});
  job.Obko(1, {1.0, 0.0, 0.0});
  EXPECT_EQ(job.CalcBundle(), failure::kS0TooLarge);
}

TEST(KLBundel, AnyCodeOfAKlExceptionIsTheResult) {
  TestBundel job;
  job.onRunStart = [] { throw KlException(-4711); };
  EXPECT_EQ(job.CalcBundle(), -4711);
}

TEST(KLBundel, AnyOtherExceptionIsMinus9999) {
  for (int kind = 0; kind < 3; ++kind) {
    TestBundel job;
    job.onRunStart = [kind] {
      if (kind == 0) throw std::runtime_error("hook");
      if (kind == 1) throw std::bad_alloc();
      throw 42;
    };
    EXPECT_EQ(job.CalcBundle(), -9999) << kind;
  }
}

TEST(KLBundel, ExceptionOfAWarningIsAResultToo) {
  class Refusing : public TestBundel {
   public:
    void WarnObservationWithoutData(Messung& /*observation*/) override {
      throw std::runtime_error("warning");
    }
  };
  Refusing job;
  job.Biko(1, 1);
  EXPECT_EQ(job.CalcBundle(), failure::kOther);
}

// --- times and protocol -------------------------------------------------------

TEST(KLBundel, TimesAreZeroBeforeARunAndSetByIt) {
  TestBundel job;
  EXPECT_EQ(job.StartTime(), 0);
  EXPECT_EQ(job.EndTime(), 0);
  std::int64_t startDuring = 0;
  std::int64_t endDuring = -1;
  job.onRunStart = [&] {
    startDuring = job.StartTime();
    endDuring = job.EndTime();
  };
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_NE(startDuring, 0);
  EXPECT_EQ(startDuring, job.StartTime());
  EXPECT_EQ(endDuring, 0);
  EXPECT_NE(job.EndTime(), 0);
}

TEST(KLBundel, FailedRunHasAnEndTimeToo) {
  TestBundel job;
  EXPECT_EQ(job.CalcBundle(), failure::kNoMessungen);
  EXPECT_NE(job.StartTime(), 0);
  EXPECT_NE(job.EndTime(), 0);
}

TEST(KLBundel, ProtocolOfASuccessfulRunTellsNoFailure) {
  TestBundel job;
  job.Point(1);
  job.Obko(1);
  EXPECT_EQ(job.CalcBundle(), 0);
  EXPECT_THAT(job.protocol, HasSubstr("Berechnung fertig"));
  EXPECT_THAT(job.protocol, HasSubstr("Ende der Ausgleichung"));
  EXPECT_THAT(job.protocol, Not(HasSubstr("Abbruch")));
}

TEST(KLBundel, ProtocolOfAFailedRunTellsTheCodeAndIsClosed) {
  TestBundel job;
  EXPECT_EQ(job.CalcBundle(), failure::kNoMessungen);
  EXPECT_THAT(job.protocol, HasSubstr("Abbruch: Fehler -12011"));
  EXPECT_THAT(job.protocol, Not(HasSubstr("Berechnung fertig")));
  EXPECT_THAT(job.protocol, HasSubstr("Ende der Ausgleichung"));
}

TEST(KLBundel, ProtocolGoesToTheFile) {
  const ProtocolFile file;
  TestBundel job;
  job.SetProtocolFile(file.Name());
  EXPECT_EQ(job.LinkOnly(), 0);
  std::ifstream stream(file.Name(), std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  EXPECT_EQ(text, job.protocol);
  EXPECT_FALSE(text.empty());
}

TEST(KLBundel, FileThatCannotBeOpenedDoesNotStopTheRun) {
  TestBundel job;
  job.SetProtocolFile("/no/such/folder/protocol.htm");
  DataObko& point = job.Point(1, {0.0, 0.0, 0.0});
  job.Obko(1, {1.0, 2.0, 3.0});
  EXPECT_EQ(job.CalcBundle(), 0);
  EXPECT_EQ(point.Current()[2], 3.0);
  EXPECT_FALSE(job.protocol.empty());
}

TEST(KLBundel, LinesOfTheCallerGoToTheProtocolDuringARun) {
  TestBundel job;
  job.onRunStart = [&] { job.ProtocolLine("a line of the caller"); };
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_THAT(job.protocol, HasSubstr("a line of the caller"));
}

TEST(KLBundel, EachRunHasAProtocolOfItsOwn) {
  TestBundel job;
  EXPECT_EQ(job.LinkOnly(), 0);
  const std::string first = job.protocol;
  const ProtocolFile file;
  job.SetProtocolFile(file.Name());
  job.protocol.clear();
  EXPECT_EQ(job.LinkOnly(), 0);
  EXPECT_EQ(job.protocol.substr(0, 20), first.substr(0, 20));
  EXPECT_TRUE(std::ifstream(file.Name()).is_open());
}

TEST(KLBundel, LanguageOfTheMomentChoosesTheWriter) {
  TestBundel job;
  SetLanguage(Language::English);
  const std::int32_t code = job.LinkOnly();
  SetLanguage(Language::German);
  EXPECT_EQ(code, 0);
  EXPECT_THAT(job.protocol, HasSubstr("End of bundle adjustment"));
}

TEST(KLBundel, OptionsOfTheProtocolStartCleared) {
  TestBundel job;
  EXPECT_FALSE(job.HideProjections());
  EXPECT_EQ(job.EorFormat(), 0U);
  job.SetHideProjections(true);
  job.SetEorFormat(0x21);
  EXPECT_TRUE(job.HideProjections());
  EXPECT_EQ(job.EorFormat(), 0x21U);
}

}  // namespace
}  // namespace vermo::test
