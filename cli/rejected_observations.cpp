#include "rejected_observations.h"

#include "record_flags.h"

#include <algorithm>
#include <xyz_api.h>

namespace cardo {
namespace {

using List = std::vector<RejectedObservation>;

bool IsActive(std::uint16_t flags) { return (flags & kActive) != 0; }

// describe makes the entry of a rejected record from the record and its row.
template <class Record, class Describe>
void Collect(void* job,
             int count,
             int (*at)(void*, int, Record*),
             List& rejected,
             const Describe& describe) {
  Record record{};
  for (int i = 0; i < count; ++i) {
    if (at(job, i, &record) != eXYZ_Ok || (record.Flags & kOutlier) == 0) continue;
    rejected.push_back(describe(record, i + 1));
  }
}

}  // namespace

double RejectedObservation::LargestTestValue() const {
  return testValues.empty() ? 0.0 : *std::max_element(testValues.begin(), testValues.end());
}

std::vector<RejectedObservation> RejectedObservations(void* job) {
  List rejected;
  const int rays = XYZ_GetPictureCoordCnt(job);
  Collect<sXYZ_PictureCoord>(
      job, rays, XYZ_GetPictureCoordsAt, rejected, [](const sXYZ_PictureCoord& ray, int row) {
        return RejectedObservation{"image_coordinates",
                                   row,
                                   {{"point", ray.PointId}, {"image", ray.EorId}},
                                   IsActive(ray.Flags),
                                   {ray.Vx, ray.Vy},
                                   {ray.Tx, ray.Ty}};
      });
  // The library reads back as many of these as there are image coordinates.
  Collect<sXYZ_PictureLineCoord>(job,
                                 std::min(XYZ_GetLinePictureCoordCnt(job), rays),
                                 XYZ_GetLinePictureCoordAt,
                                 rejected,
                                 [](const sXYZ_PictureLineCoord& ray, int row) {
                                   return RejectedObservation{
                                       "line_image_coordinates",
                                       row,
                                       {{"line", ray.LineId}, {"image", ray.EorId}},
                                       IsActive(ray.Flags),
                                       {ray.V},
                                       {ray.T}};
                                 });
  Collect<sXYZ_MeasuredObjectCoord>(job,
                                    XYZ_GetMeasuredObjectCoordCnt(job),
                                    XYZ_GetMeasuredObjectCoordAt,
                                    rejected,
                                    [](const sXYZ_MeasuredObjectCoord& measured, int row) {
                                      return RejectedObservation{
                                          "measured_coordinates",
                                          row,
                                          {{"point", measured.PointId}},
                                          IsActive(measured.Flags),
                                          {measured.Vx, measured.Vy, measured.Vz},
                                          {measured.Tx, measured.Ty, measured.Tz}};
                                    });
  Collect<sXYZ_Distance>(job,
                         XYZ_GetDistanceCnt(job),
                         XYZ_GetDistanceAt,
                         rejected,
                         [](const sXYZ_Distance& distance, int row) {
                           return RejectedObservation{
                               "distances",
                               row,
                               {{"point1", distance.Point1}, {"point2", distance.Point2}},
                               IsActive(distance.Flags),
                               {distance.V},
                               {distance.T}};
                         });
  std::stable_sort(rejected.begin(),
                   rejected.end(),
                   [](const RejectedObservation& a, const RejectedObservation& b) {
                     return a.LargestTestValue() > b.LargestTestValue();
                   });
  return rejected;
}

}  // namespace cardo
