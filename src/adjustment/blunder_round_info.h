#pragma once

#include "adjustment/iteration_info.h"

#include <deque>

namespace vermo {

class Messung;

// An observation that an outlier test marked or readmitted, not owned, with its test value.
struct BlunderEntry {
  Messung* messung = nullptr;
  double testwert = 0.0;
};

// What the loop tells of one outlier test; all zero and empty when the test is off.
struct BlunderRoundInfo : IterationInfo {
  double testwertKritisch = 0.0;       // tau
  double testwertAusreisser = 0.0;     // threshold of this round
  double testwertReaktivierung = 0.0;  // below it a rejected observation comes back
  // In the order of the adjustment's list.
  std::deque<BlunderEntry> ausreisser;
  std::deque<BlunderEntry> reaktiviert;
};

}  // namespace vermo
