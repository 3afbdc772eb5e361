#pragma once

#include "field_text.h"
#include "table.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <fmt/format.h>
#include <functional>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cardo {

// The columns of a table of records of the library: how each field is read into a record.
// A column without a value, because the table lacks it or because the field is empty, leaves the
// record at its default; a required column must have a value.
template <class Record>
class ColumnSet {
 public:
  // Answers what was expected if the text does not fit ("x must be a number"), empty if it does.
  using Parser = std::function<std::string(std::string_view text, Record& record)>;

  struct Column {
    ColumnInfo info;
    Parser parse;                         // none for a column of results, which is passed over
    std::vector<std::string> references;  // tables in one of which the id must exist
    std::int32_t Record::*id = nullptr;   // the id, of a column with references
  };

  ColumnSet& Custom(std::string name, ColumnNeed need, std::string defaultText, Parser parse) {
    fColumns.push_back({{std::move(name), need, std::move(defaultText)}, std::move(parse), {}});
    return *this;
  }

  ColumnSet& Real(std::string name,
                  double Record::*member,
                  ColumnNeed need = ColumnNeed::kRequired,
                  RealRange range = RealRange::kAny,
                  std::string defaultText = "0") {
    Parser parse = [name, member, range](std::string_view text, Record& record) {
      return ReadReal(name, text, range, record.*member);
    };
    if (need == ColumnNeed::kRequired) defaultText.clear();
    return Custom(std::move(name), need, std::move(defaultText), std::move(parse));
  }

  // The key of the table; every table of unknowns has one.
  ColumnSet& Id(std::string name, std::int32_t Record::*member) {
    Parser parse = [name, member](std::string_view text, Record& record) {
      return ReadId(name, text, record.*member);
    };
    return Custom(std::move(name), ColumnNeed::kRequired, "", std::move(parse));
  }

  // The key of a record of another table. An optional one defaults to none, -1.
  ColumnSet& Reference(std::string name,
                       std::int32_t Record::*member,
                       const std::vector<std::string>& tables,
                       ColumnNeed need = ColumnNeed::kRequired) {
    Id(std::move(name), member);
    Column& column = fColumns.back();
    column.info.need = need;
    if (need == ColumnNeed::kOptional) {
      column.info.defaultText = "none";
      fDefaults.*member = -1;
    }
    column.references = tables;
    column.id = member;
    return *this;
  }

  // One bit of a flag word, 0 or 1 in the table.
  template <std::unsigned_integral Word>
  ColumnSet& Flag(std::string name, Word Record::*member, unsigned bit, bool defaultValue) {
    const auto set = [member, bit](Record& record, bool on) {
      const unsigned word = record.*member;
      record.*member = static_cast<Word>(on ? (word | bit) : (word & ~bit));
    };
    set(fDefaults, defaultValue);
    Parser parse = [name, set](std::string_view text, Record& record) {
      bool on = false;
      std::string expected = ReadFlag(name, text, on);
      if (expected.empty()) set(record, on);
      return expected;
    };
    return Custom(
        std::move(name), ColumnNeed::kOptional, defaultValue ? "1" : "0", std::move(parse));
  }

  ColumnSet& Tag() {
    return Custom("tag", ColumnNeed::kOptional, "0", [](std::string_view text, Record& record) {
      std::int64_t tag = record.Tag;
      std::string expected =
          ReadInteger("tag", text, 0, std::numeric_limits<std::uint16_t>::max(), tag);
      record.Tag = static_cast<std::uint16_t>(tag);
      return expected;
    });
  }

  // Columns that a run adds. They may stand in a table and are passed over.
  ColumnSet& Results(std::initializer_list<std::string_view> names) {
    for (const std::string_view name : names) {
      fColumns.push_back({{std::string(name), ColumnNeed::kResult, ""}, nullptr, {}});
    }
    return *this;
  }

  // The record of which a row changes the fields that it has.
  [[nodiscard]] Record& Defaults() noexcept { return fDefaults; }
  [[nodiscard]] const Record& Defaults() const noexcept { return fDefaults; }

  [[nodiscard]] const std::vector<Column>& Columns() const noexcept { return fColumns; }

 private:
  std::vector<Column> fColumns;
  Record fDefaults{};
};

}  // namespace cardo
