#pragma once

#include "protocol/bundle_message_handler.h"
#include "protocol/protocol_stream.h"
#include "protocol/protocol_texts.h"

#include <cstdint>
#include <string>

namespace vermo {

// Writes the HTML protocol. The two writers are twins: the layouts and the pairs of literals stand
// once, here, and a writer is made by its language. What differs in more than words is told where
// it differs: the date, and the notation of the settings.
class OldStyleMessageHandler : public BundleMessageHandlerItf {
 public:
  void SetJob(ProtocolTarget* job) override { fTarget = job; }
  void WriteText(const char* text) override;
  void RunStarted(const std::int64_t* startTime,
                  const AdjustmentSettings& settings,
                  const ProtocolContents& contents) override;
  void ReportRobustEstimation() override;
  void ReportL2Estimation() override;
  void ReportBlunderCount(std::uint32_t count) override;
  void RunFinished(double redundancySum) override;
  void RunFailed(std::int32_t code) override;
  void RunClosed(const std::int64_t* startTime, const std::int64_t* endTime) override;
  void WriteIteration(const IterationInfo& info) override;
  bool OpenProtocol() override { return fFile.is_open(); }

 protected:
  OldStyleMessageHandler(const std::string& fileName, WriterLanguage language)
      : fFile(fileName), fLanguage(language) {}

 private:
  [[nodiscard]] const char* Text(const BilingualText& text) const { return In(fLanguage, text); }

  ProtocolTarget* fTarget = nullptr;  // not owned
  ProtocolStream fFile;
  WriterLanguage fLanguage;
};

class OldStyleMessageHandlerDE final : public OldStyleMessageHandler {
 public:
  explicit OldStyleMessageHandlerDE(const std::string& fileName)
      : OldStyleMessageHandler(fileName, WriterLanguage::German) {}
};

class OldStyleMessageHandlerEN final : public OldStyleMessageHandler {
 public:
  explicit OldStyleMessageHandlerEN(const std::string& fileName)
      : OldStyleMessageHandler(fileName, WriterLanguage::English) {}
};

// "<h4>" heading of a section with its anchor. The link back is worded in the language of the
// process at this moment, not in that of the writer.
[[nodiscard]] std::string SectionHeading(const char* anchor, const char* title);

}  // namespace vermo
