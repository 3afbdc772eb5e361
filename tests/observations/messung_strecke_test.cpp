#include "observations/messung_strecke.h"

#include "support/comma_locale.h"
#include "support/dense_system.h"
#include "support/group_moves.h"
#include "support/language_guard.h"
#include "support/plane_rotations.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_obko.h"
#include "unknowns/network_settings.h"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>

namespace vermo::test {
namespace {

// Two points at a distance of 7, each by choice in the frame of a body.
class StreckeScene {
 public:
  StreckeScene() {
    first.SetCoordinates({1.0, 2.0, 3.0});
    second.SetCoordinates({3.0, 5.0, 9.0});
    body.fRotation = OmegaPhiKappa(0.4, -0.2, 1.3);
    body.fTranslation = {3.0, -5.0, 2.0};
    otherBody.fRotation = OmegaPhiKappa(-0.7, 0.5, 0.1);
    otherBody.fTranslation = {-1.0, 4.0, 6.0};
    for (Data* group : std::initializer_list<Data*>{&body, &first, &otherBody, &second}) {
      group->SetActive(true);
      group->SetVariable(true);
      unknowns = group->AssignUnknowns(unknowns);
    }
    messung.SetStrecke(7.5, 0.25);
    messung.SetNummern(11, 12);
    messung.SetPunkte(&first, &second);
    messung.SetActive(true);
  }
  StreckeScene(const StreckeScene&) = delete;
  StreckeScene& operator=(const StreckeScene&) = delete;

  std::array<double, 1> Residual() {
    EquationBlock equations;
    messung.ObservationEquations(equations);
    return {messung.Wert(0).Residuum()};
  }

  DataEor body;
  DataObko first;
  DataEor otherBody;
  DataObko second;
  MessungStrecke messung;
  std::uint32_t unknowns = 1;
};

void ExpectRowMatchesDifferences(StreckeScene& scene) {
  EquationBlock equations;
  ASSERT_TRUE(scene.messung.ObservationEquations(equations));
  const std::vector<double> row = Dense(equations.rows[0], scene.unknowns);
  const auto expectColumns = [&](auto& group) {
    for (std::uint32_t u = 0; u < group.UnknownCount(); ++u)
      // Truncation of a rotation, ten lengths times h^4, and rounding over the step.
      EXPECT_NEAR(row[static_cast<std::uint32_t>(group.FirstUnknown()) + u],
                  DerivativeBy(group, u, 1e-3, [&] { return scene.Residual(); })[0],
                  2e-11)
          << "unknown " << u;
  };
  expectColumns(scene.first);
  expectColumns(scene.second);
  expectColumns(scene.body);
  expectColumns(scene.otherBody);
}

TEST(MessungStrecke, RowIsTheDirectionBetweenThePoints) {
  StreckeScene scene;
  NetworkSettings settings;
  settings.SetS0Apriori(0.5);
  scene.messung.SetWeights(settings);
  EquationBlock equations;
  ASSERT_TRUE(scene.messung.ObservationEquations(equations));
  EXPECT_EQ(equations.rowCount, 1U);
  ASSERT_EQ(equations.count, 1U);
  EXPECT_EQ(equations.misclosures[0], 0.5);
  EXPECT_EQ(equations.weights[0], 4.0);
  EXPECT_EQ(scene.messung.Wert(0).Residuum(), -0.5);
  const std::vector<double> row = Dense(equations.rows[0], scene.unknowns);
  const double direction[] = {-2.0 / 7.0, -3.0 / 7.0, -6.0 / 7.0};
  for (unsigned i = 0; i < 3; ++i) {
    EXPECT_DOUBLE_EQ(row[static_cast<std::uint32_t>(scene.first.FirstUnknown()) + i], direction[i]);
    EXPECT_DOUBLE_EQ(row[static_cast<std::uint32_t>(scene.second.FirstUnknown()) + i],
                     -direction[i]);
  }
}

TEST(MessungStrecke, RowMatchesCentralDifferences) {
  StreckeScene scene;
  ExpectRowMatchesDifferences(scene);
}

TEST(MessungStrecke, RowMatchesCentralDifferencesWithOneBody) {
  StreckeScene first;
  first.first.SetReferenceEor(&first.body);
  ExpectRowMatchesDifferences(first);
  StreckeScene second;
  second.second.SetReferenceEor(&second.otherBody);
  ExpectRowMatchesDifferences(second);
}

TEST(MessungStrecke, RowMatchesCentralDifferencesWithTwoBodies) {
  StreckeScene scene;
  scene.first.SetReferenceEor(&scene.body);
  scene.second.SetReferenceEor(&scene.otherBody);
  ExpectRowMatchesDifferences(scene);
}

TEST(MessungStrecke, OneBodyForBothPointsOccursTwiceAndAddsUpToNothing) {
  StreckeScene scene;
  scene.first.SetReferenceEor(&scene.body);
  scene.second.SetReferenceEor(&scene.body);
  EquationBlock equations;
  ASSERT_TRUE(scene.messung.ObservationEquations(equations));
  EXPECT_EQ(equations.rows[0].size(), 18U);
  const auto first = static_cast<std::uint32_t>(scene.body.FirstUnknown());
  for (std::uint32_t column = first; column < first + 6; ++column) {
    unsigned occurrences = 0;
    for (const DesignEntry& entry : equations.rows[0]) occurrences += entry.column == column;
    EXPECT_EQ(occurrences, 2U);
  }
  ExpectRowMatchesDifferences(scene);

  DenseSystem system(scene.unknowns);
  scene.messung.AddToNormals(system, equations);
  for (std::uint32_t column = first; column < first + 6; ++column)
    // Two directions of length 1 times levers below 10 cancel.
    EXPECT_NEAR(system.rhs[column], 0.0, 1e-14);
}

TEST(MessungStrecke, EqualPointsGiveAZeroRowButKeepTheMisclosure) {
  StreckeScene scene;
  scene.second.SetCoordinates({1.0, 2.0, 3.0});
  EquationBlock equations;
  ASSERT_TRUE(scene.messung.ObservationEquations(equations));
  ASSERT_EQ(equations.rows[0].size(), 6U);
  for (const DesignEntry& entry : equations.rows[0]) EXPECT_EQ(entry.coefficient, 0.0);
  EXPECT_EQ(equations.misclosures[0], 7.5);
  EXPECT_EQ(scene.messung.Wert(0).Residuum(), -7.5);

  DenseSystem system(scene.unknowns);
  scene.messung.AddToNormals(system, equations);
  for (const double element : system.normals.elements) EXPECT_EQ(element, 0.0);
  for (const double element : system.rhs) EXPECT_EQ(element, 0.0);
}

TEST(MessungStrecke, FixedPointsGiveAnEmptyRowAndAResidual) {
  StreckeScene scene;
  for (DataObko* point : {&scene.first, &scene.second}) {
    point->SetVariable(false);
    point->AssignUnknowns(0);
  }
  EquationBlock equations;
  ASSERT_TRUE(scene.messung.ObservationEquations(equations));
  EXPECT_TRUE(equations.rows[0].empty());
  EXPECT_EQ(equations.count, 1U);
  EXPECT_EQ(scene.messung.Wert(0).Residuum(), -0.5);
}

void ExpectRefused(StreckeScene& scene) {
  scene.messung.CollectComponents()[0].SetResiduum(7.0);
  EquationBlock equations;
  equations.Reset(1);
  equations.rows[0].push(0, 1.0);
  equations.Append(1.0, 1.0);
  EXPECT_FALSE(scene.messung.ObservationEquations(equations));
  EXPECT_EQ(equations.count, 0U);
  EXPECT_EQ(equations.rowCount, 1U);
  EXPECT_TRUE(equations.rows[0].empty());
  EXPECT_EQ(scene.messung.Wert(0).Residuum(), 7.0);
}

TEST(MessungStrecke, IsRefusedWhenInactiveOrNotUsable) {
  StreckeScene inactive;
  inactive.messung.SetActive(false);
  ExpectRefused(inactive);
  StreckeScene unlinked;
  unlinked.messung.SetPunkte(&unlinked.first, nullptr);
  ExpectRefused(unlinked);
  StreckeScene withoutSecond;
  withoutSecond.second.SetActive(false);
  ExpectRefused(withoutSecond);
}

TEST(MessungStrecke, IsUsableWithTwoActivePoints) {
  StreckeScene scene;
  EXPECT_TRUE(scene.messung.IsConnected());
  EXPECT_TRUE(scene.messung.IsUsable());
  scene.first.SetActive(false);
  EXPECT_TRUE(scene.messung.IsConnected());
  EXPECT_FALSE(scene.messung.IsUsable());
  scene.messung.SetPunkte(nullptr, &scene.second);
  EXPECT_FALSE(scene.messung.IsConnected());
  EXPECT_FALSE(scene.messung.IsUsable());
}

TEST(MessungStrecke, DescribesItselfInBothLanguages) {
  const StreckeScene scene;
  EXPECT_EQ(scene.messung.GetIdentText(), "11 - 12");
  {
    const LanguageGuard german(Language::German);
    EXPECT_EQ(scene.messung.GetDescription(), "Strecke 11 - 12");
  }
  const LanguageGuard english(Language::English);
  EXPECT_EQ(scene.messung.GetDescription(), "Distance 11 - 12");
}

MessungStrecke Printed() {
  MessungStrecke messung;
  messung.SetNummern(11, 4000012);
  messung.SetStrecke(1234.56784, 0.05);
  messung.CollectComponents()[0].SetResiduum(9.0);  // has no column
  messung.CollectComponents()[0].SetRedundanz(0.75);
  messung.CollectComponents()[0].SetTestwert(2.5);
  return messung;
}

constexpr const char* kNumbers = "  1234.5678      0.0500  0.7500  2.50 ";

TEST(MessungStrecke, ProtocolLineIsExact) {
  EXPECT_EQ(Printed().GetProtocolLine(), std::string("    11 4000012     ") + kNumbers + "\n");
}

TEST(MessungStrecke, ProtocolLineCarriesOrdinalAndMark) {
  MessungStrecke messung = Printed();
  messung.SetOrdinal(41);
  EXPECT_EQ(messung.GetProtocolLine(), std::string("    11 4000012 (41) ") + kNumbers + "\n");
  messung.SetNoBlunderTest(true);
  EXPECT_EQ(messung.GetProtocolLine(), std::string("    11 4000012 (41) ") + kNumbers + " ---\n");
  messung.SetAusreisser();
  EXPECT_EQ(messung.GetProtocolLine(), std::string("    11 4000012 (41) ") + kNumbers + " ***\n");
}

TEST(MessungStrecke, ProtocolLineIgnoresTheLocaleOfTheProcess) {
  const CommaLocale comma;
  EXPECT_EQ(Printed().GetProtocolLine(), std::string("    11 4000012     ") + kNumbers + "\n");
}

}  // namespace
}  // namespace vermo::test
