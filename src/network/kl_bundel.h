#pragma once

#include "adjustment/adjustment.h"
#include "checks/warnings.h"
#include "network/bundel_verband.h"
#include "observations/bedingung_hlm.h"
#include "protocol/bundle_message_handler.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vermo {

// One calculation of a network: opens the protocol, turns ids into links, sets the weights, hands
// over to the adjustment loop and closes the protocol. The network face lies first.
class KLBundel : public BundelVerband, public Adjustment {
 public:
  // The protocol goes to the default file of the language of this moment.
  KLBundel();
  explicit KLBundel(std::string protocolFile);

  // The whole run. 0, or the code of the failure: that of a KlException, or -9999 for any other
  // exception and for a call out of a run of this job. Throws only what opening the protocol and
  // writing its last texts throw. Links are appended, never undone: a run is meant once per job.
  std::int32_t CalcBundle();

  // The checker's verdict on the datum, 0 when it allows a calculation. Changes nothing in the
  // network and may be asked any number of times.
  [[nodiscard]] std::uint32_t CheckSettings();

  void ProtocolLine(const char* text) override { fHandler.WriteText(text); }

  void WarnObservationWithoutData(Messung& observation) override;
  void WarnDataWithoutSubData(Data& group) override;

  // What was doubtful in all runs of this job so far, in the order of occurrence.
  [[nodiscard]] const WarningList& Warnings() const noexcept { return fWarnings; }

  // Protocol file of the next run.
  void SetProtocolFile(std::string name) { fProtocolFile = std::move(name); }

  // Leaves the projections out of the protocol.
  [[nodiscard]] bool HideProjections() const noexcept { return fHideProjections; }
  void SetHideProjections(bool on) noexcept { fHideProjections = on; }

  // Rotation type and unit of all orientations on output, 0 for each one's own.
  [[nodiscard]] std::uint32_t EorFormat() const noexcept { return fEorFormat; }
  void SetEorFormat(std::uint32_t format) noexcept { fEorFormat = format; }

  // Calendar times of the run's start and end, 0 before a run.
  [[nodiscard]] std::int64_t StartTime() const noexcept { return fStartTime; }
  [[nodiscard]] std::int64_t EndTime() const noexcept { return fEndTime; }

 protected:
  void ConnectAll() override;
  void CollectMessungen() override;
  void CollectData() override;
  void CollectBedingungen() override;
  // Writes the iteration to the protocol.
  bool OnIteration(IterationInfo& info) override;
  // The iteration, whatever it answers, and the outliers known so far.
  bool OnIterationWithBlunders(BlunderRoundInfo& info) override;
  bool OnBlunderRound(BlunderRoundInfo& info) override;
  // One warning for each group, then the protocol.
  void OnGroupsDisabled(std::span<Data* const> groups) override;
  void OnGroupsEnabled(std::span<Data* const> groups) override;

 private:
  void OpenProtocol();
  void RunGuarded();
  // Cameras and projections of the images; a missing one is no error here.
  void LinkEorCameras();
  void PrepareDerivatives();
  // Both images of every relative orientation, and the reference images of the object points.
  void CheckGroupLinks();
  void LinkBiko();
  void LinkLinko();
  void LinkObko();
  void LinkStrecken();
  void LinkPointOnLine();
  void LinkPointOnPlane();
  // Switches on the datum constraints that the settings ask for; none is switched off.
  void ActivateDatum();
  void SetAllWeights();
  // Groups with many outliers, components that are hardly checked, constraints that strain the
  // network.
  void WarnManyBlunders();
  void WarnLowRedundancy();
  void WarnConstraints();
  [[nodiscard]] ProtocolResults Results() const;

  // The images behind a relative orientation's id; both null unless both exist.
  struct RelativePair {
    DoppelOrientierung* orientation = nullptr;
    DataEor* eor = nullptr;
    DataEor* base = nullptr;
  };
  [[nodiscard]] RelativePair FindRelativePair(std::uint32_t imageId);

  BundleMessageHandler fHandler;
  WarningList fWarnings;
  bool fHideProjections = false;
  bool fIsRunning = false;
  BedingungHlmTrans fHlmTrans;
  BedingungHlmRot fHlmRot;
  BedingungHlmM fHlmM;
  std::vector<DataObko*> fDatumCandidates;  // all object points, for the datum constraints
  std::int64_t fStartTime = 0;
  std::int64_t fEndTime = 0;
  std::uint32_t fEorFormat = 0;
  std::string fProtocolFile;
};

}  // namespace vermo
