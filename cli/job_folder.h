#pragma once

#include "diagnostics.h"
#include "job_file.h"
#include "table.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <vector>

namespace cardo {

// The tables of a job folder, read into a job of the library.
struct JobTables {
  std::vector<std::unique_ptr<Table>> tables;  // those that the folder has

  // As they were read.
  [[nodiscard]] std::span<const sXYZ_PictureLineCoord> LineImageCoordinates() const {
    for (const auto& table : tables) {
      if (!table->LineImageCoordinates().empty()) return table->LineImageCoordinates();
    }
    return {};
  }
};

// Reads every table of the folder. Mistakes go to the diagnostics; after one the job is of no
// further use. poll is called now and then and may throw to end the reading.
[[nodiscard]] JobTables ReadTables(const std::filesystem::path& folder,
                                   const JobFile& file,
                                   void* job,
                                   Diagnostics& diagnostics,
                                   const std::function<void()>& poll);

}  // namespace cardo
