// Hard constraints in and out. No id is refused.

#include "api/bundel_tavri_lib.h"
#include "api/record_flags.h"
#include "api/xyz_api.h"

namespace {

// The two kinds of record have one shape; objectId is the id of the line or of the plane.
template <typename List, typename Record>
int SetConstraint(List& list, const Record& record, std::int32_t objectId) {
  using Constraint = std::remove_reference_t<decltype(list.At(0))>;
  Constraint constraint;
  constraint.SetNummern(
      record::IdIn(record.Id), record::IdIn(record.PointId), record::IdIn(objectId));
  constraint.SetActive((record.Flags & record::kActive) != 0);
  list.Add(constraint);
  return eXYZ_Ok;
}

template <typename List, typename Record>
int GetConstraint(const List& list, int index, Record& record, std::int32_t Record::*objectId) {
  std::uint32_t position = 0;
  if (!record::ValidPosition(index, list.Count(), position)) return eXYZ_IndexOutOfRange;
  const auto& constraint = list.At(position);
  record = {};
  record.Id = record::IdOut(constraint.Id());
  record.PointId = record::IdOut(constraint.PunktNummer());
  record.*objectId = record::IdOut(constraint.ObjektNummer());
  record.Flags = constraint.HasActiveBit() ? record::kActive : 0;
  return eXYZ_Ok;
}

}  // namespace

int XYZ_SetConstraintPointOnLine(void* job, const sXYZ_ConstraintPointOnLine* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  return SetConstraint(JobOf(job).fPunktGeraden, *record, record->LineId);
}

int XYZ_GetConstraintPointOnLineCnt(void* job) {
  return job == nullptr ? -1 : static_cast<int>(JobOf(job).fPunktGeraden.Count());
}

int XYZ_GetConstraintPointOnLineAt(void* job, int index, sXYZ_ConstraintPointOnLine* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  return GetConstraint(
      JobOf(job).fPunktGeraden, index, *record, &sXYZ_ConstraintPointOnLine::LineId);
}

int XYZ_SetConstraintPointOnPlane(void* job, const sXYZ_ConstraintPointOnPlane* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  return SetConstraint(JobOf(job).fPunktEbenen, *record, record->PlaneId);
}

int XYZ_GetConstraintPointOnPlaneCnt(void* job) {
  return job == nullptr ? -1 : static_cast<int>(JobOf(job).fPunktEbenen.Count());
}

int XYZ_GetConstraintPointOnPlaneAt(void* job, int index, sXYZ_ConstraintPointOnPlane* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  return GetConstraint(
      JobOf(job).fPunktEbenen, index, *record, &sXYZ_ConstraintPointOnPlane::PlaneId);
}
