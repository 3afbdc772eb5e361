#include "adjustment/no_progress_monitor.h"

namespace vermo {

bool NoProgressMonitor::Feed(double s0, double mittlereAenderung) {
  fHistory.push_front({s0, mittlereAenderung});
  const std::uint64_t length = std::uint64_t{static_cast<std::uint32_t>(fFenster)} + 1;
  if (fHistory.size() < length) return true;
  while (fHistory.size() > length) fHistory.pop_back();
  if (fHistory.size() < 2) return true;
  const Entry& newest = fHistory.front();
  const Entry& oldest = fHistory.back();
  return Passes(newest.mittlereAenderung, oldest.mittlereAenderung) || Passes(newest.s0, oldest.s0);
}

bool NoProgressMonitor::Passes(double newest, double oldest) const {
  if (oldest == 0.0) return fFaktor > 0.0;
  return fFaktor > newest / oldest;
}

}  // namespace vermo
