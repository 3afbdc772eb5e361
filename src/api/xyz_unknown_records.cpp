// Groups of unknowns in and out: a set function builds one group, validates it and lets the
// network copy it; a read function reports the group at a position as the last run left it.

#include "api/bundel_tavri_lib.h"
#include "api/record_flags.h"
#include "api/rotation_input.h"
#include "api/xyz_api.h"
#include "network/verband_statistik.h"

#include <algorithm>
#include <utility>

namespace {

using vermo::DataEor;
using vermo::DataIor;
using vermo::DataLinie;
using vermo::DataObko;
using vermo::DataPlane;
using vermo::DataProjektion;
using vermo::DoppelOrientierung;
using vermo::MessungKind;
using vermo::SettingsChecker;

// A normal shorter than this is none.
constexpr double kSmallestNormal = 1e-10;

ostra_bundle::VektorD<3> VectorIn(const double (&v)[3]) noexcept { return {v[0], v[1], v[2]}; }

void VectorOut(const ostra_bundle::VektorD<3>& v, double (&out)[3]) noexcept {
  for (unsigned i = 0; i < 3; ++i) out[i] = v[i];
}

// A copy of the group enters the list.
template <typename List, typename Group>
void Store(List& list, const Group& group) {
  list.Add(group).ResetUnknowns();
}

// The parameters of the camera record in its order, with their bit in the record's mask and
// their place in the record.
struct CameraParameter {
  std::uint32_t bit;
  double sXYZ_InteriorOrient::*value;
};
constexpr CameraParameter kCameraParameters[] = {
    {0x0001, &sXYZ_InteriorOrient::Ck},
    {0x0002, &sXYZ_InteriorOrient::Xh},
    {0x0004, &sXYZ_InteriorOrient::Yh},
    {0x0010, &sXYZ_InteriorOrient::A1},
    {0x0020, &sXYZ_InteriorOrient::A2},
    {0x0040, &sXYZ_InteriorOrient::A3},
    {0x0100, &sXYZ_InteriorOrient::B1},
    {0x0200, &sXYZ_InteriorOrient::B2},
    {0x0400, &sXYZ_InteriorOrient::C1},
    {0x0800, &sXYZ_InteriorOrient::C2},
    {0x1000, &sXYZ_InteriorOrient::AZ1},
    {0x2000, &sXYZ_InteriorOrient::AZ2},
};
constexpr unsigned kRecordParameters = 12;
static_assert(std::size(kCameraParameters) == kRecordParameters);

// The rotation of an image record, or the status that refuses it.
int ReadRotation(const sXYZ_ExteriorOrient2& record, ostra_bundle::Rotation3& rotation) {
  const std::uint32_t type = RotationTypeOf(record.Format);
  if (type == static_cast<std::uint32_t>(RotationType::Matrix)) {
    ostra_bundle::Rotation3 given{};
    std::copy_n(record.Rotation, 9, given.begin());
    const auto orthonormal = Orthonormalized(given);
    if (!orthonormal) return eXYZ_RotationFailed;
    rotation = *orthonormal;
    return eXYZ_Ok;
  }
  const double factor = AngleFactorOf(record.Format);
  if (factor == 0.0) return eXYZ_InvalidValue;
  const auto fromAngles = RotationFromInput(
      type, record.Rotation[0] / factor, record.Rotation[1] / factor, record.Rotation[2] / factor);
  if (!fromAngles) return eXYZ_InvalidValue;
  rotation = *fromAngles;
  return eXYZ_Ok;
}

// Rotation and its accuracy in the form of the record's format, or the status that ends the read.
int WriteRotation(const DataEor& eor, sXYZ_ExteriorOrient2& record) {
  const std::uint32_t type = RotationTypeOf(record.Format);
  if (type == static_cast<std::uint32_t>(RotationType::Matrix)) {
    std::copy_n(eor.fRotation.begin(), 9, record.Rotation);
    std::copy_n(eor.SigmaRotation().begin(), 9, record.SMatrix);
    return eXYZ_Ok;
  }
  if (type != 1 && type != 2 && type != 4) return eXYZ_InvalidValue;
  DataEor::Angles angles{};
  if (!eor.ToAngles(type, angles)) return eXYZ_RotationFailed;
  if (!eor.IsVariable()) record.Flags = record::kFixed;
  const double factor = AngleFactorOf(record.Format);
  for (unsigned i = 0; i < 3; ++i) {
    record.Rotation[i] = angles.values[i] * factor;
    record.SMatrix[i] = angles.sigmas[i] * factor;
  }
  return factor == 0.0 ? eXYZ_InvalidValue : eXYZ_Ok;
}

}  // namespace

int XYZ_SetInteriorOrientation(void* job, const sXYZ_InteriorOrient* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  auto& list = JobOf(job).fIors;
  DataIor ior;
  record::ApplyTag(record->Tag, ior);
  ior.SetId(record::IdIn(record->Id));
  DataIor::Mask mask;
  for (unsigned p = 0; p < kRecordParameters; ++p) {
    ior.SetParameter(static_cast<DataIor::Parameter>(p), record->*kCameraParameters[p].value);
    mask[p] = (record->ParameterMask & kCameraParameters[p].bit) != 0;
  }
  ior.SetParameterMask(mask);
  ior.SetR0(record->R0);
  record::ApplyGroupFlags(record->Flags, ior);
  if (list.Contains(ior.Id())) return eXYZ_DuplicateId;
  Store(list, ior);
  return eXYZ_Ok;
}

int XYZ_GetInteriorOrientCnt(void* job) {
  return job == nullptr ? -1 : static_cast<int>(JobOf(job).fIors.Count());
}

int XYZ_GetInteriorOrientAt(void* job, int index, sXYZ_InteriorOrient* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  const auto& list = JobOf(job).fIors;
  std::uint32_t position = 0;
  if (!record::ValidPosition(index, list.Count(), position)) return eXYZ_IndexOutOfRange;
  const DataIor& ior = list.At(position);
  *record = {};
  for (unsigned p = 0; p < kRecordParameters; ++p) {
    record->*kCameraParameters[p].value = ior.Calibration()[p];
    if (ior.ParameterMask()[p]) {
      record->ParameterMask |= kCameraParameters[p].bit;
      record->Sigma[p] = ior.Sigma()[p];
    }
    for (unsigned q = 0; q < kRecordParameters; ++q)
      record->Correlation[p][q] = ior.Correlation(p, q);
  }
  record->R0 = ior.R0().r0;
  record->Id = record::IdOut(ior.Id());
  record->Flags = record::GroupFlags(ior);
  return eXYZ_Ok;
}

int XYZ_SetExteriorOrientation2(void* job, const sXYZ_ExteriorOrient2* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  BundelTavriLib& network = JobOf(job);
  DataEor eor;
  record::ApplyTag(record->Tag, eor);
  eor.SetFormat(record->Format);
  eor.SetId(record::IdIn(record->Id));
  eor.SetIorId(record::IdIn(record->IorId));
  eor.SetProjektionId(record::IdIn(record->ProjectionId));
  eor.fTranslation = {record->X0, record->Y0, record->Z0};
  record::ApplyGroupFlags(record->Flags, eor);
  if (const int status = ReadRotation(*record, eor.fRotation); status != eXYZ_Ok) return status;
  if (network.fEors.Contains(eor.Id())) return eXYZ_DuplicateId;
  if (network.fDoppelOrientierungen.Contains(eor.Id())) return eXYZ_DuplicateId;
  SettingsChecker::Idents told;
  if (eor.IsActive() && !eor.IsVariable()) told.insert(eor.GetIdentText());
  Store(network.fEors, eor);
  network.fChecker.AddExteriorOrientations(std::move(told));
  return eXYZ_Ok;
}

int XYZ_GetExteriorOrientCnt(void* job) {
  return job == nullptr ? -1 : static_cast<int>(JobOf(job).fEors.Count());
}

int XYZ_GetExteriorOrientAt(void* job, int index, sXYZ_ExteriorOrient2* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  const BundelTavriLib& network = JobOf(job);
  std::uint32_t position = 0;
  if (!record::ValidPosition(index, network.fEors.Count(), position)) return eXYZ_IndexOutOfRange;
  const DataEor& eor = network.fEors.At(position);
  *record = {};
  record->Format = network.EorFormat() != 0 ? network.EorFormat() : eor.Format();
  record->Id = record::IdOut(eor.Id());
  record->IorId = record::IdOut(eor.IorId());
  record->ProjectionId = record::IdOut(eor.ProjektionId());
  record->X0 = eor.fTranslation[0];
  record->Y0 = eor.fTranslation[1];
  record->Z0 = eor.fTranslation[2];
  if (const int status = WriteRotation(eor, *record); status != eXYZ_Ok) return status;

  record->Flags = record::GroupFlags(eor);
  if (eor.IsVariable()) {
    std::copy_n(eor.Sigma().begin(), 3, record->SPosition);
    std::copy_n(eor.Sigma().begin() + 3, 3, record->SRotation);
  }
  if (eor.IsActive()) {
    record->RayCount = static_cast<std::int32_t>(eor.CountMessungen(MessungKind::Biko));
    record->BlunderCount = static_cast<std::int32_t>(eor.CountAusreisser(MessungKind::Biko));
    const vermo::ImageResiduals residuals = vermo::ResidualsOf(eor);
    record->RmsVx = residuals.rmsVx;
    record->RmsVy = residuals.rmsVy;
  }
  return eXYZ_Ok;
}

int XYZ_SetObjectCoord(void* job, const sXYZ_ObjectCoord* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  constexpr std::uint32_t kReferencePoint = 0x1;
  constexpr std::uint32_t kRayRuleExempt = 0x2;
  BundelTavriLib& network = JobOf(job);
  DataObko point;
  record::ApplyTag(record->Tag, point);
  point.SetId(record::IdIn(record->Id));
  point.SetCoordinates({record->X, record->Y, record->Z});
  point.SetReferenceEorId(record::IdIn(record->ReferenceEor));
  record::ApplyGroupFlags(record->Flags, point);
  point.SetReferencePoint((record->PointFlags & kReferencePoint) != 0);
  point.SetExemptFromRayRule((record->PointFlags & kRayRuleExempt) != 0);
  if (network.fObkos.Contains(point.Id())) return eXYZ_DuplicateId;
  SettingsChecker::Idents told;
  // An inactive point counts, too.
  if (!point.IsVariable()) told.insert(point.GetIdentText());
  Store(network.fObkos, point);
  network.fChecker.AddObjectPoints(std::move(told));
  return eXYZ_Ok;
}

int XYZ_GetObjectCoordCnt(void* job) {
  return job == nullptr ? -1 : static_cast<int>(JobOf(job).fObkos.Count());
}

int XYZ_GetObjectCoordAt(void* job, int index, sXYZ_ObjectCoord* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  const auto& list = JobOf(job).fObkos;
  std::uint32_t position = 0;
  if (!record::ValidPosition(index, list.Count(), position)) return eXYZ_IndexOutOfRange;
  const DataObko& point = list.At(position);
  *record = {};
  record->Id = record::IdOut(point.Id());
  record->X = point.Current()[0];
  record->Y = point.Current()[1];
  record->Z = point.Current()[2];
  record->Flags = record::GroupFlags(point);
  if (point.IsVariable()) {
    record->Sx = point.Sigma()[0];
    record->Sy = point.Sigma()[1];
    record->Sz = point.Sigma()[2];
  }
  record->RayCount = static_cast<std::int32_t>(point.RayCount());
  record->BlunderCount = static_cast<std::int32_t>(point.CountAusreisser(MessungKind::Biko));
  record->PointFlags = point.IsReferencePoint() ? 1 : 0;
  const DataEor* reference = point.ReferenceEor();
  record->ReferenceEor = reference == nullptr ? -1 : record::IdOut(reference->Id());
  return eXYZ_Ok;
}

int XYZ_SetProjection(void* job, const sXYZ_Projection* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  auto& list = JobOf(job).fProjektionen;
  DataProjektion projektion;
  record::ApplyTag(record->Tag, projektion);
  projektion.SetValues(record->Ck, record->Xh, record->Yh);
  projektion.SetId(record::IdIn(record->Id));
  record::ApplyGroupFlags(record->Flags, projektion);
  if (list.Contains(projektion.Id())) return eXYZ_DuplicateId;
  Store(list, projektion);
  return eXYZ_Ok;
}

int XYZ_GetProjectionCnt(void* job) {
  return job == nullptr ? static_cast<int>(eXYZ_NullPointer)
                        : static_cast<int>(JobOf(job).fProjektionen.Count());
}

int XYZ_GetProjectionAt(void* job, int index, sXYZ_Projection* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  const auto& list = JobOf(job).fProjektionen;
  std::uint32_t position = 0;
  if (!record::ValidPosition(index, list.Count(), position)) return eXYZ_IndexOutOfRange;
  const DataProjektion& projektion = list.At(position);
  *record = {};
  record->Ck = projektion.Values()[DataProjektion::kCk];
  record->Xh = projektion.Values()[DataProjektion::kXh];
  record->Yh = projektion.Values()[DataProjektion::kYh];
  record->SCk = projektion.Sigma()[DataProjektion::kCk];
  record->SXh = projektion.Sigma()[DataProjektion::kXh];
  record->SYh = projektion.Sigma()[DataProjektion::kYh];
  record->Id = record::IdOut(projektion.Id());
  record->Flags = record::ActiveFlag(projektion);
  return eXYZ_Ok;
}

int XYZ_SetLine(void* job, const sXYZ_Line* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  try {
    auto& list = JobOf(job).fLinien;
    DataLinie linie;
    record::ApplyTag(record->Tag, linie);
    record::ApplyGroupFlags(record->Flags, linie);
    linie.SetPoints(VectorIn(record->P1), VectorIn(record->P2));
    linie.SetId(record::IdIn(record->Id));
    if (list.Contains(linie.Id())) return eXYZ_DuplicateId;
    Store(list, linie);
  } catch (...) {
    return eXYZ_InvalidLine;
  }
  return eXYZ_Ok;
}

int XYZ_GetLineCnt(void* job) {
  return job == nullptr ? -1 : static_cast<int>(JobOf(job).fLinien.Count());
}

int XYZ_GetLineAt(void* job, int index, sXYZ_Line* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  const auto& list = JobOf(job).fLinien;
  std::uint32_t position = 0;
  if (!record::ValidPosition(index, list.Count(), position)) return eXYZ_IndexOutOfRange;
  const DataLinie& linie = list.At(position);
  *record = {};
  VectorOut(linie.Point(), record->P1);
  VectorOut(linie.Direction(), record->P2);
  std::copy_n(linie.Sigma().begin(), 3, record->SP1);
  std::copy_n(linie.Sigma().begin() + 3, 3, record->SP2);
  record->Id = record::IdOut(linie.Id());
  record->Flags = record::ActiveFlag(linie);
  return eXYZ_Ok;
}

int XYZ_SetPlane(void* job, const sXYZ_Plane* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  try {
    BundelTavriLib& network = JobOf(job);
    DataPlane plane;
    record::ApplyTag(record->Tag, plane);
    record::ApplyGroupFlags(record->Flags, plane);
    const ostra_bundle::VektorD<3> normal = VectorIn(record->Normal);
    // Turned round so that a NaN fails as well.
    if (!(ostra_bundle::Length(normal) >= kSmallestNormal)) return eXYZ_InvalidPlane;
    plane.SetPointAndNormal(VectorIn(record->Point), normal);
    plane.SetId(record::IdIn(record->Id));
    // The ids of the lines decide, and those of the planes do not.
    if (network.fLinien.Contains(plane.Id())) return eXYZ_DuplicateId;
    Store(network.fPlanes, plane);
  } catch (...) {
    return eXYZ_InvalidPlane;
  }
  return eXYZ_Ok;
}

int XYZ_GetPlaneCnt(void* job) {
  return job == nullptr ? -1 : static_cast<int>(JobOf(job).fPlanes.Count());
}

int XYZ_GetPlaneAt(void* job, int index, sXYZ_Plane* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  const auto& list = JobOf(job).fPlanes;
  std::uint32_t position = 0;
  if (!record::ValidPosition(index, list.Count(), position)) return eXYZ_IndexOutOfRange;
  const DataPlane& plane = list.At(position);
  *record = {};
  VectorOut(plane.Point(), record->Point);
  VectorOut(plane.Normal(), record->Normal);
  if (plane.IsVariable()) std::copy_n(plane.Sigma().begin(), 6, record->SPlane);
  record->Id = record::IdOut(plane.Id());
  record->Flags = record::ActiveFlag(plane);
  return eXYZ_Ok;
}

int XYZ_SetRelativeOrientation(void* job, const sXYZ_RelativeOrientation* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  BundelTavriLib& network = JobOf(job);
  DoppelOrientierung pair;
  pair.SetIds(
      record::IdIn(record->Id), record::IdIn(record->EorId), record::IdIn(record->BaseEorId));
  pair.SetActive(true);
  if (network.fDoppelOrientierungen.Contains(pair.Id())) return eXYZ_DuplicateId;
  if (network.fEors.Contains(pair.Id())) return eXYZ_DuplicateId;
  Store(network.fDoppelOrientierungen, pair);
  return eXYZ_Ok;
}

int XYZ_GetRelativeOrientationCnt(void* job) {
  return job == nullptr ? -1 : static_cast<int>(JobOf(job).fDoppelOrientierungen.Count());
}

int XYZ_GetRelativeOrientationAt(void* job, int index, sXYZ_RelativeOrientation* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  const auto& list = JobOf(job).fDoppelOrientierungen;
  std::uint32_t position = 0;
  if (!record::ValidPosition(index, list.Count(), position)) return eXYZ_IndexOutOfRange;
  const DoppelOrientierung& pair = list.At(position);
  record->Id = record::IdOut(pair.Id());
  record->EorId = record::IdOut(pair.EorId());
  record->BaseEorId = record::IdOut(pair.BaseEorId());
  return eXYZ_Ok;
}
