#pragma once

#include <cstdint>

namespace vermo {

// Results of a run, read by the caller and by the protocol. All zero before the first iteration.
struct AdjustmentStatistics {
  std::uint32_t fUnbekannte = 0;        // u of the last system
  std::uint32_t fBeobachtungen = 0;     // n, observation components
  std::uint32_t fBedingungsAnzahl = 0;  // b, constraint rows
  std::int32_t fRedundanz = 0;          // n - u + b
  // The same as a double during the run; at its end the sum of the redundancy numbers.
  double fGesamtRedundanz = 0.0;
  std::uint32_t fAusreisser = 0;
  std::uint32_t fAusreisserRunde = 0;
  std::uint32_t fIteration = 0;  // from 1; both counters always agree
  std::uint32_t fIterationGesamt = 0;
  double fMittlereAenderung = 0.0;
  double fS0 = 0.0;
  double fTestwertKritisch = 0.0;
  double fTestwertAusreisser = 0.0;
  double fTestwertReaktivierung = 0.0;
};

}  // namespace vermo
