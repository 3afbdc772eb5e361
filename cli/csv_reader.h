#pragma once

#include "diagnostics.h"

#include <cstddef>
#include <cstdio>
#include <csv.h>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace cardo {

// One record of a CSV file, valid until the reader's next step.
class CsvRow {
 public:
  [[nodiscard]] std::size_t Size() const noexcept { return fFields.size(); }
  [[nodiscard]] std::string_view operator[](std::size_t field) const { return fFields[field]; }
  // Line on which the record begins.
  [[nodiscard]] std::size_t Line() const noexcept { return fLine; }
  // Where a field begins; of a field that the record lacks, where the record ends.
  [[nodiscard]] Place PlaceOf(std::size_t field) const;

 private:
  friend class CsvReader;

  std::string fFile;
  std::string_view fRecord;
  std::size_t fLine = 0;
  std::vector<std::string_view> fFields;
};

// Reads a CSV file record by record in bounded memory, whatever the size of the file: UTF-8 with
// or without mark, fields separated by commas, optionally in double quotes, lines ended by LF,
// CRLF or CR. Blanks around a field that is not quoted are dropped, blank lines skipped. What is
// no such file goes to the diagnostics, and reading continues on the next line where it can.
class CsvReader {
 public:
  // A record may not be longer; a quote left open would swallow the file otherwise.
  static constexpr std::size_t kLongestRecord = std::size_t{1} << 20U;

  // name is the file's name in messages.
  CsvReader(const std::filesystem::path& path, std::string name, Diagnostics& diagnostics);
  ~CsvReader();
  CsvReader(const CsvReader&) = delete;
  CsvReader& operator=(const CsvReader&) = delete;

  // The next record, or null at the end of the file or when its mistakes are full.
  [[nodiscard]] const CsvRow* Next();

  [[nodiscard]] const std::string& Name() const noexcept { return fRow.fFile; }

 private:
  struct FileCloser {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
  };
  enum class Ending { kComplete, kEndOfFile, kOpenQuote, kTooLong };
  struct Extent {
    std::size_t length;
    Ending ending;
    std::size_t openQuote;
  };
  struct Fields {
    std::string text;
    std::vector<std::size_t> ends;
    bool complete = false;
    bool memoryExhausted = false;
  };

  static void OnField(void* text, std::size_t length, void* fields) noexcept;
  static void OnRecord(int terminator, void* fields) noexcept;

  void OpenParser();
  bool Fill();
  void CheckBeginning();
  [[nodiscard]] Extent FindRecord();
  // Takes the record apart; false if there is no row in it, mistake or blank line.
  bool Split(const Extent& extent);
  void Consume(std::size_t length);
  void Mistake(std::size_t offset, std::string message);

  Diagnostics& fDiagnostics;
  std::unique_ptr<std::FILE, FileCloser> fStream;
  csv_parser fParser{};
  std::vector<char> fBuffer;
  std::size_t fBegin = 0;  // of what has not been consumed, in fBuffer
  std::size_t fEnd = 0;
  std::size_t fLine = 1;  // of fBegin
  bool fAtEnd = false;
  Fields fFields;
  CsvRow fRow;
};

}  // namespace cardo
