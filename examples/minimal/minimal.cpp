// A point measured three times: the smallest adjustment there is.
#include <cstdio>
#include <xyz_api.h>

int main() {
  void* job = XYZ_CreateJob("minimal.htm");
  XYZ_SetParam(job, eXYZ_ParamLanguage, 2);
  XYZ_SetParam(job, eXYZ_ParamS0Apriori, 0.001);
  XYZ_SetParam(job, eXYZ_ParamBlunderTest, 0);  // three readings are too few for it

  sXYZ_ObjectCoord point{};
  point.Id = 1;
  point.Flags = 0x01;  // active, and free to move
  point.ReferenceEor = -1;
  XYZ_SetObjectCoord(job, &point);
  const double readings[] = {10.000, 10.001, 10.005};
  for (const double x : readings) {
    sXYZ_MeasuredObjectCoord measured{};
    measured.X = x;
    measured.Sx = measured.Sy = measured.Sz = 0.001;
    measured.PointId = 1;
    measured.ReferenceEor = -1;
    measured.Flags = 0x01;
    XYZ_SetMeasuredObjectCoord(job, &measured);
  }
  const int status = XYZ_CalcBundle(job);
  XYZ_GetObjectCoordAt(job, 0, &point);
  std::printf("status %d, point %d: %.4f +- %.4f\n", status, point.Id, point.X, point.Sx);
  XYZ_DestroyJob(job);
  return status;
}
