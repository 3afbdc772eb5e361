#include "csv_writer.h"

#include "result_files.h"

#include <csv.h>
#include <iterator>
#include <string>

namespace cardo {

void CsvWriter::Separate() {
  if (!fAtStart) fRecord.push_back(',');
  fAtStart = false;
}

CsvWriter& CsvWriter::Names(std::initializer_list<std::string_view> names) {
  for (const std::string_view name : names) Text(name);
  return *this;
}

CsvWriter& CsvWriter::Real(double value) {
  Separate();
  fmt::format_to(std::back_inserter(fRecord), "{}", value);
  return *this;
}

CsvWriter& CsvWriter::Integer(std::int64_t value) {
  Separate();
  fmt::format_to(std::back_inserter(fRecord), "{}", value);
  return *this;
}

CsvWriter& CsvWriter::Text(std::string_view text) {
  Separate();
  const bool plain = text.find_first_of(",\"\r\n") == std::string_view::npos &&
                     (text.empty() || (text.front() != ' ' && text.back() != ' '));
  if (plain) {
    fRecord.append(text);
    return *this;
  }
  std::string quoted(2 * text.size() + 2, '\0');
  const std::size_t length = csv_write(quoted.data(), quoted.size(), text.data(), text.size());
  fRecord.append(quoted.data(), quoted.data() + length);
  return *this;
}

CsvWriter& CsvWriter::Empty(int fields) {
  for (int i = 0; i < fields; ++i) Separate();
  return *this;
}

void CsvWriter::EndRecord() {
  fRecord.push_back('\n');
  fFile.Write({fRecord.data(), fRecord.size()});
  fRecord.clear();
  fAtStart = true;
}

}  // namespace cardo
