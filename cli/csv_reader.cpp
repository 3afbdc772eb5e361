#include "csv_reader.h"

#include "text_encoding.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <new>
#include <system_error>
#include <utility>

namespace cardo {
namespace {

constexpr std::size_t kBlock = std::size_t{1} << 18U;
constexpr unsigned char kParserOptions = CSV_STRICT | CSV_STRICT_FINI;

bool IsBlank(char c) noexcept { return c == ' ' || c == '\t'; }

// Lines that end in the text: LF, CRLF and CR each once.
std::size_t CountLineEnds(std::string_view text) noexcept {
  std::size_t count = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool lineFeed = text[i] == '\n';
    const bool loneReturn = text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n');
    if (lineFeed || loneReturn) ++count;
  }
  return count;
}

Place PlaceAt(const std::string& file,
              std::string_view record,
              std::size_t line,
              std::size_t offset) {
  const std::string_view before = record.substr(0, offset);
  const std::size_t lineEnd = before.find_last_of("\r\n");
  const std::size_t start = lineEnd == std::string_view::npos ? 0 : lineEnd + 1;
  return {file,
          line + CountLineEnds(before.substr(0, start)),
          1 + CountCharacters(before.substr(start))};
}

std::string SystemMessage(int error) { return std::generic_category().message(error); }

}  // namespace

Place CsvRow::PlaceOf(std::size_t field) const {
  std::size_t offset = 0;
  bool quoted = false;
  for (std::size_t passed = 0; passed < field && offset < fRecord.size(); ++offset) {
    if (fRecord[offset] == '"') quoted = !quoted;
    if (fRecord[offset] == ',' && !quoted) ++passed;
  }
  while (offset < fRecord.size() && IsBlank(fRecord[offset])) ++offset;
  if (offset == fRecord.size()) {
    while (offset > 0 && (fRecord[offset - 1] == '\n' || fRecord[offset - 1] == '\r')) --offset;
  }
  return PlaceAt(fFile, fRecord, fLine, offset);
}

CsvReader::CsvReader(const std::filesystem::path& path, std::string name, Diagnostics& diagnostics)
    : fDiagnostics(diagnostics) {
  fRow.fFile = std::move(name);
  OpenParser();
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) {
    fDiagnostics.Add({Name()}, "is a folder, expected a table");
    fAtEnd = true;
    return;
  }
  // A pipe or a device might never end.
  if (std::filesystem::exists(path, ignored) && !std::filesystem::is_regular_file(path, ignored)) {
    fDiagnostics.Add({Name()}, "is a device or a pipe, expected a table");
    fAtEnd = true;
    return;
  }
  fStream.reset(std::fopen(path.c_str(), "rb"));
  if (!fStream) {
    fDiagnostics.Add({Name()}, "cannot be opened: " + SystemMessage(errno));
    fAtEnd = true;
    return;
  }
  std::setvbuf(fStream.get(), nullptr, _IONBF, 0);
  fBuffer.resize(kBlock);
  Fill();
  CheckBeginning();
}

CsvReader::~CsvReader() { csv_free(&fParser); }

void CsvReader::OpenParser() {
  csv_free(&fParser);
  if (csv_init(&fParser, kParserOptions) != 0) throw std::bad_alloc();
}

void CsvReader::OnField(void* text, std::size_t length, void* fields) noexcept {
  Fields& target = *static_cast<Fields*>(fields);
  try {
    target.text.append(static_cast<const char*>(text), length);
    target.ends.push_back(target.text.size());
  } catch (const std::bad_alloc&) {
    target.memoryExhausted = true;
  }
}

void CsvReader::OnRecord(int /*terminator*/, void* fields) noexcept {
  static_cast<Fields*>(fields)->complete = true;
}

bool CsvReader::Fill() {
  if (fAtEnd) return false;
  if (fBegin > 0) {
    std::copy(fBuffer.begin() + static_cast<std::ptrdiff_t>(fBegin),
              fBuffer.begin() + static_cast<std::ptrdiff_t>(fEnd),
              fBuffer.begin());
    fEnd -= fBegin;
    fBegin = 0;
  }
  if (fEnd == fBuffer.size()) fBuffer.resize(fBuffer.size() + kBlock);
  errno = 0;
  const std::size_t read =
      std::fread(fBuffer.data() + fEnd, 1, fBuffer.size() - fEnd, fStream.get());
  const int error = errno;
  fEnd += read;
  if (read > 0) return true;
  fAtEnd = true;
  if (std::ferror(fStream.get()) != 0) {
    fDiagnostics.Add({Name(), fLine}, "cannot be read on: " + SystemMessage(error));
    fBegin = fEnd = 0;
  }
  return false;
}

void CsvReader::CheckBeginning() {
  const std::string_view beginning(fBuffer.data(), fEnd);
  if (beginning.starts_with(kUtf8Mark)) {
    fBegin = kUtf8Mark.size();
    return;
  }
  const std::string_view encoding = ForeignEncoding(beginning);
  if (encoding.empty()) return;
  fDiagnostics.Add({Name(), 1, 1}, fmt::format("the file is {}, expected UTF-8", encoding));
  fBegin = fEnd = 0;
  fAtEnd = true;
}

CsvReader::Extent CsvReader::FindRecord() {
  bool quoted = false;
  std::size_t openQuote = 0;
  for (std::size_t i = 0;; ++i) {
    // A CR is judged by the byte behind it, so one byte ahead is wanted.
    if (fBegin + i + 1 >= fEnd && !fAtEnd) Fill();
    if (fBegin + i >= fEnd) {
      return {i, quoted ? Ending::kOpenQuote : Ending::kEndOfFile, openQuote};
    }
    if (i >= kLongestRecord) return {i, Ending::kTooLong, openQuote};
    const char c = fBuffer[fBegin + i];
    if (c == '"') {
      quoted = !quoted;
      if (quoted) openQuote = i;
    } else if (!quoted && (c == '\n' || c == '\r')) {
      const bool pair = c == '\r' && fBegin + i + 1 < fEnd && fBuffer[fBegin + i + 1] == '\n';
      return {i + (pair ? 2U : 1U), Ending::kComplete, openQuote};
    }
  }
}

void CsvReader::Mistake(std::size_t offset, std::string message) {
  const std::string_view rest(fBuffer.data() + fBegin, fEnd - fBegin);
  fDiagnostics.Add(PlaceAt(Name(), rest, fLine, offset), std::move(message));
}

void CsvReader::Consume(std::size_t length) {
  fLine += CountLineEnds({fBuffer.data() + fBegin, length});
  fBegin += length;
}

bool CsvReader::Split(const Extent& extent) {
  const std::string_view record(fBuffer.data() + fBegin, extent.length);
  fFields.text.clear();
  fFields.ends.clear();
  fFields.complete = false;

  // After a mistake the lines behind it are read on their own: a stray quote would otherwise
  // swallow them up to the next one.
  const auto resumeBehind = [&](std::size_t offset) {
    const std::size_t lineEnd = record.find('\n', offset);
    Consume(lineEnd == std::string_view::npos ? record.size() : lineEnd + 1);
    OpenParser();
    return false;
  };

  if (const auto position = FindNoText(record)) {
    const auto byte = static_cast<unsigned char>(record[*position]);
    Mistake(*position,
            byte < 0x80 ? fmt::format("expected text, found the control character 0x{:02X}", byte)
                        : fmt::format("expected UTF-8, found the byte 0x{:02X}", byte));
    return resumeBehind(*position);
  }
  const std::size_t parsed =
      csv_parse(&fParser, record.data(), record.size(), OnField, OnRecord, &fFields);
  const int error = csv_error(&fParser);
  if (fFields.memoryExhausted || error == CSV_ENOMEM) throw std::bad_alloc();
  if (parsed < record.size() || error != CSV_SUCCESS) {
    const std::size_t offset = std::min(parsed, record.size() - 1);
    Mistake(offset,
            "a quoted field must be quoted as a whole, with its own quotes doubled, found " +
                Quoted(record.substr(offset, 20)));
    return resumeBehind(offset);
  }
  if (extent.ending == Ending::kOpenQuote) {
    Mistake(extent.openQuote, "the quote opened here is not closed");
    return resumeBehind(record.size());
  }
  if (extent.ending == Ending::kEndOfFile) {
    csv_fini(&fParser, OnField, OnRecord, &fFields);
    if (fFields.memoryExhausted) throw std::bad_alloc();
  }
  if (!fFields.complete) {
    Consume(extent.length);
    return false;
  }
  fRow.fRecord = record;
  fRow.fLine = fLine;
  fRow.fFields.clear();
  std::size_t start = 0;
  for (const std::size_t end : fFields.ends) {
    fRow.fFields.push_back(std::string_view(fFields.text).substr(start, end - start));
    start = end;
  }
  Consume(extent.length);
  return true;
}

const CsvRow* CsvReader::Next() {
  while (!fDiagnostics.IsFull(Name())) {
    if (fBegin == fEnd && !Fill()) return nullptr;
    const Extent extent = FindRecord();
    if (extent.ending == Ending::kTooLong) {
      Mistake(extent.openQuote,
              fmt::format("expected records of at most {} bytes, this one is longer; is a quote "
                          "not closed?",
                          kLongestRecord));
      fBegin = fEnd = 0;
      fAtEnd = true;
      return nullptr;
    }
    if (extent.length == 0) return nullptr;
    if (Split(extent)) return &fRow;
  }
  return nullptr;
}

}  // namespace cardo
