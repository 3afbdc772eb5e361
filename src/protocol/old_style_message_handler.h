#pragma once

#include "observations/protocol_text.h"
#include "protocol/bundle_message_handler.h"
#include "protocol/protocol_stream.h"
#include "protocol/protocol_texts.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace vermo {

class BedingungHlm;

// Writes the HTML protocol. The two writers are twins: the layouts and the pairs of literals stand
// once, here, and a writer is made by its language. What differs in more than words is told where
// it differs. The frame of the document stands in old_style_message_handler.cpp, the tables in
// old_style_unknowns.cpp, old_style_observations.cpp and old_style_summary.cpp.
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
  bool OpenProtocol() override { return fFile.is_open(); }

  // The datum constraints: heading, whether active, and the multipliers of an active one.
  virtual void WriteConstraintScale(const BedingungHlmM& constraint);
  virtual void WriteConstraintTranslation(const BedingungHlmTrans& constraint);
  virtual void WriteConstraintRotation(const BedingungHlmRot& constraint);

 protected:
  OldStyleMessageHandler(const std::string& fileName, WriterLanguage language)
      : fFile(fileName), fLanguage(language) {}

 private:
  [[nodiscard]] bool IsGerman() const noexcept { return fLanguage == WriterLanguage::German; }
  [[nodiscard]] const char* In(const BilingualText& text) const {
    return vermo::In(fLanguage, text);
  }
  void Write(const ProtocolText& text) { WriteText(text.Str().c_str()); }
  void Write(const BilingualText& text) { WriteText(In(text)); }

  // A line end, then the heading of a section.
  void WriteHeading(const char* anchor, const BilingualText& title);
  // The block of a datum constraint with a line for each multiplier, labelled in order.
  void WriteDatumConstraint(const char* anchor,
                            const BilingualText& title,
                            const BedingungHlm& constraint,
                            std::span<const BilingualText> labels);
  // A float of the tables of cameras: scientific in German, hexadecimal in English.
  ProtocolText& CameraValue(ProtocolText& row, double value, std::size_t width) const;
  void WriteCamera(const DataIor& camera, const NormalSystem& system);
  void WriteProjection(const DataProjektion& projection);
  // False when the rotation has no angles: the image leaves no row.
  bool WriteOrientation(const DataEor& orientation, std::uint32_t format);
  void WriteCameraCorrelations(const DataEor& orientation, const NormalSystem& system);
  void WriteObjectPoint(const DataObko& point);
  void WriteObjectPointExtremes(const ProtocolList<DataObko>& points);
  template <typename Observation>
  void WriteRowsByImage(const ProtocolList<Observation>& observations);
  template <typename Constraint>
  void WritePointConstraints(const ProtocolList<Constraint>& constraints);
  struct BlunderLabels;
  void WriteBlunders(const BlunderRoundInfo& info,
                     const BlunderLabels& labels,
                     std::int64_t redundancy);
  void WriteOverallFigures(const AdjustmentStatistics& statistics);
  void WriteCameraFigures(const CameraFigures& figures, const ProtocolList<DataIor>& cameras);
  void WriteObjectPointFigures(const ObjectPointFigures& figures);
  void WriteDistanceFigures(const DistanceFigures& figures);
  void WriteImageFigures(const ImageFigures& figures);
  void WriteResidualRow(const ImageResiduals& residuals);

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
