#include "determinism/samples.h"

#include "golden/networks.h"
#include "golden/scene.h"
#include "reference/network_builder.h"
#include "support/network_records.h"

#include <array>
#include <stdexcept>

namespace determinism {
namespace {

using reference::Network;
using reference::Shape;

void Must(int status) {
  if (status != eXYZ_Ok) throw std::runtime_error("refused: " + std::to_string(status));
}

template <typename Record>
void Append(Steps& steps, const std::vector<Record>& records, int (*set)(void*, const Record*)) {
  for (const Record& record : records)
    steps.push_back([record, set](void* job) { Must(set(job, &record)); });
}

// Twelve images of sixty points, self-calibrated with all parameters that this shape carries.
Steps Calibration() {
  Shape shape;
  shape.seed = 11;
  shape.images = 12;
  shape.points = 60;
  shape.cameras = 2;
  shape.mask = 0x337;
  shape.distortion = true;
  shape.r0 = 2.0;
  shape.projections = true;
  shape.fixedProjections = true;
  return StepsOf(reference::Build(shape));
}

Steps FreeNetwork() {
  Shape shape;
  shape.seed = 12;
  shape.images = 10;
  shape.points = 80;
  shape.freeNetwork = true;
  return StepsOf(reference::Build(shape));
}

Steps Rig() {
  Shape shape;
  shape.seed = 13;
  shape.images = 8;
  shape.points = 40;
  shape.mask = 0x1;
  shape.relative = true;
  shape.bodyPoints = true;
  shape.measuredInImages = true;
  shape.fixedControl = false;
  shape.distances = 6;
  return StepsOf(reference::Build(shape));
}

// Images of the plate with lines, planes and points bound to them, and gross errors that the
// outlier test has to find.
Steps Plate() {
  using namespace golden;
  Steps steps;
  Noise noise;
  const double sigma = 0.001;
  steps.push_back([](void* job) { AddCamera(job, 1, -30.0, 0x01, 0x7); });
  for (int image = 1; image <= 7; ++image)
    steps.push_back([image](void* job) { AddImage(job, image, 1, ImageOf(image), 0x01); });
  for (int point = 1; point <= 16; ++point) {
    const bool control = point == 1 || point == 4 || point == 13 || point == 16;
    Vector position = PlatePoint(point);
    if (!control)
      for (double& value : position) value += 0.05 * noise.Next();
    steps.push_back([=](void* job) { AddPoint(job, point, position, control ? 0x11 : 0x01); });
    for (int image = 1; image <= 7; ++image) {
      auto xy = Project(ToCamera(ImageOf(image), PlatePoint(point)), -30.0);
      for (double& value : xy) value += sigma * noise.Next();
      if (point == 10 && image == 3) xy[0] += 0.08;
      if (point == 7 && image == 6) xy[1] -= 0.05;
      steps.push_back([=](void* job) { AddImagePoint(job, point, image, xy, sigma); });
    }
  }
  const auto line = [&](int id, int first, int last) {
    const Vector a = PlatePoint(first);
    const Vector b = PlatePoint(last);
    steps.push_back([=](void* job) { AddLine(job, id, a, b, 0x01); });
    for (int image = 1; image <= 7; ++image)
      for (int i = 0; i < 4; ++i) {
        Vector p{};
        for (unsigned k = 0; k < 3; ++k) p[k] = a[k] + (0.1 + 0.25 * i) * (b[k] - a[k]);
        auto xy = Project(ToCamera(ImageOf(image), p), -30.0);
        for (double& value : xy) value += sigma * noise.Next();
        const int own = 1000 * id + 10 * image + i;
        steps.push_back([=](void* job) { AddLinePoint(job, own, id, image, xy, sigma); });
      }
  };
  line(1, 5, 8);
  line(2, 9, 12);
  steps.push_back([](void* job) { AddPointOnLine(job, 301, 6, 1); });
  steps.push_back([](void* job) { AddPointOnLine(job, 302, 11, 2); });
  steps.push_back([](void* job) { AddPlane(job, 50, PlatePoint(9), {0.0, -0.1, 1.0}, 0x01); });
  int id = 400;
  for (const int point : {5, 7, 8, 9, 10, 12}) {
    ++id;
    steps.push_back([=](void* job) { AddPointOnPlane(job, id, point, 50); });
  }
  for (const auto& [a, b] : {std::array{2, 15}, std::array{3, 14}, std::array{6, 12}}) {
    const int first = a;
    const int second = b;
    const double s = Length(PlatePoint(a), PlatePoint(b)) + 0.01 * noise.Next();
    steps.push_back([=](void* job) { AddDistance(job, first, second, s, 0.01); });
  }
  for (const int point : {2, 14}) {
    Vector position = PlatePoint(point);
    for (double& value : position) value += 0.02 * noise.Next();
    steps.push_back([=](void* job) { AddMeasured(job, point, position, 0.02); });
  }
  steps.push_back([](void* job) { Must(XYZ_SetParam(job, eXYZ_ParamS0Apriori, 0.001)); });
  steps.push_back([](void* job) { Must(XYZ_SetParam(job, eXYZ_ParamBlunderTest, 2)); });
  // Camera and heights depend on each other: rounding moves them by more than 1e-6 of S0.
  steps.push_back([](void* job) { Must(XYZ_SetParam(job, eXYZ_ParamConvergenceLimit, 1e-4)); });
  steps.push_back([](void* job) { Must(XYZ_SetParam(job, eXYZ_ParamProgressWindow, 100)); });
  return steps;
}

void Collect(void* /*job*/, char* text, void* userData) {
  *static_cast<std::string*>(userData) += text;
}

}  // namespace

std::span<const Sample> Samples() {
  static constexpr Sample kSamples[] = {
      {"Calibration", Calibration}, {"FreeNetwork", FreeNetwork}, {"Rig", Rig}, {"Plate", Plate}};
  return kSamples;
}

Steps StepsOf(const Network& network) {
  Steps steps;
  vermo::test::HandOver(network,
                        [&](const auto& records, auto set) { Append(steps, records, set); });
  const int datum = vermo::test::DatumOf(network);
  const double s0 = network.s0Apriori;
  // Converged to rounding: what is left between two runs is rounding too.
  steps.push_back([=](void* job) {
    Must(XYZ_SetParam(job, eXYZ_ParamBlunderTest, 0));
    Must(XYZ_SetParam(job, eXYZ_ParamS0Apriori, s0));
    Must(XYZ_SetParam(job, eXYZ_ParamConvergenceLimit, 1e-9));
    Must(XYZ_SetParam(job, eXYZ_ParamProgressWindow, 100));
    Must(XYZ_SetParam(job, eXYZ_ParamDatum, datum));
  });
  return steps;
}

Outcome RunSteps(const Steps& steps, const std::string& protocolFile) {
  const golden::Job job(XYZ_CreateJob(protocolFile.c_str()));
  Outcome run;
  XYZ_SetProtocolCallback(job.get(), Collect, &run.protocol);
  for (const auto& step : steps) step(job.get());
  run.status = XYZ_CalcBundle(job.get());
  run.figures = ReadFigures(job.get(), run.status);
  return run;
}

}  // namespace determinism
