#pragma once

#include "csv_reader.h"
#include "table.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace cardo {

// Which column of a table stands in which field of its rows.
class TableHeader {
 public:
  static constexpr std::size_t kAbsent = static_cast<std::size_t>(-1);

  // Reads the names of the first row. Unknown, double and missing columns go to the diagnostics.
  TableHeader(const CsvRow& row, const std::vector<ColumnInfo>& columns, Diagnostics& diagnostics);

  // Number of fields of each row.
  [[nodiscard]] std::size_t Size() const noexcept { return fColumnOfField.size(); }
  [[nodiscard]] std::size_t ColumnOf(std::size_t field) const { return fColumnOfField[field]; }
  // kAbsent if the table lacks the column.
  [[nodiscard]] std::size_t FieldOf(std::size_t column) const { return fFieldOfColumn[column]; }
  [[nodiscard]] std::size_t FieldOf(std::string_view columnName) const;
  [[nodiscard]] bool Has(std::string_view columnName) const {
    return FieldOf(columnName) != kAbsent;
  }

 private:
  std::vector<std::size_t> fColumnOfField;
  std::vector<std::size_t> fFieldOfColumn;
  std::vector<std::string> fNames;
};

}  // namespace cardo
