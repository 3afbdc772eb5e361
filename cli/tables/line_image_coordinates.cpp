#include "csv_writer.h"
#include "field_text.h"
#include "image_records.h"
#include "record_flags.h"
#include "record_table.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>
#include <xyz_api.h>

namespace cardo {

std::unique_ptr<Table> MakeLineImageCoordinatesTable();

namespace {

// The images, and the relative orientations, that cannot have line coordinates: those with a
// projection of their own, and those whose base image has one.
std::unordered_set<std::int32_t> ImagesWithProjection(void* job) {
  std::unordered_set<std::int32_t> ids;
  for (const sXYZ_ExteriorOrient2& image : ReadImagesAsMatrices(job)) {
    if (image.ProjectionId >= 0) ids.insert(image.Id);
  }
  sXYZ_RelativeOrientation orientation{};
  std::vector<std::int32_t> orientations;
  for (int i = 0; i < XYZ_GetRelativeOrientationCnt(job); ++i) {
    if (XYZ_GetRelativeOrientationAt(job, i, &orientation) != eXYZ_Ok) continue;
    if (ids.contains(orientation.BaseEorId)) orientations.push_back(orientation.Id);
  }
  ids.insert(orientations.begin(), orientations.end());
  return ids;
}

class LineImageCoordinatesTable final : public RecordTable<sXYZ_PictureLineCoord> {
 public:
  LineImageCoordinatesTable() {
    MutableColumns()
        .Reference("line", &sXYZ_PictureLineCoord::LineId, {"lines"})
        .Reference("image", &sXYZ_PictureLineCoord::EorId, {"images", "relative_orientations"})
        .Real("x", &sXYZ_PictureLineCoord::X)
        .Real("y", &sXYZ_PictureLineCoord::Y)
        .Real("sx",
              &sXYZ_PictureLineCoord::Sx,
              ColumnNeed::kOptional,
              RealRange::kPositive,
              "s0_apriori")
        .Real("sy", &sXYZ_PictureLineCoord::Sy, ColumnNeed::kOptional, RealRange::kPositive, "sx")
        .Custom("id",
                ColumnNeed::kOptional,
                "0",
                [](std::string_view text, sXYZ_PictureLineCoord& measured) {
                  return ReadId("id", text, measured.Id);
                })
        .Flag("active", &sXYZ_PictureLineCoord::Flags, kActive, true)
        .Flag("outlier", &sXYZ_PictureLineCoord::Flags, kOutlier, false)
        .Flag("protected", &sXYZ_PictureLineCoord::Flags, kProtected, false)
        .Tag()
        .Results({"v_line", "r_line", "t_line"});
  }

  [[nodiscard]] std::string Name() const override { return "line_image_coordinates"; }
  [[nodiscard]] bool HoldsObservations() const override { return true; }
  [[nodiscard]] std::span<const sXYZ_PictureLineCoord> LineImageCoordinates() const override {
    return fInputs;
  }

  // The library reads back as many line image coordinates as there are image coordinates; rows
  // behind those are written as they were given, their results empty.
  void Write(CsvWriter& writer, const WriteContext& context) const override {
    writer.Names({"line", "image", "x", "y", "sx", "sy", "id", "active", "outlier", "protected"})
        .Names({"tag", "v_line", "r_line", "t_line"})
        .EndRecord();
    sXYZ_PictureLineCoord measured{};
    for (std::size_t i = 0; i < fInputs.size(); ++i) {
      if (i % 1024 == 0) context.poll();
      const sXYZ_PictureLineCoord& input = fInputs[i];
      const bool isRead =
          XYZ_GetLinePictureCoordAt(context.job, static_cast<int>(i), &measured) == eXYZ_Ok;
      const std::uint16_t flags = isRead ? measured.Flags : input.Flags;
      writer.Integer(input.LineId)
          .Integer(input.EorId)
          .Real(input.X)
          .Real(input.Y)
          .Real(input.Sx)
          .Real(input.Sy)
          .Integer(input.Id)
          .Flag((flags & kActive) != 0)
          .Flag((flags & kOutlier) != 0)
          .Flag((flags & kProtected) != 0)
          .Integer(input.Tag);
      isRead ? writer.Real(measured.V).Real(measured.R).Real(measured.T) : writer.Empty(3);
      writer.EndRecord();
    }
  }

 protected:
  void OnHeader(const CsvRow& /*row*/,
                const TableHeader& /*header*/,
                const ReadContext& context) override {
    fWithProjection = ImagesWithProjection(context.job);
  }

  int Accept(sXYZ_PictureLineCoord& measured, RowContext& row) override {
    if (measured.Sx == 0.0) measured.Sx = row.Context().s0Apriori;
    if (measured.Sy == 0.0) measured.Sy = measured.Sx;
    if (fWithProjection.contains(measured.EorId)) {
      row.Mistake("image", "image must be one without a projection of its own");
      return eXYZ_Ok;
    }
    fInputs.push_back(measured);
    return XYZ_SetPictureLineCoord(row.Context().job, &measured);
  }

 private:
  std::unordered_set<std::int32_t> fWithProjection;
  std::vector<sXYZ_PictureLineCoord> fInputs;
};

}  // namespace

std::unique_ptr<Table> MakeLineImageCoordinatesTable() {
  return std::make_unique<LineImageCoordinatesTable>();
}

}  // namespace cardo
