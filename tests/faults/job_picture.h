#pragma once

#include "xyz_api.h"

#include <cstring>
#include <string>
#include <type_traits>

// What a caller can see of a job.

namespace faults {

inline void AppendBytes(std::string& out, const void* data, std::size_t size) {
  out.append(static_cast<const char*>(data), size);
}

// All records of one kind, their statuses and their count.
template <typename Record>
void AppendRecords(std::string& out, void* job, int count, int (*read)(void*, int, Record*)) {
  AppendBytes(out, &count, sizeof count);
  for (int i = 0; i < count; ++i) {
    Record record;
    // Padding as well: the bytes are compared.
    std::memset(static_cast<void*>(&record), 0, sizeof record);
    const int status = read(job, i, &record);
    AppendBytes(out, &status, sizeof status);
    AppendBytes(out, &record, sizeof record);
  }
}

// Every record, parameter and result but the two times and the language, which is not the job's;
// in bytes. Two jobs with the same picture are the same to a caller.
inline std::string PictureOf(void* job) {
  std::string out;
  AppendRecords(out, job, XYZ_GetInteriorOrientCnt(job), XYZ_GetInteriorOrientAt);
  AppendRecords(out, job, XYZ_GetExteriorOrientCnt(job), XYZ_GetExteriorOrientAt);
  AppendRecords(out, job, XYZ_GetObjectCoordCnt(job), XYZ_GetObjectCoordAt);
  AppendRecords(out, job, XYZ_GetProjectionCnt(job), XYZ_GetProjectionAt);
  AppendRecords(out, job, XYZ_GetLineCnt(job), XYZ_GetLineAt);
  AppendRecords(out, job, XYZ_GetPlaneCnt(job), XYZ_GetPlaneAt);
  AppendRecords(out, job, XYZ_GetRelativeOrientationCnt(job), XYZ_GetRelativeOrientationAt);
  AppendRecords(out, job, XYZ_GetPictureCoordCnt(job), XYZ_GetPictureCoordsAt);
  AppendRecords(out, job, XYZ_GetLinePictureCoordCnt(job), XYZ_GetLinePictureCoordAt);
  AppendRecords(out, job, XYZ_GetMeasuredObjectCoordCnt(job), XYZ_GetMeasuredObjectCoordAt);
  AppendRecords(out, job, XYZ_GetDistanceCnt(job), XYZ_GetDistanceAt);
  AppendRecords(out, job, XYZ_GetConstraintPointOnLineCnt(job), XYZ_GetConstraintPointOnLineAt);
  AppendRecords(out, job, XYZ_GetConstraintPointOnPlaneCnt(job), XYZ_GetConstraintPointOnPlaneAt);
  for (int selector = 0; selector <= 22; ++selector) {
    int whole = 0;
    double real = 0.0;
    if (selector != eXYZ_ParamLanguage) {
      XYZ_GetParam(job, static_cast<eXYZ_Parameter>(selector), &whole);
      AppendBytes(out, &whole, sizeof whole);
    }
    XYZ_GetParam(job, static_cast<eXYZ_Parameter>(selector), &real);
    AppendBytes(out, &real, sizeof real);
    whole = 0;
    real = 0.0;
    if (selector != eXYZ_ResultStartTime && selector != eXYZ_ResultEndTime)
      XYZ_GetResult(job, static_cast<eXYZ_Result>(selector), &whole);
    XYZ_GetResult(job, static_cast<eXYZ_Result>(selector), &real);
    AppendBytes(out, &whole, sizeof whole);
    AppendBytes(out, &real, sizeof real);
  }
  const int check = XYZ_CheckSettings(job);
  AppendBytes(out, &check, sizeof check);
  return out;
}

// The values of the groups alone, without their accuracy.
inline std::string ValuesOf(void* job) {
  std::string out;
  for (int i = 0; i < XYZ_GetObjectCoordCnt(job); ++i) {
    sXYZ_ObjectCoord point;
    XYZ_GetObjectCoordAt(job, i, &point);
    for (const double value : {point.X, point.Y, point.Z}) AppendBytes(out, &value, sizeof value);
  }
  for (int i = 0; i < XYZ_GetExteriorOrientCnt(job); ++i) {
    sXYZ_ExteriorOrient2 image;
    XYZ_GetExteriorOrientAt(job, i, &image);
    for (const double value : {image.X0, image.Y0, image.Z0})
      AppendBytes(out, &value, sizeof value);
    AppendBytes(out, image.Rotation, sizeof image.Rotation);
  }
  for (int i = 0; i < XYZ_GetInteriorOrientCnt(job); ++i) {
    sXYZ_InteriorOrient camera;
    XYZ_GetInteriorOrientAt(job, i, &camera);
    for (const double value : {camera.Ck, camera.Xh, camera.Yh, camera.AZ1})
      AppendBytes(out, &value, sizeof value);
  }
  for (int i = 0; i < XYZ_GetLineCnt(job); ++i) {
    sXYZ_Line line;
    XYZ_GetLineAt(job, i, &line);
    AppendBytes(out, line.P1, sizeof line.P1);
    AppendBytes(out, line.P2, sizeof line.P2);
  }
  for (int i = 0; i < XYZ_GetPlaneCnt(job); ++i) {
    sXYZ_Plane plane;
    XYZ_GetPlaneAt(job, i, &plane);
    AppendBytes(out, plane.Point, sizeof plane.Point);
    AppendBytes(out, plane.Normal, sizeof plane.Normal);
  }
  return out;
}

}  // namespace faults
