#pragma once

#include <cstdint>
#include <memory>
#include <utility>

namespace vermo {

class AdjustmentSettings;
class ProtocolTarget;
struct IterationInfo;
struct ProtocolContents;

// Everything that the library reports about a run goes through this interface. The order of one
// run: RunStarted, WriteIteration ..., then RunFinished or RunFailed, then RunClosed.
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
  virtual void ReportRobustEstimation() = 0;
  virtual void ReportL2Estimation() = 0;
  virtual void ReportBlunderCount(std::uint32_t count) = 0;
  // The results of a finished run.
  virtual void RunFinished(double redundancySum) = 0;
  virtual void RunFailed(std::int32_t code) = 0;
  // End line, run time, closing tags.
  virtual void RunClosed(const std::int64_t* startTime, const std::int64_t* endTime) = 0;
  virtual void WriteIteration(const IterationInfo& info) = 0;
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
  void RunFinished(double redundancySum) override;
  void RunFailed(std::int32_t code) override;
  void RunClosed(const std::int64_t* startTime, const std::int64_t* endTime) override;
  void WriteIteration(const IterationInfo& info) override;
  bool OpenProtocol() override;

 private:
  std::unique_ptr<BundleMessageHandlerItf> fWriter;
};

}  // namespace vermo
