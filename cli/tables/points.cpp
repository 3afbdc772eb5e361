#include "csv_writer.h"
#include "record_flags.h"
#include "record_table.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>
#include <xyz_api.h>

namespace cardo {

std::unique_ptr<Table> MakePointsTable();

namespace {

class PointsTable final : public RecordTable<sXYZ_ObjectCoord> {
 public:
  PointsTable() {
    MutableColumns()
        .Id("id", &sXYZ_ObjectCoord::Id)
        .Real("x", &sXYZ_ObjectCoord::X)
        .Real("y", &sXYZ_ObjectCoord::Y)
        .Real("z", &sXYZ_ObjectCoord::Z)
        .Flag("fixed", &sXYZ_ObjectCoord::Flags, kFixed, false)
        .Flag("datum", &sXYZ_ObjectCoord::PointFlags, kDatumPoint, false)
        .Reference(
            "reference_image", &sXYZ_ObjectCoord::ReferenceEor, {"images"}, ColumnNeed::kOptional)
        .Flag("ray_rule_exempt", &sXYZ_ObjectCoord::PointFlags, kRayRuleExempt, false)
        .Flag("active", &sXYZ_ObjectCoord::Flags, kActive, true)
        .Tag()
        .Results({"s_x", "s_y", "s_z", "rays", "outliers"});
  }

  [[nodiscard]] std::string Name() const override { return "points"; }
  [[nodiscard]] bool HoldsObservations() const override { return false; }

  void Write(CsvWriter& writer, const WriteContext& context) const override {
    writer
        .Names({"id",
                "x",
                "y",
                "z",
                "fixed",
                "datum",
                "reference_image",
                "ray_rule_exempt",
                "active",
                "tag",
                "s_x",
                "s_y",
                "s_z",
                "rays",
                "outliers"})
        .EndRecord();
    sXYZ_ObjectCoord point{};
    for (int i = 0; i < XYZ_GetObjectCoordCnt(context.job); ++i) {
      if (i % 1024 == 0) context.poll();
      if (XYZ_GetObjectCoordAt(context.job, i, &point) != eXYZ_Ok) continue;
      const Input& input = fInputs[static_cast<std::size_t>(i)];
      writer.Integer(point.Id)
          .Real(point.X)
          .Real(point.Y)
          .Real(point.Z)
          .Flag((point.Flags & kFixed) != 0)
          .Flag((input.pointFlags & kDatumPoint) != 0);
      input.referenceImage < 0 ? writer.Empty() : writer.Integer(input.referenceImage);
      writer.Flag((input.pointFlags & kRayRuleExempt) != 0)
          .Flag((point.Flags & kActive) != 0)
          .Integer(input.tag)
          .Real(point.Sx)
          .Real(point.Sy)
          .Real(point.Sz)
          .Integer(point.RayCount)
          .Integer(point.BlunderCount)
          .EndRecord();
    }
  }

 protected:
  int Accept(sXYZ_ObjectCoord& point, RowContext& row) override {
    // A point whose reference image takes no part takes none either.
    const IdList* images = row.Context().ids.Find("images");
    const bool isActive =
        (point.Flags & kActive) != 0 &&
        (point.ReferenceEor < 0 || (images != nullptr && images->IsActive(point.ReferenceEor)));
    row.TakeId(Name(), "id", point.Id, isActive);
    if ((point.Flags & kFixed) != 0 && (point.PointFlags & kDatumPoint) != 0) {
      row.Mistake("datum", "datum must be 0 for a fixed point");
    }
    if (row.HasMistake()) return eXYZ_Ok;
    fInputs.push_back({point.ReferenceEor, point.PointFlags, point.Tag});
    return XYZ_SetObjectCoord(row.Context().job, &point);
  }

 private:
  struct Input {
    std::int32_t referenceImage;
    std::uint32_t pointFlags;
    std::uint16_t tag;
  };

  std::vector<Input> fInputs;
};

}  // namespace

std::unique_ptr<Table> MakePointsTable() { return std::make_unique<PointsTable>(); }

}  // namespace cardo
