#pragma once

#include "table.h"

#include <memory>
#include <vector>

namespace cardo {

// One fresh object per kind of table, each behind the tables it refers to.
[[nodiscard]] std::vector<std::unique_ptr<Table>> MakeTables();

}  // namespace cardo
