#pragma once

#include <cstdint>

namespace vermo {

// What the loop tells of one iteration when its solution and statistics are known.
struct IterationInfo {
  double s0 = 0.0;
  double mittlereAenderung = 0.0;
  double aufbauSekunden = 0.0;   // from the start of the iteration to the end of its build
  double loesungSekunden = 0.0;  // from there to the end of the statistics
  std::uint32_t iterationGesamt = 0;
  std::uint32_t iteration = 0;
  std::uint32_t ausreisserRunde = 0;
  std::uint32_t beobachtungen = 0;
  std::uint32_t unbekannte = 0;
  std::uint32_t bedingungen = 0;
  std::int32_t redundanz = 0;
  double s0APriori = 0.0;  // filled by the network, which knows it
};

}  // namespace vermo
