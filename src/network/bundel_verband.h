#pragma once

#include "checks/settings_checker.h"
#include "network/object_list.h"
#include "observations/bedingung_punkt.h"
#include "observations/messung_biko.h"
#include "observations/messung_linko.h"
#include "observations/messung_obko.h"
#include "observations/messung_strecke.h"
#include "protocol/protocol_target.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_ior.h"
#include "unknowns/data_linie.h"
#include "unknowns/data_obko.h"
#include "unknowns/data_plane.h"
#include "unknowns/data_projektion.h"
#include "unknowns/doppel_orientierung.h"
#include "unknowns/network_settings.h"

#include <cstdint>

namespace vermo {

// Everything a job is made of: observations, groups of unknowns, constraints between them, the
// settings of the network and the checker of its datum.
// It owns copies of what the caller hands in. Ids are looked up by the run only, so records may
// come in any order; the list of a kind never refuses an id.
class BundelVerband : public ProtocolTarget {
 public:
  BundelVerband() = default;
  BundelVerband(const BundelVerband&) = delete;
  BundelVerband& operator=(const BundelVerband&) = delete;

  // Sends a text to the protocol as it is.
  virtual void ProtocolLine(const char* text) = 0;
  // Receives every text of the protocol before the file does.
  void OnProtocolText(const char* /*text*/) override {}
  // An observation lost its active flag because a group that it needs is missing or inactive.
  virtual void WarnObservationWithoutData(Messung& /*observation*/) {}
  // A group lost a group that it refers to, or never had it.
  virtual void WarnDataWithoutSubData(Data& /*group*/) {}

  [[nodiscard]] std::uint32_t ActiveIorCount() const;
  [[nodiscard]] std::uint32_t ActiveEorCount() const;
  [[nodiscard]] std::uint32_t ActiveObkoCount() const;

  // Destroyed in reverse order: the groups go first, then the observations that they point at.
  ObjectList<MessungBiko> fBiko;
  ObjectList<MessungObko> fObko;
  ObjectList<MessungStrecke> fStrecken;
  ObjectList<MessungLinko> fLinko;
  IndexedList<DataIor> fIors;
  IndexedList<DataProjektion> fProjektionen;
  IndexedList<DataEor> fEors;
  IndexedList<DataObko> fObkos;
  IndexedList<DataLinie> fLinien;
  IndexedList<DataPlane> fPlanes;
  IndexedList<DoppelOrientierung> fDoppelOrientierungen;
  IndexedList<BedingungPunktGerade> fPunktGeraden;
  IndexedList<ConstraintPointOnPlane> fPunktEbenen;
  NetworkSettings fNetworkSettings;
  SettingsChecker fChecker;
};

}  // namespace vermo
