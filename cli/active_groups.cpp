#include "active_groups.h"

#include "image_records.h"
#include "network_survey.h"
#include "record_flags.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <memory>
#include <xyz_api.h>

namespace cardo {
namespace {

template <class Record>
std::vector<std::int32_t> ActiveIds(void* job,
                                    int (*count)(void*),
                                    int (*at)(void*, int, Record*)) {
  std::vector<std::int32_t> ids;
  auto record = std::make_unique<Record>();
  for (int i = 0; i < count(job); ++i) {
    if (at(job, i, record.get()) == eXYZ_Ok && (record->Flags & kActive) != 0) {
      ids.push_back(record->Id);
    }
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

std::vector<std::int32_t> ActiveImages(void* job) {
  std::vector<std::int32_t> ids;
  for (const sXYZ_ExteriorOrient2& image : ReadImagesAsMatrices(job)) {
    if ((image.Flags & kActive) != 0) ids.push_back(image.Id);
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

}  // namespace

GroupIds ActiveGroups(void* job) {
  return {ActiveIds<sXYZ_InteriorOrient>(job, XYZ_GetInteriorOrientCnt, XYZ_GetInteriorOrientAt),
          ActiveIds<sXYZ_Projection>(job, XYZ_GetProjectionCnt, XYZ_GetProjectionAt),
          ActiveImages(job),
          ActiveIds<sXYZ_ObjectCoord>(job, XYZ_GetObjectCoordCnt, XYZ_GetObjectCoordAt),
          ActiveIds<sXYZ_Line>(job, XYZ_GetLineCnt, XYZ_GetLineAt),
          ActiveIds<sXYZ_Plane>(job, XYZ_GetPlaneCnt, XYZ_GetPlaneAt)};
}

GroupIds Without(const GroupIds& groups, const GroupIds& others) {
  GroupIds rest;
  for (std::size_t kind = 0; kind < groups.size(); ++kind) {
    std::set_difference(groups[kind].begin(),
                        groups[kind].end(),
                        others[kind].begin(),
                        others[kind].end(),
                        std::back_inserter(rest[kind]));
  }
  return rest;
}

std::size_t CountOf(const GroupIds& groups) {
  std::size_t count = 0;
  for (const auto& ids : groups) count += ids.size();
  return count;
}

std::string ListOfGroups(const GroupIds& groups) {
  std::string list;
  for (std::size_t kind = 0; kind < groups.size(); ++kind) {
    if (groups[kind].empty()) continue;
    list += fmt::format(
        "{}{} {}", list.empty() ? "" : "; ", kGroupKinds[kind], ListOfIds(groups[kind]));
  }
  return list;
}

}  // namespace cardo
