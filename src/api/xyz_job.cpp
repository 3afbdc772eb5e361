// The frame of the exported interface: version, jobs, callbacks and the run.

#include "api/bundel_tavri_lib.h"
#include "api/xyz_api.h"
#include "checks/failure_codes.h"
#include "checks/version.h"

#include <cstring>
#include <memory>
#include <string_view>

namespace {

// The failures of a run with a status of their own.
struct StatusOfCode {
  std::int32_t code;
  eXYZ_Status status;
};
constexpr StatusOfCode kStatusOfCode[] = {
    {0, eXYZ_Ok},
    {vermo::failure::kNoProgress, eXYZ_NoProgress},
    {vermo::failure::kLineCoordsWithPrincipalPoint, eXYZ_LineCoordsWithPrincipalPoint},
    {vermo::failure::kSingular, eXYZ_SingularSystem},
};

eXYZ_Status StatusOf(std::int32_t code) {
  for (const StatusOfCode& entry : kStatusOfCode)
    if (entry.code == code) return entry.status;
  return eXYZ_CalcFailed;
}

template <typename... Arguments>
void* MakeJob(Arguments... arguments) noexcept {
  try {
    return std::make_unique<BundelTavriLib>(arguments...).release();
  } catch (...) {
    return nullptr;
  }
}

}  // namespace

int XYZ_Init() { return eXYZ_NoOperation; }

int XYZ_Exit() { return eXYZ_NoOperation; }

int XYZ_Reset(void* /*job*/) { return eXYZ_NoOperation; }

void XYZ_GetVersion(gXYZ_sVersion* out) {
  const VersionBase& version = LibraryVersion();
  out->Major = static_cast<std::int32_t>(version.GetMajor());
  out->Minor = static_cast<std::int32_t>(version.GetMinor());
  out->Patch = static_cast<std::int32_t>(version.GetPatch());
  out->Name = LibraryVersionName();
}

int XYZ_GetIdentificationCnt() { return static_cast<int>(IdentificationText().size()); }

int XYZ_GetIdentification(char* out) {
  const auto text = IdentificationText();
  std::memcpy(out, text.data(), text.size());
  return eXYZ_Ok;
}

void* XYZ_CreateJob() { return MakeJob(); }

void* XYZ_CreateJob(const char* protocolFile) {
  if (protocolFile == nullptr) return nullptr;
  return MakeJob(protocolFile);
}

int XYZ_DestroyJob(void* job) {
  if (job == nullptr) return eXYZ_NullJobOnDestroy;
  try {
    delete &JobOf(job);
  } catch (...) {
    return eXYZ_NullPointer;
  }
  return eXYZ_Ok;
}

int XYZ_SetProgressCallback(void* job, XYZ_ProgressCallback function, void* userData) {
  if (job == nullptr) return eXYZ_NullPointer;
  JobOf(job).SetProgressCallback(function, userData);
  return eXYZ_Ok;
}

int XYZ_SetProtocolCallback(void* job, XYZ_ProtocolCallback function, void* userData) {
  if (job == nullptr) return eXYZ_NullPointer;
  JobOf(job).SetProtocolCallback(function, userData);
  return eXYZ_Ok;
}

int XYZ_SetNewProtocolFile(void* job, const char* protocolFile) {
  if (job == nullptr || protocolFile == nullptr) return eXYZ_NullPointer;
  JobOf(job).SetProtocolFile(protocolFile);
  return eXYZ_Ok;
}

int XYZ_CheckSettings(void* job) {
  if (job == nullptr) return eXYZ_NullPointer;
  try {
    return static_cast<int>(JobOf(job).CheckSettings());
  } catch (...) {
    return eXYZ_CheckFailed;
  }
}

int XYZ_CalcBundle(void* job) {
  if (job == nullptr) return eXYZ_NullPointer;
  try {
    return StatusOf(JobOf(job).CalcBundle());
  } catch (...) {
    return eXYZ_CalcFailed;
  }
}
