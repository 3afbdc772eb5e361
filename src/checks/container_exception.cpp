#include "checks/container_exception.h"

#include "checks/latin1.h"

namespace vermo {

const char* StandardException::GetText() const noexcept { return "Undefinierter Fehler"; }

const char* ContainerException::GetText() const noexcept {
  switch (fCode) {
    case 0:
      return "Kein Fehler";
    case 1:
      return "Ungültige Dimension des Containers"_latin1;
    case kOutOfMemory:
      return "Nicht genügend Arbeitsspeicher"_latin1;
    case 3:
      return "Zugriff außerhalb des Containerbereichs"_latin1;
    case 4:
      return "Ungültiger Container"_latin1;
    default:
      return StandardException::GetText();
  }
}

}  // namespace vermo
