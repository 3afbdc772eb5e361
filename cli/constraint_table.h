#pragma once

#include "csv_writer.h"
#include "record_flags.h"
#include "record_table.h"

#include <cstdint>
#include <fmt/format.h>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cardo {

// A table of constraints that put a point on a line or on a plane. Kind names the record:
//   Record, kObject    its type; "line" or "plane"
//   kObjectId          the member with the id of the line or plane
//   Set, Count, At     the functions of the library
template <class Kind>
class ConstraintTable final : public RecordTable<typename Kind::Record> {
 public:
  using Record = typename Kind::Record;

  ConstraintTable() {
    auto& columns = this->MutableColumns();
    columns.Id("id", &Record::Id)
        .Reference("point", &Record::PointId, {"points"})
        .Reference(std::string(Kind::kObject), Kind::kObjectId, {ObjectTable()})
        .Custom("active", ColumnNeed::kOptional, "1", [](std::string_view text, Record& record) {
          bool isActive = false;
          std::string expected = ReadFlag("active", text, isActive);
          if (expected.empty()) record.Flags = isActive ? kActive : 0;
          return expected;
        });
    columns.Defaults().Flags = kActive;
  }

  [[nodiscard]] std::string Name() const override { return "points_on_" + ObjectTable(); }
  [[nodiscard]] bool HoldsObservations() const override { return false; }

  // A constraint whose point or object takes no part at the start of a run is written as inactive.
  void Write(CsvWriter& writer, const WriteContext& context) const override {
    writer.Names({"id", "point", Kind::kObject, "active"}).EndRecord();
    Record record{};
    for (int i = 0; i < Kind::Count(context.job); ++i) {
      if (i % 1024 == 0) context.poll();
      if (Kind::At(context.job, i, &record) != eXYZ_Ok) continue;
      writer.Integer(record.Id)
          .Integer(record.PointId)
          .Integer(record.*Kind::kObjectId)
          .Flag((record.Flags & kActive) != 0)
          .EndRecord();
    }
  }

 protected:
  int Accept(Record& record, RowContext& row) override {
    const bool isActive = (record.Flags & kActive) != 0;
    row.TakeId(Name(), "id", record.Id, isActive);
    if (isActive) {
      // The same rows twice leave the system without a solution.
      const auto [place, added] =
          fLines.try_emplace({record.PointId, record.*Kind::kObjectId}, row.Line());
      if (!added) {
        row.Mistake("point",
                    fmt::format("the point must be on the {} once, line {} has it too",
                                Kind::kObject,
                                place->second));
      }
    }
    if (row.HasMistake()) return eXYZ_Ok;
    return Kind::Set(row.Context().job, &record);
  }

 private:
  static std::string ObjectTable() { return std::string(Kind::kObject) + "s"; }

  std::map<std::pair<std::int32_t, std::int32_t>, std::size_t> fLines;
};

}  // namespace cardo
