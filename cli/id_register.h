#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace cardo {

// The ids of one table and the lines they stand on.
class IdList {
 public:
  // Takes an id; if it is there already nothing changes and its line is the result.
  std::optional<std::size_t> Add(std::int32_t id, std::size_t line, bool isActive = true);
  [[nodiscard]] bool Contains(std::int32_t id) const { return fRecords.contains(id); }
  // The id is there and its record takes part in the run.
  [[nodiscard]] bool IsActive(std::int32_t id) const;

 private:
  struct Record {
    std::size_t line;
    bool isActive;
  };

  std::unordered_map<std::int32_t, Record> fRecords;
};

// The ids of all tables read so far, by table name ("points"). Tables are read after those they
// refer to.
class IdRegister {
 public:
  // Declares a table as read. Ids of a table with mistakes are not complete: references to it
  // cannot be judged.
  void Announce(std::string_view table) { fTables.try_emplace(std::string(table)); }
  void MarkIncomplete(std::string_view table) { Entry(table).complete = false; }

  [[nodiscard]] bool IsAnnounced(std::string_view table) const { return fTables.contains(table); }
  [[nodiscard]] bool IsComplete(std::string_view table) const;
  [[nodiscard]] IdList& Ids(std::string_view table) { return Entry(table).ids; }
  // Null for a table that was not announced.
  [[nodiscard]] const IdList* Find(std::string_view table) const;

 private:
  struct TableIds {
    IdList ids;
    bool complete = true;
  };

  TableIds& Entry(std::string_view table) { return fTables[std::string(table)]; }

  std::map<std::string, TableIds, std::less<>> fTables;
};

}  // namespace cardo
