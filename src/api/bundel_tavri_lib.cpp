#include "api/bundel_tavri_lib.h"

#include <string>

void BundelTavriLib::ForwardProtocolText(const char* text) {
  if (fProtocolCallback == nullptr) return;
  // The caller's function takes a writable text; it gets a copy, so that what it does to it
  // cannot reach the file.
  std::string copy(text);
  fProtocolCallback(this, copy.data(), fProtocolUserData);
}

bool BundelTavriLib::OnIteration(vermo::IterationInfo& info) {
  if (fProgressCallback != nullptr) {
    const vermo::AdjustmentStatistics& statistics = Statistics();
    sXYZ_CBProgressInfo progress{};
    progress.Iteration = static_cast<std::int32_t>(statistics.fIterationGesamt);
    progress.BlunderCount = static_cast<std::int32_t>(statistics.fAusreisser);
    progress.UnknownCount = static_cast<std::int32_t>(statistics.fUnbekannte);
    progress.ObservationCount = static_cast<std::int32_t>(statistics.fBeobachtungen);
    progress.Norm = statistics.fMittlereAenderung;
    progress.S0 = statistics.fS0;
    if (fProgressCallback(this, &progress, fProgressUserData) != 0) return true;
  }
  return KLBundel::OnIteration(info);
}
