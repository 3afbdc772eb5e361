#pragma once

#include "protocol/protocol_results.h"

#include <cstdint>
#include <memory>
#include <span>
#include <utility>

namespace vermo {

class AdjustmentSettings;
class Data;
class ProtocolTarget;
struct BlunderRoundInfo;
struct IterationInfo;
struct ProtocolContents;

// Everything that the library reports about a run goes through this interface. The order of one
// run: RunStarted; WriteIteration, WriteDatenDeaktiviert, WriteDatenReaktiviert and
// WriteAusreisserTest as they come; RunFinished or RunFailed; RunClosed. RunFinished writes the
// tables from WriteInteriorOrientations to WriteWarnings itself. A table without elements leaves
// no trace.
class BundleMessageHandlerItf {
 public:
  virtual ~BundleMessageHandlerItf() = default;

  // The object that receives every text; not owned, may be null.
  virtual void SetJob(ProtocolTarget* job) = 0;
  // The only way by which text leaves: to the job, to the file, and a flush.
  virtual void WriteText(const char* text) = 0;
  // Document head, contents, start line, settings.
  virtual void RunStarted(const std::int64_t* startTime,
                          const AdjustmentSettings& settings,
                          const ProtocolContents& contents) = 0;
  // Called by nothing in this library.
  virtual void ReportRobustEstimation() = 0;
  virtual void ReportL2Estimation() = 0;
  virtual void ReportBlunderCount(std::uint32_t count) = 0;
  // The results of a finished run.
  virtual void RunFinished(const ProtocolResults& results) = 0;
  virtual void RunFailed(std::int32_t code) = 0;
  // End line, run time, closing tags.
  virtual void RunClosed(const std::int64_t* startTime, const std::int64_t* endTime) = 0;
  virtual void WriteIteration(const IterationInfo& info) = 0;
  // An iteration's outliers; reached by OnIterationWithBlunders only, which the loop never calls.
  virtual void WriteFinalIteration(const BlunderRoundInfo& info) = 0;
  // The outcome of an outlier test.
  virtual void WriteAusreisserTest(const BlunderRoundInfo& info) = 0;
  virtual void WriteDatenDeaktiviert(std::span<Data* const> groups) = 0;
  virtual void WriteDatenReaktiviert(std::span<Data* const> groups) = 0;

  virtual void WriteObjectPoints(const ProtocolList<DataObko>& points) = 0;
  virtual void WriteLines(const ProtocolList<DataLinie>& lines) = 0;
  virtual void WritePlanes(const ProtocolList<DataPlane>& planes) = 0;
  virtual void WriteProjections(const ProtocolList<DataProjektion>& projections) = 0;
  // With the correlations of each camera's own parameters.
  virtual void WriteInteriorOrientations(const ProtocolList<DataIor>& cameras,
                                         const NormalSystem& system) = 0;
  // With the correlations of each image with its camera. The format is that of ProtocolResults.
  virtual void WriteExteriorOrientations(const ProtocolList<DataEor>& orientations,
                                         const NormalSystem& system,
                                         std::uint32_t format) = 0;
  virtual void WriteRelativeOrientations(const ProtocolList<DoppelOrientierung>& relatives,
                                         const ProtocolList<DataEor>& orientations) = 0;
  virtual void WriteImageCoordinates(const ProtocolList<MessungBiko>& observations) = 0;
  virtual void WriteLineCoordinates(const ProtocolList<MessungLinko>& observations) = 0;
  virtual void WriteMeasuredObjectPoints(const ProtocolList<MessungObko>& observations) = 0;
  virtual void WriteDistances(const ProtocolList<MessungStrecke>& observations) = 0;
  virtual void WriteConstraintsPointOnLine(
      const ProtocolList<BedingungPunktGerade>& constraints) = 0;
  virtual void WriteConstraintsPointOnPlane(
      const ProtocolList<ConstraintPointOnPlane>& constraints) = 0;
  virtual void WriteSummary(const ProtocolResults& results) = 0;
  // Nine warnings of one number are told, the tenth becomes a note, the rest are left out.
  virtual void WriteWarnings(const WarningList& warnings) = 0;
  // Whether the protocol file is open.
  virtual bool OpenProtocol() = 0;

 protected:
  BundleMessageHandlerItf() = default;
  BundleMessageHandlerItf(const BundleMessageHandlerItf&) = default;
  BundleMessageHandlerItf& operator=(const BundleMessageHandlerItf&) = default;
};

// Forwards to the writer of a run. Without a writer nothing happens, and OpenProtocol is false.
class BundleMessageHandler final : public BundleMessageHandlerItf {
 public:
  // Deletes the old writer, which closes its file.
  void SetHandler(std::unique_ptr<BundleMessageHandlerItf> writer) { fWriter = std::move(writer); }
  void ClearHandler() { fWriter.reset(); }

  void SetJob(ProtocolTarget* job) override;
  void WriteText(const char* text) override;
  void RunStarted(const std::int64_t* startTime,
                  const AdjustmentSettings& settings,
                  const ProtocolContents& contents) override;
  void ReportRobustEstimation() override;
  void ReportL2Estimation() override;
  void ReportBlunderCount(std::uint32_t count) override;
  void RunFinished(const ProtocolResults& results) override;
  void RunFailed(std::int32_t code) override;
  void RunClosed(const std::int64_t* startTime, const std::int64_t* endTime) override;
  void WriteIteration(const IterationInfo& info) override;
  void WriteFinalIteration(const BlunderRoundInfo& info) override;
  void WriteAusreisserTest(const BlunderRoundInfo& info) override;
  void WriteDatenDeaktiviert(std::span<Data* const> groups) override;
  void WriteDatenReaktiviert(std::span<Data* const> groups) override;
  void WriteObjectPoints(const ProtocolList<DataObko>& points) override;
  void WriteLines(const ProtocolList<DataLinie>& lines) override;
  void WritePlanes(const ProtocolList<DataPlane>& planes) override;
  void WriteProjections(const ProtocolList<DataProjektion>& projections) override;
  void WriteInteriorOrientations(const ProtocolList<DataIor>& cameras,
                                 const NormalSystem& system) override;
  void WriteExteriorOrientations(const ProtocolList<DataEor>& orientations,
                                 const NormalSystem& system,
                                 std::uint32_t format) override;
  void WriteRelativeOrientations(const ProtocolList<DoppelOrientierung>& relatives,
                                 const ProtocolList<DataEor>& orientations) override;
  void WriteImageCoordinates(const ProtocolList<MessungBiko>& observations) override;
  void WriteLineCoordinates(const ProtocolList<MessungLinko>& observations) override;
  void WriteMeasuredObjectPoints(const ProtocolList<MessungObko>& observations) override;
  void WriteDistances(const ProtocolList<MessungStrecke>& observations) override;
  void WriteConstraintsPointOnLine(const ProtocolList<BedingungPunktGerade>& constraints) override;
  void WriteConstraintsPointOnPlane(
      const ProtocolList<ConstraintPointOnPlane>& constraints) override;
  void WriteSummary(const ProtocolResults& results) override;
  void WriteWarnings(const WarningList& warnings) override;
  bool OpenProtocol() override;

 private:
  std::unique_ptr<BundleMessageHandlerItf> fWriter;
};

}  // namespace vermo
