#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>
#include <xyz_api.h>

namespace cardo {

class BundleJob;
class CsvReader;
class CsvWriter;
class Diagnostics;
class IdRegister;

enum class ColumnNeed {
  kRequired,
  kOptional,
  kResult  // written by a run, passed over when read
};

struct ColumnInfo {
  std::string name;
  ColumnNeed need;
  std::string defaultText;
};

// What the tables of a job folder share while they are read.
struct ReadContext {
  void* job;
  IdRegister& ids;
  Diagnostics& diagnostics;
  // Standard deviation of an image coordinate whose table gives none.
  double s0Apriori;
  // Called now and then; throws to end the reading.
  std::function<void()> poll;
};

// What the tables need when they are written.
struct WriteContext {
  void* job;
  std::function<void()> poll;
};

// One kind of record and its table: NAME.csv in the job folder is read into a job and written
// from it with the results of the run. A table object belongs to one job; it remembers what the
// library does not give back.
class Table {
 public:
  Table() = default;
  virtual ~Table() = default;
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  // "points"; the file name without ".csv", and the name other tables refer to it by.
  [[nodiscard]] virtual std::string Name() const = 0;
  // The records are observations: a job needs a table of them.
  [[nodiscard]] virtual bool HoldsObservations() const = 0;
  // Every column that may stand in the table, for documentation and messages.
  [[nodiscard]] virtual std::vector<ColumnInfo> Columns() const = 0;

  // Reads all records and hands them to the job. Mistakes go to the diagnostics.
  virtual void Read(CsvReader& reader, const ReadContext& context) = 0;
  // Writes the records in the order in which they were read.
  virtual void Write(CsvWriter& writer, const WriteContext& context) const = 0;

  // The line image coordinates as they were read, of the table that holds them: the library does
  // not give all of them back.
  [[nodiscard]] virtual std::span<const sXYZ_PictureLineCoord> LineImageCoordinates() const {
    return {};
  }

  // Ids of the lines or planes that are fixed: the library does not tell.
  [[nodiscard]] virtual std::span<const std::int32_t> FixedShapes() const { return {}; }

  [[nodiscard]] std::string FileName() const { return Name() + ".csv"; }
};

}  // namespace cardo
