#include "golden/scenes.h"

#include "api/bundel_tavri_lib.h"
#include "golden/networks.h"
#include "golden/scene.h"

#include <array>
#include <stdexcept>
#include <vector>

namespace golden {
namespace {

// The hook is protected; a pointer to it is not.
struct Hooks : vermo::KLBundel {
  using vermo::KLBundel::OnGroupsEnabled;
};

// The observations of a point that the ray rule has taken out go with it, so that no run brings one
// back. Its report is written through the hook, in the second iteration.
int ReportEnabledPoint(void* job, sXYZ_CBProgressInfo* info, void* /*userData*/) {
  if (info->Iteration != 2) return 0;
  BundelTavriLib& bundle = JobOf(job);
  const std::vector<vermo::Data*> groups = {bundle.fObkos.Find(5), bundle.fEors.Find(4)};
  (bundle.*&Hooks::OnGroupsEnabled)(groups);
  return 0;
}

void Everything(void* job) {
  BuildEverything(job);
  XYZ_SetParam(job, eXYZ_ParamDamping, 0.0);
  XYZ_SetProgressCallback(job, ReportEnabledPoint, nullptr);
}

void Damping(void* job) {
  BuildPlate(job);
  AddWrongRay(job, 7, 2, 500.0);
  AddWrongRay(job, 10, 3, 30.0);
}

void ByRedundancy(void* job) {
  BuildSmallPlate(job);
  for (const int image : {1, 2, 3, 4}) AddWrongRay(job, 6, image, 0.5);
  AddWrongRay(job, 6, 2, 12.0);
  XYZ_SetParam(job, eXYZ_ParamBlunderTest, 1);
}

void TestOff(void* job) {
  BuildSmallPlate(job);
  AddWrongRay(job, 7, 2, 100.0);
  XYZ_SetParam(job, eXYZ_ParamBlunderTest, 0);
  XYZ_SetParam(job, eXYZ_ParamSolvabilityCheck, 0);
}

void NoIteration(void* job) {
  BuildCameraImages(job);
  XYZ_SetParam(job, eXYZ_ParamMaxIterations, 0);
}

// Without convergence there are no cofactors: the correlations of camera and images relate to the
// normal matrix and overflow their columns.
void OneIteration(void* job) {
  BuildCameraImages(job);
  XYZ_SetParam(job, eXYZ_ParamMaxIterations, 1);
}

void HiddenProjections(void* job) {
  BuildMeasured(job);
  AddProjection(job, 1, -30.0, 0.0, 0.0, 0x11);
  XYZ_SetParam(job, eXYZ_ParamHideProjections, 1);
}

// All but the image coordinates are rejected from the start, by errors that keep them out.
void OnlyOutliers(void* job) {
  BuildSmallPlate(job);
  for (const int point : {6, 7}) {
    Vector wrong = PlatePoint(point);
    for (double& value : wrong) value += 10.0;
    AddMeasured(job, point, wrong, 0.02, 0x11);
  }
  AddDistance(job, 6, 11, 300.0, 0.02, 0x11);
  AddLine(job, 1, PlatePoint(5), PlatePoint(8), 0x11);
  AddLinePoint(job, 1, 1, 1, {10.0, 10.0}, 0.001, 0x11);
}

// Failures.

void Empty(void* /*job*/) {}

void AllFixed(void* job) {
  AddPoint(job, 1, {1.0, 2.0, 3.0}, 0x11);
  AddMeasured(job, 1, {1.0, 2.0, 3.0}, 0.1);
}

int CancelSecondIteration(void* /*job*/, sXYZ_CBProgressInfo* info, void* /*userData*/) {
  return info->Iteration == 2 ? 1 : 0;
}

void Cancelled(void* job) {
  BuildSmallPlate(job);
  XYZ_SetProgressCallback(job, CancelSecondIteration, nullptr);
}

int ThrowAtOnce(void* /*job*/, sXYZ_CBProgressInfo* /*info*/, void* /*userData*/) {
  throw std::runtime_error("the caller's own");
}

void ThrowingCallback(void* job) {
  BuildMeasured(job);
  XYZ_SetProgressCallback(job, ThrowAtOnce, nullptr);
}

void NoProgress(void* job) {
  BuildSmallPlate(job);
  XYZ_SetParam(job, eXYZ_ParamProgressWindow, 1);
  XYZ_SetParam(job, eXYZ_ParamProgressTolerance, 1e-9);
}

void S0TooLarge(void* job) {
  BuildSmallPlate(job);
  XYZ_SetParam(job, eXYZ_ParamS0Limit, 1e-6);
}

void LineOnProjection(void* job) {
  BuildSmallPlate(job);
  AddProjection(job, 1, -30.0, 0.0, 0.0, 0x01);
  AddImage(job, 5, 1, ImageOf(5), 0x01, 3, 1);
  AddLine(job, 1, PlatePoint(5), PlatePoint(8), 0x01);
  AddLinePoint(job, 1, 1, 5, {1.0, 1.0}, 0.001);
}

void Singular(void* job) {
  BuildMeasured(job);
  AddPoint(job, 7, PlatePoint(7));
  XYZ_SetParam(job, eXYZ_ParamSolvabilityCheck, 0);
}

void LineInCameraPlane(void* job) {
  BuildMeasured(job);
  AddCamera(job, 1, -30.0, 0x11);
  AddLineUnderStraightImage(job, {10.0, 0.0, 500.0}, {10.0, 50.0, 500.0});
}

void LineThroughCentre(void* job) {
  BuildMeasured(job);
  AddCamera(job, 1, -30.0, 0x11);
  AddLineUnderStraightImage(job, {0.0, 0.0, 100.0}, {0.0, 0.0, 0.0});
}

constexpr Scene kScenes[] = {{"everything", eXYZ_Ok, Everything},
                             {"free_network", eXYZ_Ok, BuildFreePlate},
                             {"damping", eXYZ_Ok, Damping},
                             {"by_redundancy", eXYZ_Ok, ByRedundancy},
                             {"test_off", eXYZ_Ok, TestOff},
                             {"no_iteration", eXYZ_Ok, NoIteration},
                             {"one_iteration", eXYZ_Ok, OneIteration},
                             {"fixed_groups", eXYZ_Ok, BuildFixedGroups},
                             {"measured", eXYZ_Ok, BuildMeasured},
                             {"hidden_projections", eXYZ_Ok, HiddenProjections},
                             {"only_outliers", eXYZ_Ok, OnlyOutliers}};

constexpr Scene kFailingScenes[] = {
    {"-12011", eXYZ_CalcFailed, Empty},
    {"-12010", eXYZ_LineCoordsWithPrincipalPoint, LineOnProjection},
    {"-12009", eXYZ_NoProgress, NoProgress},
    {"-12006", eXYZ_CalcFailed, AllFixed},
    {"-12005", eXYZ_CalcFailed, Cancelled},
    {"-12004", eXYZ_CalcFailed, S0TooLarge},
    {"-39007", eXYZ_SingularSystem, Singular},
    {"-41001", eXYZ_CalcFailed, LineInCameraPlane},
    {"-9999", eXYZ_CalcFailed, LineThroughCentre},
    {"-9999", eXYZ_CalcFailed, ThrowingCallback},
};

std::string Section(const std::string& protocol, const std::string& anchor) {
  const std::size_t begin = protocol.find("<h4><a name=\"" + anchor + "\"");
  if (begin == std::string::npos) return {};
  return protocol.substr(begin, protocol.find("\n<h4>", begin) - begin);
}

}  // namespace

std::span<const Scene> Scenes() { return kScenes; }

std::span<const Scene> FailingScenes() { return kFailingScenes; }

Outcome RunScene(Language language, const Scene& scene) { return RunGolden(language, scene.build); }

Outcome RunTwice(Language language) {
  SetProcessLanguage(language);
  const ProtocolFile file;
  Outcome outcome;
  {
    const Job job(XYZ_CreateJob(file.Name().c_str()));
    XYZ_SetProtocolCallback(job.get(), CollectText, &outcome.texts);
    BuildMeasured(job.get());
    AddDistance(job.get(), 1, 99, 10.0, 0.02);
    AddPoint(job.get(), 7, PlatePoint(7));
    AddPoint(job.get(), 10, PlatePoint(10));
    AddMeasured(job.get(), 10, PlatePoint(10), 0.02);
    if (XYZ_CalcBundle(job.get()) != eXYZ_Ok) throw std::runtime_error("the first run failed");
    outcome.status = XYZ_CalcBundle(job.get());
    outcome.file = file.Contents();
  }
  SetProcessLanguage(Language::German);
  return outcome;
}

std::string RotationTables(Language language) {
  static constexpr std::uint32_t kTypes[] = {0x1, 0x2, 0x4, 0x3};
  static constexpr std::uint32_t kUnits[] = {0x100, 0x200, 0x400};
  std::vector<std::uint32_t> formats;
  for (const std::uint32_t type : kTypes)
    for (const std::uint32_t unit : kUnits) formats.push_back(type | unit);

  const auto table = [language](std::span<const std::uint32_t> images, std::uint32_t ofJob) {
    const Outcome outcome = RunGolden(language, [&](void* job) {
      BuildImages(job, images);
      XYZ_SetParam(job, eXYZ_ParamEorFormat, static_cast<int>(ofJob));
    });
    return Section(outcome.file, "exterior_orientations");
  };
  // Every image its own, then one image with each form of the job: type and unit, type alone and
  // unit alone.
  std::string tables = table(formats, 0);
  static constexpr std::array<std::uint32_t, 1> kOne = {0x204};
  for (const std::uint32_t format : formats) tables += table(kOne, format);
  for (const std::uint32_t type : kTypes) tables += table(kOne, type);
  for (const std::uint32_t unit : kUnits) tables += table(kOne, unit);
  return tables;
}

}  // namespace golden
