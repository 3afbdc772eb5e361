#include "csv_writer.h"
#include "record_flags.h"
#include "record_table.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>
#include <xyz_api.h>

namespace cardo {

std::unique_ptr<Table> MakeDistancesTable();

namespace {

class DistancesTable final : public RecordTable<sXYZ_Distance> {
 public:
  DistancesTable() {
    constexpr ColumnNeed kNeed = ColumnNeed::kRequired;
    MutableColumns()
        .Reference("point1", &sXYZ_Distance::Point1, {"points"})
        .Reference("point2", &sXYZ_Distance::Point2, {"points"})
        .Real("distance", &sXYZ_Distance::S, kNeed, RealRange::kPositive)
        .Real("sigma", &sXYZ_Distance::Sigma, kNeed, RealRange::kPositive)
        .Flag("active", &sXYZ_Distance::Flags, kActive, true)
        .Flag("outlier", &sXYZ_Distance::Flags, kOutlier, false)
        .Flag("protected", &sXYZ_Distance::Flags, kProtected, false)
        .Tag()
        .Results({"v_distance", "r_distance", "t_distance"});
  }

  [[nodiscard]] std::string Name() const override { return "distances"; }
  [[nodiscard]] bool HoldsObservations() const override { return true; }

  void Write(CsvWriter& writer, const WriteContext& context) const override {
    writer.Names({"point1", "point2", "distance", "sigma", "active", "outlier", "protected"})
        .Names({"tag", "v_distance", "r_distance", "t_distance"})
        .EndRecord();
    sXYZ_Distance distance{};
    for (int i = 0; i < XYZ_GetDistanceCnt(context.job); ++i) {
      if (i % 1024 == 0) context.poll();
      if (XYZ_GetDistanceAt(context.job, i, &distance) != eXYZ_Ok) continue;
      writer.Integer(distance.Point1)
          .Integer(distance.Point2)
          .Real(distance.S)
          .Real(distance.Sigma)
          .Flag((distance.Flags & kActive) != 0)
          .Flag((distance.Flags & kOutlier) != 0)
          .Flag((distance.Flags & kProtected) != 0)
          .Integer(fTags[static_cast<std::size_t>(i)])
          .Real(distance.V)
          .Real(distance.R)
          .Real(distance.T)
          .EndRecord();
    }
  }

 protected:
  int Accept(sXYZ_Distance& distance, RowContext& row) override {
    if (distance.Point1 == distance.Point2) {
      row.Mistake("point2", "point2 must be another point than point1");
      return eXYZ_Ok;
    }
    fTags.push_back(distance.Tag);
    return XYZ_SetDistance(row.Context().job, &distance);
  }

 private:
  std::vector<std::uint16_t> fTags;
};

}  // namespace

std::unique_ptr<Table> MakeDistancesTable() { return std::make_unique<DistancesTable>(); }

}  // namespace cardo
