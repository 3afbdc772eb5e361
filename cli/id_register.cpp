#include "id_register.h"

namespace cardo {

std::optional<std::size_t> IdList::Add(std::int32_t id, std::size_t line, bool isActive) {
  const auto [place, added] = fRecords.try_emplace(id, Record{line, isActive});
  if (added) return std::nullopt;
  return place->second.line;
}

bool IdList::IsActive(std::int32_t id) const {
  const auto found = fRecords.find(id);
  return found != fRecords.end() && found->second.isActive;
}

bool IdRegister::IsComplete(std::string_view table) const {
  const auto found = fTables.find(table);
  return found == fTables.end() || found->second.complete;
}

const IdList* IdRegister::Find(std::string_view table) const {
  const auto found = fTables.find(table);
  return found == fTables.end() ? nullptr : &found->second.ids;
}

}  // namespace cardo
