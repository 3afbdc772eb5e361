#include "checks/kl_exception.h"
#include "checks/language.h"
#include "linalg/envelope_system.h"
#include "observations/bedingung_hlm.h"
#include "observations/bedingung_punkt.h"
#include "unknowns/data_eor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

namespace vermo {
namespace {

using Vector = ostra_bundle::VektorD<3>;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Datum points with columns 0, 3, 6 ...; the multipliers follow behind.
class Points {
 public:
  explicit Points(const std::vector<Vector>& initial) {
    for (const Vector& x : initial) {
      DataObko& point = fPoints.emplace_back();
      point.SetCoordinates(x);
      point.SetActive(true);
      point.SetVariable(true);
      point.SetReferencePoint(true);
      point.SetFirstUnknown(static_cast<std::int32_t>(3 * (fPoints.size() - 1)));
      fPointers.push_back(&point);
    }
  }

  // Moves a point away from its initial coordinates.
  void Move(std::size_t i, const Vector& step) {
    std::vector<double> solution(3 * fPoints.size(), 0.0);
    for (unsigned k = 0; k < 3; ++k) solution[3 * i + k] = step[k];
    fPoints[i].ApplySolution(solution);
  }

  [[nodiscard]] std::uint32_t Unknowns() const {
    return static_cast<std::uint32_t>(3 * fPoints.size());
  }
  std::span<DataObko* const> Span() const { return fPointers; }
  DataObko& operator[](std::size_t i) { return fPoints[i]; }

 private:
  std::deque<DataObko> fPoints;
  std::vector<DataObko*> fPointers;
};

template <typename Constraint>
EnvelopeSystem Assemble(Constraint& constraint, Points& points) {
  constraint.SetPunkte(points.Span());
  constraint.SetActive(true);
  EnvelopeSystem system;
  constraint.AssignConstraintIndex(points.Unknowns());
  system.Reset(points.Unknowns(), constraint.ConstraintCount());
  constraint.AddConstraintRows(system);
  return system;
}

std::vector<double> Row(const EnvelopeSystem& system, std::uint32_t row, std::uint32_t unknowns) {
  std::vector<double> elements;
  for (std::uint32_t c = 0; c < unknowns; ++c) elements.push_back(system.Element(row, c));
  return elements;
}

std::vector<Vector> Tetrahedron() {
  return {{1.0, 0.0, 0.0}, {0.0, 2.0, 0.5}, {-1.0, 0.3, 1.0}, {0.2, -0.7, -3.0}};
}

TEST(BedingungHlmTrans, RowsAreTheScaleAndTheRightHandSideIsTheLostSum) {
  Points points(Tetrahedron());
  points.Move(1, {0.1, -0.2, 0.3});
  points.Move(2, {0.1, 0.0, 0.0});
  BedingungHlmTrans constraint;
  const EnvelopeSystem system = Assemble(constraint, points);
  for (std::uint32_t k = 0; k < 3; ++k)
    for (std::uint32_t c = 0; c < 12; ++c)
      EXPECT_EQ(system.Element(12 + k, c), c % 3 == k ? 0.00001 : 0.0);
  EXPECT_NEAR(system.Rhs()[12], -0.2e-5, 1e-20);
  EXPECT_NEAR(system.Rhs()[13], 0.2e-5, 1e-20);
  EXPECT_NEAR(system.Rhs()[14], -0.3e-5, 1e-20);
}

TEST(BedingungHlm, UnmovedPointsHaveNoRightHandSide) {
  Points points(Tetrahedron());
  BedingungHlmTrans translation;
  BedingungHlmRot rotation;
  BedingungHlmM scale;
  const EnvelopeSystem systems[] = {
      Assemble(translation, points), Assemble(rotation, points), Assemble(scale, points)};
  for (const EnvelopeSystem& system : systems)
    for (const double element : system.Rhs()) EXPECT_EQ(element, 0.0);
}

TEST(BedingungHlmM, RowIsTheScaledDistanceFromTheCentroid) {
  Points points(Tetrahedron());
  points.Move(0, {0.01, 0.02, -0.01});
  BedingungHlmM constraint;
  const EnvelopeSystem system = Assemble(constraint, points);
  Vector c{0.0, 0.0, 0.0};
  for (std::size_t i = 0; i < 4; ++i) c = ostra_bundle::Add(c, points[i].Current());
  c = ostra_bundle::Scale(c, 0.25);
  double m = 0.0;
  double w = 0.0;
  for (std::size_t i = 0; i < 4; ++i)
    for (unsigned k = 0; k < 3; ++k) {
      m = std::max(m, std::fabs(points[i].Current()[k] - c[k]));
      w += (points[i].Current()[k] - points[i].Initial()[k]) * (points[i].Initial()[k] - c[k]);
    }
  for (std::uint32_t i = 0; i < 4; ++i)
    for (std::uint32_t k = 0; k < 3; ++k)
      EXPECT_NEAR(system.Element(12, 3 * i + k), 1e-5 / m * (points[i].Current()[k] - c[k]), 1e-19);
  EXPECT_NEAR(system.Rhs()[12], -1e-5 / m * w, 1e-19);
  // The largest element has the size of the scale.
  const std::vector<double> row = Row(system, 12, 12);
  EXPECT_NEAR(std::fabs(*std::ranges::max_element(row, {}, [](double x) { return std::fabs(x); })),
              1e-5,
              1e-19);
}

TEST(BedingungHlmRot, RowsAreTheVectorProductWithTheOffset) {
  Points points(Tetrahedron());
  points.Move(2, {0.01, 0.02, -0.01});
  BedingungHlmRot constraint;
  const EnvelopeSystem system = Assemble(constraint, points);
  Vector c{0.0, 0.0, 0.0};
  for (std::size_t i = 0; i < 4; ++i) c = ostra_bundle::Add(c, points[i].Current());
  c = ostra_bundle::Scale(c, 0.25);
  // One scale, of either sign, for all rows: found from one element.
  const double z0 = points[0].Current()[2] - c[2];
  const double s = -system.Element(12, 1) / z0;
  Vector v{0.0, 0.0, 0.0};
  for (std::uint32_t i = 0; i < 4; ++i) {
    const Vector e = ostra_bundle::Subtract(points[i].Current(), c);
    const ostra_bundle::Rotation3 expected = ostra_bundle::Skew(e);
    for (std::uint32_t r = 0; r < 3; ++r)
      for (std::uint32_t k = 0; k < 3; ++k)
        EXPECT_NEAR(system.Element(12 + r, 3 * i + k), s * expected[3 * r + k], 1e-18);
    v = ostra_bundle::Add(v,
                          ostra_bundle::Cross(e, ostra_bundle::Subtract(points[i].Initial(), c)));
  }
  for (std::uint32_t r = 0; r < 3; ++r) EXPECT_NEAR(system.Rhs()[12 + r], s * v[r], 1e-19);
}

// m becomes the coordinate itself: after a negative one any coordinate that is not 0 replaces it.
double SignedSpread(const std::vector<Vector>& coordinates) {
  Points points(coordinates);
  BedingungHlmRot constraint;
  const EnvelopeSystem system = Assemble(constraint, points);
  Vector c{0.0, 0.0, 0.0};
  for (std::size_t i = 0; i < coordinates.size(); ++i) c = ostra_bundle::Add(c, coordinates[i]);
  c = ostra_bundle::Scale(c, 1.0 / static_cast<double>(coordinates.size()));
  // Element (row + 2, 1) of the first point is s a.
  const double a = coordinates[0][0] - c[0];
  return 1e-5 * a / system.Element(points.Unknowns() + 2, 1);
}

TEST(BedingungHlmRot, SpreadKeepsTheSignOfTheLastCoordinateThatReplacedIt) {
  // About the centroid 0: 2 0 0, -3 0 0, 1 0 0. 2 leads, -3 replaces it, and every later
  // coordinate exceeds -3, the zeros too, so that 1 and then its zeros replace in turn: the
  // zeros leave m = 0 behind, from which 1 takes over, and then 0 is not greater.
  EXPECT_DOUBLE_EQ(SignedSpread({{2.0, 0.0, 0.0}, {-3.0, 0.0, 0.0}, {1.0, 0.0, 0.0}}), 1.0);
  EXPECT_DOUBLE_EQ(
      SignedSpread({{2.0, 0.0, 0.0}, {1.0, 0.0, 0.0}, {0.0, 0.0, -3.0}, {-3.0, 0.0, 3.0}}), 3.0);
  EXPECT_DOUBLE_EQ(SignedSpread({{3.0, 0.0, 2.0}, {-3.0, 0.0, 2.0}, {0.0, 0.0, -4.0}}), -4.0);
}

TEST(BedingungHlm, SinglePointLeavesRotationAndScaleRowsZero) {
  Points points({{5.0, 6.0, 7.0}});
  BedingungHlmRot rotation;
  BedingungHlmM scale;
  const EnvelopeSystem r = Assemble(rotation, points);
  for (std::uint32_t k = 0; k < 3; ++k) EXPECT_THAT(Row(r, 3 + k, 3), ElementsAre(0.0, 0.0, 0.0));
  EXPECT_THAT(Row(Assemble(scale, points), 3, 3), ElementsAre(0.0, 0.0, 0.0));
}

TEST(BedingungHlm, WithoutDatumPointsNothingIsWritten) {
  Points points(Tetrahedron());
  for (std::size_t i = 0; i < 4; ++i) points[i].SetReferencePoint(false);
  BedingungHlmTrans translation;
  BedingungHlmRot rotation;
  BedingungHlmM scale;
  EXPECT_EQ(Assemble(translation, points).Element(12, 0), 0.0);
  EXPECT_EQ(Assemble(rotation, points).Element(13, 0), 0.0);
  EXPECT_EQ(Assemble(scale, points).Element(12, 0), 0.0);
}

TEST(BedingungHlm, FixedPointTakesPartInTheFiguresAndStoresNothing) {
  Points points(Tetrahedron());
  points.Move(1, {0.1, 0.0, 0.0});
  BedingungHlmM all;
  const EnvelopeSystem before = Assemble(all, points);
  points[0].SetVariable(false);
  points[0].SetFirstUnknown(Data::kNoColumn);
  BedingungHlmM some;
  const EnvelopeSystem after = Assemble(some, points);
  EXPECT_EQ(after.Rhs()[12], before.Rhs()[12]);
  for (std::uint32_t c = 0; c < 12; ++c)
    EXPECT_EQ(after.Element(12, c), c < 3 ? 0.0 : before.Element(12, c));
  BedingungHlmRot rotation;
  BedingungHlmTrans translation;
  EXPECT_EQ(Assemble(rotation, points).Element(14, 1), 0.0);
  EXPECT_EQ(Assemble(translation, points).Element(12, 0), 0.0);
}

TEST(BedingungHlm, CountsStoresAndTells) {
  BedingungHlmTrans translation;
  BedingungHlmRot rotation;
  BedingungHlmM scale;
  EXPECT_EQ(translation.ConstraintCount() + rotation.ConstraintCount() + scale.ConstraintCount(),
            0U);
  EXPECT_EQ(translation.AssignConstraintIndex(7), 7U);
  for (Bedingung* constraint : {static_cast<Bedingung*>(&translation),
                                static_cast<Bedingung*>(&rotation),
                                static_cast<Bedingung*>(&scale)})
    constraint->SetActive(true);
  std::uint32_t next = translation.AssignConstraintIndex(1);
  next = rotation.AssignConstraintIndex(next);
  EXPECT_EQ(scale.AssignConstraintIndex(next), 8U);
  const std::vector<double> solution = {9.0, 1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0};
  for (Bedingung* constraint : {static_cast<Bedingung*>(&translation),
                                static_cast<Bedingung*>(&rotation),
                                static_cast<Bedingung*>(&scale)})
    constraint->StoreMultipliers(solution);
  EXPECT_THAT(translation.CollectMultipliers(), ElementsAre(1.0, 2.0, 3.0));
  EXPECT_THAT(rotation.CollectMultipliers(), ElementsAre(4.0, 5.0, 6.0));
  EXPECT_THAT(scale.CollectMultipliers(), ElementsAre(7.0));
  // One that is inactive keeps what it had.
  translation.SetActive(false);
  rotation.SetActive(false);
  scale.SetActive(false);
  for (Bedingung* constraint : {static_cast<Bedingung*>(&translation),
                                static_cast<Bedingung*>(&rotation),
                                static_cast<Bedingung*>(&scale)})
    constraint->StoreMultipliers(std::vector<double>(8, -1.0));
  EXPECT_THAT(translation.CollectMultipliers(), ElementsAre(1.0, 2.0, 3.0));
  EXPECT_THAT(rotation.CollectMultipliers(), ElementsAre(4.0, 5.0, 6.0));
  EXPECT_THAT(scale.CollectMultipliers(), ElementsAre(7.0));
  SetLanguage(Language::German);
  EXPECT_EQ(translation.GetDescription(), "Bedingung Translation");
  EXPECT_EQ(rotation.GetDescription(), "Bedingung Rotation");
  EXPECT_EQ(scale.GetDescription(), "Bedingung Ma\xDFstab");
  SetLanguage(Language::English);
  EXPECT_EQ(translation.GetDescription(), "Constraint translation");
  EXPECT_EQ(rotation.GetDescription(), "Constraint rotation");
  EXPECT_EQ(scale.GetDescription(), "Constraint scale");
  SetLanguage(Language::German);
}

// A point with columns 0 to 2 and a line or a plane with columns from 3 on.
struct PointAndLine {
  DataObko point;
  DataLinie line;
  BedingungPunktGerade constraint;

  PointAndLine() {
    point.SetCoordinates({0.3, 0.5, -0.2});
    line.SetPoints({1.0, -2.0, 0.5}, {1.6, -1.7, 2.5});
    line.PrepareDerivatives();
    for (Data* group : {static_cast<Data*>(&point), static_cast<Data*>(&line)}) {
      group->SetActive(true);
      group->SetVariable(true);
    }
    point.SetFirstUnknown(0);
    line.SetFirstUnknown(3);
    constraint.SetNummern(4, 12, 13);
    constraint.SetLinks(&point, &line);
    constraint.SetActive(true);
  }

  [[nodiscard]] std::array<double, 2> Offsets() const {
    const Vector u = ostra_bundle::MultiplyVector(
        line.LocalFrame(), ostra_bundle::Subtract(point.Current(), line.Point()));
    return {u[0], u[1]};
  }
};

EnvelopeSystem AssembleSingle(Bedingung& constraint, std::uint32_t unknowns) {
  EnvelopeSystem system;
  constraint.AssignConstraintIndex(unknowns);
  system.Reset(unknowns, constraint.ConstraintCount());
  constraint.AddConstraintRows(system);
  return system;
}

TEST(BedingungPunktGerade, RowsMatchDifferencesInTheFrameOfTheLine) {
  PointAndLine scene;
  const EnvelopeSystem system = AssembleSingle(scene.constraint, 7);
  const std::array<double, 2> now = scene.Offsets();
  EXPECT_EQ(system.Rhs()[7], -now[0]);
  EXPECT_EQ(system.Rhs()[8], -now[1]);
  const double step = 1e-6;
  const ostra_bundle::Rotation3 frame = scene.line.LocalFrame();
  for (std::uint32_t c = 0; c < 7; ++c) {
    // The offset of the moved point from the moved line, measured in the frame of before: along
    // the line nothing is asked, so the moved base point is taken at the foot of the point.
    PointAndLine moved = scene;
    moved.constraint.SetLinks(&moved.point, &moved.line);
    std::vector<double> solution(7, 0.0);
    solution[c] = step;
    moved.point.ApplySolution(solution);
    moved.line.ApplySolution(solution);
    const Vector offset = ostra_bundle::Subtract(moved.point.Current(), moved.line.Point());
    const double along = ostra_bundle::Dot(offset, moved.line.Direction());
    const Vector across =
        ostra_bundle::Subtract(offset, ostra_bundle::Scale(moved.line.Direction(), along));
    const Vector u = ostra_bundle::MultiplyVector(frame, across);
    for (std::uint32_t r = 0; r < 2; ++r)
      EXPECT_NEAR(system.Element(7 + r, c), (u[r] - now[r]) / step, 1e-4)
          << "row " << r << " column " << c;
  }
}

TEST(BedingungPunktGerade, FixedPointLeavesTheLineItsCoefficients) {
  PointAndLine scene;
  scene.point.SetFirstUnknown(Data::kNoColumn);
  const EnvelopeSystem system = AssembleSingle(scene.constraint, 7);
  for (std::uint32_t c = 0; c < 3; ++c) EXPECT_EQ(system.Element(7, c), 0.0);
  EXPECT_EQ(system.Element(7, 3), -1.0);
  EXPECT_EQ(system.Element(8, 4), -1.0);
  EXPECT_NE(system.Element(7, 6), 0.0);
  EXPECT_EQ(system.Element(7, 6), -system.Element(8, 5));
}

TEST(BedingungPunktGerade, FixedLineLeavesThePointItsCoefficients) {
  PointAndLine scene;
  scene.line.SetFirstUnknown(Data::kNoColumn);
  const EnvelopeSystem system = AssembleSingle(scene.constraint, 7);
  const ostra_bundle::Rotation3 frame = scene.line.LocalFrame();
  for (std::uint32_t r = 0; r < 2; ++r) {
    for (std::uint32_t c = 0; c < 3; ++c) EXPECT_EQ(system.Element(7 + r, c), frame[3 * r + c]);
    for (std::uint32_t c = 3; c < 7; ++c) EXPECT_EQ(system.Element(7 + r, c), 0.0);
    EXPECT_EQ(system.Rhs()[7 + r], -scene.Offsets()[r]);
  }
}

// Rows that another constraint may have taken over.
template <typename Scene>
void ExpectNothingStoredWhileInactive(std::uint32_t unknowns) {
  Scene scene;
  const EnvelopeSystem active = AssembleSingle(scene.constraint, unknowns);
  ASSERT_NE(active.Rhs()[unknowns], 0.0);
  scene.point.SetActive(false);
  EnvelopeSystem system;
  system.Reset(unknowns, 2);
  scene.constraint.AddConstraintRows(system);
  for (std::uint32_t r = unknowns; r < unknowns + 2; ++r) {
    EXPECT_EQ(system.Rhs()[r], 0.0);
    for (std::uint32_t c = 0; c < unknowns; ++c) EXPECT_EQ(system.Element(r, c), 0.0);
  }
}

TEST(BedingungPunktGerade, StoresNothingWhileItIsInactive) {
  ExpectNothingStoredWhileInactive<PointAndLine>(7);
}

TEST(BedingungPunktGerade, LineNumberedBeforeThePointLiesInTheRow) {
  PointAndLine scene;
  scene.line.SetFirstUnknown(0);
  scene.point.SetFirstUnknown(4);
  const EnvelopeSystem system = AssembleSingle(scene.constraint, 7);
  EXPECT_EQ(system.Element(7, 0), -1.0);
  EXPECT_EQ(system.Element(7, 4), scene.line.LocalFrame()[0]);
}

TEST(BedingungPunktGerade, BetweenFixedElementsTheRowsStayEmpty) {
  PointAndLine scene;
  scene.point.SetFirstUnknown(Data::kNoColumn);
  scene.line.SetFirstUnknown(Data::kNoColumn);
  EnvelopeSystem system = AssembleSingle(scene.constraint, 0);
  EXPECT_EQ(scene.constraint.ConstraintCount(), 2U);
  EXPECT_EQ(system.Rhs()[0], 0.0);
  EXPECT_THROW(system.FactorizeAndSolve(true), KlException);
}

TEST(BedingungPunktGerade, ActivityNeedsBitAndBothGroups) {
  PointAndLine scene;
  EXPECT_TRUE(scene.constraint.IsActive());
  EXPECT_EQ(scene.constraint.ConstraintCount(), 2U);
  scene.point.SetActive(false);
  EXPECT_FALSE(scene.constraint.IsActive());
  EXPECT_EQ(scene.constraint.ConstraintCount(), 0U);
  EXPECT_EQ(scene.constraint.AssignConstraintIndex(3), 3U);
  scene.point.SetActive(true);
  scene.line.SetActive(false);
  EXPECT_FALSE(scene.constraint.IsActive());
  scene.line.SetActive(true);
  scene.constraint.SetActive(false);
  EXPECT_FALSE(scene.constraint.IsActive());
  scene.constraint.SetActive(true);
  scene.constraint.SetLinks(nullptr, &scene.line);
  EXPECT_FALSE(scene.constraint.IsActive());
  scene.constraint.SetLinks(&scene.point, nullptr);
  EXPECT_FALSE(scene.constraint.IsActive());
}

TEST(BedingungPunktGerade, KeepsNoMultipliersAndTellsItself) {
  PointAndLine scene;
  scene.constraint.AssignConstraintIndex(0);
  scene.constraint.StoreMultipliers(std::vector<double>{1.0, 2.0});
  EXPECT_THAT(scene.constraint.CollectMultipliers(), IsEmpty());
  SetLanguage(Language::German);
  EXPECT_EQ(scene.constraint.GetDescription(), "Bedingung Punkt 12 auf Linie 13");
  SetLanguage(Language::English);
  EXPECT_EQ(scene.constraint.GetDescription(), "Constraint point 12 at line 13");
  SetLanguage(Language::German);
}

struct PointAndPlane {
  DataObko point;
  DataEor body;
  DataPlane plane;
  ConstraintPointOnPlane constraint;

  explicit PointAndPlane(bool inBody = false) {
    point.SetCoordinates({0.3, 0.5, -0.2});
    body.fTranslation = {0.2, 0.1, 0.4};
    body.fRotation = ostra_bundle::RotationFromAngles(0.4, -0.3, 0.2);
    plane.SetPointAndNormal({1.0, -2.0, 0.5}, {0.3, -0.7, 2.0});
    std::int32_t column = 0;
    for (Data* group :
         {static_cast<Data*>(&point), static_cast<Data*>(&body), static_cast<Data*>(&plane)}) {
      group->SetActive(true);
      group->SetVariable(true);
      group->SetFirstUnknown(column);
      column += static_cast<std::int32_t>(group->UnknownCount());
    }
    if (inBody) point.SetReferenceEor(&body);
    constraint.SetNummern(4, 12, 13);
    constraint.SetLinks(&point, &plane);
    constraint.SetActive(true);
  }

  [[nodiscard]] double Offset() const {
    return ostra_bundle::Dot(plane.Normal(),
                             ostra_bundle::Subtract(point.WorldCoordinates(), plane.Point()));
  }
};

TEST(ConstraintPointOnPlane, RowMatchesDifferencesAlsoThroughABody) {
  for (const bool inBody : {false, true}) {
    PointAndPlane scene(inBody);
    const EnvelopeSystem system = AssembleSingle(scene.constraint, 12);
    EXPECT_DOUBLE_EQ(system.Rhs()[12], -scene.Offset());
    const double step = 1e-6;
    for (std::uint32_t c = 0; c < 12; ++c) {
      std::vector<double> solution(12, 0.0);
      const auto offsetAt = [&](double increment) {
        PointAndPlane moved(inBody);
        solution[c] = increment;
        moved.point.ApplySolution(solution);
        moved.body.ApplySolution(solution);
        moved.plane.ApplySolution(solution);
        return moved.Offset();
      };
      EXPECT_NEAR(system.Element(12, c), (offsetAt(step) - offsetAt(-step)) / (2.0 * step), 1e-8)
          << "column " << c;
    }
  }
}

TEST(ConstraintPointOnPlane, PointOnThePlaneWritesTheFullRow) {
  PointAndPlane scene;
  scene.plane.SetPointAndNormal({0.3, 0.5, -0.2}, {0.3, -0.7, 2.0});
  const EnvelopeSystem system = AssembleSingle(scene.constraint, 12);
  EXPECT_EQ(system.Rhs()[12], 0.0);
  EXPECT_EQ(system.Element(12, 0), scene.plane.Normal()[0]);
  EXPECT_EQ(system.Element(12, 11), -1.0);
}

TEST(ConstraintPointOnPlane, FixedElementsLeaveTheOthersCoefficients) {
  PointAndPlane scene;
  scene.plane.SetFirstUnknown(Data::kNoColumn);
  const EnvelopeSystem pointOnly = AssembleSingle(scene.constraint, 12);
  EXPECT_EQ(pointOnly.Element(12, 2), scene.plane.Normal()[2]);
  scene.plane.SetFirstUnknown(9);
  scene.point.SetFirstUnknown(Data::kNoColumn);
  const EnvelopeSystem planeOnly = AssembleSingle(scene.constraint, 12);
  EXPECT_EQ(planeOnly.Element(12, 11), -1.0);
  EXPECT_EQ(planeOnly.Element(12, 0), 0.0);
}

TEST(ConstraintPointOnPlane, BetweenFixedElementsNothingIsWritten) {
  PointAndPlane scene;
  scene.plane.SetFirstUnknown(Data::kNoColumn);
  scene.point.SetFirstUnknown(Data::kNoColumn);
  const EnvelopeSystem system = AssembleSingle(scene.constraint, 12);
  EXPECT_EQ(system.Rhs()[12], 0.0);
}

TEST(ConstraintPointOnPlane, StoresNothingWhileItIsInactive) {
  ExpectNothingStoredWhileInactive<PointAndPlane>(12);
}

TEST(ConstraintPointOnPlane, ActivityNeedsBitAndBothGroups) {
  PointAndPlane scene;
  EXPECT_EQ(scene.constraint.ConstraintCount(), 1U);
  scene.point.SetActive(false);
  EXPECT_EQ(scene.constraint.ConstraintCount(), 0U);
  scene.point.SetActive(true);
  scene.plane.SetActive(false);
  EXPECT_EQ(scene.constraint.ConstraintCount(), 0U);
  scene.plane.SetActive(true);
  scene.constraint.SetActive(false);
  EXPECT_EQ(scene.constraint.ConstraintCount(), 0U);
  scene.constraint.SetActive(true);
  for (const auto& [point, plane] :
       {std::pair<DataObko*, DataPlane*>{nullptr, &scene.plane}, {&scene.point, nullptr}}) {
    scene.constraint.SetLinks(point, plane);
    EXPECT_EQ(scene.constraint.ConstraintCount(), 0U);
  }
}

TEST(ConstraintPointOnPlane, TellsItselfAndCountsOne) {
  PointAndPlane scene;
  EXPECT_EQ(scene.constraint.ConstraintCount(), 1U);
  SetLanguage(Language::German);
  EXPECT_EQ(scene.constraint.GetDescription(), "Bedingung Punkt 12 auf Ebene 13");
  SetLanguage(Language::English);
  EXPECT_EQ(scene.constraint.GetDescription(), "Constraint point 12 at plane 13");
  SetLanguage(Language::German);
  const ConstraintPointOnPlane unset;
  EXPECT_EQ(unset.Id(), 0xFFFFFFFFU);
}

}  // namespace
}  // namespace vermo
