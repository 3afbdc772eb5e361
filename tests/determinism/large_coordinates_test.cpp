// A network far from its origin. A coordinate of size 5e8 is a multiple of 2^-24 = 6e-8, and so is
// every state that the adjustment passes through; more than that may not be lost.

#include "determinism/samples.h"
#include "reference/network_builder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <set>
#include <string>
#include <tuple>

namespace determinism {
namespace {

using reference::Network;
using reference::Shape;

struct Case {
  const char* name;
  Shape shape;
};

Shape Base() {
  Shape shape;
  shape.seed = 31;
  shape.images = 8;
  shape.points = 40;
  return shape;
}

Case Control() { return {"Control", Base()}; }
Case MeasuredControl() {
  Shape shape = Base();
  shape.fixedControl = false;
  shape.distances = 4;
  return {"MeasuredControl", shape};
}
Case FreeDatum() {
  Shape shape = Base();
  shape.freeNetwork = true;
  return {"FreeDatum", shape};
}
Case Rig() {
  Shape shape = Base();
  shape.mask = 0x1;
  shape.relative = true;
  return {"Rig", shape};
}

// Onto multiples of 2^-20, which are exact with either shift: the shifted input is the same input.
double OnGrid(double x) { return std::nearbyint(x * 0x1p20) * 0x1p-20; }

bool IsBase(const Network& n, int image) {
  return std::any_of(
      n.pairs.begin(), n.pairs.end(), [&](const auto& pair) { return pair.BaseEorId == image; });
}

Network Moved(Network n, const std::array<double, 3>& shift) {
  const auto move = [&](double& x, double& y, double& z) {
    x = OnGrid(x) + shift[0];
    y = OnGrid(y) + shift[1];
    z = OnGrid(z) + shift[2];
  };
  for (auto& p : n.points) move(p.X, p.Y, p.Z);
  for (auto& e : n.images)
    if (!IsBase(n, e.Id)) move(e.X0, e.Y0, e.Z0);
  for (auto& o : n.measured) move(o.X, o.Y, o.Z);
  return n;
}

// The figures that move with the network.
std::set<std::string> MovedFigures(const Network& n) {
  std::set<std::string> names;
  for (const auto& p : n.points)
    for (const char* axis : {" X", " Y", " Z"})
      names.insert("point " + std::to_string(p.Id) + axis);
  for (const auto& e : n.images)
    if (!IsBase(n, e.Id))
      for (const char* axis : {" X0", " Y0", " Z0"})
        names.insert("image " + std::to_string(e.Id) + axis);
  return names;
}

// The same figures with the shift taken off again, exactly: both lie on the grid of the shift.
Figures TakenBack(Figures figures, const Network& n, const std::array<double, 3>& shift) {
  for (const std::string& name : MovedFigures(n)) {
    const std::size_t axis = name.find_last_of("XYZ");
    figures.at(name).value -= shift[static_cast<std::size_t>(name[axis] - 'X')];
  }
  return figures;
}

// States on a coarse grid never settle much finer than the limit that a job has by itself.
Steps WithLimit(const Network& network, double convergenceLimit) {
  Steps steps = StepsOf(network);
  steps.push_back(
      [=](void* job) { XYZ_SetParam(job, eXYZ_ParamConvergenceLimit, convergenceLimit); });
  return steps;
}

class LargeCoordinates : public testing::TestWithParam<std::tuple<Case, double>> {};

INSTANTIATE_TEST_SUITE_P(
    Shifts,
    LargeCoordinates,
    testing::Combine(testing::Values(Control(), MeasuredControl(), FreeDatum(), Rig()),
                     testing::Values(5e6, 5e8)),
    [](const auto& instance) {
      return std::string(std::get<0>(instance.param).name) +
             (std::get<1>(instance.param) < 1e8 ? "_5e6" : "_5e8");
    });

// What figures may differ by, each in its own unit.
struct Bounds {
  double coordinate;  // those that carry the shift
  double residual;
  double relative;  // of standard deviations, and of all other unknowns to theirs
  double redundancy;
};

void ExpectWithin(const Bounds& bounds,
                  const Figures& found,
                  const Figures& wanted,
                  const std::set<std::string>& moved) {
  const double observations = wanted.at("run result 7").value;
  ASSERT_EQ(found.size(), wanted.size());
  for (const auto& [name, figure] : wanted) {
    const double difference = std::fabs(found.at(name).value - figure.value);
    double bound = 0.0;
    switch (figure.kind) {
      case Kind::Value:
        bound = moved.contains(name) ? bounds.coordinate
                                     : bounds.relative * (figure.sigma > 0.0 ? figure.sigma : 1.0);
        break;
      case Kind::Sigma:
        bound = bounds.relative * figure.value;
        break;
      case Kind::Residual:
        bound = bounds.residual + 1e-8 * figure.sigma;
        break;
      case Kind::Redundancy:
        bound = name == "run R sum" ? bounds.redundancy * observations : bounds.redundancy;
        break;
      case Kind::Test:
      case Kind::Count:
        break;
    }
    EXPECT_TRUE(difference <= bound) << name << ": " << difference << ", bound " << bound;
  }
}

struct Pair {
  Outcome near;
  Outcome far;
  Figures takenBack;
  std::set<std::string> moved;
  double ulp = 0.0;
};

Pair RunNearAndFar(const Shape& shape, double size, double convergenceLimit) {
  const Network network = reference::Build(shape);
  const std::array<double, 3> shift = {size, -size, size};
  const Network moved = Moved(network, shift);
  Pair pair;
  pair.near = RunSteps(WithLimit(Moved(network, {0.0, 0.0, 0.0}), convergenceLimit));
  pair.far = RunSteps(WithLimit(moved, convergenceLimit));
  pair.takenBack = TakenBack(pair.far.figures, moved, shift);
  pair.moved = MovedFigures(moved);
  pair.ulp = std::nextafter(size, std::numeric_limits<double>::infinity()) - size;
  return pair;
}

// Residuals are those of the state. A point and a projection centre, each off by half an ulp in
// three axes, move an image point by ck / Z sqrt(3) ulp at most, with ck / Z below 10 here;
// residuals of coordinates and distances move by less.
double ResidualBound(double ulp) { return 10.0 * std::sqrt(3.0) * ulp; }

// The coefficients of the equations change by an ulp in a distance of three units. In the direction
// that the network determines worst this counts by the root of the condition number, as it does for
// any change of the equations; that of these networks, their unknowns scaled alike, is 1e4 to 1e5.
double CoefficientBound(double ulp) { return std::sqrt(1e5) * ulp / 3.0 + 1e-8; }

// Both start from the very same state and take one step. What differs then is arithmetic, and it is
// what rounding near the origin leaves as well: the step and its cofactors do not see the shift. An
// adjusted coordinate is rounded once, to half an ulp; the hundredth is for the figure near the
// origin. Residuals and the coefficients of the redundancy numbers are made anew at this rounded
// state.
TEST_P(LargeCoordinates, LoseNothingInTheArithmeticOfAStep) {
  const auto& [example, size] = GetParam();
  const Pair pair = RunNearAndFar(example.shape, size, 1e9);
  ASSERT_EQ(pair.near.status, eXYZ_Ok);
  ASSERT_EQ(pair.far.status, eXYZ_Ok);
  const double ulp = pair.ulp;
  ExpectWithin({0.51 * ulp, ResidualBound(ulp), 1e-8, CoefficientBound(ulp)},
               pair.takenBack,
               pair.near.figures,
               pair.moved);
}

// A whole run rounds its state to half an ulp after each step. A step from a rounded state leads to
// the same solution: an adjusted coordinate still differs by its last rounding and by what is of
// second order. Everything else sees the coefficients of the rounded states.
TEST_P(LargeCoordinates, LoseTheRepresentationAndNoMore) {
  const auto& [example, size] = GetParam();
  const Pair pair = RunNearAndFar(example.shape, size, 0.00032);
  ASSERT_EQ(pair.near.status, eXYZ_Ok);
  ASSERT_EQ(pair.far.status, eXYZ_Ok);
  const double ulp = pair.ulp;
  ExpectWithin({0.51 * ulp, ResidualBound(ulp), CoefficientBound(ulp), CoefficientBound(ulp)},
               pair.takenBack,
               pair.near.figures,
               pair.moved);
}

}  // namespace
}  // namespace determinism
