#include "network/bundel_verband.h"

namespace vermo {
namespace {

template <typename List>
std::uint32_t CountActive(const List& list) {
  std::uint32_t count = 0;
  for (const Data& group : list)
    if (group.IsActive()) ++count;
  return count;
}

}  // namespace

std::uint32_t BundelVerband::ActiveIorCount() const { return CountActive(fIors); }
std::uint32_t BundelVerband::ActiveEorCount() const { return CountActive(fEors); }
std::uint32_t BundelVerband::ActiveObkoCount() const { return CountActive(fObkos); }

}  // namespace vermo
