#pragma once

#include "observations/bedingung.h"
#include "unknowns/data_linie.h"
#include "unknowns/data_obko.h"
#include "unknowns/data_plane.h"

#include <cstdint>

namespace vermo {

// What the constraints of a point on a line or on a plane share: numbers and links. Such a
// constraint is active only while both its groups are there and active. Multipliers are not kept.
template <typename Objekt>
class BedingungPunktObjekt : public Bedingung {
 public:
  [[nodiscard]] bool IsActive() const override {
    return fObjekt != nullptr && fObjekt->IsActive() && fPunkt != nullptr && fPunkt->IsActive() &&
           Bedingung::IsActive();
  }
  // The active bit alone, as set by the caller or by the run.
  [[nodiscard]] bool HasActiveBit() const { return Bedingung::IsActive(); }

  [[nodiscard]] std::uint32_t Id() const noexcept { return fNummer; }
  [[nodiscard]] std::uint32_t PunktNummer() const noexcept { return fPunktNummer; }
  [[nodiscard]] std::uint32_t ObjektNummer() const noexcept { return fObjektNummer; }
  void SetNummern(std::uint32_t id, std::uint32_t punkt, std::uint32_t objekt) noexcept {
    fNummer = id;
    fPunktNummer = punkt;
    fObjektNummer = objekt;
  }
  void SetLinks(const DataObko* punkt, const Objekt* objekt) noexcept {
    fPunkt = punkt;
    fObjekt = objekt;
  }

 protected:
  [[nodiscard]] const Objekt& GetObjekt() const noexcept { return *fObjekt; }
  [[nodiscard]] const DataObko& GetPunkt() const noexcept { return *fPunkt; }
  // Neither group has columns: there is nothing that the constraint could act on.
  [[nodiscard]] bool HasNoColumns() const noexcept {
    return fPunkt->FirstUnknown() < 0 && fObjekt->FirstUnknown() < 0;
  }

 private:
  std::uint32_t fNummer = 0xFFFFFFFF;
  std::uint32_t fPunktNummer = 0xFFFFFFFF;
  std::uint32_t fObjektNummer = 0xFFFFFFFF;
  const Objekt* fObjekt = nullptr;  // links are set by the run, not owned
  const DataObko* fPunkt = nullptr;
};

// An object point lies exactly on a line: in the line's local frame u = M (X - P) its first two
// coordinates are 0. The point's own frame plays no part. Between two fixed elements the rows
// stay empty, which makes the system singular.
class BedingungPunktGerade final : public BedingungPunktObjekt<DataLinie> {
 public:
  [[nodiscard]] std::uint32_t ConstraintCount() const override { return IsActive() ? 2 : 0; }
  void AddConstraintRows(NormalSystem& system) const override;
  [[nodiscard]] std::string GetDescription() const override;
};

// An object point, taken in the object frame, lies exactly on a plane: n (X - P) = 0.
class ConstraintPointOnPlane final : public BedingungPunktObjekt<DataPlane> {
 public:
  [[nodiscard]] std::uint32_t ConstraintCount() const override { return IsActive() ? 1 : 0; }
  void AddConstraintRows(NormalSystem& system) const override;
  [[nodiscard]] std::string GetDescription() const override;
};

}  // namespace vermo
