#include "unknowns/doppel_orientierung.h"

#include "checks/language.h"

namespace vermo {

std::string DoppelOrientierung::GetDescription() const {
  return ByLanguage("Relative Orientierung ", "Relative orientation ") + std::to_string(fId);
}

}  // namespace vermo
