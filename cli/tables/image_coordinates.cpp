#include "csv_writer.h"
#include "record_flags.h"
#include "record_table.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>
#include <xyz_api.h>

namespace cardo {

std::unique_ptr<Table> MakeImageCoordinatesTable();

namespace {

class ImageCoordinatesTable final : public RecordTable<sXYZ_PictureCoord> {
 public:
  ImageCoordinatesTable() {
    MutableColumns()
        .Reference("point", &sXYZ_PictureCoord::PointId, {"points"})
        .Reference("image", &sXYZ_PictureCoord::EorId, {"images", "relative_orientations"})
        .Real("x", &sXYZ_PictureCoord::X)
        .Real("y", &sXYZ_PictureCoord::Y)
        .Real(
            "sx", &sXYZ_PictureCoord::Sx, ColumnNeed::kOptional, RealRange::kPositive, "s0_apriori")
        .Real("sy", &sXYZ_PictureCoord::Sy, ColumnNeed::kOptional, RealRange::kPositive, "sx")
        .Flag("active", &sXYZ_PictureCoord::Flags, kActive, true)
        .Flag("outlier", &sXYZ_PictureCoord::Flags, kOutlier, false)
        .Flag("protected", &sXYZ_PictureCoord::Flags, kProtected, false)
        .Tag()
        .Results({"v_x", "v_y", "r_x", "r_y", "t_x", "t_y"});
  }

  [[nodiscard]] std::string Name() const override { return "image_coordinates"; }
  [[nodiscard]] bool HoldsObservations() const override { return true; }

  void Write(CsvWriter& writer, const WriteContext& context) const override {
    writer
        .Names({"point",
                "image",
                "x",
                "y",
                "sx",
                "sy",
                "active",
                "outlier",
                "protected",
                "tag",
                "v_x",
                "v_y",
                "r_x",
                "r_y",
                "t_x",
                "t_y"})
        .EndRecord();
    sXYZ_PictureCoord ray{};
    for (int i = 0; i < XYZ_GetPictureCoordCnt(context.job); ++i) {
      if (i % 1024 == 0) context.poll();
      if (XYZ_GetPictureCoordsAt(context.job, i, &ray) != eXYZ_Ok) continue;
      writer.Integer(ray.PointId)
          .Integer(ray.EorId)
          .Real(ray.X)
          .Real(ray.Y)
          .Real(ray.Sx)
          .Real(ray.Sy)
          .Flag((ray.Flags & kActive) != 0)
          .Flag((ray.Flags & kOutlier) != 0)
          .Flag((ray.Flags & kProtected) != 0)
          .Integer(fTags.empty() ? 0 : fTags[static_cast<std::size_t>(i)])
          .Real(ray.Vx)
          .Real(ray.Vy)
          .Real(ray.Rx)
          .Real(ray.Ry)
          .Real(ray.Tx)
          .Real(ray.Ty)
          .EndRecord();
    }
  }

 protected:
  void OnHeader(const CsvRow& /*row*/,
                const TableHeader& header,
                const ReadContext& /*context*/) override {
    fHasTags = header.Has("tag");
  }

  int Accept(sXYZ_PictureCoord& ray, RowContext& row) override {
    if (ray.Sx == 0.0) ray.Sx = row.Context().s0Apriori;
    if (ray.Sy == 0.0) ray.Sy = ray.Sx;
    // Only a table with tags pays for them.
    if (fHasTags) fTags.push_back(ray.Tag);
    return XYZ_SetPictureCoord(row.Context().job, &ray);
  }

 private:
  bool fHasTags = false;
  std::vector<std::uint16_t> fTags;
};

}  // namespace

std::unique_ptr<Table> MakeImageCoordinatesTable() {
  return std::make_unique<ImageCoordinatesTable>();
}

}  // namespace cardo
