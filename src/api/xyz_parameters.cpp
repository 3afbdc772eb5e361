// Parameters and results. One enumeration of selectors serves both value types; each selector
// belongs to one of them.

#include "api/bundel_tavri_lib.h"
#include "api/xyz_api.h"
#include "checks/language.h"

namespace {

using vermo::AdjustmentSettings;
using vermo::AdjustmentStatistics;
using vermo::TestMethod;

constexpr unsigned kTranslationBits = 0x700;
constexpr unsigned kRotationBits = 0x3800;
constexpr unsigned kScaleBit = 0x4000;

// A group of datum bits is complete, absent, or wrong.
enum class BitGroup { Absent, Partial, Complete };

BitGroup GroupOf(unsigned value, unsigned bits) {
  if ((value & bits) == bits) return BitGroup::Complete;
  return (value & bits) == 0 ? BitGroup::Absent : BitGroup::Partial;
}

// A partial rotation group is found after the translation has been stored, which stays so.
int SetDatum(BundelTavriLib& job, unsigned value) {
  const BitGroup translation = GroupOf(value, kTranslationBits);
  const BitGroup rotation = GroupOf(value, kRotationBits);
  // The checker takes note of every request and forgets none, also of one that is refused below.
  if (translation == BitGroup::Complete) job.fChecker.SetTranslationFree();
  if (rotation == BitGroup::Complete) job.fChecker.SetRotationFree();
  if ((value & kScaleBit) != 0) job.fChecker.SetScaleFree();
  if (translation == BitGroup::Partial) return eXYZ_InvalidValue;
  job.fNetworkSettings.SetTranslationDatum(translation == BitGroup::Complete);
  if (rotation == BitGroup::Partial) return eXYZ_InvalidValue;
  job.fNetworkSettings.SetRotationDatum(rotation == BitGroup::Complete);
  job.fNetworkSettings.SetScaleDatum((value & kScaleBit) != 0);
  return eXYZ_Ok;
}

int GetDatum(const BundelTavriLib& job) {
  const unsigned value = (job.fNetworkSettings.TranslationDatum() ? kTranslationBits : 0U) |
                         (job.fNetworkSettings.RotationDatum() ? kRotationBits : 0U) |
                         (job.fNetworkSettings.ScaleDatum() ? kScaleBit : 0U);
  return static_cast<int>(value);
}

int SetBlunderTest(AdjustmentSettings& settings, int value) {
  if (value < 0 || value > 2) return eXYZ_InvalidValue;
  settings.SetBlunderTest(value != 0);
  if (value != 0)
    settings.fTestMethod = static_cast<std::int32_t>(value == 1 ? TestMethod::Redundancy
                                                                : TestMethod::InnerReliability);
  return eXYZ_Ok;
}

int GetBlunderTest(const AdjustmentSettings& settings, int* value) {
  if (!settings.BlunderTest()) {
    *value = 0;
    return eXYZ_Ok;
  }
  if (settings.fTestMethod < 0 || settings.fTestMethod > 1) return eXYZ_CheckFailed;
  *value = settings.fTestMethod + 1;
  return eXYZ_Ok;
}

int SetProcessLanguage(int value) {
  if (value != 1 && value != 2) return eXYZ_InvalidValue;
  vermo::SetLanguage(value == 1 ? vermo::Language::German : vermo::Language::English);
  return eXYZ_Ok;
}

// A calendar time is read through its low 32 bits.
int LowWord(std::int64_t time) { return static_cast<int>(static_cast<std::uint32_t>(time)); }

}  // namespace

int XYZ_SetParam(void* handle, eXYZ_Parameter which, int value) {
  if (handle == nullptr) return eXYZ_NullPointer;
  BundelTavriLib& job = JobOf(handle);
  AdjustmentSettings& settings = job.Settings();
  switch (which) {
    case eXYZ_ParamMaxIterations:
      settings.fMaxIterations = value;
      return eXYZ_Ok;
    case eXYZ_ParamDatum:
      return SetDatum(job, static_cast<unsigned>(value));
    case eXYZ_ParamBlunderTest:
      return SetBlunderTest(settings, value);
    case eXYZ_ParamSolvabilityCheck:
      settings.SetSolvabilityCheck(value != 0);
      return eXYZ_Ok;
    case eXYZ_ParamLanguage:
      return SetProcessLanguage(value);
    case eXYZ_ParamHideProjections:
      job.SetHideProjections(value != 0);
      return eXYZ_Ok;
    case eXYZ_ParamMinRays:
      settings.fMinRays = value;
      return eXYZ_Ok;
    case eXYZ_ParamEorFormat:
      job.SetEorFormat(static_cast<std::uint32_t>(value));
      return eXYZ_Ok;
    case eXYZ_ParamProgressWindow:
      settings.fProgressWindow = value;
      return eXYZ_Ok;
    case eXYZ_ParamPivotSearch:
      // Does its work and answers as if it did not exist; callers know it so.
      settings.fPivotSearch = value > 0 ? 1 : 0;
      return eXYZ_UnknownSelector;
    default:
      return eXYZ_UnknownSelector;
  }
}

int XYZ_SetParam(void* handle, eXYZ_Parameter which, double value) {
  if (handle == nullptr) return eXYZ_NullPointer;
  BundelTavriLib& job = JobOf(handle);
  AdjustmentSettings& settings = job.Settings();
  switch (which) {
    case eXYZ_ParamConvergenceLimit:
      settings.fConvergenceLimit = value;
      return eXYZ_Ok;
    case eXYZ_ParamS0Limit:
      settings.fS0Limit = value;
      return eXYZ_Ok;
    case eXYZ_ParamDynamicLower:
      settings.SetDynamicRange(value, settings.fDynamicUpper);
      return eXYZ_Ok;
    case eXYZ_ParamDynamicUpper:
      settings.SetDynamicRange(settings.fDynamicLower, value);
      return eXYZ_Ok;
    case eXYZ_ParamDamping:
      settings.SetDamping(value);
      return eXYZ_Ok;
    case eXYZ_ParamS0Apriori:
      job.fNetworkSettings.SetS0Apriori(value);
      return eXYZ_Ok;
    case eXYZ_ParamS0Floor:
      settings.fS0Floor = value;
      return eXYZ_Ok;
    case eXYZ_ParamAngleLimit:
      job.fNetworkSettings.SetAngleLimit(value);
      return eXYZ_Ok;
    case eXYZ_ParamProgressTolerance:
      settings.fProgressTolerance = value;
      return eXYZ_Ok;
    default:
      return eXYZ_UnknownSelector;
  }
}

int XYZ_GetParam(void* handle, eXYZ_Parameter which, int* value) {
  if (handle == nullptr) return eXYZ_NullPointer;
  const BundelTavriLib& job = JobOf(handle);
  const AdjustmentSettings& settings = job.Settings();
  switch (which) {
    case eXYZ_ParamMaxIterations:
      *value = settings.fMaxIterations;
      return eXYZ_Ok;
    case eXYZ_ParamDatum:
      *value = GetDatum(job);
      return eXYZ_Ok;
    case eXYZ_ParamBlunderTest:
      return GetBlunderTest(settings, value);
    case eXYZ_ParamSolvabilityCheck:
      *value = settings.SolvabilityCheck() ? 1 : 0;
      return eXYZ_Ok;
    case eXYZ_ParamLanguage:
      *value = vermo::CurrentLanguage() == vermo::Language::English ? 2 : 1;
      return eXYZ_Ok;
    case eXYZ_ParamHideProjections:
      *value = job.HideProjections() ? 1 : 0;
      return eXYZ_Ok;
    case eXYZ_ParamMinRays:
      *value = settings.fMinRays;
      return eXYZ_Ok;
    case eXYZ_ParamEorFormat:
      *value = static_cast<int>(job.EorFormat());
      return eXYZ_Ok;
    case eXYZ_ParamProgressWindow:
      *value = settings.fProgressWindow;
      return eXYZ_Ok;
    case eXYZ_ParamPivotSearch:
      *value = settings.fPivotSearch;
      return eXYZ_UnknownSelector;
    default:
      return eXYZ_UnknownSelector;
  }
}

int XYZ_GetParam(void* handle, eXYZ_Parameter which, double* value) {
  if (handle == nullptr) return eXYZ_NullPointer;
  const BundelTavriLib& job = JobOf(handle);
  const AdjustmentSettings& settings = job.Settings();
  switch (which) {
    case eXYZ_ParamConvergenceLimit:
      *value = settings.fConvergenceLimit;
      return eXYZ_Ok;
    case eXYZ_ParamS0Limit:
      *value = settings.fS0Limit;
      return eXYZ_Ok;
    case eXYZ_ParamDynamicLower:
      *value = settings.fDynamicLower;
      return eXYZ_Ok;
    case eXYZ_ParamDynamicUpper:
      *value = settings.fDynamicUpper;
      return eXYZ_Ok;
    case eXYZ_ParamDamping:
      *value = settings.fDamping;
      return eXYZ_Ok;
    case eXYZ_ParamS0Apriori:
      *value = job.fNetworkSettings.S0Apriori();
      return eXYZ_Ok;
    case eXYZ_ParamS0Floor:
      *value = settings.fS0Floor;
      return eXYZ_Ok;
    case eXYZ_ParamAngleLimit:
      *value = job.fNetworkSettings.AngleLimit();
      return eXYZ_Ok;
    case eXYZ_ParamProgressTolerance:
      *value = settings.fProgressTolerance;
      return eXYZ_Ok;
    default:
      return eXYZ_UnknownSelector;
  }
}

int XYZ_GetResult(void* handle, eXYZ_Result which, int* value) {
  if (handle == nullptr) return eXYZ_NullPointer;
  const BundelTavriLib& job = JobOf(handle);
  const AdjustmentStatistics& statistics = job.Statistics();
  switch (which) {
    case eXYZ_ResultBlunderCount:
      *value = static_cast<int>(statistics.fAusreisser);
      break;
    case eXYZ_ResultActiveIors:
      *value = static_cast<int>(job.ActiveIorCount());
      break;
    case eXYZ_ResultActiveEors:
      *value = static_cast<int>(job.ActiveEorCount());
      break;
    case eXYZ_ResultActiveObkos:
      *value = static_cast<int>(job.ActiveObkoCount());
      break;
    case eXYZ_ResultUnknowns:
      *value = static_cast<int>(statistics.fUnbekannte);
      break;
    case eXYZ_ResultObservations:
      *value = static_cast<int>(statistics.fBeobachtungen);
      break;
    case eXYZ_ResultConstraints:
      *value = static_cast<int>(statistics.fBedingungsAnzahl);
      break;
    case eXYZ_ResultRedundancy:
      *value = statistics.fRedundanz;
      break;
    case eXYZ_ResultStartTime:
      *value = LowWord(job.StartTime());
      break;
    case eXYZ_ResultEndTime:
      *value = LowWord(job.EndTime());
      break;
    default:
      return eXYZ_UnknownSelector;
  }
  return eXYZ_Ok;
}

int XYZ_GetResult(void* handle, eXYZ_Result which, double* value) {
  if (handle == nullptr) return eXYZ_NullPointer;
  const AdjustmentStatistics& statistics = JobOf(handle).Statistics();
  switch (which) {
    case eXYZ_ResultS0:
      *value = statistics.fS0;
      break;
    case eXYZ_ResultBlunderTestValue:
      *value = statistics.fTestwertKritisch;
      break;
    case eXYZ_ResultNorm:
      *value = statistics.fMittlereAenderung;
      break;
    case eXYZ_ResultRedundancyValue:
      *value = statistics.fGesamtRedundanz;
      break;
    default:
      return eXYZ_UnknownSelector;
  }
  return eXYZ_Ok;
}
