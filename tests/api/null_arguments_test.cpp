// Every record function refuses a missing job and a missing record, and the job stays as it was.

#include "job_fixture.h"

#include <gtest/gtest.h>

namespace {

using NullArguments = JobTest;

template <typename Record>
void ExpectRefused(void* job,
                   int (*set)(void*, const Record*),
                   int (*count)(void*),
                   int (*read)(void*, int, Record*)) {
  Record record{};
  EXPECT_EQ(set(nullptr, &record), eXYZ_NullPointer);
  EXPECT_EQ(set(job, nullptr), eXYZ_NullPointer);
  EXPECT_EQ(read(nullptr, 0, &record), eXYZ_NullPointer);
  EXPECT_EQ(read(job, 0, nullptr), eXYZ_NullPointer);
  EXPECT_EQ(count(job), 0);
}

TEST_F(NullArguments, OfLinesPlanesAndTheirConstraintsAreRefused) {
  ExpectRefused(fJob, XYZ_SetLine, XYZ_GetLineCnt, XYZ_GetLineAt);
  ExpectRefused(fJob, XYZ_SetPlane, XYZ_GetPlaneCnt, XYZ_GetPlaneAt);
  ExpectRefused(
      fJob, XYZ_SetPictureLineCoord, XYZ_GetLinePictureCoordCnt, XYZ_GetLinePictureCoordAt);
  ExpectRefused(fJob,
                XYZ_SetConstraintPointOnLine,
                XYZ_GetConstraintPointOnLineCnt,
                XYZ_GetConstraintPointOnLineAt);
  ExpectRefused(fJob,
                XYZ_SetConstraintPointOnPlane,
                XYZ_GetConstraintPointOnPlaneCnt,
                XYZ_GetConstraintPointOnPlaneAt);
}

TEST_F(NullArguments, OfImagesPointsAndObservationsAreRefused) {
  ExpectRefused(
      fJob, XYZ_SetInteriorOrientation, XYZ_GetInteriorOrientCnt, XYZ_GetInteriorOrientAt);
  ExpectRefused(
      fJob, XYZ_SetExteriorOrientation2, XYZ_GetExteriorOrientCnt, XYZ_GetExteriorOrientAt);
  ExpectRefused(fJob, XYZ_SetObjectCoord, XYZ_GetObjectCoordCnt, XYZ_GetObjectCoordAt);
  ExpectRefused(fJob, XYZ_SetProjection, XYZ_GetProjectionCnt, XYZ_GetProjectionAt);
  ExpectRefused(fJob,
                XYZ_SetRelativeOrientation,
                XYZ_GetRelativeOrientationCnt,
                XYZ_GetRelativeOrientationAt);
  ExpectRefused(fJob, XYZ_SetPictureCoord, XYZ_GetPictureCoordCnt, XYZ_GetPictureCoordsAt);
  ExpectRefused(fJob,
                XYZ_SetMeasuredObjectCoord,
                XYZ_GetMeasuredObjectCoordCnt,
                XYZ_GetMeasuredObjectCoordAt);
  ExpectRefused(fJob, XYZ_SetDistance, XYZ_GetDistanceCnt, XYZ_GetDistanceAt);
}

}  // namespace
