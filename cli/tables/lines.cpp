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

std::unique_ptr<Table> MakeLinesTable();

namespace {

// The library takes no shorter one.
constexpr double kShortestLine = 1e-10;

double Length(const double (&from)[3], const double (&to)[3]) {
  return std::hypot(to[0] - from[0], to[1] - from[1], to[2] - from[2]);
}

class LinesTable final : public RecordTable<sXYZ_Line> {
 public:
  LinesTable() {
    auto& columns = MutableColumns();
    columns.Id("id", &sXYZ_Line::Id);
    AddPoint({"x1", "y1", "z1"}, &sXYZ_Line::P1);
    AddPoint({"x2", "y2", "z2"}, &sXYZ_Line::P2);
    columns.Flag("fixed", &sXYZ_Line::Flags, kFixed, false)
        .Flag("active", &sXYZ_Line::Flags, kActive, true)
        .Tag()
        .Results({"dx", "dy", "dz", "s_x1", "s_y1", "s_z1", "s_dx", "s_dy", "s_dz"});
  }

  [[nodiscard]] std::string Name() const override { return "lines"; }
  [[nodiscard]] bool HoldsObservations() const override { return false; }
  [[nodiscard]] std::span<const std::int32_t> FixedShapes() const override { return fFixed; }

  // The second point keeps its distance from the first, so that what is written can be read.
  void Write(CsvWriter& writer, const WriteContext& context) const override {
    writer.Names({"id", "x1", "y1", "z1", "x2", "y2", "z2", "fixed", "active", "tag"})
        .Names({"dx", "dy", "dz", "s_x1", "s_y1", "s_z1", "s_dx", "s_dy", "s_dz"})
        .EndRecord();
    sXYZ_Line line{};
    for (int i = 0; i < XYZ_GetLineCnt(context.job); ++i) {
      if (i % 1024 == 0) context.poll();
      if (XYZ_GetLineAt(context.job, i, &line) != eXYZ_Ok) continue;
      const Input& input = fInputs[static_cast<std::size_t>(i)];
      writer.Integer(line.Id);
      for (const double value : line.P1) writer.Real(value);
      for (std::size_t k = 0; k < 3; ++k) writer.Real(line.P1[k] + input.length * line.P2[k]);
      writer.Flag(input.isFixed).Flag((line.Flags & kActive) != 0).Integer(input.tag);
      for (const double value : line.P2) writer.Real(value);
      for (const double value : line.SP1) writer.Real(value);
      for (const double value : line.SP2) writer.Real(value);
      writer.EndRecord();
    }
  }

 protected:
  int Accept(sXYZ_Line& line, RowContext& row) override {
    row.TakeId(Name(), "id", line.Id, (line.Flags & kActive) != 0);
    const double length = Length(line.P1, line.P2);
    if (!(length >= kShortestLine) || !std::isfinite(length)) {
      row.Mistake("x2", "x2, y2, z2 must be another point of the line than x1, y1, z1");
    }
    if (row.HasMistake()) return eXYZ_Ok;
    if ((line.Flags & kFixed) != 0) fFixed.push_back(line.Id);
    fInputs.push_back({length, line.Tag, (line.Flags & kFixed) != 0});
    return XYZ_SetLine(row.Context().job, &line);
  }

 private:
  struct Input {
    double length;
    std::uint16_t tag;
    bool isFixed;
  };

  void AddPoint(const std::array<std::string_view, 3>& names, double (sXYZ_Line::*point)[3]) {
    for (std::size_t i = 0; i < names.size(); ++i) {
      const std::string name(names[i]);
      MutableColumns().Custom(
          name, ColumnNeed::kRequired, "", [name, i, point](std::string_view text, auto& line) {
            return ReadReal(name, text, RealRange::kAny, (line.*point)[i]);
          });
    }
  }

  std::vector<Input> fInputs;
  std::vector<std::int32_t> fFixed;
};

}  // namespace

std::unique_ptr<Table> MakeLinesTable() { return std::make_unique<LinesTable>(); }

}  // namespace cardo
