#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace vermo {

// What the checker finds. The words are the values of XYZ_CheckSettings.
enum class DatumVerdict : std::uint32_t {
  Allowed = 0,
  NothingTold = 0x1,
  ScaleUndetermined = 0x10,
  TranslationUndetermined = 0x100,
  RotationUndetermined = 0x1000,
  ScaleTwice = 0x10000,
  TranslationTwice = 0x100000,
  RotationTwice = 0x1000000
};

// Judges before a run whether what the caller has told so far fixes the datum of the network, and
// not twice. It looks at no geometry: it counts the elements that carry datum information, by
// their identifying texts, so that an element told twice counts once. It is only ever filled; what
// changes in the network later does not reach it.
class SettingsChecker {
 public:
  virtual ~SettingsChecker() = default;

  // Identifying texts on their way into the checker. Whoever stores an element makes them before
  // and adds them after: then a failure for lack of memory leaves both untouched.
  using Idents = std::set<std::string>;
  void AddDistances(Idents idents) { fDistanzen.merge(idents); }
  void AddObjectPoints(Idents idents) { fObjektpunkte.merge(idents); }
  void AddMeasuredObjectPoints(Idents idents) { fGemesseneObjektpunkte.merge(idents); }
  void AddExteriorOrientations(Idents idents) { fAeussereOrientierungen.merge(idents); }

  void AddDistance(const std::string& ident) { fDistanzen.insert(ident); }
  void AddObjectPoint(const std::string& ident) { fObjektpunkte.insert(ident); }
  void AddMeasuredObjectPoint(const std::string& ident) { fGemesseneObjektpunkte.insert(ident); }
  void AddExteriorOrientation(const std::string& ident) { fAeussereOrientierungen.insert(ident); }
  // The identifying text of a relative orientation is empty, so all of them share one entry and
  // the last one stands.
  void AddRelativeOrientation(const std::string& ident, std::uint32_t baseEorId) {
    fRelativeOrientierungen[ident] = baseEorId;
  }
  void SetTranslationFree() noexcept { fTranslationFrei = true; }
  void SetRotationFree() noexcept { fRotationFrei = true; }
  void SetScaleFree() noexcept { fMassstabFrei = true; }

  // A word of DatumVerdict: the first of the tests, in their order, that holds.
  [[nodiscard]] std::uint32_t ResultCode() const;

 private:
  [[nodiscard]] DatumVerdict Verdict() const;
  // Fixed images that are not merely the base of a relative orientation.
  [[nodiscard]] std::size_t OwnOrientations() const;

  Idents fDistanzen;
  Idents fObjektpunkte;
  Idents fGemesseneObjektpunkte;
  Idents fAeussereOrientierungen;
  std::map<std::string, std::uint32_t> fRelativeOrientierungen;  // to the id of the base
  bool fTranslationFrei = false;
  bool fRotationFrei = false;
  bool fMassstabFrei = false;
};

}  // namespace vermo
