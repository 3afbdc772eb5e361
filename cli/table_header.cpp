#include "table_header.h"

#include "nearest_name.h"

#include <algorithm>
#include <fmt/format.h>
#include <string>

namespace cardo {
namespace {

std::vector<std::string> NamesOf(const std::vector<ColumnInfo>& columns) {
  std::vector<std::string> names;
  names.reserve(columns.size());
  for (const ColumnInfo& column : columns) names.push_back(column.name);
  return names;
}

// What the user most likely can write: results are known, but nothing to ask for.
std::vector<std::string> InputNamesOf(const std::vector<ColumnInfo>& columns) {
  std::vector<std::string> names;
  for (const ColumnInfo& column : columns) {
    if (column.need != ColumnNeed::kResult) names.push_back(column.name);
  }
  return names;
}

std::string UnknownColumn(std::string_view name, const std::vector<ColumnInfo>& columns) {
  if (name.empty()) return "expected the name of a column, found \"\"";
  const std::size_t separator = name.find_first_of(";\t|");
  if (separator != std::string_view::npos) {
    return fmt::format("columns must be separated by commas, found {}", Quoted(name));
  }
  return fmt::format("unknown column {}{}", Quoted(name), Suggestion(name, InputNamesOf(columns)));
}

}  // namespace

TableHeader::TableHeader(const CsvRow& row,
                         const std::vector<ColumnInfo>& columns,
                         Diagnostics& diagnostics)
    : fColumnOfField(row.Size(), kAbsent),
      fFieldOfColumn(columns.size(), kAbsent),
      fNames(NamesOf(columns)) {
  bool misspelt = false;
  const std::string file = row.PlaceOf(0).file;
  for (std::size_t field = 0; field < row.Size(); ++field) {
    if (diagnostics.IsFull(file)) return;
    const auto found = std::find(fNames.begin(), fNames.end(), row[field]);
    if (found == fNames.end()) {
      diagnostics.Add(row.PlaceOf(field), UnknownColumn(row[field], columns));
      misspelt = true;
      continue;
    }
    const auto column = static_cast<std::size_t>(found - fNames.begin());
    if (fFieldOfColumn[column] != kAbsent) {
      diagnostics.Add(row.PlaceOf(field),
                      fmt::format("column {} is there twice, first as field {}",
                                  Quoted(row[field]),
                                  fFieldOfColumn[column] + 1));
      continue;
    }
    fColumnOfField[field] = column;
    fFieldOfColumn[column] = field;
  }
  // A column that seems to be missing may be the one that is misspelt.
  if (misspelt) return;
  std::string missing;
  for (std::size_t column = 0; column < columns.size(); ++column) {
    if (columns[column].need == ColumnNeed::kRequired && fFieldOfColumn[column] == kAbsent) {
      missing += (missing.empty() ? "" : ", ") + Quoted(columns[column].name);
    }
  }
  if (!missing.empty()) {
    diagnostics.Add(
        row.PlaceOf(row.Size()),
        fmt::format("expected the columns {} as well, found none of that name", missing));
  }
}

std::size_t TableHeader::FieldOf(std::string_view columnName) const {
  const auto found = std::find(fNames.begin(), fNames.end(), columnName);
  return found == fNames.end() ? kAbsent
                               : fFieldOfColumn[static_cast<std::size_t>(found - fNames.begin())];
}

}  // namespace cardo
