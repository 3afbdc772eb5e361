#include "job_folder.h"

#include "csv_reader.h"
#include "id_register.h"
#include "nearest_name.h"
#include "record_flags.h"
#include "table_registry.h"

#include <algorithm>
#include <fmt/format.h>
#include <string>
#include <string_view>
#include <system_error>
#include <xyz_api.h>

namespace cardo {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> FileNames(const std::vector<std::unique_ptr<Table>>& tables) {
  std::vector<std::string> names;
  names.reserve(tables.size());
  for (const auto& table : tables) names.push_back(table->FileName());
  return names;
}

// In any spelling: POINTS.CSV is a table, too, under a name that nothing reads.
bool IsTableName(std::string_view name) {
  constexpr std::string_view kEnding = ".csv";
  return name.size() >= kEnding.size() &&
         std::ranges::equal(name.substr(name.size() - kEnding.size()), kEnding, [](char a, char b) {
           return a == b || (a >= 'A' && a <= 'Z' && a - 'A' + 'a' == b);
         });
}

// A table under a name that nothing reads would be left out in silence.
void CheckForUnknownTables(const fs::path& folder,
                           const std::vector<std::string>& known,
                           Diagnostics& diagnostics) {
  std::error_code error;
  std::vector<std::string> unknown;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (!IsTableName(name)) continue;
    if (std::find(known.begin(), known.end(), name) == known.end()) unknown.push_back(name);
  }
  if (error) diagnostics.Add({folder.string()}, "cannot be read: " + error.message());
  std::sort(unknown.begin(), unknown.end());
  if (unknown.size() > Diagnostics::kLimitPerFile) unknown.resize(Diagnostics::kLimitPerFile);
  for (const std::string& name : unknown) {
    diagnostics.Add({name}, "unknown table" + Suggestion(name, known));
  }
}

bool HasDatumPoint(void* job) {
  sXYZ_ObjectCoord point{};
  for (int i = 0; i < XYZ_GetObjectCoordCnt(job); ++i) {
    if (XYZ_GetObjectCoordAt(job, i, &point) == eXYZ_Ok && (point.Flags & kActive) != 0 &&
        (point.PointFlags & kDatumPoint) != 0) {
      return true;
    }
  }
  return false;
}

}  // namespace

JobTables ReadTables(const fs::path& folder,
                     const JobFile& file,
                     void* job,
                     Diagnostics& diagnostics,
                     const std::function<void()>& poll) {
  std::vector<std::unique_ptr<Table>> known = MakeTables();
  CheckForUnknownTables(folder, FileNames(known), diagnostics);
  JobTables result;
  IdRegister ids;
  const ReadContext context{
      job, ids, diagnostics, std::get<double>(ValueOf(file.parameters, "s0_apriori")), poll};
  bool hasObservations = false;
  std::string observationTables;
  for (auto& table : known) {
    if (table->HoldsObservations()) {
      observationTables += (observationTables.empty() ? "" : ", ") + table->FileName();
    }
    const fs::path path = folder / table->FileName();
    // A link that leads nowhere is a mistake, no missing table.
    std::error_code ignored;
    if (!fs::exists(fs::symlink_status(path, ignored))) continue;
    hasObservations |= table->HoldsObservations();
    CsvReader reader(path, table->FileName(), diagnostics);
    if (diagnostics.CountOf(table->FileName()) > 0) {
      ids.Announce(table->Name());
      ids.MarkIncomplete(table->Name());
    } else {
      table->Read(reader, context);
    }
    result.tables.push_back(std::move(table));
  }
  if (!hasObservations && diagnostics.IsEmpty()) {
    diagnostics.Add({folder.string()},
                    "no observations, expected at least one table of " + observationTables);
  }
  if (diagnostics.IsEmpty() && std::get<int>(ValueOf(file.parameters, "datum")) != 0 &&
      !HasDatumPoint(job)) {
    diagnostics.Add(file.datumPlace,
                    "datum is asked for, but no active point of points.csv has datum = 1");
  }
  return result;
}

}  // namespace cardo
