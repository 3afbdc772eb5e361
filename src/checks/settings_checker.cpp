#include "checks/settings_checker.h"

namespace vermo {

std::uint32_t SettingsChecker::ResultCode() const { return static_cast<std::uint32_t>(Verdict()); }

DatumVerdict SettingsChecker::Verdict() const {
  const std::size_t d = fDistanzen.size();
  const std::size_t p = fObjektpunkte.size();
  const std::size_t m = fGemesseneObjektpunkte.size();
  const std::size_t e = fAeussereOrientierungen.size();
  const std::size_t r = fRelativeOrientierungen.size();
  const bool translation = fTranslationFrei;
  const bool rotation = fRotationFrei;
  const bool scale = fMassstabFrei;

  if (d + p + m + e + r == 0 && !translation && !rotation && !scale)
    return DatumVerdict::NothingTold;
  if (!(d > 0 || p > 1 || m > 1 || r > 0 || scale)) return DatumVerdict::ScaleUndetermined;
  if (!(p > 0 || m > 0 || e > 0 || translation)) return DatumVerdict::TranslationUndetermined;
  if (!(p > 2 || m > 2 || e > 0 || rotation)) return DatumVerdict::RotationUndetermined;
  if ((d > 0 || p >= 2 || m >= 2 || r > 0) && scale) return DatumVerdict::ScaleTwice;
  const std::size_t k = OwnOrientations();
  if ((p > 0 || m > 0 || k > 0) && translation) return DatumVerdict::TranslationTwice;
  if ((p >= 3 || m >= 3 || k > 0) && rotation) return DatumVerdict::RotationTwice;
  return DatumVerdict::Allowed;
}

std::size_t SettingsChecker::OwnOrientations() const {
  std::set<std::string> own = fAeussereOrientierungen;
  for (const auto& [ident, base] : fRelativeOrientierungen) own.erase(std::to_string(base));
  return own.size();
}

}  // namespace vermo
