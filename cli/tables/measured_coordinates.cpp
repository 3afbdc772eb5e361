#include "csv_writer.h"
#include "record_flags.h"
#include "record_table.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>
#include <xyz_api.h>

namespace cardo {

std::unique_ptr<Table> MakeMeasuredCoordinatesTable();

namespace {

class MeasuredCoordinatesTable final : public RecordTable<sXYZ_MeasuredObjectCoord> {
 public:
  MeasuredCoordinatesTable() {
    constexpr ColumnNeed kNeed = ColumnNeed::kRequired;
    MutableColumns()
        .Reference("point", &sXYZ_MeasuredObjectCoord::PointId, {"points"})
        .Real("x", &sXYZ_MeasuredObjectCoord::X)
        .Real("y", &sXYZ_MeasuredObjectCoord::Y)
        .Real("z", &sXYZ_MeasuredObjectCoord::Z)
        .Real("sx", &sXYZ_MeasuredObjectCoord::Sx, kNeed, RealRange::kPositive)
        .Real("sy", &sXYZ_MeasuredObjectCoord::Sy, kNeed, RealRange::kPositive)
        .Real("sz", &sXYZ_MeasuredObjectCoord::Sz, kNeed, RealRange::kPositive)
        .Reference("reference_image",
                   &sXYZ_MeasuredObjectCoord::ReferenceEor,
                   {"images"},
                   ColumnNeed::kOptional)
        .Flag("active", &sXYZ_MeasuredObjectCoord::Flags, kActive, true)
        .Flag("outlier", &sXYZ_MeasuredObjectCoord::Flags, kOutlier, false)
        .Flag("protected", &sXYZ_MeasuredObjectCoord::Flags, kProtected, false)
        .Tag()
        .Results({"v_x", "v_y", "v_z", "r_x", "r_y", "r_z", "t_x", "t_y", "t_z"});
  }

  [[nodiscard]] std::string Name() const override { return "measured_coordinates"; }
  [[nodiscard]] bool HoldsObservations() const override { return true; }

  void Write(CsvWriter& writer, const WriteContext& context) const override {
    writer.Names({"point", "x", "y", "z", "sx", "sy", "sz", "reference_image", "active"})
        .Names({"outlier", "protected", "tag"})
        .Names({"v_x", "v_y", "v_z", "r_x", "r_y", "r_z", "t_x", "t_y", "t_z"})
        .EndRecord();
    sXYZ_MeasuredObjectCoord measured{};
    for (int i = 0; i < XYZ_GetMeasuredObjectCoordCnt(context.job); ++i) {
      if (i % 1024 == 0) context.poll();
      if (XYZ_GetMeasuredObjectCoordAt(context.job, i, &measured) != eXYZ_Ok) continue;
      const Input& input = fInputs[static_cast<std::size_t>(i)];
      writer.Integer(measured.PointId);
      for (const double value : {measured.X, measured.Y, measured.Z}) writer.Real(value);
      for (const double value : {measured.Sx, measured.Sy, measured.Sz}) writer.Real(value);
      input.referenceImage < 0 ? writer.Empty() : writer.Integer(input.referenceImage);
      writer.Flag((measured.Flags & kActive) != 0)
          .Flag((measured.Flags & kOutlier) != 0)
          .Flag((measured.Flags & kProtected) != 0)
          .Integer(input.tag);
      for (const double value : {measured.Vx, measured.Vy, measured.Vz}) writer.Real(value);
      for (const double value : {measured.Rx, measured.Ry, measured.Rz}) writer.Real(value);
      for (const double value : {measured.Tx, measured.Ty, measured.Tz}) writer.Real(value);
      writer.EndRecord();
    }
  }

 protected:
  int Accept(sXYZ_MeasuredObjectCoord& measured, RowContext& row) override {
    // The library leaves out every measured coordinate behind one whose point takes no part.
    const IdList* points = row.Context().ids.Find("points");
    if ((measured.Flags & kActive) != 0 && points != nullptr &&
        points->Contains(measured.PointId) && !points->IsActive(measured.PointId)) {
      row.Mistake("point", "point must be active, or the record itself must have active = 0");
      return eXYZ_Ok;
    }
    fInputs.push_back({measured.ReferenceEor, measured.Tag});
    return XYZ_SetMeasuredObjectCoord(row.Context().job, &measured);
  }

 private:
  struct Input {
    std::int32_t referenceImage;
    std::uint16_t tag;
  };

  std::vector<Input> fInputs;
};

}  // namespace

std::unique_ptr<Table> MakeMeasuredCoordinatesTable() {
  return std::make_unique<MeasuredCoordinatesTable>();
}

}  // namespace cardo
