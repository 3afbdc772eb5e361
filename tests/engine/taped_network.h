#pragma once

#include "api/bundel_tavri_lib.h"
#include "observations/bedingung.h"
#include "observations/messung.h"
#include "reference/dense_adjustment.h"
#include "support/system_tape.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <typeinfo>
#include <vector>

namespace vermo::test {

// A network of records and what the builder of networks does not know.
struct TapedScene {
  reference::Network network;
  std::vector<sXYZ_Line> lines = {};
  std::vector<sXYZ_Plane> planes = {};
  std::vector<sXYZ_PictureLineCoord> linePoints = {};
  std::vector<sXYZ_ConstraintPointOnLine> onLines = {};
  std::vector<sXYZ_ConstraintPointOnPlane> onPlanes = {};
};

// A run that keeps the last system that it assembled.
class TapedBundel final : public KLBundel {
 public:
  using KLBundel::KLBundel;

  SystemTape tape;
  // Of every observation on the tape: first columns of the groups that it said it would meet.
  std::vector<std::vector<std::uint32_t>> couplings;

 protected:
  std::uint32_t BuildNormalEquations() override {
    const std::uint32_t components = KLBundel::BuildNormalEquations();
    SystemLayout layout;
    const Data* first = fDaten.front();
    for (const Data* group : fDaten) {
      if (!group->IsActive() || group->FirstUnknown() < 0 || group->UnknownCount() == 0) continue;
      layout.starts.push_back(static_cast<std::uint32_t>(group->FirstUnknown()));
      if (typeid(*group) == typeid(*first)) ++layout.leading;
    }
    for (const Bedingung* constraint : fBedingungen)
      if (constraint->ConstraintCount() > 0) layout.starts.push_back(constraint->FirstRow());
    layout.starts.push_back(System().Size());
    tape.SetLayout(layout);
    tape.Reset(System().Unknowns(), System().Size() - System().Unknowns());
    EquationBlock equations;
    couplings.clear();
    for (const MessungEntry& entry : fMessungen) {
      if (!entry.messung->IsConnected()) continue;
      entry.messung->AddToNormals(tape, equations);
      GroupColumns columns;
      entry.messung->CollectColumns(columns);
      couplings.resize(tape.observations.size(),
                       {columns.begin(), columns.begin() + columns.size()});
    }
    for (const Bedingung* constraint : fBedingungen)
      if (constraint->IsActive()) constraint->AddConstraintRows(tape);
    return components;
  }
};

template <typename Record>
void SetAll(void* job, const std::vector<Record>& records, int (*set)(void*, const Record*)) {
  for (const Record& record : records) ASSERT_EQ(set(job, &record), 0);
}

// Runs so many iterations; the run may end as it likes, its tape holds its last system.
inline void Record(const TapedScene& scene,
                   int iterations,
                   bool solvabilityCheck,
                   TapedBundel& run) {
  BundelTavriLib job("engine_test.htm");
  const reference::Network& network = scene.network;
  SetAll(&job, network.cameras, XYZ_SetInteriorOrientation);
  SetAll(&job, network.images, XYZ_SetExteriorOrientation2);
  SetAll(&job, network.points, XYZ_SetObjectCoord);
  SetAll(&job, network.projections, XYZ_SetProjection);
  SetAll(&job, network.pairs, XYZ_SetRelativeOrientation);
  SetAll(&job, network.imagePoints, XYZ_SetPictureCoord);
  SetAll(&job, network.measured, XYZ_SetMeasuredObjectCoord);
  SetAll(&job, network.distances, XYZ_SetDistance);
  SetAll(&job, scene.lines, XYZ_SetLine);
  SetAll(&job, scene.planes, XYZ_SetPlane);
  SetAll(&job, scene.linePoints, XYZ_SetPictureLineCoord);
  SetAll(&job, scene.onLines, XYZ_SetConstraintPointOnLine);
  SetAll(&job, scene.onPlanes, XYZ_SetConstraintPointOnPlane);

  run.fNetworkSettings.SetS0Apriori(network.s0Apriori);
  run.fNetworkSettings.SetTranslationDatum(network.datumTranslation);
  run.fNetworkSettings.SetRotationDatum(network.datumRotation);
  run.fNetworkSettings.SetScaleDatum(network.datumScale);
  run.Settings().SetBlunderTest(false);
  run.Settings().SetSolvabilityCheck(solvabilityCheck);
  run.Settings().fMaxIterations = iterations;
  run.Settings().fConvergenceLimit = 0.0;
  run.Settings().fS0Floor = 0.0;
  run.Settings().fS0Limit = 1e20;
  const auto copy = [](auto& to, const auto& from) {
    for (const auto& object : from) to.Add(object);
  };
  copy(run.fBiko, job.fBiko);
  copy(run.fObko, job.fObko);
  copy(run.fStrecken, job.fStrecken);
  copy(run.fLinko, job.fLinko);
  copy(run.fIors, job.fIors);
  copy(run.fProjektionen, job.fProjektionen);
  copy(run.fEors, job.fEors);
  copy(run.fObkos, job.fObkos);
  copy(run.fLinien, job.fLinien);
  copy(run.fPlanes, job.fPlanes);
  copy(run.fDoppelOrientierungen, job.fDoppelOrientierungen);
  copy(run.fPunktGeraden, job.fPunktGeraden);
  copy(run.fPunktEbenen, job.fPunktEbenen);
  static_cast<void>(run.CalcBundle());
}

inline SystemTape TapeOf(const TapedScene& scene, int iterations, bool solvabilityCheck = false) {
  TapedBundel run("engine_test.htm");
  Record(scene, iterations, solvabilityCheck, run);
  return std::move(run.tape);
}

}  // namespace vermo::test
