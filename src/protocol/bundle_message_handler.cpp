#include "protocol/bundle_message_handler.h"

namespace vermo {

void BundleMessageHandler::SetJob(ProtocolTarget* job) {
  if (fWriter != nullptr) fWriter->SetJob(job);
}

void BundleMessageHandler::WriteText(const char* text) {
  if (fWriter != nullptr) fWriter->WriteText(text);
}

void BundleMessageHandler::RunStarted(const std::int64_t* startTime,
                                      const AdjustmentSettings& settings,
                                      const ProtocolContents& contents) {
  if (fWriter != nullptr) fWriter->RunStarted(startTime, settings, contents);
}

void BundleMessageHandler::ReportRobustEstimation() {
  if (fWriter != nullptr) fWriter->ReportRobustEstimation();
}

void BundleMessageHandler::ReportL2Estimation() {
  if (fWriter != nullptr) fWriter->ReportL2Estimation();
}

void BundleMessageHandler::ReportBlunderCount(std::uint32_t count) {
  if (fWriter != nullptr) fWriter->ReportBlunderCount(count);
}

void BundleMessageHandler::RunFinished(const ProtocolResults& results) {
  if (fWriter != nullptr) fWriter->RunFinished(results);
}

void BundleMessageHandler::RunFailed(std::int32_t code) {
  if (fWriter != nullptr) fWriter->RunFailed(code);
}

void BundleMessageHandler::RunClosed(const std::int64_t* startTime, const std::int64_t* endTime) {
  if (fWriter != nullptr) fWriter->RunClosed(startTime, endTime);
}

void BundleMessageHandler::WriteIteration(const IterationInfo& info) {
  if (fWriter != nullptr) fWriter->WriteIteration(info);
}

void BundleMessageHandler::WriteFinalIteration(const BlunderRoundInfo& info) {
  if (fWriter != nullptr) fWriter->WriteFinalIteration(info);
}

void BundleMessageHandler::WriteAusreisserTest(const BlunderRoundInfo& info) {
  if (fWriter != nullptr) fWriter->WriteAusreisserTest(info);
}

void BundleMessageHandler::WriteDatenDeaktiviert(std::span<Data* const> groups) {
  if (fWriter != nullptr) fWriter->WriteDatenDeaktiviert(groups);
}

void BundleMessageHandler::WriteDatenReaktiviert(std::span<Data* const> groups) {
  if (fWriter != nullptr) fWriter->WriteDatenReaktiviert(groups);
}

void BundleMessageHandler::WriteObjectPoints(const ProtocolList<DataObko>& points) {
  if (fWriter != nullptr) fWriter->WriteObjectPoints(points);
}

void BundleMessageHandler::WriteLines(const ProtocolList<DataLinie>& lines) {
  if (fWriter != nullptr) fWriter->WriteLines(lines);
}

void BundleMessageHandler::WritePlanes(const ProtocolList<DataPlane>& planes) {
  if (fWriter != nullptr) fWriter->WritePlanes(planes);
}

void BundleMessageHandler::WriteProjections(const ProtocolList<DataProjektion>& projections) {
  if (fWriter != nullptr) fWriter->WriteProjections(projections);
}

void BundleMessageHandler::WriteInteriorOrientations(const ProtocolList<DataIor>& cameras,
                                                     const NormalSystem& system) {
  if (fWriter != nullptr) fWriter->WriteInteriorOrientations(cameras, system);
}

void BundleMessageHandler::WriteExteriorOrientations(const ProtocolList<DataEor>& orientations,
                                                     const NormalSystem& system,
                                                     std::uint32_t format) {
  if (fWriter != nullptr) fWriter->WriteExteriorOrientations(orientations, system, format);
}

void BundleMessageHandler::WriteRelativeOrientations(
    const ProtocolList<DoppelOrientierung>& relatives, const ProtocolList<DataEor>& orientations) {
  if (fWriter != nullptr) fWriter->WriteRelativeOrientations(relatives, orientations);
}

void BundleMessageHandler::WriteImageCoordinates(const ProtocolList<MessungBiko>& observations) {
  if (fWriter != nullptr) fWriter->WriteImageCoordinates(observations);
}

void BundleMessageHandler::WriteLineCoordinates(const ProtocolList<MessungLinko>& observations) {
  if (fWriter != nullptr) fWriter->WriteLineCoordinates(observations);
}

void BundleMessageHandler::WriteMeasuredObjectPoints(
    const ProtocolList<MessungObko>& observations) {
  if (fWriter != nullptr) fWriter->WriteMeasuredObjectPoints(observations);
}

void BundleMessageHandler::WriteDistances(const ProtocolList<MessungStrecke>& observations) {
  if (fWriter != nullptr) fWriter->WriteDistances(observations);
}

void BundleMessageHandler::WriteConstraintsPointOnLine(
    const ProtocolList<BedingungPunktGerade>& constraints) {
  if (fWriter != nullptr) fWriter->WriteConstraintsPointOnLine(constraints);
}

void BundleMessageHandler::WriteConstraintsPointOnPlane(
    const ProtocolList<ConstraintPointOnPlane>& constraints) {
  if (fWriter != nullptr) fWriter->WriteConstraintsPointOnPlane(constraints);
}

void BundleMessageHandler::WriteSummary(const ProtocolResults& results) {
  if (fWriter != nullptr) fWriter->WriteSummary(results);
}

void BundleMessageHandler::WriteWarnings(const WarningList& warnings) {
  if (fWriter != nullptr) fWriter->WriteWarnings(warnings);
}

bool BundleMessageHandler::OpenProtocol() { return fWriter != nullptr && fWriter->OpenProtocol(); }

}  // namespace vermo
