// A caller in another module: sees the public header only and catches the library's failure type.
#include "xyz_api.h"

int main() {
  void* job = XYZ_CreateJob("public_header_test.htm");
  if (job == nullptr) return 1;
  int result = 2;
  try {
    XYZ_SetParam(job, eXYZ_ParamS0Apriori, 0.0);
  } catch (const vermo::KlException& failure) {
    result = failure.GetCode() == -35001 ? 0 : 3;
  }
  return XYZ_DestroyJob(job) == eXYZ_Ok ? result : 4;
}
