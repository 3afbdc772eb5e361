#include "networks/library_run.h"

#include "support/network_records.h"

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
  XYZ_SetParam(handle, eXYZ_ParamDatum, vermo::test::DatumOf(network));
  vermo::test::HandOver(network,
                        [&](const auto& records, auto set) { SetAll(handle, records, set); });
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
