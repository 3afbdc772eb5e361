// Observations in and out. A refused record leaves the lists untouched; equal records are
// separate observations.

#include "api/bundel_tavri_lib.h"
#include "api/record_flags.h"
#include "api/xyz_api.h"

#include <utility>

namespace {

using vermo::MessungBiko;
using vermo::MessungLinko;
using vermo::MessungObko;
using vermo::MessungStrecke;
using vermo::SettingsChecker;

// Above 0; a NaN is not.
template <typename... Sigmas>
bool ValidSigmas(Sigmas... sigmas) noexcept {
  return ((sigmas > 0.0) && ...);
}

// An active observation that the outlier test must not reject counts for the datum.
bool CarriesDatum(const vermo::Messung& observation) noexcept {
  return observation.IsActive() && !observation.TakesPartInBlunderTest();
}

}  // namespace

int XYZ_SetPictureCoord(void* job, const sXYZ_PictureCoord* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  if (!ValidSigmas(record->Sx, record->Sy)) return eXYZ_InvalidSigma;
  MessungBiko biko;
  biko.SetNummer(record::IdIn(record->PointId));
  biko.SetBildNummer(record::IdIn(record->EorId));
  biko[0] = record->X;
  biko[1] = record->Y;
  biko.SetSigma(record->Sx, record->Sy);
  record::ApplyTag(record->Tag, biko);
  record::ApplyObservationFlags(record->Flags, biko);
  JobOf(job).fBiko.Add(biko);
  return eXYZ_Ok;
}

int XYZ_GetPictureCoordCnt(void* job) {
  return job == nullptr ? -1 : static_cast<int>(JobOf(job).fBiko.Count());
}

int XYZ_GetPictureCoordsAt(void* job, int index, sXYZ_PictureCoord* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  const auto& list = JobOf(job).fBiko;
  std::uint32_t position = 0;
  if (!record::ValidPosition(index, list.Count(), position)) return eXYZ_IndexOutOfRange;
  const MessungBiko& biko = list.At(position);
  *record = {};
  record->X = biko[0];
  record->Y = biko[1];
  record->Sx = biko.Sigma()[0];
  record->Sy = biko.Sigma()[1];
  record->Vx = biko.Wert(0).Residuum();
  record->Vy = biko.Wert(1).Residuum();
  record->Rx = biko.Wert(0).Redundanz();
  record->Ry = biko.Wert(1).Redundanz();
  record->Tx = biko.Wert(0).Testwert();
  record->Ty = biko.Wert(1).Testwert();
  record->PointId = record::IdOut(biko.Nummer());
  record->EorId = record::IdOut(biko.BildNummer());
  record->Flags = record::ObservationFlags(biko);
  return eXYZ_Ok;
}

int XYZ_SetPictureLineCoord(void* job, const sXYZ_PictureLineCoord* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  if (!ValidSigmas(record->Sx, record->Sy)) return eXYZ_InvalidSigma;
  MessungLinko linko;
  linko.SetNummer(record::IdIn(record->Id));
  linko.SetLinienNummer(record::IdIn(record->LineId));
  linko.SetBildNummer(record::IdIn(record->EorId));
  linko[0] = record->X;
  linko[1] = record->Y;
  linko.SetSigma(record->Sx, record->Sy);
  record::ApplyTag(record->Tag, linko);
  record::ApplyObservationFlags(record->Flags, linko);
  JobOf(job).fLinko.Add(linko);
  return eXYZ_Ok;
}

int XYZ_GetLinePictureCoordCnt(void* job) {
  return job == nullptr ? -1 : static_cast<int>(JobOf(job).fLinko.Count());
}

int XYZ_GetLinePictureCoordAt(void* job, int index, sXYZ_PictureLineCoord* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  // The bound is the count of image coordinates; callers know it so.
  std::uint32_t position = 0;
  if (!record::ValidPosition(index, JobOf(job).fBiko.Count(), position))
    return eXYZ_IndexOutOfRange;
  *record = {};
  const auto& list = JobOf(job).fLinko;
  if (position >= list.Count()) return eXYZ_Ok;
  const MessungLinko& linko = list.At(position);
  record->X = linko[0];
  record->Y = linko[1];
  record->Sx = record->Sy = linko.Sigma()[0];
  record->V = linko.Wert(0).Residuum();
  record->R = linko.Wert(0).Redundanz();
  record->T = linko.Wert(0).Testwert();
  record->Id = record::IdOut(linko.Nummer());
  record->LineId = record::IdOut(linko.LinienNummer());
  record->EorId = record::IdOut(linko.BildNummer());
  record->Flags = record::ObservationFlags(linko);
  return eXYZ_Ok;
}

int XYZ_SetMeasuredObjectCoord(void* job, const sXYZ_MeasuredObjectCoord* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  if (!ValidSigmas(record->Sx, record->Sy, record->Sz)) return eXYZ_InvalidSigma;
  MessungObko obko;
  obko.SetNummer(record::IdIn(record->PointId));
  obko.SetBezugNummer(record::IdIn(record->ReferenceEor));
  obko[0] = record->X;
  obko[1] = record->Y;
  obko[2] = record->Z;
  obko.SetSigma({record->Sx, record->Sy, record->Sz});
  record::ApplyTag(record->Tag, obko);
  record::ApplyObservationFlags(record->Flags, obko);
  SettingsChecker::Idents told;
  if (CarriesDatum(obko)) told.insert(obko.GetIdentText());
  JobOf(job).fObko.Add(obko);
  JobOf(job).fChecker.AddMeasuredObjectPoints(std::move(told));
  return eXYZ_Ok;
}

int XYZ_GetMeasuredObjectCoordCnt(void* job) {
  return job == nullptr ? static_cast<int>(eXYZ_NullPointer)
                        : static_cast<int>(JobOf(job).fObko.Count());
}

int XYZ_GetMeasuredObjectCoordAt(void* job, int index, sXYZ_MeasuredObjectCoord* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  const auto& list = JobOf(job).fObko;
  std::uint32_t position = 0;
  if (!record::ValidPosition(index, list.Count(), position)) return eXYZ_IndexOutOfRange;
  const MessungObko& obko = list.At(position);
  *record = {};
  record->X = obko[0];
  record->Y = obko[1];
  record->Z = obko[2];
  record->Sx = obko.Sigma()[0];
  record->Sy = obko.Sigma()[1];
  record->Sz = obko.Sigma()[2];
  record->Vx = obko.Wert(0).Residuum();
  record->Vy = obko.Wert(1).Residuum();
  record->Vz = obko.Wert(2).Residuum();
  record->Rx = obko.Wert(0).Redundanz();
  record->Ry = obko.Wert(1).Redundanz();
  record->Rz = obko.Wert(2).Redundanz();
  record->Tx = obko.Wert(0).Testwert();
  record->Ty = obko.Wert(1).Testwert();
  record->Tz = obko.Wert(2).Testwert();
  record->PointId = record::IdOut(obko.Nummer());
  record->ReferenceEor = obko.HasBezug() ? record::IdOut(obko.BezugNummer()) : -1;
  record->Flags = record::ObservationFlags(obko);
  return eXYZ_Ok;
}

int XYZ_SetDistance(void* job, const sXYZ_Distance* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  if (!ValidSigmas(record->Sigma)) return eXYZ_InvalidSigma;
  MessungStrecke strecke;
  strecke.SetNummern(record::IdIn(record->Point1), record::IdIn(record->Point2));
  strecke.SetStrecke(record->S, record->Sigma);
  record::ApplyTag(record->Tag, strecke);
  record::ApplyObservationFlags(record->Flags, strecke);
  SettingsChecker::Idents told;
  if (CarriesDatum(strecke)) told.insert(strecke.GetIdentText());
  JobOf(job).fStrecken.Add(strecke);
  JobOf(job).fChecker.AddDistances(std::move(told));
  return eXYZ_Ok;
}

int XYZ_GetDistanceCnt(void* job) {
  return job == nullptr ? static_cast<int>(eXYZ_NullPointer)
                        : static_cast<int>(JobOf(job).fStrecken.Count());
}

int XYZ_GetDistanceAt(void* job, int index, sXYZ_Distance* record) {
  if (job == nullptr || record == nullptr) return eXYZ_NullPointer;
  const auto& list = JobOf(job).fStrecken;
  std::uint32_t position = 0;
  if (!record::ValidPosition(index, list.Count(), position)) return eXYZ_IndexOutOfRange;
  const MessungStrecke& strecke = list.At(position);
  *record = {};
  record->S = strecke.Strecke();
  record->Sigma = strecke.Sigma();
  record->V = strecke.Wert(0).Residuum();
  record->T = strecke.Wert(0).Testwert();
  record->R = strecke.Wert(0).Redundanz();
  record->Point1 = record::IdOut(strecke.Punkt1Nummer());
  record->Point2 = record::IdOut(strecke.Punkt2Nummer());
  record->Flags = record::ObservationFlags(strecke);
  return eXYZ_Ok;
}
