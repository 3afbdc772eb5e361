#include "constraint_table.h"

#include <memory>
#include <string_view>
#include <xyz_api.h>

namespace cardo {

std::unique_ptr<Table> MakePointsOnLinesTable();

namespace {

struct PointOnLine {
  using Record = sXYZ_ConstraintPointOnLine;
  static constexpr std::string_view kObject = "line";
  static constexpr auto kObjectId = &Record::LineId;
  static constexpr auto Set = XYZ_SetConstraintPointOnLine;
  static constexpr auto Count = XYZ_GetConstraintPointOnLineCnt;
  static constexpr auto At = XYZ_GetConstraintPointOnLineAt;
};

}  // namespace

std::unique_ptr<Table> MakePointsOnLinesTable() {
  return std::make_unique<ConstraintTable<PointOnLine>>();
}

}  // namespace cardo
