#include "network/kl_bundel.h"

#include "adjustment/blunder_round_info.h"
#include "checks/failure_codes.h"
#include "checks/kl_exception.h"
#include "checks/language.h"
#include "network/verband_statistik.h"
#include "protocol/old_style_message_handler.h"
#include "protocol/protocol_contents.h"

#include <ctime>
#include <memory>
#include <utility>

namespace vermo {
namespace {

std::int64_t Now() { return static_cast<std::int64_t>(std::time(nullptr)); }

ProtocolContents ContentsOf(const BundelVerband& network) {
  ProtocolContents contents;
  contents.cameras = !network.fIors.IsEmpty();
  contents.projections = !network.fProjektionen.IsEmpty();
  contents.exteriorOrientations = !network.fEors.IsEmpty();
  contents.relativeOrientations = !network.fDoppelOrientierungen.IsEmpty();
  contents.objectPoints = !network.fObkos.IsEmpty();
  contents.lines = !network.fLinien.IsEmpty();
  contents.planes = !network.fPlanes.IsEmpty();
  contents.pointOnLine = !network.fPunktGeraden.IsEmpty();
  contents.pointOnPlane = !network.fPunktEbenen.IsEmpty();
  contents.lineCoordinates = !network.fLinko.IsEmpty();
  contents.imageCoordinates = !network.fBiko.IsEmpty();
  contents.measuredObjectPoints = !network.fObko.IsEmpty();
  contents.distances = !network.fStrecken.IsEmpty();
  return contents;
}

template <typename T>
ProtocolList<T> PointersTo(const ObjectList<T>& list) {
  ProtocolList<T> pointers;
  pointers.reserve(list.Count());
  for (const T& object : list) pointers.push_back(&object);
  return pointers;
}

// True while a run goes on, however it ends.
class RunMark {
 public:
  explicit RunMark(bool& mark) noexcept : fMark(mark) { fMark = true; }
  ~RunMark() { fMark = false; }
  RunMark(const RunMark&) = delete;
  RunMark& operator=(const RunMark&) = delete;

 private:
  bool& fMark;
};

// Half of a group's components must be left after the outliers went.
constexpr std::uint32_t kManyBlunderFactor = 2;
// A component below it is hardly checked by the others.
constexpr double kSmallRedundancy = 0.1;
// A multiplier above it strains the network; negative ones never do.
constexpr double kStrainedMultiplier = 1e-5;

}  // namespace

KLBundel::KLBundel() : KLBundel(ByLanguage("Protokoll.htm", "Protocol.htm")) {}

KLBundel::KLBundel(std::string protocolFile) : fProtocolFile(std::move(protocolFile)) {}

std::int32_t KLBundel::CalcBundle() {
  // A callback that starts its own run anew would take away the writer which is calling it.
  if (fIsRunning) return failure::kOther;
  const RunMark mark(fIsRunning);
  OpenProtocol();
  fStartTime = Now();
  std::int32_t code = 0;
  try {
    RunGuarded();
  } catch (const KlException& failure) {
    // A callback may throw any code; 0 is no success.
    code = failure.GetCode() != 0 ? failure.GetCode() : failure::kOther;
  } catch (...) {
    code = failure::kOther;
  }
  if (code != 0) fHandler.RunFailed(code);
  fEndTime = Now();
  fHandler.RunClosed(&fStartTime, &fEndTime);
  return code;
}

void KLBundel::OpenProtocol() {
  // The writer of an earlier run closes its file before the new one opens its own.
  fHandler.ClearHandler();
  if (CurrentLanguage() == Language::English)
    fHandler.SetHandler(std::make_unique<OldStyleMessageHandlerEN>(fProtocolFile));
  else
    fHandler.SetHandler(std::make_unique<OldStyleMessageHandlerDE>(fProtocolFile));
  fHandler.SetJob(this);
  // A file that cannot be opened does not stop the run.
  static_cast<void>(fHandler.OpenProtocol());
}

void KLBundel::RunGuarded() {
  fHandler.RunStarted(&fStartTime, Settings(), ContentsOf(*this));
  LinkEorCameras();
  PrepareDerivatives();
  CheckGroupLinks();
  LinkBiko();
  LinkLinko();
  LinkObko();
  LinkStrecken();
  LinkPointOnLine();
  LinkPointOnPlane();
  ActivateDatum();
  SetAllWeights();
  Run();
  WarnManyBlunders();
  WarnLowRedundancy();
  WarnConstraints();
  fHandler.RunFinished(Results());
}

void KLBundel::SetAllWeights() {
  for (MessungBiko& biko : fBiko) biko.SetWeights(fNetworkSettings);
  for (MessungLinko& linko : fLinko) linko.SetWeights(fNetworkSettings);
  for (MessungStrecke& strecke : fStrecken) strecke.SetWeights(fNetworkSettings);
  for (MessungObko& obko : fObko) obko.SetWeights(fNetworkSettings);
}

void KLBundel::ConnectAll() {
  for (Data* group : fDaten) group->Connect(fNetworkSettings);
  for (const MessungEntry& entry : fMessungen) entry.messung->PrepareObservation(fNetworkSettings);
}

void KLBundel::CollectMessungen() {
  fMessungen.clear();
  fMessungen.reserve(fBiko.Count() + fLinko.Count() + fObko.Count() + fStrecken.Count());
  for (MessungBiko& biko : fBiko) fMessungen.push_back({0, &biko});
  for (MessungLinko& linko : fLinko) fMessungen.push_back({0, &linko});
  for (MessungObko& obko : fObko) fMessungen.push_back({0, &obko});
  for (MessungStrecke& strecke : fStrecken) fMessungen.push_back({0, &strecke});
}

void KLBundel::CollectData() {
  const auto append = [this](auto& list) {
    for (Data& group : list) fDaten.push_back(&group);
  };
  fDaten.clear();
  // The larger class comes first, where its diagonal blocks stay apart; the smaller one behind
  // it takes the fill-in of the elimination.
  if (6 * std::uint64_t{fEors.Count()} <= 3 * std::uint64_t{fObkos.Count()}) {
    append(fObkos);
    append(fEors);
  } else {
    append(fEors);
    append(fObkos);
  }
  append(fProjektionen);
  append(fLinien);
  append(fPlanes);
  append(fIors);
}

void KLBundel::CollectBedingungen() {
  fBedingungen = {&fHlmTrans, &fHlmRot, &fHlmM};
  for (BedingungPunktGerade& constraint : fPunktGeraden) fBedingungen.push_back(&constraint);
  for (ConstraintPointOnPlane& constraint : fPunktEbenen) fBedingungen.push_back(&constraint);
}

std::uint32_t KLBundel::CheckSettings() {
  for (const DoppelOrientierung& pair : fDoppelOrientierungen) {
    const DataEor* base = fEors.Find(pair.BaseEorId());
    if (base != nullptr && base->IsActive() && !base->IsVariable())
      fChecker.AddRelativeOrientation(pair.GetIdentText(), pair.BaseEorId());
  }
  return fChecker.ResultCode();
}

ProtocolResults KLBundel::Results() const {
  ProtocolResults results;
  results.cameras = PointersTo(fIors);
  results.projections = PointersTo(fProjektionen);
  results.exteriorOrientations = PointersTo(fEors);
  results.relativeOrientations = PointersTo(fDoppelOrientierungen);
  results.objectPoints = PointersTo(fObkos);
  results.lines = PointersTo(fLinien);
  results.planes = PointersTo(fPlanes);
  results.imageCoordinates = PointersTo(fBiko);
  results.lineCoordinates = PointersTo(fLinko);
  results.measuredObjectPoints = PointersTo(fObko);
  results.distances = PointersTo(fStrecken);
  results.pointOnLine = PointersTo(fPunktGeraden);
  results.pointOnPlane = PointersTo(fPunktEbenen);
  results.translation = &fHlmTrans;
  results.rotation = &fHlmRot;
  results.scale = &fHlmM;
  results.system = &System();
  results.warnings = &fWarnings;
  results.statistics = Statistics();
  const VerbandStatistik figures(*this);
  results.figures = {figures.CameraCounts(),
                     figures.ObjectPointStatistics(),
                     figures.DistanceStatistics(),
                     figures.ImageStatistics()};
  results.redundancySum = RedundanzSumme();
  results.hideProjections = fHideProjections;
  results.eorFormat = fEorFormat;
  return results;
}

void KLBundel::WarnManyBlunders() {
  // Observations stand side by side, those of a group do not: most runs need not ask the groups.
  if (std::ranges::none_of(fMessungen, [](const MessungEntry& entry) {
        return entry.messung->IsActive() && entry.messung->IsAusreisser();
      }))
    return;
  for (const Data* group : fDaten) {
    if (!group->IsActive()) continue;
    const std::uint32_t used = group->CountMessungDimensions();
    const std::uint32_t rejected = group->CountAusreisserDimensions();
    if (used < kManyBlunderFactor * rejected)
      fWarnings.AddWarningDataHasManyBlunder(group, used, rejected);
  }
}

void KLBundel::WarnLowRedundancy() {
  for (const MessungEntry& entry : fMessungen) {
    const Messung& messung = *entry.messung;
    if (!messung.IsUsed()) continue;
    for (const MessungWert& wert : messung.CollectComponents())
      if (kSmallRedundancy > wert.Redundanz())
        fWarnings.AddWarningObservationHasLessRedundancy(&messung);
  }
}

void KLBundel::WarnConstraints() {
  for (const Bedingung* constraint : fBedingungen) {
    if (!constraint->IsActive()) continue;
    for (const double multiplier : constraint->CollectMultipliers())
      if (multiplier > kStrainedMultiplier) fWarnings.AddWarningConstraintShouldBeFree(constraint);
  }
}

void KLBundel::WarnObservationWithoutData(Messung& observation) {
  fWarnings.AddWarningObsevationWithoutData(&observation);
}

void KLBundel::WarnDataWithoutSubData(Data& group) {
  fWarnings.AddWarningDataWithoutSubData(&group);
}

bool KLBundel::OnIterationWithBlunders(BlunderRoundInfo& info) {
  OnIteration(info);
  fHandler.WriteFinalIteration(info);
  return false;
}

bool KLBundel::OnBlunderRound(BlunderRoundInfo& info) {
  fHandler.WriteAusreisserTest(info);
  return false;
}

void KLBundel::OnGroupsDisabled(std::span<Data* const> groups) {
  for (const Data* group : groups) fWarnings.AddWarningDataDisabled(group);
  fHandler.WriteDatenDeaktiviert(groups);
}

void KLBundel::OnGroupsEnabled(std::span<Data* const> groups) {
  for (const Data* group : groups) fWarnings.AddWarningDataEnabled(group);
  fHandler.WriteDatenReaktiviert(groups);
}

bool KLBundel::OnIteration(IterationInfo& info) {
  info.s0APriori = fNetworkSettings.S0Apriori();
  fHandler.WriteIteration(info);
  return false;
}

}  // namespace vermo
