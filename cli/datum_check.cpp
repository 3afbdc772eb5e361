#include "datum_check.h"

#include "image_records.h"
#include "record_flags.h"

#include <cstdint>
#include <fmt/format.h>
#include <set>
#include <string_view>
#include <utility>
#include <vector>
#include <xyz_api.h>

namespace cardo {
namespace {

constexpr int kNothingTold = 0x1;
constexpr int kScaleOpen = 0x10;
constexpr int kTranslationOpen = 0x100;
constexpr int kRotationOpen = 0x1000;
constexpr int kScaleTwice = 0x10000;
constexpr int kTranslationTwice = 0x100000;
constexpr int kRotationTwice = 0x1000000;

bool IsOpen(int verdict) {
  return verdict == kNothingTold || verdict == kScaleOpen || verdict == kTranslationOpen ||
         verdict == kRotationOpen;
}

constexpr std::uint16_t kCounted = kActive | kProtected;

void CountUnknowns(void* job, DatumCheck& check) {
  sXYZ_ObjectCoord point{};
  for (int i = 0; i < XYZ_GetObjectCoordCnt(job); ++i) {
    if (XYZ_GetObjectCoordAt(job, i, &point) != eXYZ_Ok) continue;
    if ((point.Flags & kFixed) != 0) ++check.fixedPoints;
  }
  std::set<std::int32_t> fixedImages;
  for (const sXYZ_ExteriorOrient2& image : ReadImagesAsMatrices(job)) {
    if ((image.Flags & (kActive | kFixed)) == (kActive | kFixed)) fixedImages.insert(image.Id);
  }
  check.fixedImages = static_cast<int>(fixedImages.size());
  sXYZ_RelativeOrientation orientation{};
  for (int i = 0; i < XYZ_GetRelativeOrientationCnt(job); ++i) {
    if (XYZ_GetRelativeOrientationAt(job, i, &orientation) != eXYZ_Ok) continue;
    if (fixedImages.contains(orientation.BaseEorId)) ++check.orientations;
  }
}

void CountObservations(void* job, DatumCheck& check) {
  std::set<std::int32_t> points;
  sXYZ_MeasuredObjectCoord measured{};
  for (int i = 0; i < XYZ_GetMeasuredObjectCoordCnt(job); ++i) {
    if (XYZ_GetMeasuredObjectCoordAt(job, i, &measured) != eXYZ_Ok) continue;
    if ((measured.Flags & kCounted) == kCounted) {
      points.insert(measured.PointId);
    } else if (IsUsed(measured.Flags)) {
      ++check.otherMeasured;
    }
  }
  check.protectedPoints = static_cast<int>(points.size());
  std::set<std::pair<std::int32_t, std::int32_t>> pairs;
  sXYZ_Distance distance{};
  for (int i = 0; i < XYZ_GetDistanceCnt(job); ++i) {
    if (XYZ_GetDistanceAt(job, i, &distance) != eXYZ_Ok) continue;
    if ((distance.Flags & kCounted) == kCounted) {
      pairs.insert({distance.Point1, distance.Point2});
    } else if (IsUsed(distance.Flags)) {
      ++check.otherDistances;
    }
  }
  check.protectedDistances = static_cast<int>(pairs.size());
}

std::string DatumText(const JobFile& job) {
  const int datum = std::get<int>(ValueOf(job.parameters, "datum"));
  std::string text;
  for (const auto& [word, bits] : FindParameter("datum")->words) {
    if ((datum & bits) == bits) text += fmt::format("{}\"{}\"", text.empty() ? "" : ", ", word);
  }
  return fmt::format("[{}]", text);
}

std::string_view CureOf(int verdict) {
  switch (verdict) {
    case kNothingTold:
      return "Fix three points that are not on a line (points.csv, fixed = 1), or give three such "
             "points measured coordinates with protected = 1 (measured_coordinates.csv), or make "
             "a free network: datum = [\"translation\", \"rotation\", \"scale\"] in job.toml and "
             "datum = 1 for its points in points.csv.";
    case kScaleOpen:
      return "Add a distance with protected = 1 (distances.csv), two points that are fixed or "
             "have measured coordinates with protected = 1, or \"scale\" in datum.";
    case kTranslationOpen:
      return "Fix a point or an image, give a point measured coordinates with protected = 1, or "
             "add \"translation\" to datum.";
    case kRotationOpen:
      return "Fix three points or an image, give three points measured coordinates with protected "
             "= 1, or add \"rotation\" to datum.";
    case kScaleTwice:
      return "Take \"scale\" out of datum, or do without what determines it as well: protected "
             "distances, two or more points that are fixed or measured and protected, relative "
             "orientations with a fixed base image.";
    case kTranslationTwice:
      return "Take \"translation\" out of datum, or do without fixed points, fixed images and "
             "protected measured coordinates.";
    case kRotationTwice:
      return "Take \"rotation\" out of datum, or do without fixed images and have fewer than "
             "three points that are fixed or measured and protected.";
    default:
      return "";
  }
}

}  // namespace

DatumCheck CheckDatum(void* job) {
  DatumCheck check;
  check.verdict = XYZ_CheckSettings(job);
  CountUnknowns(job, check);
  CountObservations(job, check);
  return check;
}

std::string DatumVerdict(int verdict) {
  switch (verdict) {
    case 0:
      return "the datum is determined, and not twice";
    case kNothingTold:
      return "nothing determines the datum: there is no control and no free datum";
    case kScaleOpen:
      return "the scale is not determined";
    case kTranslationOpen:
      return "the translation is not determined";
    case kRotationOpen:
      return "the rotation is not determined";
    case kScaleTwice:
      return "the scale is determined twice, by the network and by datum";
    case kTranslationTwice:
      return "the translation is determined twice, by the network and by datum";
    case kRotationTwice:
      return "the rotation is determined twice, by the network and by datum";
    default:
      return fmt::format("the check failed (status {})", verdict);
  }
}

std::string DescribeDatum(const DatumCheck& check, const JobFile& job) {
  std::string text = fmt::format("{}.\n", DatumVerdict(check.verdict));
  text += fmt::format(
      "Counted: {} fixed points, {} fixed images, {} points with protected measured coordinates, "
      "{} protected distances, {} relative orientations with a fixed base image; datum = {}.\n",
      check.fixedPoints,
      check.fixedImages,
      check.protectedPoints,
      check.protectedDistances,
      check.orientations,
      DatumText(job));
  if (IsOpen(check.verdict) && check.otherMeasured + check.otherDistances > 0) {
    text += fmt::format(
        "Not counted: {} measured coordinates and {} distances without protected = 1, which the "
        "outlier test may take away. They may determine the datum all the same.\n",
        check.otherMeasured,
        check.otherDistances);
  }
  const std::string_view cure = CureOf(check.verdict);
  if (!cure.empty()) text += fmt::format("{}\n", cure);
  return text;
}

}  // namespace cardo
