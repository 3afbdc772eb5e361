#include "constraint_table.h"

#include <memory>
#include <string_view>
#include <xyz_api.h>

namespace cardo {

std::unique_ptr<Table> MakePointsOnPlanesTable();

namespace {

struct PointOnPlane {
  using Record = sXYZ_ConstraintPointOnPlane;
  static constexpr std::string_view kObject = "plane";
  static constexpr auto kObjectId = &Record::PlaneId;
  static constexpr auto Set = XYZ_SetConstraintPointOnPlane;
  static constexpr auto Count = XYZ_GetConstraintPointOnPlaneCnt;
  static constexpr auto At = XYZ_GetConstraintPointOnPlaneAt;
};

}  // namespace

std::unique_ptr<Table> MakePointsOnPlanesTable() {
  return std::make_unique<ConstraintTable<PointOnPlane>>();
}

}  // namespace cardo
