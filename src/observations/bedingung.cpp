#include "observations/bedingung.h"

namespace vermo {

std::uint32_t Bedingung::AssignConstraintIndex(std::uint32_t next) {
  if (!IsActive()) {
    fFirstUnknown = kNoRow;
    return next;
  }
  fFirstUnknown = next;
  return next + ConstraintCount();
}

}  // namespace vermo
