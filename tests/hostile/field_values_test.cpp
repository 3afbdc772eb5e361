// Every field of every record takes every value that a double, an integer or a flag word can take
// badly: once in one record of the network and once in all of its type.

#include "hostile/complete_network.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

namespace hostile {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kDenormal = std::numeric_limits<double>::denorm_min();

const std::vector<double> kDoubles{
    kNaN,     -kNaN,  kInfinity, -kInfinity, 0.0,    -0.0,  kDenormal, DBL_MIN, -DBL_MIN, DBL_MAX,
    -DBL_MAX, 1e-300, 1e300,     -1e300,     1e-160, 1e154, 1.0,       -1.0,    5000000,  1e15};
// All ids of the network are among them, so every self reference and every mutual one is.
const std::vector<std::int64_t> kIds{INT_MIN, INT_MAX, -2, -1, 0,  1,  2,  3,  4,  5,  6,
                                     7,       8,       9,  10, 11, 20, 30, 40, 41, 50, 99};
const std::vector<std::int64_t> kFlags{0,
                                       1,
                                       2,
                                       4,
                                       8,
                                       0x10,
                                       0x11,
                                       0x20,
                                       0x21,
                                       0x30,
                                       0x31,
                                       0x100,
                                       0x200,
                                       0x400,
                                       0x7FFF,
                                       0x8000,
                                       0xFFFE,
                                       0xFFFF};
const std::vector<std::int64_t> kWords{
    0,      1,      2,      3,      4,      5,      8,       0xFF,       0x10,       0x20,
    0x40,   0x80,   0x100,  0x101,  0x102,  0x104,  0x105,   0x200,      0x201,      0x202,
    0x203,  0x204,  0x303,  0x400,  0x401,  0x402,  0x404,   0x800,      0x804,      0x1000,
    0x2000, 0x3FFF, 0x4000, 0x8000, 0x3F77, 0xFFFF, 0x10000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};

enum class Type { Double, Int, Word16, Word32 };
std::size_t SizeOf(Type type) {
  switch (type) {
    case Type::Double:
      return sizeof(double);
    case Type::Word16:
      return sizeof(std::uint16_t);
    default:
      return sizeof(std::int32_t);
  }
}

// count elements of one type from an offset on. Out fields are written by the read function alone.
struct Field {
  const char* name;
  std::size_t offset;
  Type type;
  std::size_t count = 1;
  bool isOut = false;
};
using Fields = std::vector<Field>;

// clang-format off
#define IN(record, member, type, count) Field{#member, offsetof(record, member), Type::type, count, false}
#define OUT(record, member, type, count) Field{#member, offsetof(record, member), Type::type, count, true}

const Fields& FieldsOf(const sXYZ_ObjectCoord*) {
  using R = sXYZ_ObjectCoord;
  static const Fields fields{IN(R, X, Double, 3), OUT(R, Sx, Double, 3), IN(R, Id, Int, 1),
      OUT(R, RayCount, Int, 2), IN(R, Flags, Word16, 1), IN(R, Tag, Word16, 1),
      IN(R, PointFlags, Word32, 1), IN(R, ReferenceEor, Int, 1)};
  return fields;
}
const Fields& FieldsOf(const sXYZ_ExteriorOrient2*) {
  using R = sXYZ_ExteriorOrient2;
  static const Fields fields{IN(R, X0, Double, 3), IN(R, Rotation, Double, 9),
      OUT(R, SPosition, Double, 3), OUT(R, SRotation, Double, 3), OUT(R, SMatrix, Double, 9),
      OUT(R, RmsVx, Double, 2), IN(R, Id, Int, 1), IN(R, IorId, Int, 1), OUT(R, RayCount, Int, 2),
      IN(R, Flags, Word16, 1), IN(R, Tag, Word16, 1), IN(R, Format, Word32, 1),
      IN(R, ProjectionId, Int, 1)};
  return fields;
}
const Fields& FieldsOf(const sXYZ_InteriorOrient*) {
  using R = sXYZ_InteriorOrient;
  static const Fields fields{IN(R, Ck, Double, 1), OUT(R, Reserved1, Double, 2),
      IN(R, Xh, Double, 12), OUT(R, Sigma, Double, 12), OUT(R, Correlation, Double, 144),
      IN(R, Id, Int, 1), OUT(R, Reserved2, Int, 2), IN(R, Flags, Word16, 1), IN(R, Tag, Word16, 1),
      IN(R, ParameterMask, Word32, 1)};
  return fields;
}
const Fields& FieldsOf(const sXYZ_Projection*) {
  using R = sXYZ_Projection;
  static const Fields fields{IN(R, Ck, Double, 3), OUT(R, SCk, Double, 3), IN(R, Id, Int, 1),
      IN(R, Flags, Word16, 1), IN(R, Tag, Word16, 1)};
  return fields;
}
const Fields& FieldsOf(const sXYZ_Line*) {
  using R = sXYZ_Line;
  static const Fields fields{IN(R, P1, Double, 3), IN(R, P2, Double, 3), OUT(R, SP1, Double, 3),
      OUT(R, SP2, Double, 3), IN(R, Id, Int, 1), IN(R, Flags, Word16, 1), IN(R, Tag, Word16, 1)};
  return fields;
}
const Fields& FieldsOf(const sXYZ_Plane*) {
  using R = sXYZ_Plane;
  static const Fields fields{IN(R, Point, Double, 3), IN(R, Normal, Double, 3),
      OUT(R, SPlane, Double, 6), IN(R, Id, Int, 1), IN(R, Flags, Word16, 1), IN(R, Tag, Word16, 1)};
  return fields;
}
const Fields& FieldsOf(const sXYZ_RelativeOrientation*) {
  using R = sXYZ_RelativeOrientation;
  static const Fields fields{IN(R, Id, Int, 1), IN(R, EorId, Int, 1), IN(R, BaseEorId, Int, 1)};
  return fields;
}
const Fields& FieldsOf(const sXYZ_PictureCoord*) {
  using R = sXYZ_PictureCoord;
  static const Fields fields{IN(R, X, Double, 2), IN(R, Sx, Double, 2), OUT(R, Vx, Double, 6),
      IN(R, PointId, Int, 1), IN(R, EorId, Int, 1), IN(R, Flags, Word16, 1), IN(R, Tag, Word16, 1)};
  return fields;
}
const Fields& FieldsOf(const sXYZ_PictureLineCoord*) {
  using R = sXYZ_PictureLineCoord;
  static const Fields fields{IN(R, X, Double, 2), IN(R, Sx, Double, 2), OUT(R, V, Double, 3),
      IN(R, Id, Int, 1), IN(R, LineId, Int, 1), IN(R, EorId, Int, 1), IN(R, Flags, Word16, 1),
      IN(R, Tag, Word16, 1)};
  return fields;
}
const Fields& FieldsOf(const sXYZ_MeasuredObjectCoord*) {
  using R = sXYZ_MeasuredObjectCoord;
  static const Fields fields{IN(R, X, Double, 3), IN(R, Sx, Double, 3), OUT(R, Vx, Double, 9),
      IN(R, PointId, Int, 1), IN(R, ReferenceEor, Int, 1), IN(R, Flags, Word16, 1),
      IN(R, Tag, Word16, 1)};
  return fields;
}
const Fields& FieldsOf(const sXYZ_Distance*) {
  using R = sXYZ_Distance;
  static const Fields fields{IN(R, S, Double, 1), IN(R, Sigma, Double, 1), OUT(R, V, Double, 3),
      IN(R, Point1, Int, 1), IN(R, Point2, Int, 1), IN(R, Flags, Word16, 1), IN(R, Tag, Word16, 1)};
  return fields;
}
const Fields& FieldsOf(const sXYZ_ConstraintPointOnLine*) {
  using R = sXYZ_ConstraintPointOnLine;
  static const Fields fields{IN(R, Id, Int, 1), IN(R, PointId, Int, 1), IN(R, LineId, Int, 1),
      IN(R, Flags, Word32, 1)};
  return fields;
}
const Fields& FieldsOf(const sXYZ_ConstraintPointOnPlane*) {
  using R = sXYZ_ConstraintPointOnPlane;
  static const Fields fields{IN(R, Id, Int, 1), IN(R, PointId, Int, 1), IN(R, PlaneId, Int, 1),
      IN(R, Flags, Word32, 1)};
  return fields;
}
#undef IN
#undef OUT
// clang-format on

template <typename Record, typename Value>
void Store(Record& record, std::size_t offset, Value value) {
  static_assert(std::is_trivially_copyable_v<Record>);
  std::memcpy(reinterpret_cast<unsigned char*>(&record) + offset, &value, sizeof value);
}

// Calls visit(text of the value, store) with every nasty value of the type; store(record, offset)
// puts it into its place.
template <typename Record, typename Visit>
void ForEachValue(Type type, Visit visit) {
  const auto visitAll = [&](const auto& values, auto convert) {
    for (const auto value : values)
      visit(std::to_string(value),
            [&](Record& record, std::size_t offset) { Store(record, offset, convert(value)); });
  };
  switch (type) {
    case Type::Double:
      return visitAll(kDoubles, [](double v) { return v; });
    case Type::Int:
      return visitAll(kIds, [](std::int64_t v) { return static_cast<std::int32_t>(v); });
    case Type::Word16:
      return visitAll(kFlags, [](std::int64_t v) { return static_cast<std::uint16_t>(v); });
    case Type::Word32:
      return visitAll(kWords, [](std::int64_t v) { return static_cast<std::uint32_t>(v); });
  }
}

template <typename Record>
class EveryRecord : public ::testing::Test {
 protected:
  static const Calls<Record>& GetCalls() { return CallsOf(static_cast<const Record*>(nullptr)); }
  static const Fields& GetFields() { return FieldsOf(static_cast<const Record*>(nullptr)); }
};

using AllRecords = ::testing::Types<sXYZ_ObjectCoord,
                                    sXYZ_ExteriorOrient2,
                                    sXYZ_InteriorOrient,
                                    sXYZ_Projection,
                                    sXYZ_Line,
                                    sXYZ_Plane,
                                    sXYZ_RelativeOrientation,
                                    sXYZ_PictureCoord,
                                    sXYZ_PictureLineCoord,
                                    sXYZ_MeasuredObjectCoord,
                                    sXYZ_Distance,
                                    sXYZ_ConstraintPointOnLine,
                                    sXYZ_ConstraintPointOnPlane>;
struct RecordNames {
  template <typename Record>
  static std::string GetName(int) {
    return CallsOf(static_cast<const Record*>(nullptr)).name;
  }
};
TYPED_TEST_SUITE(EveryRecord, AllRecords, RecordNames);

// A field that a record gains must be named in its table.
TYPED_TEST(EveryRecord, IsCoveredByItsFieldsUpToPadding) {
  std::size_t end = 0;
  for (const Field& field : this->GetFields()) {
    const std::size_t size = SizeOf(field.type);
    EXPECT_EQ(field.offset, (end + size - 1) / size * size) << field.name;
    end = field.offset + size * field.count;
  }
  const std::size_t alignment = alignof(TypeParam);
  EXPECT_EQ(sizeof(TypeParam), (end + alignment - 1) / alignment * alignment);
}

TYPED_TEST(EveryRecord, SurvivesEveryValueInOneRecord) {
  const Records good = CompleteNetwork();
  std::size_t next = 0;
  for (const Field& field : this->GetFields()) {
    if (field.isOut) continue;
    for (std::size_t element = 0; element < field.count; ++element)
      ForEachValue<TypeParam>(field.type, [&](const std::string& text, auto store) {
        SCOPED_TRACE(field.name + ("[" + std::to_string(element)) + "] = " + text);
        Records bad = good;
        auto& list = bad.*this->GetCalls().list;
        store(list[next++ % list.size()], field.offset + element * SizeOf(field.type));
        Survive(bad);
      });
  }
  EXPECT_GT(next, 0U);
}

TYPED_TEST(EveryRecord, SurvivesEveryValueInAllRecordsOfItsType) {
  const Records good = CompleteNetwork();
  for (const Field& field : this->GetFields()) {
    if (field.isOut) continue;
    for (std::size_t element = 0; element < field.count; ++element)
      ForEachValue<TypeParam>(field.type, [&](const std::string& text, auto store) {
        SCOPED_TRACE(field.name + ("[" + std::to_string(element)) + "] = " + text);
        Records bad = good;
        for (auto& record : bad.*this->GetCalls().list)
          store(record, field.offset + element * SizeOf(field.type));
        Survive(bad);
      });
  }
}

// What the last run left in the records may be handed in again as it is.
TYPED_TEST(EveryRecord, IgnoresWhatStandsInItsOutFields) {
  double expected = 0.0;
  {
    Job job;
    job.Feed(CompleteNetwork());
    ASSERT_EQ(job.Calc().status, 0);
    ASSERT_EQ(XYZ_GetResult(job.Handle(), eXYZ_ResultS0, &expected), 0);
  }
  // The longest list of values decides how often.
  for (std::size_t turn = 0; turn < kDoubles.size(); ++turn) {
    Records bad = CompleteNetwork();
    for (auto& record : bad.*this->GetCalls().list)
      for (const Field& field : this->GetFields()) {
        if (!field.isOut) continue;
        for (std::size_t element = 0; element < field.count; ++element) {
          const std::size_t offset = field.offset + element * SizeOf(field.type);
          if (field.type == Type::Double)
            Store(record, offset, kDoubles[turn]);
          else
            Store(record, offset, static_cast<std::int32_t>(kIds[turn % kIds.size()]));
        }
      }
    Job job;
    job.Feed(bad);
    EXPECT_EQ(job.Calc().status, 0);
    double s0 = 0.0;
    EXPECT_EQ(XYZ_GetResult(job.Handle(), eXYZ_ResultS0, &s0), 0);
    EXPECT_EQ(s0, expected);
  }
}

// The rotation of an image given by angles in each convention and unit.
TEST(EveryAngle, SurvivesEveryValueInEveryFormat) {
  for (const std::uint32_t format : {0x101U, 0x202U, 0x404U, 0x401U})
    for (std::size_t angle = 0; angle < 3; ++angle)
      for (const double value : kDoubles) {
        SCOPED_TRACE(std::to_string(format) + " angle " + std::to_string(angle) + " = " +
                     std::to_string(value));
        Records bad = CompleteNetwork();
        bad.images[2].Format = format;
        for (double& element : bad.images[2].Rotation) element = 0.5;
        bad.images[2].Rotation[angle] = value;
        Survive(bad);
      }
}

// Statuses that the interface promises for single values.
TEST(EverySigma, IsRefusedUnlessAboveZero) {
  const Records good = CompleteNetwork();
  for (const double sigma : kDoubles) {
    const int expected = sigma > 0.0 ? 0 : 17;
    Job job;
    for (double sXYZ_PictureCoord::*field : {&sXYZ_PictureCoord::Sx, &sXYZ_PictureCoord::Sy}) {
      auto record = good.rays[0];
      record.*field = sigma;
      EXPECT_EQ(XYZ_SetPictureCoord(job.Handle(), &record), expected) << sigma;
    }
    for (double sXYZ_PictureLineCoord::*field :
         {&sXYZ_PictureLineCoord::Sx, &sXYZ_PictureLineCoord::Sy}) {
      auto record = good.lineRays[0];
      record.*field = sigma;
      EXPECT_EQ(XYZ_SetPictureLineCoord(job.Handle(), &record), expected) << sigma;
    }
    for (double sXYZ_MeasuredObjectCoord::*field : {&sXYZ_MeasuredObjectCoord::Sx,
                                                    &sXYZ_MeasuredObjectCoord::Sy,
                                                    &sXYZ_MeasuredObjectCoord::Sz}) {
      auto record = good.measured[0];
      record.*field = sigma;
      EXPECT_EQ(XYZ_SetMeasuredObjectCoord(job.Handle(), &record), expected) << sigma;
    }
    auto record = good.distances[0];
    record.Sigma = sigma;
    EXPECT_EQ(XYZ_SetDistance(job.Handle(), &record), expected) << sigma;
  }
}

}  // namespace
}  // namespace hostile
