#pragma once

#include <cstdint>
#include <fmt/format.h>
#include <initializer_list>
#include <string_view>

namespace cardo {

class ResultFile;

// Writes a CSV file record by record. Numbers are the shortest text that reads back to the same
// value, in the notation of the C locale.
class CsvWriter {
 public:
  explicit CsvWriter(ResultFile& file) : fFile(file) {}

  // A record of column names, or the front part of one.
  CsvWriter& Names(std::initializer_list<std::string_view> names);
  CsvWriter& Real(double value);
  CsvWriter& Integer(std::int64_t value);
  CsvWriter& Flag(bool value) { return Integer(value ? 1 : 0); }
  CsvWriter& Text(std::string_view text);
  CsvWriter& Empty(int fields = 1);
  void EndRecord();

 private:
  void Separate();

  ResultFile& fFile;
  fmt::memory_buffer fRecord;
  bool fAtStart = true;
};

}  // namespace cardo
