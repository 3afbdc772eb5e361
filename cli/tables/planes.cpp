#include "csv_writer.h"
#include "field_text.h"
#include "record_flags.h"
#include "record_table.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>
#include <xyz_api.h>

namespace cardo {

std::unique_ptr<Table> MakePlanesTable();

namespace {

// The library takes no shorter one.
constexpr double kShortestNormal = 1e-10;

class PlanesTable final : public RecordTable<sXYZ_Plane> {
 public:
  PlanesTable() {
    auto& columns = MutableColumns();
    columns.Id("id", &sXYZ_Plane::Id);
    AddVector({"x", "y", "z"}, &sXYZ_Plane::Point);
    AddVector({"nx", "ny", "nz"}, &sXYZ_Plane::Normal);
    columns.Flag("fixed", &sXYZ_Plane::Flags, kFixed, false)
        .Flag("active", &sXYZ_Plane::Flags, kActive, true)
        .Tag()
        .Results({"s_x", "s_y", "s_z", "s_nx", "s_ny", "s_nz"});
  }

  [[nodiscard]] std::string Name() const override { return "planes"; }
  [[nodiscard]] bool HoldsObservations() const override { return false; }
  [[nodiscard]] std::span<const std::int32_t> FixedShapes() const override { return fFixed; }

  void Write(CsvWriter& writer, const WriteContext& context) const override {
    writer.Names({"id", "x", "y", "z", "nx", "ny", "nz", "fixed", "active", "tag"})
        .Names({"s_x", "s_y", "s_z", "s_nx", "s_ny", "s_nz"})
        .EndRecord();
    sXYZ_Plane plane{};
    for (int i = 0; i < XYZ_GetPlaneCnt(context.job); ++i) {
      if (i % 1024 == 0) context.poll();
      if (XYZ_GetPlaneAt(context.job, i, &plane) != eXYZ_Ok) continue;
      const Input& input = fInputs[static_cast<std::size_t>(i)];
      writer.Integer(plane.Id);
      for (const double value : plane.Point) writer.Real(value);
      for (const double value : plane.Normal) writer.Real(value);
      writer.Flag(input.isFixed).Flag((plane.Flags & kActive) != 0).Integer(input.tag);
      for (const double value : plane.SPlane) writer.Real(value);
      writer.EndRecord();
    }
  }

 protected:
  int Accept(sXYZ_Plane& plane, RowContext& row) override {
    row.TakeId(Name(), "id", plane.Id, (plane.Flags & kActive) != 0);
    const IdList* lines = row.Context().ids.Find("lines");
    if (lines != nullptr && lines->Contains(plane.Id)) {
      row.Mistake("id", "id must not be an id of lines.csv");
    }
    const double length = std::hypot(plane.Normal[0], plane.Normal[1], plane.Normal[2]);
    if (!(length >= kShortestNormal) || !std::isfinite(length)) {
      row.Mistake("nx", "nx, ny, nz must be a vector of some length");
    }
    if (row.HasMistake()) return eXYZ_Ok;
    if ((plane.Flags & kFixed) != 0) fFixed.push_back(plane.Id);
    fInputs.push_back({plane.Tag, (plane.Flags & kFixed) != 0});
    return XYZ_SetPlane(row.Context().job, &plane);
  }

 private:
  struct Input {
    std::uint16_t tag;
    bool isFixed;
  };

  void AddVector(const std::array<std::string_view, 3>& names, double (sXYZ_Plane::*vector)[3]) {
    for (std::size_t i = 0; i < names.size(); ++i) {
      const std::string name(names[i]);
      MutableColumns().Custom(
          name, ColumnNeed::kRequired, "", [name, i, vector](std::string_view text, auto& plane) {
            return ReadReal(name, text, RealRange::kAny, (plane.*vector)[i]);
          });
    }
  }

  std::vector<Input> fInputs;
  std::vector<std::int32_t> fFixed;
};

}  // namespace

std::unique_ptr<Table> MakePlanesTable() { return std::make_unique<PlanesTable>(); }

}  // namespace cardo
