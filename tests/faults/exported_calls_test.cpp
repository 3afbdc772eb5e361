// Every allocation of every exported function fails once, on an empty job, on a filled one and on
// one that has run. A failing call ends as the interface says and leaves the job as it was; the
// same call then gives what it gives where nothing fails; nothing leaks.

#include "faults/failing_allocations.h"
#include "faults/job_picture.h"
#include "golden/networks.h"
#include "golden/scene.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <gtest/gtest.h>
#include <new>
#include <set>
#include <span>
#include <string>

namespace faults {
namespace {

using golden::Job;
using Memory = FailingAllocations::Memory;

// Nothing that a run writes is kept.
constexpr char kProtocolFile[] = "/dev/null";

// What a call gave: its result, the bytes that it wrote, or that it ran out of memory.
struct Answer {
  int status = 0;
  bool outOfMemory = false;
  std::array<char, 2048> bytes{};
  bool operator==(const Answer&) const = default;
};

// How a call ends without memory.
enum class Ending {
  Throws,       // std::bad_alloc leaves
  Status,       // the status of the case
  NullHandle,   // no job
  NeverReached  // the function asks for no memory
};

struct Case {
  const char* function;  // as in the list of exported symbols
  Ending ending;
  int status;
  void (*call)(void* job, Answer& answer);
};

template <typename Value>
void Write(Answer& answer, const Value& value) {
  static_assert(sizeof value <= std::tuple_size_v<decltype(answer.bytes)>);
  std::memcpy(answer.bytes.data(), &value, sizeof value);
}

template <auto kCount>
void Count(void* job, Answer& answer) {
  answer.status = kCount(job);
}

template <typename Record, int (*kRead)(void*, int, Record*)>
void Read(void* job, Answer& answer) {
  Record record;
  std::memset(static_cast<void*>(&record), 0, sizeof record);
  answer.status = kRead(job, 0, &record);
  Write(answer, record);
}

template <typename Selector, typename Value, int (*kRead)(void*, Selector, Value*)>
void ReadAll(void* job, Answer& answer) {
  std::array<Value, 24> values{};
  for (std::size_t i = 0; i < values.size(); ++i)
    answer.status += kRead(job, static_cast<Selector>(i), &values[i]);
  Write(answer, values);
}

template <typename Record, int (*kSet)(void*, const Record*)>
int Set(void* job, const Record& record) {
  return kSet(job, &record);
}

constexpr std::uint16_t kFree = 0x01;
constexpr std::uint16_t kFixed = 0x11;
constexpr std::uint16_t kProtected = 0x21;
constexpr int kNewId = 1000000001;  // a text of this id lies on the heap with little beside it

void SetCamera(void* job, Answer& answer) {
  sXYZ_InteriorOrient camera{};
  camera.Id = kNewId;
  camera.Ck = -30.0;
  camera.Flags = kFixed;
  answer.status = XYZ_SetInteriorOrientation(job, &camera);
}

// A fixed image carries the datum.
void SetImage(void* job, Answer& answer) {
  sXYZ_ExteriorOrient2 image{};
  image.Id = kNewId;
  image.IorId = 1;
  image.ProjectionId = -1;
  image.Format = 3;
  image.Rotation[0] = image.Rotation[4] = image.Rotation[8] = 1.0;
  image.Flags = kFixed;
  answer.status = XYZ_SetExteriorOrientation2(job, &image);
}

void SetPoint(void* job, Answer& answer) {
  sXYZ_ObjectCoord point{};
  point.Id = kNewId;
  point.ReferenceEor = -1;
  point.Flags = kFixed;
  answer.status = XYZ_SetObjectCoord(job, &point);
}

void SetProjection(void* job, Answer& answer) {
  sXYZ_Projection projection{};
  projection.Id = kNewId;
  projection.Ck = -30.0;
  projection.Flags = kFree;
  answer.status = XYZ_SetProjection(job, &projection);
}

void SetLine(void* job, Answer& answer) {
  sXYZ_Line line{};
  line.Id = kNewId;
  line.P2[0] = 1.0;
  line.Flags = kFree;
  answer.status = XYZ_SetLine(job, &line);
}

void SetPlane(void* job, Answer& answer) {
  sXYZ_Plane plane{};
  plane.Id = kNewId;
  plane.Normal[2] = 1.0;
  plane.Flags = kFree;
  answer.status = XYZ_SetPlane(job, &plane);
}

void SetRelative(void* job, Answer& answer) {
  const sXYZ_RelativeOrientation relative{kNewId, 1, 2};
  answer.status = XYZ_SetRelativeOrientation(job, &relative);
}

void SetImagePoint(void* job, Answer& answer) {
  sXYZ_PictureCoord observation{};
  observation.PointId = observation.EorId = 1;
  observation.Sx = observation.Sy = 0.001;
  observation.Flags = kFree;
  answer.status = XYZ_SetPictureCoord(job, &observation);
}

void SetLinePoint(void* job, Answer& answer) {
  sXYZ_PictureLineCoord observation{};
  observation.Id = observation.LineId = observation.EorId = 1;
  observation.Sx = observation.Sy = 0.001;
  observation.Flags = kFree;
  answer.status = XYZ_SetPictureLineCoord(job, &observation);
}

// Protected observations carry the datum.
void SetMeasured(void* job, Answer& answer) {
  sXYZ_MeasuredObjectCoord observation{};
  observation.PointId = kNewId;
  observation.ReferenceEor = -1;
  observation.Sx = observation.Sy = observation.Sz = 0.001;
  observation.Flags = kProtected;
  answer.status = XYZ_SetMeasuredObjectCoord(job, &observation);
}

void SetDistance(void* job, Answer& answer) {
  sXYZ_Distance observation{};
  observation.Point1 = kNewId;
  observation.Point2 = kNewId + 1;
  observation.Sigma = 0.001;
  observation.Flags = kProtected;
  answer.status = XYZ_SetDistance(job, &observation);
}

void SetPointOnLine(void* job, Answer& answer) {
  const sXYZ_ConstraintPointOnLine constraint{kNewId, 1, 1, kFree};
  answer.status = XYZ_SetConstraintPointOnLine(job, &constraint);
}

void SetPointOnPlane(void* job, Answer& answer) {
  const sXYZ_ConstraintPointOnPlane constraint{kNewId, 1, 1, kFree};
  answer.status = XYZ_SetConstraintPointOnPlane(job, &constraint);
}

// Every selector, those that do not exist as well; the language stays that of the process.
void SetWholeParameters(void* job, Answer& answer) {
  for (int i = 0; i < 24; ++i)
    if (i != eXYZ_ParamLanguage)
      answer.status += XYZ_SetParam(job, static_cast<eXYZ_Parameter>(i), 1);
  answer.status += XYZ_SetParam(job, eXYZ_ParamLanguage, 1);
}

// The refused value of parameter 10 throws through the interface, with memory or without.
void SetRealParameters(void* job, Answer& answer) {
  for (int i = 0; i < 24; ++i)
    answer.status += XYZ_SetParam(job, static_cast<eXYZ_Parameter>(i), 0.5);
  try {
    XYZ_SetParam(job, eXYZ_ParamS0Apriori, 0.0);
  } catch (const vermo::KlException& failure) {
    answer.status += failure.GetCode();
  }
}

void CreateNamed(void* /*job*/, Answer& answer) {
  void* created = XYZ_CreateJob("a name that is too long for a short string");
  answer.status = created == nullptr ? -1 : XYZ_DestroyJob(created);
}

void CreateUnnamed(void* /*job*/, Answer& answer) {
  void* created = XYZ_CreateJob();
  answer.status = created == nullptr ? -1 : XYZ_DestroyJob(created);
}

// The job of the case stays: another one goes, with all kinds of records.
void Destroy(void* /*job*/, Answer& answer) {
  void* other = nullptr;
  {
    const OwnAllocations own;
    other = XYZ_CreateJob(kProtocolFile);
    golden::BuildEverything(other);
    XYZ_CalcBundle(other);
  }
  answer.status = XYZ_DestroyJob(other);
}

int Progress(void* /*job*/, sXYZ_CBProgressInfo* /*info*/, void* /*userData*/) { return 0; }
void Protocol(void* /*job*/, char* /*text*/, void* /*userData*/) {}

void ReadVersion(void* /*job*/, Answer& answer) {
  gXYZ_sVersion version{};
  XYZ_GetVersion(&version);
  answer.status = version.Major;
}

void ReadIdentification(void* /*job*/, Answer& answer) {
  answer.status = XYZ_GetIdentification(answer.bytes.data());
}

template <typename Record>
using At = int (*)(void*, int, Record*);

constexpr Case kCases[] = {
    {"XYZ_CalcBundle(void*)",
     Ending::Status,
     eXYZ_CalcFailed,
     [](void* job, Answer& a) { a.status = XYZ_CalcBundle(job); }},
    {"XYZ_CheckSettings(void*)", Ending::Status, eXYZ_CheckFailed, Count<XYZ_CheckSettings>},
    {"XYZ_CreateJob()", Ending::NullHandle, 0, CreateUnnamed},
    {"XYZ_CreateJob(char const*)", Ending::NullHandle, 0, CreateNamed},
    {"XYZ_DestroyJob(void*)", Ending::NeverReached, 0, Destroy},
    {"XYZ_Exit()", Ending::NeverReached, 0, [](void*, Answer& a) { a.status = XYZ_Exit(); }},
    {"XYZ_GetConstraintPointOnLineAt(void*, int, sXYZ_ConstraintPointOnLine*)",
     Ending::Throws,
     0,
     Read<sXYZ_ConstraintPointOnLine, XYZ_GetConstraintPointOnLineAt>},
    {"XYZ_GetConstraintPointOnLineCnt(void*)",
     Ending::NeverReached,
     0,
     Count<XYZ_GetConstraintPointOnLineCnt>},
    {"XYZ_GetConstraintPointOnPlaneAt(void*, int, sXYZ_ConstraintPointOnPlane*)",
     Ending::Throws,
     0,
     Read<sXYZ_ConstraintPointOnPlane, XYZ_GetConstraintPointOnPlaneAt>},
    {"XYZ_GetConstraintPointOnPlaneCnt(void*)",
     Ending::NeverReached,
     0,
     Count<XYZ_GetConstraintPointOnPlaneCnt>},
    {"XYZ_GetDistanceAt(void*, int, sXYZ_Distance*)",
     Ending::Throws,
     0,
     Read<sXYZ_Distance, XYZ_GetDistanceAt>},
    {"XYZ_GetDistanceCnt(void*)", Ending::NeverReached, 0, Count<XYZ_GetDistanceCnt>},
    {"XYZ_GetExteriorOrientAt(void*, int, sXYZ_ExteriorOrient2*)",
     Ending::Throws,
     0,
     Read<sXYZ_ExteriorOrient2, XYZ_GetExteriorOrientAt>},
    {"XYZ_GetExteriorOrientCnt(void*)", Ending::NeverReached, 0, Count<XYZ_GetExteriorOrientCnt>},
    {"XYZ_GetIdentification(char*)", Ending::NeverReached, 0, ReadIdentification},
    {"XYZ_GetIdentificationCnt()",
     Ending::NeverReached,
     0,
     [](void*, Answer& a) { a.status = XYZ_GetIdentificationCnt(); }},
    {"XYZ_GetInteriorOrientAt(void*, int, sXYZ_InteriorOrient*)",
     Ending::Throws,
     0,
     Read<sXYZ_InteriorOrient, XYZ_GetInteriorOrientAt>},
    {"XYZ_GetInteriorOrientCnt(void*)", Ending::NeverReached, 0, Count<XYZ_GetInteriorOrientCnt>},
    {"XYZ_GetLineAt(void*, int, sXYZ_Line*)", Ending::Throws, 0, Read<sXYZ_Line, XYZ_GetLineAt>},
    {"XYZ_GetLineCnt(void*)", Ending::NeverReached, 0, Count<XYZ_GetLineCnt>},
    {"XYZ_GetLinePictureCoordAt(void*, int, sXYZ_PictureLineCoord*)",
     Ending::Throws,
     0,
     Read<sXYZ_PictureLineCoord, XYZ_GetLinePictureCoordAt>},
    {"XYZ_GetLinePictureCoordCnt(void*)",
     Ending::NeverReached,
     0,
     Count<XYZ_GetLinePictureCoordCnt>},
    {"XYZ_GetMeasuredObjectCoordAt(void*, int, sXYZ_MeasuredObjectCoord*)",
     Ending::Throws,
     0,
     Read<sXYZ_MeasuredObjectCoord, XYZ_GetMeasuredObjectCoordAt>},
    {"XYZ_GetMeasuredObjectCoordCnt(void*)",
     Ending::NeverReached,
     0,
     Count<XYZ_GetMeasuredObjectCoordCnt>},
    {"XYZ_GetObjectCoordAt(void*, int, sXYZ_ObjectCoord*)",
     Ending::Throws,
     0,
     Read<sXYZ_ObjectCoord, XYZ_GetObjectCoordAt>},
    {"XYZ_GetObjectCoordCnt(void*)", Ending::NeverReached, 0, Count<XYZ_GetObjectCoordCnt>},
    {"XYZ_GetParam(void*, eXYZ_Parameter, double*)",
     Ending::NeverReached,
     0,
     ReadAll<eXYZ_Parameter, double, XYZ_GetParam>},
    {"XYZ_GetParam(void*, eXYZ_Parameter, int*)",
     Ending::NeverReached,
     0,
     ReadAll<eXYZ_Parameter, int, XYZ_GetParam>},
    {"XYZ_GetPictureCoordCnt(void*)", Ending::NeverReached, 0, Count<XYZ_GetPictureCoordCnt>},
    {"XYZ_GetPictureCoordsAt(void*, int, sXYZ_PictureCoord*)",
     Ending::Throws,
     0,
     Read<sXYZ_PictureCoord, XYZ_GetPictureCoordsAt>},
    {"XYZ_GetPlaneAt(void*, int, sXYZ_Plane*)",
     Ending::Throws,
     0,
     Read<sXYZ_Plane, XYZ_GetPlaneAt>},
    {"XYZ_GetPlaneCnt(void*)", Ending::NeverReached, 0, Count<XYZ_GetPlaneCnt>},
    {"XYZ_GetProjectionAt(void*, int, sXYZ_Projection*)",
     Ending::Throws,
     0,
     Read<sXYZ_Projection, XYZ_GetProjectionAt>},
    {"XYZ_GetProjectionCnt(void*)", Ending::NeverReached, 0, Count<XYZ_GetProjectionCnt>},
    {"XYZ_GetRelativeOrientationAt(void*, int, sXYZ_RelativeOrientation*)",
     Ending::Throws,
     0,
     Read<sXYZ_RelativeOrientation, XYZ_GetRelativeOrientationAt>},
    {"XYZ_GetRelativeOrientationCnt(void*)",
     Ending::NeverReached,
     0,
     Count<XYZ_GetRelativeOrientationCnt>},
    {"XYZ_GetResult(void*, eXYZ_Result, double*)",
     Ending::NeverReached,
     0,
     ReadAll<eXYZ_Result, double, XYZ_GetResult>},
    // One result: the two times differ between the job and the one that it is compared with.
    {"XYZ_GetResult(void*, eXYZ_Result, int*)",
     Ending::NeverReached,
     0,
     [](void* job, Answer& a) {
       int value = 0;
       a.status = XYZ_GetResult(job, eXYZ_ResultObservations, &value);
       Write(a, value);
     }},
    {"XYZ_GetVersion(gXYZ_sVersion*)", Ending::NeverReached, 0, ReadVersion},
    {"XYZ_Init()", Ending::NeverReached, 0, [](void*, Answer& a) { a.status = XYZ_Init(); }},
    {"XYZ_Reset(void*)", Ending::NeverReached, 0, Count<XYZ_Reset>},
    {"XYZ_SetConstraintPointOnLine(void*, sXYZ_ConstraintPointOnLine const*)",
     Ending::Throws,
     0,
     SetPointOnLine},
    {"XYZ_SetConstraintPointOnPlane(void*, sXYZ_ConstraintPointOnPlane const*)",
     Ending::Throws,
     0,
     SetPointOnPlane},
    {"XYZ_SetDistance(void*, sXYZ_Distance const*)", Ending::Throws, 0, SetDistance},
    {"XYZ_SetExteriorOrientation2(void*, sXYZ_ExteriorOrient2 const*)",
     Ending::Throws,
     0,
     SetImage},
    {"XYZ_SetInteriorOrientation(void*, sXYZ_InteriorOrient const*)", Ending::Throws, 0, SetCamera},
    {"XYZ_SetLine(void*, sXYZ_Line const*)", Ending::Status, eXYZ_InvalidLine, SetLine},
    {"XYZ_SetMeasuredObjectCoord(void*, sXYZ_MeasuredObjectCoord const*)",
     Ending::Throws,
     0,
     SetMeasured},
    {"XYZ_SetNewProtocolFile(void*, char const*)",
     Ending::Throws,
     0,
     [](void* job, Answer& a) {
       a.status = XYZ_SetNewProtocolFile(job, "/dev/null/a name too long for a short string");
     }},
    {"XYZ_SetObjectCoord(void*, sXYZ_ObjectCoord const*)", Ending::Throws, 0, SetPoint},
    {"XYZ_SetParam(void*, eXYZ_Parameter, double)", Ending::NeverReached, 0, SetRealParameters},
    {"XYZ_SetParam(void*, eXYZ_Parameter, int)", Ending::NeverReached, 0, SetWholeParameters},
    {"XYZ_SetPictureCoord(void*, sXYZ_PictureCoord const*)", Ending::Throws, 0, SetImagePoint},
    {"XYZ_SetPictureLineCoord(void*, sXYZ_PictureLineCoord const*)",
     Ending::Throws,
     0,
     SetLinePoint},
    {"XYZ_SetPlane(void*, sXYZ_Plane const*)", Ending::Status, eXYZ_InvalidPlane, SetPlane},
    {"XYZ_SetProgressCallback(void*, int (*)(void*, sXYZ_CBProgressInfo*, void*), void*)",
     Ending::NeverReached,
     0,
     [](void* job, Answer& a) { a.status = XYZ_SetProgressCallback(job, Progress, job); }},
    {"XYZ_SetProjection(void*, sXYZ_Projection const*)", Ending::Throws, 0, SetProjection},
    {"XYZ_SetProtocolCallback(void*, void (*)(void*, char*, void*), void*)",
     Ending::NeverReached,
     0,
     [](void* job, Answer& a) { a.status = XYZ_SetProtocolCallback(job, Protocol, job); }},
    {"XYZ_SetRelativeOrientation(void*, sXYZ_RelativeOrientation const*)",
     Ending::Throws,
     0,
     SetRelative},
};

bool IsRun(const Case& one) { return one.call == kCases[0].call; }

// The states of a job.
void Nothing(void* /*job*/) {}
void Filled(void* job) { golden::BuildFixedGroups(job); }
void HasRun(void* job) {
  golden::BuildFixedGroups(job);
  XYZ_CalcBundle(job);
}
// The next record of every kind of observation and constraint starts a new block of memory or does
// not: the lists grow by blocks of some thirty to a thousand elements.
void AtTheEdgeOfABlock(void* job) {
  Answer ignored;
  for (int i = 0; i < 40; ++i) {
    SetImagePoint(job, ignored);
    SetMeasured(job, ignored);
    SetDistance(job, ignored);
    SetLinePoint(job, ignored);
    SetPointOnLine(job, ignored);
    SetPointOnPlane(job, ignored);
  }
}

Job MakeJob(void (*fill)(void*)) {
  Job job(XYZ_CreateJob(kProtocolFile));
  fill(job.get());
  return job;
}

Answer CallAndCatch(const Case& one, void* job) {
  Answer answer;
  try {
    one.call(job, answer);
  } catch (const std::bad_alloc&) {
    answer = {};
    answer.outOfMemory = true;
  }
  return answer;
}

void ExpectDocumentedEnding(const Case& one, const Answer& answer) {
  switch (one.ending) {
    case Ending::Throws:
      EXPECT_TRUE(answer.outOfMemory) << "ended with status " << answer.status;
      return;
    case Ending::Status:
      EXPECT_FALSE(answer.outOfMemory);
      EXPECT_EQ(answer.status, one.status);
      return;
    case Ending::NullHandle:
      EXPECT_FALSE(answer.outOfMemory);
      EXPECT_EQ(answer.status, -1);
      return;
    case Ending::NeverReached:
      ADD_FAILURE() << "the function asks for memory";
      return;
  }
}

// The k-th allocation of the call fails, k = 1, 2, ... until the call passes.
void Sweep(const Case& one, void (*fill)(void*), Memory memory) {
  Answer wanted;
  std::string wantedPicture;
  {
    const Job job = MakeJob(fill);
    wanted = CallAndCatch(one, job.get());
    wantedPicture = PictureOf(job.get());
  }
  constexpr std::uint64_t kMostAllocations = 5000;
  for (std::uint64_t k = 1; k <= kMostAllocations; ++k) {
    SCOPED_TRACE(::testing::Message() << one.function << ", allocation " << k);
    const std::int64_t live = LiveAllocations();
    bool reached = false;
    {
      const Job job = MakeJob(fill);
      const std::string before = PictureOf(job.get());
      Answer answer;
      {
        const FailingAllocations failing(k, memory);
        answer = CallAndCatch(one, job.get());
        reached = failing.Reached();
      }
      if (reached) {
        ExpectDocumentedEnding(one, answer);
        // A run leaves the values of its last iteration, and is meant once.
        if (!IsRun(one)) {
          EXPECT_EQ(PictureOf(job.get()), before) << "the job has changed";
          answer = CallAndCatch(one, job.get());
        }
      }
      if (!reached || !IsRun(one)) {
        EXPECT_EQ(answer, wanted) << "status " << answer.status << " for " << wanted.status;
        EXPECT_EQ(PictureOf(job.get()), wantedPicture);
      }
    }
    EXPECT_EQ(LiveAllocations(), live) << "something leaks";
    if (!reached || ::testing::Test::HasFailure()) return;
  }
  ADD_FAILURE() << one.function << " allocates without end";
}

class ExportedCalls : public ::testing::TestWithParam<Case> {};

TEST_P(ExportedCalls, SurviveEveryFailingAllocation) {
  for (const auto fill : {Nothing, Filled, HasRun, AtTheEdgeOfABlock})
    for (const Memory memory : {Memory::ReturnsAtOnce, Memory::StaysExhausted})
      Sweep(GetParam(), fill, memory);
}

std::string NameOf(const ::testing::TestParamInfo<Case>& info) {
  std::string name;
  for (const char c : std::string(info.param.function))
    if (std::isalnum(static_cast<unsigned char>(c)) != 0) name += c;
  return name;
}

INSTANTIATE_TEST_SUITE_P(Function, ExportedCalls, ::testing::ValuesIn(kCases), NameOf);

TEST(ExportedCalls, EveryExportedFunctionHasACase) {
  std::set<std::string> exported;
  std::ifstream file(std::string(CARDO_TEST_DIR) + "/build/exported_symbols.txt");
  for (std::string line; std::getline(file, line);)
    if (line.starts_with("XYZ_")) exported.insert(line);
  std::set<std::string> covered;
  for (const Case& one : kCases) covered.insert(one.function);
  EXPECT_EQ(covered, exported);
}

// What the sweeps rest on: a set function asks for memory, so that a failure is reached.
TEST(ExportedCalls, SetFunctionsAreReachedByFailures) {
  for (const Case& one : kCases) {
    const bool stores =
        std::string(one.function).starts_with("XYZ_Set") && one.ending != Ending::NeverReached;
    if (!stores) continue;
    const Job job = MakeJob(Nothing);
    const FailingAllocations failing(1);
    CallAndCatch(one, job.get());
    EXPECT_TRUE(failing.Reached()) << one.function;
  }
}

// A caller's own way through a network: whichever allocation of all its calls fails, the job goes
// without a leak.
TEST(ExportedCalls, FillingAJobLeaksNothingAtAnyAllocation) {
  for (std::uint64_t k = 1;; ++k) {
    const std::int64_t live = LiveAllocations();
    bool reached = false;
    {
      Job job(XYZ_CreateJob(kProtocolFile));
      const FailingAllocations failing(k);
      bool outOfMemory = false;
      try {
        golden::BuildEverything(job.get());
      } catch (const std::exception&) {
        // Of the library, or that of a record which it has refused.
        outOfMemory = true;
      }
      reached = failing.Reached();
      EXPECT_EQ(outOfMemory, reached) << k;
    }
    EXPECT_EQ(LiveAllocations(), live) << k;
    if (!reached || HasFailure()) {
      // Many, or the calls were not made.
      EXPECT_GT(k, 50U);
      return;
    }
  }
}

}  // namespace
}  // namespace faults
