// The handler of a network hands every call to the writer of the run.

#include "adjustment/adjustment_settings.h"
#include "adjustment/blunder_round_info.h"
#include "checks/warnings.h"
#include "protocol/bundle_message_handler.h"
#include "protocol/protocol_contents.h"
#include "support/dense_system.h"

#include <array>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <span>
#include <utility>

namespace vermo::test {
namespace {

using testing::Ref;
using testing::Return;
using testing::StrEq;
using testing::StrictMock;

class Writer : public BundleMessageHandlerItf {
 public:
  MOCK_METHOD(void, SetJob, (ProtocolTarget*), (override));
  MOCK_METHOD(void, WriteText, (const char*), (override));
  MOCK_METHOD(void,
              RunStarted,
              (const std::int64_t*, const AdjustmentSettings&, const ProtocolContents&),
              (override));
  MOCK_METHOD(void, ReportRobustEstimation, (), (override));
  MOCK_METHOD(void, ReportL2Estimation, (), (override));
  MOCK_METHOD(void, ReportBlunderCount, (std::uint32_t), (override));
  MOCK_METHOD(void, RunFinished, (const ProtocolResults&), (override));
  MOCK_METHOD(void, RunFailed, (std::int32_t), (override));
  MOCK_METHOD(void, RunClosed, (const std::int64_t*, const std::int64_t*), (override));
  MOCK_METHOD(void, WriteIteration, (const IterationInfo&), (override));
  MOCK_METHOD(void, WriteFinalIteration, (const BlunderRoundInfo&), (override));
  MOCK_METHOD(void, WriteAusreisserTest, (const BlunderRoundInfo&), (override));
  MOCK_METHOD(void, WriteDatenDeaktiviert, (std::span<Data* const>), (override));
  MOCK_METHOD(void, WriteDatenReaktiviert, (std::span<Data* const>), (override));
  MOCK_METHOD(void, WriteObjectPoints, (const ProtocolList<DataObko>&), (override));
  MOCK_METHOD(void, WriteLines, (const ProtocolList<DataLinie>&), (override));
  MOCK_METHOD(void, WritePlanes, (const ProtocolList<DataPlane>&), (override));
  MOCK_METHOD(void, WriteProjections, (const ProtocolList<DataProjektion>&), (override));
  MOCK_METHOD(void,
              WriteInteriorOrientations,
              (const ProtocolList<DataIor>&, const NormalSystem&),
              (override));
  MOCK_METHOD(void,
              WriteExteriorOrientations,
              (const ProtocolList<DataEor>&, const NormalSystem&, std::uint32_t),
              (override));
  MOCK_METHOD(void,
              WriteRelativeOrientations,
              (const ProtocolList<DoppelOrientierung>&, const ProtocolList<DataEor>&),
              (override));
  MOCK_METHOD(void, WriteImageCoordinates, (const ProtocolList<MessungBiko>&), (override));
  MOCK_METHOD(void, WriteLineCoordinates, (const ProtocolList<MessungLinko>&), (override));
  MOCK_METHOD(void, WriteMeasuredObjectPoints, (const ProtocolList<MessungObko>&), (override));
  MOCK_METHOD(void, WriteDistances, (const ProtocolList<MessungStrecke>&), (override));
  MOCK_METHOD(void,
              WriteConstraintsPointOnLine,
              (const ProtocolList<BedingungPunktGerade>&),
              (override));
  MOCK_METHOD(void,
              WriteConstraintsPointOnPlane,
              (const ProtocolList<ConstraintPointOnPlane>&),
              (override));
  MOCK_METHOD(void, WriteSummary, (const ProtocolResults&), (override));
  MOCK_METHOD(void, WriteWarnings, (const WarningList&), (override));
  MOCK_METHOD(bool, OpenProtocol, (), (override));
};

// What the calls are about.
struct Scene {
  std::int64_t start = 1;
  std::int64_t end = 2;
  AdjustmentSettings settings;
  ProtocolContents contents;
  ProtocolResults results;
  IterationInfo iteration{};
  BlunderRoundInfo round{};
  std::array<Data*, 2> groups{};
  DenseSystem system{1};
  WarningList warnings;

  // Every call once.
  void CallAll(BundleMessageHandlerItf& handler) const {
    handler.SetJob(nullptr);
    handler.WriteText("text");
    handler.RunStarted(&start, settings, contents);
    handler.ReportRobustEstimation();
    handler.ReportL2Estimation();
    handler.ReportBlunderCount(7);
    handler.RunFinished(results);
    handler.RunFailed(-12006);
    handler.RunClosed(&start, &end);
    handler.WriteIteration(iteration);
    handler.WriteFinalIteration(round);
    handler.WriteAusreisserTest(round);
    handler.WriteDatenDeaktiviert(groups);
    handler.WriteDatenReaktiviert(groups);
    handler.WriteObjectPoints(results.objectPoints);
    handler.WriteLines(results.lines);
    handler.WritePlanes(results.planes);
    handler.WriteProjections(results.projections);
    handler.WriteInteriorOrientations(results.cameras, system);
    handler.WriteExteriorOrientations(results.exteriorOrientations, system, 0x102);
    handler.WriteRelativeOrientations(results.relativeOrientations, results.exteriorOrientations);
    handler.WriteImageCoordinates(results.imageCoordinates);
    handler.WriteLineCoordinates(results.lineCoordinates);
    handler.WriteMeasuredObjectPoints(results.measuredObjectPoints);
    handler.WriteDistances(results.distances);
    handler.WriteConstraintsPointOnLine(results.pointOnLine);
    handler.WriteConstraintsPointOnPlane(results.pointOnPlane);
    handler.WriteSummary(results);
    handler.WriteWarnings(warnings);
  }
};

TEST(BundleMessageHandler, EveryCallReachesTheWriterAsItIs) {
  const Scene scene;
  auto owner = std::make_unique<StrictMock<Writer>>();
  Writer& writer = *owner;
  const ProtocolResults& results = scene.results;
  EXPECT_CALL(writer, SetJob(nullptr));
  EXPECT_CALL(writer, WriteText(StrEq("text")));
  EXPECT_CALL(writer, RunStarted(&scene.start, Ref(scene.settings), Ref(scene.contents)));
  EXPECT_CALL(writer, ReportRobustEstimation());
  EXPECT_CALL(writer, ReportL2Estimation());
  EXPECT_CALL(writer, ReportBlunderCount(7U));
  EXPECT_CALL(writer, RunFinished(Ref(results)));
  EXPECT_CALL(writer, RunFailed(-12006));
  EXPECT_CALL(writer, RunClosed(&scene.start, &scene.end));
  EXPECT_CALL(writer, WriteIteration(Ref(scene.iteration)));
  EXPECT_CALL(writer, WriteFinalIteration(Ref(scene.round)));
  EXPECT_CALL(writer, WriteAusreisserTest(Ref(scene.round)));
  EXPECT_CALL(writer, WriteDatenDeaktiviert(testing::SizeIs(2)));
  EXPECT_CALL(writer, WriteDatenReaktiviert(testing::SizeIs(2)));
  EXPECT_CALL(writer, WriteObjectPoints(Ref(results.objectPoints)));
  EXPECT_CALL(writer, WriteLines(Ref(results.lines)));
  EXPECT_CALL(writer, WritePlanes(Ref(results.planes)));
  EXPECT_CALL(writer, WriteProjections(Ref(results.projections)));
  EXPECT_CALL(writer, WriteInteriorOrientations(Ref(results.cameras), Ref(scene.system)));
  EXPECT_CALL(
      writer,
      WriteExteriorOrientations(Ref(results.exteriorOrientations), Ref(scene.system), 0x102U));
  EXPECT_CALL(writer,
              WriteRelativeOrientations(Ref(results.relativeOrientations),
                                        Ref(results.exteriorOrientations)));
  EXPECT_CALL(writer, WriteImageCoordinates(Ref(results.imageCoordinates)));
  EXPECT_CALL(writer, WriteLineCoordinates(Ref(results.lineCoordinates)));
  EXPECT_CALL(writer, WriteMeasuredObjectPoints(Ref(results.measuredObjectPoints)));
  EXPECT_CALL(writer, WriteDistances(Ref(results.distances)));
  EXPECT_CALL(writer, WriteConstraintsPointOnLine(Ref(results.pointOnLine)));
  EXPECT_CALL(writer, WriteConstraintsPointOnPlane(Ref(results.pointOnPlane)));
  EXPECT_CALL(writer, WriteSummary(Ref(results)));
  EXPECT_CALL(writer, WriteWarnings(Ref(scene.warnings)));
  BundleMessageHandler handler;
  handler.SetHandler(std::move(owner));
  scene.CallAll(handler);
}

TEST(BundleMessageHandler, WithoutAWriterNothingHappens) {
  BundleMessageHandler handler;
  Scene().CallAll(handler);
  EXPECT_FALSE(handler.OpenProtocol());
}

TEST(BundleMessageHandler, AClearedWriterHearsNothingMore) {
  auto owner = std::make_unique<StrictMock<Writer>>();
  BundleMessageHandler handler;
  EXPECT_CALL(*owner, OpenProtocol()).WillOnce(Return(true)).WillOnce(Return(false));
  handler.SetHandler(std::move(owner));
  EXPECT_TRUE(handler.OpenProtocol());
  EXPECT_FALSE(handler.OpenProtocol());
  handler.ClearHandler();
  Scene().CallAll(handler);
  EXPECT_FALSE(handler.OpenProtocol());
}

}  // namespace
}  // namespace vermo::test
