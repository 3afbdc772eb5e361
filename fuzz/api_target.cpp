// Sequences of exported calls.
//
// The first bytes shape a small network that can be adjusted; its records wait in lists. The others
// are read as calls: change a field of a waiting record, hand records over, set parameters and
// callbacks, run, read everything. Inputs that end early still hand over the rest and run.
#include "byte_stream.h"
#include "fuzz_targets.h"
#include "reference/network_builder.h"
#include "require.h"
#include "xyz_api.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace cardo::fuzz {
namespace {

// Runs of one input, and iterations of a run: an input must be done within milliseconds.
constexpr int kMostRuns = 3;
constexpr int kMostIterations = 12;
constexpr int kMostCalls = 400;
constexpr std::size_t kMostRecords = 200;

bool IsOneOf(int status, std::initializer_list<int> allowed) {
  return std::find(allowed.begin(), allowed.end(), status) != allowed.end();
}

bool IsRunStatus(int status) {
  return IsOneOf(status,
                 {eXYZ_Ok,
                  eXYZ_CalcFailed,
                  eXYZ_NoProgress,
                  eXYZ_LineCoordsWithPrincipalPoint,
                  eXYZ_SingularSystem});
}

// What the callbacks of a job do, by bits.
struct Behaviour {
  std::uint8_t progress = 0;
  int cancelIn = 0;  // iteration
  std::uint32_t calls = 0;
  std::size_t characters = 0;
};

constexpr std::uint8_t kDetaches = 1;
constexpr std::uint8_t kThrows = 2;
constexpr std::uint8_t kChangesLanguage = 4;
constexpr std::uint8_t kReads = 8;
constexpr std::uint8_t kCancels = 16;

int OnProgress(void* job, sXYZ_CBProgressInfo* info, void* userData) {
  Behaviour& behaviour = *static_cast<Behaviour*>(userData);
  ++behaviour.calls;
  Require(info->Iteration >= 1, "iterations count from 1");
  Require(info->UnknownCount >= 0 && info->ObservationCount >= 0, "counts are not negative");
  if (behaviour.cancelIn != info->Iteration) return 0;
  if ((behaviour.progress & kDetaches) != 0)
    Require(XYZ_SetProgressCallback(job, nullptr, nullptr) == eXYZ_Ok, "a callback detaches");
  if ((behaviour.progress & kChangesLanguage) != 0)
    XYZ_SetParam(job, eXYZ_ParamLanguage, info->Iteration % 2 + 1);
  if ((behaviour.progress & kReads) != 0) {
    sXYZ_ObjectCoord point{};
    static_cast<void>(XYZ_GetObjectCoordAt(job, 0, &point));
    double s0 = 0.0;
    static_cast<void>(XYZ_GetResult(job, eXYZ_ResultS0, &s0));
  }
  if ((behaviour.progress & kThrows) != 0) throw std::runtime_error("a callback throws");
  return (behaviour.progress & kCancels) != 0 ? 1 : 0;
}

void OnProtocol(void* /*job*/, char* text, void* userData) {
  static_cast<Behaviour*>(userData)->characters += std::strlen(text);
}

// What the library is told of one kind of record.
template <typename Record>
struct Kind {
  int (*set)(void*, const Record*);
  int (*count)(void*);
  int (*at)(void*, int, Record*);
  int countOfNull;
  std::initializer_list<int> setStatus;
  std::initializer_list<int> atStatus;
};

const Kind<sXYZ_InteriorOrient> kCameras = {XYZ_SetInteriorOrientation,
                                            XYZ_GetInteriorOrientCnt,
                                            XYZ_GetInteriorOrientAt,
                                            -1,
                                            {0, 18},
                                            {0}};
const Kind<sXYZ_ExteriorOrient2> kImages = {XYZ_SetExteriorOrientation2,
                                            XYZ_GetExteriorOrientCnt,
                                            XYZ_GetExteriorOrientAt,
                                            -1,
                                            {0, 4, 6, 18},
                                            {0, 4, 6}};
const Kind<sXYZ_ObjectCoord> kPoints = {
    XYZ_SetObjectCoord, XYZ_GetObjectCoordCnt, XYZ_GetObjectCoordAt, -1, {0, 18}, {0}};
const Kind<sXYZ_Projection> kProjections = {
    XYZ_SetProjection, XYZ_GetProjectionCnt, XYZ_GetProjectionAt, 12, {0, 18}, {0}};
const Kind<sXYZ_Line> kLines = {XYZ_SetLine, XYZ_GetLineCnt, XYZ_GetLineAt, -1, {0, 18, 19}, {0}};
const Kind<sXYZ_Plane> kPlanes = {
    XYZ_SetPlane, XYZ_GetPlaneCnt, XYZ_GetPlaneAt, -1, {0, 18, 22}, {0}};
const Kind<sXYZ_RelativeOrientation> kPairs = {XYZ_SetRelativeOrientation,
                                               XYZ_GetRelativeOrientationCnt,
                                               XYZ_GetRelativeOrientationAt,
                                               -1,
                                               {0, 18},
                                               {0}};
const Kind<sXYZ_PictureCoord> kImagePoints = {
    XYZ_SetPictureCoord, XYZ_GetPictureCoordCnt, XYZ_GetPictureCoordsAt, -1, {0, 17}, {0}};
const Kind<sXYZ_PictureLineCoord> kLinePoints = {XYZ_SetPictureLineCoord,
                                                 XYZ_GetLinePictureCoordCnt,
                                                 XYZ_GetLinePictureCoordAt,
                                                 -1,
                                                 {0, 17},
                                                 {0, 7}};
const Kind<sXYZ_MeasuredObjectCoord> kMeasured = {XYZ_SetMeasuredObjectCoord,
                                                  XYZ_GetMeasuredObjectCoordCnt,
                                                  XYZ_GetMeasuredObjectCoordAt,
                                                  12,
                                                  {0, 17},
                                                  {0}};
const Kind<sXYZ_Distance> kDistances = {
    XYZ_SetDistance, XYZ_GetDistanceCnt, XYZ_GetDistanceAt, 12, {0, 17}, {0}};
const Kind<sXYZ_ConstraintPointOnLine> kOnLines = {XYZ_SetConstraintPointOnLine,
                                                   XYZ_GetConstraintPointOnLineCnt,
                                                   XYZ_GetConstraintPointOnLineAt,
                                                   -1,
                                                   {0},
                                                   {0}};
const Kind<sXYZ_ConstraintPointOnPlane> kOnPlanes = {XYZ_SetConstraintPointOnPlane,
                                                     XYZ_GetConstraintPointOnPlaneCnt,
                                                     XYZ_GetConstraintPointOnPlaneAt,
                                                     -1,
                                                     {0},
                                                     {0}};

// Everything that waits to be handed over.
struct Records {
  reference::Network network;
  std::vector<sXYZ_Line> lines = {};
  std::vector<sXYZ_Plane> planes = {};
  std::vector<sXYZ_PictureLineCoord> linePoints = {};
  std::vector<sXYZ_ConstraintPointOnLine> onLines = {};
  std::vector<sXYZ_ConstraintPointOnPlane> onPlanes = {};

  static constexpr std::uint32_t kKinds = 13;
  // Calls visit(kind, list) for one kind, or for all in an order that the library takes.
  template <typename Visit>
  void Visited(std::uint32_t kind, Visit&& visit) {
    switch (kind) {
      case 0:
        return visit(kCameras, network.cameras);
      case 1:
        return visit(kProjections, network.projections);
      case 2:
        return visit(kImages, network.images);
      case 3:
        return visit(kPairs, network.pairs);
      case 4:
        return visit(kPoints, network.points);
      case 5:
        return visit(kLines, lines);
      case 6:
        return visit(kPlanes, planes);
      case 7:
        return visit(kImagePoints, network.imagePoints);
      case 8:
        return visit(kLinePoints, linePoints);
      case 9:
        return visit(kMeasured, network.measured);
      case 10:
        return visit(kDistances, network.distances);
      case 11:
        return visit(kOnLines, onLines);
      default:
        return visit(kOnPlanes, onPlanes);
    }
  }
  template <typename Visit>
  void All(Visit&& visit) {
    for (std::uint32_t kind = 0; kind < kKinds; ++kind) Visited(kind, visit);
  }
};

// A line through the first two points and a plane through the next three, held and measured.
void AddShapes(Records& records, std::uint8_t which) {
  const std::vector<sXYZ_ObjectCoord>& p = records.network.points;
  if ((which & 1U) != 0) {
    sXYZ_Line line{};
    line.Id = 7001;
    line.Flags = 0x01;
    const sXYZ_ObjectCoord ends[] = {p[p.size() - 1], p[p.size() - 2]};
    std::copy_n(&ends[0].X, 3, line.P1);
    std::copy_n(&ends[1].X, 3, line.P2);
    records.lines.push_back(line);
    for (const sXYZ_PictureCoord& ray : records.network.imagePoints) {
      if (ray.PointId != ends[0].Id && ray.PointId != ends[1].Id) continue;
      sXYZ_PictureLineCoord point{};
      point.X = ray.X;
      point.Y = ray.Y;
      point.Sx = point.Sy = ray.Sx;
      point.LineId = line.Id;
      point.EorId = ray.EorId;
      point.Flags = 0x01;
      records.linePoints.push_back(point);
    }
    if ((which & 4U) != 0) records.onLines.push_back({1, ends[0].Id, line.Id, 1});
  }
  if ((which & 2U) != 0) {
    sXYZ_Plane plane{};
    plane.Id = 8001;
    plane.Flags = 0x01;
    std::copy_n(&p[4].X, 3, plane.Point);
    const double a[3] = {p[5].X - p[4].X, p[5].Y - p[4].Y, p[5].Z - p[4].Z};
    const double b[3] = {p[6].X - p[4].X, p[6].Y - p[4].Y, p[6].Z - p[4].Z};
    for (std::size_t i = 0; i < 3; ++i)
      plane.Normal[i] = a[(i + 1) % 3] * b[(i + 2) % 3] - a[(i + 2) % 3] * b[(i + 1) % 3];
    records.planes.push_back(plane);
    for (int i = 4; i < 7; ++i)
      records.onPlanes.push_back({i, p[static_cast<std::size_t>(i)].Id, plane.Id, 1});
  }
}

Records ReadNetwork(ByteStream& in) {
  const std::uint8_t first = in.Byte();
  const std::uint8_t second = in.Byte();
  const std::uint8_t third = in.Byte();
  reference::Shape shape;
  shape.seed = first & 3U;
  shape.images = 2 + (first >> 2 & 3);
  shape.points = 9 + 2 * (first >> 4 & 3);
  shape.cameras = 1 + (first >> 6 & 1);
  shape.freeCameras = (first & 0x80U) != 0;
  shape.mask = (second & 1U) != 0 ? 0x377U : 0x7U;
  shape.fixedControl = (second & 2U) == 0;
  shape.projections = (second & 4U) != 0;
  shape.relative = (second & 8U) != 0;
  shape.bodyPoints = (second & 16U) != 0;
  shape.measuredInImages = (second & 32U) != 0;
  shape.distances = (second & 64U) != 0 ? 3 : 0;
  shape.freeNetwork = (second & 128U) != 0;
  Records records;
  if ((third & 0x80U) == 0) {
    records.network = reference::Build(shape);
    AddShapes(records, third);
  }
  return records;
}

// Overwrites a few fields, whatever they mean.
template <typename Record>
void Change(ByteStream& in, Record& record) {
  const std::uint32_t changes = 1 + in.Below(4);
  for (std::uint32_t i = 0; i < changes; ++i) {
    char* bytes = reinterpret_cast<char*>(&record);
    const std::uint8_t kind = in.Byte();
    const std::uint32_t place = in.Byte() + 256U * (kind >> 6U);
    if ((kind & 1U) != 0) {
      const double value = in.Real();
      const std::uint32_t count = sizeof(Record) / sizeof(double);
      if (count > 0) std::memcpy(bytes + (place % count) * sizeof(double), &value, sizeof value);
    } else if ((kind & 2U) != 0) {
      const std::int32_t value = in.Integer();
      // Integers stand behind the doubles, in the last words.
      const std::uint32_t count = sizeof(Record) / sizeof value;
      const std::uint32_t back = place % std::min(count, 10U);
      std::memcpy(bytes + (count - 1 - back) * sizeof value, &value, sizeof value);
    } else {
      const auto value = static_cast<std::uint16_t>(in.Byte());
      const std::uint32_t count = sizeof(Record) / sizeof value;
      const std::uint32_t back = place % std::min(count, 8U);
      std::memcpy(bytes + (count - 1 - back) * sizeof value, &value, sizeof value);
    }
  }
}

class Session {
 public:
  explicit Session(ByteStream& in) : fIn(in), fRecords(ReadNetwork(in)) { Create(); }
  ~Session() { Require(XYZ_DestroyJob(fJob) == eXYZ_Ok, "a job is destroyed"); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void Play() {
    for (int call = 0; call < kMostCalls && !fIn.IsEmpty(); ++call) Call();
    if (fRuns == 0) {
      HandOverAll();
      Run();
    }
    ReadAll();
    // One setting of the whole process.
    XYZ_SetParam(fJob, eXYZ_ParamLanguage, 1);
  }

 private:
  void Create() {
    fJob = XYZ_CreateJob("/dev/null");
    Require(fJob != nullptr, "there is a job");
    const reference::Network& n = fRecords.network;
    const int datum = (n.datumTranslation ? 0x700 : 0) | (n.datumRotation ? 0x3800 : 0) |
                      (n.datumScale ? 0x4000 : 0);
    Require(XYZ_SetParam(fJob, eXYZ_ParamDatum, datum) == eXYZ_Ok, "a whole datum is allowed");
    Require(XYZ_SetParam(fJob, eXYZ_ParamS0Apriori, n.s0Apriori) == eXYZ_Ok, "S0 is allowed");
    fIterations = 6;
  }

  void Call() {
    switch (fIn.Below(16)) {
      case 0:
      case 1:
      case 2:
      case 3:
        return fRecords.Visited(fIn.Below(Records::kKinds), [this](const auto&, auto& list) {
          if (!list.empty()) Change(fIn, list[fIn.Byte() % list.size()]);
        });
      case 4:
        return fRecords.Visited(fIn.Below(Records::kKinds), [this](const auto&, auto& list) {
          if (list.empty() || list.size() > kMostRecords) return;
          list.push_back(list[fIn.Byte() % list.size()]);
          Change(fIn, list.back());
        });
      case 5:
        return fRecords.Visited(fIn.Below(Records::kKinds), [this](const auto&, auto& list) {
          if (!list.empty()) list.erase(list.begin() + fIn.Byte() % static_cast<int>(list.size()));
        });
      case 6:
        return fRecords.Visited(fIn.Below(Records::kKinds),
                                [this](const auto& kind, auto&) { HandOverFresh(kind); });
      case 7:
        return fRecords.Visited(fIn.Below(Records::kKinds), [this](const auto& kind, auto& list) {
          for (const auto& record : list) HandOver(kind, record);
          list.clear();
        });
      case 8:
        return HandOverAll();
      case 9:
        return SetIntegerParameter();
      case 10:
        return SetRealParameter();
      case 11:
        return SetCallbacks();
      case 12: {
        const int verdict = XYZ_CheckSettings(fJob);
        Require(IsOneOf(verdict, {0, 0x1, 0x10, 0x100, 0x1000, 0x10000, 0x100000, 0x1000000, 14}),
                "the check answers one verdict");
        return;
      }
      case 13:
        return Run();
      case 14:
        return Odd();
      default:
        return ReadAll();
    }
  }

  template <typename Record>
  void HandOver(const Kind<Record>& kind, const Record& record) {
    const int before = kind.count(fJob);
    const int status = kind.set(fJob, &record);
    Require(IsOneOf(status, kind.setStatus), "a set answers a documented status");
    const int after = kind.count(fJob);
    Require(after == before + (status == eXYZ_Ok ? 1 : 0), "only a success adds a record");
  }
  template <typename Record>
  void HandOverFresh(const Kind<Record>& kind) {
    Record record{};
    Change(fIn, record);
    HandOver(kind, record);
  }
  void HandOverAll() {
    fRecords.All([this](const auto& kind, auto& list) {
      for (const auto& record : list) HandOver(kind, record);
      list.clear();
    });
  }

  void SetIntegerParameter() {
    const auto which = static_cast<eXYZ_Parameter>(fIn.Below(24));
    const std::int32_t value = (fIn.Byte() & 1U) != 0 ? fIn.Integer() : fIn.Byte() << 8;
    if (which == eXYZ_ParamMaxIterations) fIterations = value;
    Require(IsOneOf(XYZ_SetParam(fJob, which, value), {0, 6, 13}), "a parameter is set or not");
    int read = 0;
    Require(IsOneOf(XYZ_GetParam(fJob, which, &read), {0, 13}), "a parameter is read or not");
  }
  void SetRealParameter() {
    const auto which = static_cast<eXYZ_Parameter>(fIn.Below(24));
    const double value = fIn.Real();
    try {
      Require(IsOneOf(XYZ_SetParam(fJob, which, value), {0, 6, 13}), "a parameter is set or not");
      Require(which != eXYZ_ParamS0Apriori || value > 0.0, "S0 a priori is above 0");
    } catch (const vermo::KlException& failure) {
      Require(which == eXYZ_ParamS0Apriori && !(value > 0.0) && failure.GetCode() == -35001,
              "only S0 a priori throws");
    }
    double read = 0.0;
    Require(IsOneOf(XYZ_GetParam(fJob, which, &read), {0, 13}), "a parameter is read or not");
  }
  void SetCallbacks() {
    fBehaviour.progress = fIn.Byte();
    fBehaviour.cancelIn = 1 + static_cast<int>(fIn.Below(5));
    XYZ_SetProgressCallback(
        fJob, (fBehaviour.progress & 32U) != 0 ? nullptr : OnProgress, &fBehaviour);
    XYZ_SetProtocolCallback(
        fJob, (fBehaviour.progress & 64U) != 0 ? nullptr : OnProtocol, &fBehaviour);
  }

  void Run() {
    if (fRuns == kMostRuns) return;
    ++fRuns;
    const int iterations = fIterations < 0 || fIterations > kMostIterations ? 6 : fIterations;
    XYZ_SetParam(fJob, eXYZ_ParamMaxIterations, iterations);
    const int status = XYZ_CalcBundle(fJob);
    Require(IsRunStatus(status), "a run answers a documented status");
    double s0 = 0.0;
    double norm = 0.0;
    int observations = 0;
    int unknowns = 0;
    int constraints = 0;
    int redundancy = 0;
    XYZ_GetResult(fJob, eXYZ_ResultS0, &s0);
    XYZ_GetResult(fJob, eXYZ_ResultNorm, &norm);
    XYZ_GetResult(fJob, eXYZ_ResultObservations, &observations);
    XYZ_GetResult(fJob, eXYZ_ResultUnknowns, &unknowns);
    XYZ_GetResult(fJob, eXYZ_ResultConstraints, &constraints);
    XYZ_GetResult(fJob, eXYZ_ResultRedundancy, &redundancy);
    Require(observations >= 0 && unknowns >= 0 && constraints >= 0, "counts are not negative");
    if (status != eXYZ_Ok) return;
    Require(redundancy == observations - unknowns + constraints, "the redundancy is n - u + b");
    // Values without measure pass through the model into the sums: the change of the last solution
    // tells of them, where there is no redundancy that would.
    if (!std::isfinite(s0) || !std::isfinite(norm)) return;
    // A run of no iteration has no sums; residuals of the start may be anything.
    if (observations == 0) return;
    Require(s0 >= 0.0, "S0 is not negative");
    RequireSoundResults();
  }

  // Of a run that went well.
  void RequireSoundResults() {
    for (int i = 0; i < XYZ_GetPictureCoordCnt(fJob); ++i) {
      sXYZ_PictureCoord ray{};
      XYZ_GetPictureCoordsAt(fJob, i, &ray);
      if ((ray.Flags & 0x11) != 0x01) continue;
      Require(ray.Rx >= 0.0 && ray.Rx <= 1.0 && ray.Ry >= 0.0 && ray.Ry <= 1.0,
              "redundancy numbers lie between 0 and 1");
      Require(std::isfinite(ray.Vx) && std::isfinite(ray.Vy), "residuals are numbers");
    }
    for (int i = 0; i < XYZ_GetObjectCoordCnt(fJob); ++i) {
      sXYZ_ObjectCoord point{};
      XYZ_GetObjectCoordAt(fJob, i, &point);
      if ((point.Flags & 0x11) != 0x01) continue;
      Require(std::isfinite(point.X) && std::isfinite(point.Y) && std::isfinite(point.Z),
              "adjusted points are numbers");
      Require(point.Sx >= 0.0 && point.Sy >= 0.0 && point.Sz >= 0.0,
              "standard deviations are numbers");
    }
  }

  void ReadAll() {
    fRecords.All([this](const auto& kind, auto& list) {
      typename std::remove_cvref_t<decltype(list)>::value_type record{};
      const int count = kind.count(fJob);
      Require(count >= 0, "a count is not negative");
      Require(kind.at(fJob, -1, &record) == eXYZ_IndexOutOfRange, "no position -1");
      Require(IsOneOf(kind.at(fJob, count, &record), {0, eXYZ_IndexOutOfRange}),
              "no position behind");
      for (int i = 0; i < count; ++i)
        Require(IsOneOf(kind.at(fJob, i, &record), kind.atStatus), "a record is read");
    });
    for (int which = -1; which <= 14; ++which) {
      int integer = 0;
      double real = 0.0;
      const int a = XYZ_GetResult(fJob, static_cast<eXYZ_Result>(which), &integer);
      const int b = XYZ_GetResult(fJob, static_cast<eXYZ_Result>(which), &real);
      Require(IsOneOf(a, {0, 13}) && IsOneOf(b, {0, 13}), "a result is read or unknown");
      Require(a != 0 || b != 0, "a result has one type");
    }
  }

  // What a careful caller would not do.
  void Odd() {
    switch (fIn.Below(5)) {
      case 0:
        fRecords.All([this](const auto& kind, auto& list) {
          typename std::remove_cvref_t<decltype(list)>::value_type record{};
          Require(kind.set(nullptr, &record) == eXYZ_NullPointer, "a null job is refused");
          Require(kind.set(fJob, nullptr) == eXYZ_NullPointer, "a null record is refused");
          Require(kind.at(nullptr, 0, &record) == eXYZ_NullPointer, "a null job is refused");
          Require(kind.at(fJob, 0, nullptr) == eXYZ_NullPointer, "a null record is refused");
          Require(kind.count(nullptr) == kind.countOfNull, "a null job has no count");
        });
        Require(XYZ_CalcBundle(nullptr) == eXYZ_NullPointer, "a null job is refused");
        Require(XYZ_CheckSettings(nullptr) == eXYZ_NullPointer, "a null job is refused");
        Require(XYZ_DestroyJob(nullptr) == eXYZ_NullJobOnDestroy, "a null job is refused");
        Require(XYZ_CreateJob(nullptr) == nullptr, "a null name gives no job");
        return;
      case 1:
        Require(XYZ_SetNewProtocolFile(fJob, "/nowhere/protocol.htm") == eXYZ_Ok,
                "any name is taken");
        return;
      case 2:
        Require(XYZ_SetNewProtocolFile(fJob, "/dev/null") == eXYZ_Ok, "any name is taken");
        Require(XYZ_SetNewProtocolFile(fJob, nullptr) == eXYZ_NullPointer, "but null");
        return;
      case 3:
        Require(XYZ_SetNewProtocolFile(fJob, "/dev/full") == eXYZ_Ok, "any name is taken");
        return;
      default:
        Require(XYZ_DestroyJob(fJob) == eXYZ_Ok, "a job is destroyed");
        return Create();
    }
  }

  ByteStream& fIn;
  Records fRecords;
  Behaviour fBehaviour;
  void* fJob = nullptr;
  int fRuns = 0;
  int fIterations = 6;
};

}  // namespace

int FuzzApi(const std::uint8_t* data, std::size_t size) {
  ByteStream in(data, size);
  Session(in).Play();
  return 0;
}

}  // namespace cardo::fuzz
