#pragma once

#include "networks/library_run.h"
#include "reference/dense_adjustment.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <string>

using reference::Network;
using reference::Result;

// Collects the worst deviation of each kind and where it is. A value may deviate by a share of
// its standard deviation, a standard deviation by a share of itself.
class Comparison {
 public:
  void Value(double library, double reference, double sigma, const std::string& where) {
    Note(std::fabs(library - reference) / (sigma > 0.0 ? sigma : kFixed), fValue, fValueAt, where);
  }
  void Ratio(double library, double reference, const std::string& where) {
    Note(std::fabs(library - reference) / std::max(std::fabs(reference), 1e-30),
         fRatio,
         fRatioAt,
         where);
  }
  void Number(double library, double reference, const std::string& where) {
    Note(std::fabs(library - reference), fNumber, fNumberAt, where);
  }
  void Expect(double tolerance) const { Expect(tolerance, tolerance); }
  // Cofactors may be less exact than values.
  void Expect(double tolerance, double cofactorTolerance) const {
    EXPECT_LE(fValue, tolerance) << "of a standard deviation at " << fValueAt;
    EXPECT_LE(fRatio, cofactorTolerance) << "relative at " << fRatioAt;
    EXPECT_LE(fNumber, cofactorTolerance) << "absolute at " << fNumberAt;
  }

 private:
  // Turned round so that a NaN is the worst of all.
  static void Note(double deviation, double& worst, std::string& at, const std::string& where) {
    if (deviation <= worst) return;
    worst = std::isnan(deviation) ? 1e300 : deviation;
    at = where;
  }

  // In place of the standard deviation of a fixed value, which may round once where a rotation
  // comes in as angles or as a matrix.
  static constexpr double kFixed = 1e-6;

  double fValue = 0.0, fRatio = 0.0, fNumber = 0.0;
  std::string fValueAt, fRatioAt, fNumberAt;
};

inline void ComparePoints(Comparison& c, const Network& library, const Network& expected) {
  ASSERT_EQ(library.points.size(), expected.points.size());
  for (std::size_t i = 0; i < expected.points.size(); ++i) {
    const auto& a = library.points[i];
    const auto& b = expected.points[i];
    const std::string at = "point " + std::to_string(b.Id);
    c.Value(a.X, b.X, b.Sx, at);
    c.Value(a.Y, b.Y, b.Sy, at);
    c.Value(a.Z, b.Z, b.Sz, at);
    c.Ratio(a.Sx, b.Sx, at);
    c.Ratio(a.Sy, b.Sy, at);
    c.Ratio(a.Sz, b.Sz, at);
  }
}

inline void CompareImages(Comparison& c, const Network& library, const Network& expected) {
  ASSERT_EQ(library.images.size(), expected.images.size());
  for (std::size_t i = 0; i < expected.images.size(); ++i) {
    const auto& a = library.images[i];
    const auto& b = expected.images[i];
    const std::string at = "image " + std::to_string(b.Id);
    c.Value(a.X0, b.X0, b.SPosition[0], at);
    c.Value(a.Y0, b.Y0, b.SPosition[1], at);
    c.Value(a.Z0, b.Z0, b.SPosition[2], at);
    const double rotation = *std::min_element(b.SRotation, b.SRotation + 3);
    for (int k = 0; k < 9; ++k) c.Value(a.Rotation[k], b.Rotation[k], rotation, at);
    for (int k = 0; k < 3; ++k) {
      c.Ratio(a.SPosition[k], b.SPosition[k], at);
      c.Ratio(a.SRotation[k], b.SRotation[k], at);
    }
  }
}

inline void CompareCameras(Comparison& c, const Network& library, const Network& expected) {
  for (std::size_t i = 0; i < expected.cameras.size(); ++i) {
    const auto& a = library.cameras[i];
    const auto& b = expected.cameras[i];
    const std::string at = "camera " + std::to_string(b.Id);
    const double va[12] = {
        a.Ck, a.Xh, a.Yh, a.A1, a.A2, a.A3, a.B1, a.B2, a.C1, a.C2, a.AZ1, a.AZ2};
    const double vb[12] = {
        b.Ck, b.Xh, b.Yh, b.A1, b.A2, b.A3, b.B1, b.B2, b.C1, b.C2, b.AZ1, b.AZ2};
    for (int k = 0; k < 12; ++k) {
      c.Value(va[k], vb[k], b.Sigma[k], at);
      c.Ratio(a.Sigma[k], b.Sigma[k], at + " sigma");
      for (int l = 0; l < 12; ++l) c.Number(a.Correlation[k][l], b.Correlation[k][l], at);
    }
  }
  for (std::size_t i = 0; i < expected.projections.size(); ++i) {
    const auto& a = library.projections[i];
    const auto& b = expected.projections[i];
    const std::string at = "projection " + std::to_string(b.Id);
    c.Value(a.Ck, b.Ck, b.SCk, at);
    c.Value(a.Xh, b.Xh, b.SXh, at);
    c.Value(a.Yh, b.Yh, b.SYh, at);
    c.Ratio(a.SCk, b.SCk, at);
    c.Ratio(a.SXh, b.SXh, at);
    c.Ratio(a.SYh, b.SYh, at);
  }
}

inline void CompareObservations(Comparison& c, const Network& library, const Result& expected) {
  std::size_t k = 0;
  const auto compare = [&](double v, double r, double sigma, const std::string& at) {
    c.Value(v, static_cast<double>(expected.residuals[k]), sigma, at + " residual");
    c.Number(r, static_cast<double>(expected.redundancy[k]), at + " redundancy");
    ++k;
  };
  for (const auto& o : library.imagePoints) {
    const std::string at =
        "image point " + std::to_string(o.PointId) + " in " + std::to_string(o.EorId);
    compare(o.Vx, o.Rx, o.Sx, at);
    compare(o.Vy, o.Ry, o.Sy, at);
  }
  for (const auto& o : library.measured) {
    const std::string at = "measured " + std::to_string(o.PointId);
    compare(o.Vx, o.Rx, o.Sx, at);
    compare(o.Vy, o.Ry, o.Sy, at);
    compare(o.Vz, o.Rz, o.Sz, at);
  }
  for (const auto& o : library.distances)
    compare(o.V, o.R, o.Sigma, "distance " + std::to_string(o.Point1));
  EXPECT_EQ(k, expected.residuals.size());
}
