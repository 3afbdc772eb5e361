#include "protocol/bundle_message_handler.h"

namespace vermo {

void BundleMessageHandler::SetJob(ProtocolTarget* job) {
  if (fWriter) fWriter->SetJob(job);
}
void BundleMessageHandler::WriteText(const char* text) {
  if (fWriter) fWriter->WriteText(text);
}
void BundleMessageHandler::RunStarted(const std::int64_t* startTime,
                                      const AdjustmentSettings& settings,
                                      const ProtocolContents& contents) {
  if (fWriter) fWriter->RunStarted(startTime, settings, contents);
}
void BundleMessageHandler::ReportRobustEstimation() {
  if (fWriter) fWriter->ReportRobustEstimation();
}
void BundleMessageHandler::ReportL2Estimation() {
  if (fWriter) fWriter->ReportL2Estimation();
}
void BundleMessageHandler::ReportBlunderCount(std::uint32_t count) {
  if (fWriter) fWriter->ReportBlunderCount(count);
}
void BundleMessageHandler::RunFinished(double redundancySum) {
  if (fWriter) fWriter->RunFinished(redundancySum);
}
void BundleMessageHandler::RunFailed(std::int32_t code) {
  if (fWriter) fWriter->RunFailed(code);
}
void BundleMessageHandler::RunClosed(const std::int64_t* startTime, const std::int64_t* endTime) {
  if (fWriter) fWriter->RunClosed(startTime, endTime);
}
void BundleMessageHandler::WriteIteration(const IterationInfo& info) {
  if (fWriter) fWriter->WriteIteration(info);
}
bool BundleMessageHandler::OpenProtocol() { return fWriter && fWriter->OpenProtocol(); }

}  // namespace vermo
