#include "csv_writer.h"
#include "record_table.h"

#include <memory>
#include <string>
#include <xyz_api.h>

namespace cardo {

std::unique_ptr<Table> MakeRelativeOrientationsTable();

namespace {

class RelativeOrientationsTable final : public RecordTable<sXYZ_RelativeOrientation> {
 public:
  RelativeOrientationsTable() {
    MutableColumns()
        .Id("id", &sXYZ_RelativeOrientation::Id)
        .Reference("image", &sXYZ_RelativeOrientation::EorId, {"images"})
        .Reference("base_image", &sXYZ_RelativeOrientation::BaseEorId, {"images"});
  }

  [[nodiscard]] std::string Name() const override { return "relative_orientations"; }
  [[nodiscard]] bool HoldsObservations() const override { return false; }

  void Write(CsvWriter& writer, const WriteContext& context) const override {
    writer.Names({"id", "image", "base_image"}).EndRecord();
    sXYZ_RelativeOrientation orientation{};
    for (int i = 0; i < XYZ_GetRelativeOrientationCnt(context.job); ++i) {
      if (XYZ_GetRelativeOrientationAt(context.job, i, &orientation) != eXYZ_Ok) continue;
      writer.Integer(orientation.Id)
          .Integer(orientation.EorId)
          .Integer(orientation.BaseEorId)
          .EndRecord();
    }
  }

 protected:
  int Accept(sXYZ_RelativeOrientation& orientation, RowContext& row) override {
    const IdList* images = row.Context().ids.Find("images");
    if (images != nullptr && images->Contains(orientation.Id)) {
      row.Mistake("id", "id must not be an id of images.csv");
    }
    if (orientation.EorId == orientation.BaseEorId) {
      row.Mistake("base_image", "base_image must be another image than image");
    }
    row.TakeId(Name(), "id", orientation.Id, true);
    if (row.HasMistake()) return eXYZ_Ok;
    return XYZ_SetRelativeOrientation(row.Context().job, &orientation);
  }
};

}  // namespace

std::unique_ptr<Table> MakeRelativeOrientationsTable() {
  return std::make_unique<RelativeOrientationsTable>();
}

}  // namespace cardo
