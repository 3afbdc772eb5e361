#pragma once

#include "bundle_job.h"
#include "column_set.h"
#include "csv_reader.h"
#include "diagnostics.h"
#include "id_register.h"
#include "table.h"
#include "table_header.h"

#include <cstddef>
#include <cstdint>
#include <fmt/format.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cardo {

// A row on its way into the job, for the checks of one table.
class RowContext {
 public:
  RowContext(const CsvRow& row, const TableHeader& header, const ReadContext& context)
      : fRow(row), fHeader(header), fContext(context) {}

  [[nodiscard]] const TableHeader& Header() const noexcept { return fHeader; }
  [[nodiscard]] const ReadContext& Context() const noexcept { return fContext; }
  [[nodiscard]] std::size_t Line() const noexcept { return fRow.Line(); }

  // The field of a column, empty if the table lacks it.
  [[nodiscard]] std::string_view Field(std::string_view column) const {
    const std::size_t field = fHeader.FieldOf(column);
    return field == TableHeader::kAbsent ? std::string_view{} : fRow[field];
  }

  // Adds a mistake at the field of the column: what was expected, then what was found.
  void Mistake(std::string_view column, const std::string& expected) {
    const std::size_t field = fHeader.FieldOf(column);
    const bool absent = field == TableHeader::kAbsent;
    fContext.diagnostics.Add(
        fRow.PlaceOf(absent ? 0 : field),
        absent ? expected : fmt::format("{}, found {}", expected, Quoted(fRow[field])));
    fHasMistake = true;
  }

  // Takes a record's own id; one that is there already is a mistake.
  void TakeId(std::string_view table, std::string_view column, std::int32_t id, bool isActive) {
    const auto line = fContext.ids.Ids(table).Add(id, fRow.Line(), isActive);
    if (line) Mistake(column, fmt::format("{} must be unique, line {} has it too", column, *line));
  }

  [[nodiscard]] bool HasMistake() const noexcept { return fHasMistake; }

 private:
  const CsvRow& fRow;
  const TableHeader& fHeader;
  const ReadContext& fContext;
  bool fHasMistake = false;
};

// The part of a table that is the same for every kind of record: header, fields, defaults,
// references. A table adds its columns and what to do with a record.
template <class Record>
class RecordTable : public Table {
 public:
  [[nodiscard]] std::vector<ColumnInfo> Columns() const final {
    std::vector<ColumnInfo> infos;
    for (const auto& column : fColumns.Columns()) infos.push_back(column.info);
    return infos;
  }

  void Read(CsvReader& reader, const ReadContext& context) final {
    ReadRows(reader, context);
    if (context.diagnostics.CountOf(reader.Name()) > 0) context.ids.MarkIncomplete(Name());
  }

 protected:
  // Columns of the first row are known, rows follow. Mistakes of the header go to the diagnostics.
  virtual void OnHeader(const CsvRow& /*row*/,
                        const TableHeader& /*header*/,
                        const ReadContext& /*context*/) {}
  // A record whose fields fit is checked further and handed to the job. The result is the
  // library's status, eXYZ_Ok as well for a record with a mistake, which is not handed over.
  virtual int Accept(Record& record, RowContext& row) = 0;

  ColumnSet<Record>& MutableColumns() noexcept { return fColumns; }

 private:
  static constexpr std::size_t kRowsPerPoll = 1024;

  void ReadRows(CsvReader& reader, const ReadContext& context) {
    const std::string& file = reader.Name();
    context.ids.Announce(Name());
    const CsvRow* first = reader.Next();
    if (first == nullptr) {
      if (context.diagnostics.CountOf(file) == 0) {
        context.diagnostics.Add({file}, "is empty, expected a first line with the column names");
      }
      return;
    }
    const TableHeader header(*first, Columns(), context.diagnostics);
    CheckReferredTables(*first, header, context);
    if (context.diagnostics.CountOf(file) == 0) OnHeader(*first, header, context);
    if (context.diagnostics.CountOf(file) > 0) return;
    std::size_t rows = 0;
    while (const CsvRow* row = reader.Next()) {
      if (rows++ % kRowsPerPoll == 0) context.poll();
      ReadRow(*row, header, context);
    }
  }

  void CheckReferredTables(const CsvRow& row,
                           const TableHeader& header,
                           const ReadContext& context) {
    for (std::size_t i = 0; i < fColumns.Columns().size(); ++i) {
      const auto& column = fColumns.Columns()[i];
      if (column.references.empty() || header.FieldOf(i) == TableHeader::kAbsent) continue;
      // An optional reference may be empty in every row.
      if (column.info.need == ColumnNeed::kOptional) continue;
      bool any = false;
      for (const std::string& table : column.references) any |= context.ids.IsAnnounced(table);
      if (!any) {
        context.diagnostics.Add(row.PlaceOf(header.FieldOf(i)),
                                fmt::format("column {} refers to {}.csv, which is missing",
                                            column.info.name,
                                            column.references.front()));
      }
    }
  }

  void ReadRow(const CsvRow& row, const TableHeader& header, const ReadContext& context) {
    if (row.Size() != header.Size()) {
      context.diagnostics.Add(
          row.PlaceOf(row.Size() > header.Size() ? header.Size() : row.Size()),
          fmt::format(
              "expected {} fields as in the first line, found {}", header.Size(), row.Size()));
      return;
    }
    Record record = fColumns.Defaults();
    RowContext rowContext(row, header, context);
    for (std::size_t field = 0; field < row.Size(); ++field) {
      const auto& column = fColumns.Columns()[header.ColumnOf(field)];
      if (!column.parse) continue;
      if (row[field].empty() && column.info.need == ColumnNeed::kOptional) continue;
      const std::string expected = column.parse(row[field], record);
      if (!expected.empty()) {
        rowContext.Mistake(column.info.name, expected);
      } else if (!column.references.empty()) {
        CheckReference(column, record, rowContext);
      }
    }
    if (rowContext.HasMistake()) return;
    const int status = Accept(record, rowContext);
    if (status != eXYZ_Ok) {
      context.diagnostics.Add({row.PlaceOf(0).file, row.Line()},
                              "the library does not take the record: " + StatusName(status));
    }
  }

  void CheckReference(const typename ColumnSet<Record>::Column& column,
                      const Record& record,
                      RowContext& row) {
    const std::int32_t id = record.*column.id;
    const IdRegister& ids = row.Context().ids;
    std::string files;
    for (const std::string& table : column.references) {
      const IdList* list = ids.Find(table);
      if (!ids.IsComplete(table) || (list != nullptr && list->Contains(id))) return;
      if (list != nullptr || files.empty()) {
        files += fmt::format("{}{}.csv", files.empty() ? "" : " or ", table);
      }
    }
    row.Mistake(column.info.name, fmt::format("{} must be an id of {}", column.info.name, files));
  }

  ColumnSet<Record> fColumns;
};

}  // namespace cardo
