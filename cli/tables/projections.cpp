#include "csv_writer.h"
#include "record_flags.h"
#include "record_table.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>
#include <xyz_api.h>

namespace cardo {

std::unique_ptr<Table> MakeProjectionsTable();

namespace {

class ProjectionsTable final : public RecordTable<sXYZ_Projection> {
 public:
  ProjectionsTable() {
    MutableColumns()
        .Id("id", &sXYZ_Projection::Id)
        .Real("ck", &sXYZ_Projection::Ck, ColumnNeed::kRequired, RealRange::kNotZero)
        .Real("xh", &sXYZ_Projection::Xh, ColumnNeed::kOptional)
        .Real("yh", &sXYZ_Projection::Yh, ColumnNeed::kOptional)
        .Flag("fixed", &sXYZ_Projection::Flags, kFixed, false)
        .Flag("active", &sXYZ_Projection::Flags, kActive, true)
        .Tag()
        .Results({"s_ck", "s_xh", "s_yh"});
  }

  [[nodiscard]] std::string Name() const override { return "projections"; }
  [[nodiscard]] bool HoldsObservations() const override { return false; }

  void Write(CsvWriter& writer, const WriteContext& context) const override {
    writer.Names({"id", "ck", "xh", "yh", "fixed", "active", "tag", "s_ck", "s_xh", "s_yh"})
        .EndRecord();
    sXYZ_Projection projection{};
    for (int i = 0; i < XYZ_GetProjectionCnt(context.job); ++i) {
      if (XYZ_GetProjectionAt(context.job, i, &projection) != eXYZ_Ok) continue;
      const Input& input = fInputs[static_cast<std::size_t>(i)];
      writer.Integer(projection.Id)
          .Real(projection.Ck)
          .Real(projection.Xh)
          .Real(projection.Yh)
          .Flag(input.isFixed)
          .Flag((projection.Flags & kActive) != 0)
          .Integer(input.tag)
          .Real(projection.SCk)
          .Real(projection.SXh)
          .Real(projection.SYh)
          .EndRecord();
    }
  }

 protected:
  int Accept(sXYZ_Projection& projection, RowContext& row) override {
    row.TakeId(Name(), "id", projection.Id, (projection.Flags & kActive) != 0);
    if (row.HasMistake()) return eXYZ_Ok;
    fInputs.push_back({projection.Tag, (projection.Flags & kFixed) != 0});
    return XYZ_SetProjection(row.Context().job, &projection);
  }

 private:
  struct Input {
    std::uint16_t tag;
    bool isFixed;
  };

  std::vector<Input> fInputs;
};

}  // namespace

std::unique_ptr<Table> MakeProjectionsTable() { return std::make_unique<ProjectionsTable>(); }

}  // namespace cardo
