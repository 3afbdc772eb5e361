#pragma once

#include "checks/warnings.h"
#include "linalg/envelope_system.h"
#include "observations/bedingung_hlm.h"
#include "protocol/protocol_results.h"

namespace vermo::test {

// The results of a run over nothing, and what they point at.
struct ResultScene {
  ResultScene() {
    results.translation = &translation;
    results.rotation = &rotation;
    results.scale = &scale;
    results.system = &system;
    results.warnings = &warnings;
  }
  ResultScene(const ResultScene&) = delete;
  ResultScene& operator=(const ResultScene&) = delete;

  BedingungHlmTrans translation;
  BedingungHlmRot rotation;
  BedingungHlmM scale;
  EnvelopeSystem system;
  WarningList warnings;
  ProtocolResults results;
};

}  // namespace vermo::test
