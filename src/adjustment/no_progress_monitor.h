#pragma once

#include <cstdint>
#include <deque>

namespace vermo {

// Watches the latest iterations: within the window S0 or the mean change must have fallen below
// the given ratio of what it was.
class NoProgressMonitor {
 public:
  NoProgressMonitor(std::int32_t window, double ratio) : fFenster(window), fFaktor(ratio) {}

  // Takes the figures of one more iteration; false when there is no progress. Shorter histories
  // than window + 1 always pass, and so does a window of 0. A window below 0 counts as huge.
  bool Feed(double s0, double mittlereAenderung);

  void Clear() { fHistory.clear(); }

 private:
  struct Entry {
    double s0;
    double mittlereAenderung;
  };

  [[nodiscard]] bool Passes(double newest, double oldest) const;

  std::int32_t fFenster;
  double fFaktor;
  std::deque<Entry> fHistory;  // newest first
};

}  // namespace vermo
