#include "networks/library_run.h"

#include <gtest/gtest.h>

namespace {

int CountIterations(void* /*job*/, sXYZ_CBProgressInfo* info, void* userData) {
  *static_cast<int*>(userData) = info->Iteration;
  return 0;
}

template <typename Record>
void SetAll(void* job, const std::vector<Record>& records, int (*set)(void*, const Record*)) {
  for (const Record& record : records) ASSERT_EQ(set(job, &record), 0);
}

template <typename Record>
std::vector<Record> GetAll(void* job, int count, int (*get)(void*, int, Record*)) {
  std::vector<Record> records(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) EXPECT_EQ(get(job, i, &records[static_cast<std::size_t>(i)]), 0);
  return records;
}

}  // namespace

Job MakeJob(const reference::Network& network, double convergenceLimit) {
  Job job(XYZ_CreateJob("networks_test.htm"));
  void* handle = job.get();
  XYZ_SetParam(handle, eXYZ_ParamBlunderTest, 0);
  XYZ_SetParam(handle, eXYZ_ParamS0Apriori, network.s0Apriori);
  XYZ_SetParam(handle, eXYZ_ParamConvergenceLimit, convergenceLimit);
  XYZ_SetParam(handle, eXYZ_ParamProgressWindow, 100);
  XYZ_SetParam(handle,
               eXYZ_ParamDatum,
               (network.datumTranslation ? 0x700 : 0) | (network.datumRotation ? 0x3800 : 0) |
                   (network.datumScale ? 0x4000 : 0));
  SetAll(handle, network.cameras, XYZ_SetInteriorOrientation);
  SetAll(handle, network.images, XYZ_SetExteriorOrientation2);
  SetAll(handle, network.points, XYZ_SetObjectCoord);
  SetAll(handle, network.projections, XYZ_SetProjection);
  SetAll(handle, network.pairs, XYZ_SetRelativeOrientation);
  SetAll(handle, network.imagePoints, XYZ_SetPictureCoord);
  SetAll(handle, network.measured, XYZ_SetMeasuredObjectCoord);
  SetAll(handle, network.distances, XYZ_SetDistance);
  return job;
}

LibraryRun RunThroughLibrary(const reference::Network& network, double convergenceLimit) {
  const Job job = MakeJob(network, convergenceLimit);
  void* handle = job.get();
  LibraryRun run;
  XYZ_SetProgressCallback(handle, CountIterations, &run.iterations);
  run.status = XYZ_CalcBundle(handle);
  XYZ_GetResult(handle, eXYZ_ResultS0, &run.s0);
  XYZ_GetResult(handle, eXYZ_ResultObservations, &run.observations);
  XYZ_GetResult(handle, eXYZ_ResultUnknowns, &run.unknowns);
  XYZ_GetResult(handle, eXYZ_ResultConstraints, &run.constraints);
  XYZ_GetResult(handle, eXYZ_ResultRedundancy, &run.redundancy);
  XYZ_GetResult(handle, eXYZ_ResultRedundancyValue, &run.redundancySum);
  run.adjusted.s0Apriori = network.s0Apriori;
  run.adjusted.cameras = GetAll(handle, XYZ_GetInteriorOrientCnt(handle), XYZ_GetInteriorOrientAt);
  run.adjusted.images = GetAll(handle, XYZ_GetExteriorOrientCnt(handle), XYZ_GetExteriorOrientAt);
  run.adjusted.points = GetAll(handle, XYZ_GetObjectCoordCnt(handle), XYZ_GetObjectCoordAt);
  run.adjusted.projections = GetAll(handle, XYZ_GetProjectionCnt(handle), XYZ_GetProjectionAt);
  run.adjusted.pairs =
      GetAll(handle, XYZ_GetRelativeOrientationCnt(handle), XYZ_GetRelativeOrientationAt);
  run.adjusted.imagePoints = GetAll(handle, XYZ_GetPictureCoordCnt(handle), XYZ_GetPictureCoordsAt);
  run.adjusted.measured =
      GetAll(handle, XYZ_GetMeasuredObjectCoordCnt(handle), XYZ_GetMeasuredObjectCoordAt);
  run.adjusted.distances = GetAll(handle, XYZ_GetDistanceCnt(handle), XYZ_GetDistanceAt);
  return run;
}
