#include <cstdio>
#include <xyz_api.h>

int main() {
  gXYZ_sVersion version;
  XYZ_GetVersion(&version);
  void* job = XYZ_CreateJob("consumer.htm");
  const int status = XYZ_CalcBundle(job);
  XYZ_DestroyJob(job);
  std::printf("%s, empty job %d\n", version.Name, status);
  return status == eXYZ_CalcFailed ? 0 : 1;
}
