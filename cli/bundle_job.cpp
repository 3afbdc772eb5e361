#include "bundle_job.h"

#include <array>
#include <new>
#include <string_view>
#include <utility>

namespace cardo {
namespace {

constexpr std::array<std::pair<int, std::string_view>, 18> kStatusNames = {{
    {eXYZ_Ok, "eXYZ_Ok"},
    {eXYZ_RotationFailed, "eXYZ_RotationFailed"},
    {eXYZ_InvalidValue, "eXYZ_InvalidValue"},
    {eXYZ_IndexOutOfRange, "eXYZ_IndexOutOfRange"},
    {eXYZ_CalcFailed, "eXYZ_CalcFailed"},
    {eXYZ_NoOperation, "eXYZ_NoOperation"},
    {eXYZ_NullJobOnDestroy, "eXYZ_NullJobOnDestroy"},
    {eXYZ_NullPointer, "eXYZ_NullPointer"},
    {eXYZ_UnknownSelector, "eXYZ_UnknownSelector"},
    {eXYZ_CheckFailed, "eXYZ_CheckFailed"},
    {eXYZ_ProtocolFileRejected, "eXYZ_ProtocolFileRejected"},
    {eXYZ_InvalidSigma, "eXYZ_InvalidSigma"},
    {eXYZ_DuplicateId, "eXYZ_DuplicateId"},
    {eXYZ_InvalidLine, "eXYZ_InvalidLine"},
    {eXYZ_NoProgress, "eXYZ_NoProgress"},
    {eXYZ_LineCoordsWithPrincipalPoint, "eXYZ_LineCoordsWithPrincipalPoint"},
    {eXYZ_InvalidPlane, "eXYZ_InvalidPlane"},
    {eXYZ_SingularSystem, "eXYZ_SingularSystem"},
}};

}  // namespace

BundleJob::BundleJob() : fHandle(XYZ_CreateJob()) {
  if (fHandle == nullptr) throw std::bad_alloc();
}

BundleJob::~BundleJob() { XYZ_DestroyJob(fHandle); }

std::string StatusName(int status) {
  for (const auto& [value, name] : kStatusNames) {
    if (value == status) return std::string(name);
  }
  return std::to_string(status);
}

}  // namespace cardo
