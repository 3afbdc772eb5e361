// The stages that turn the ids of the records into links between observations and groups. An
// active observation without its complete chain of active groups becomes inactive.

#include "checks/failure_codes.h"
#include "checks/kl_exception.h"
#include "network/kl_bundel.h"

namespace vermo {
namespace {

constexpr std::uint32_t kNoId = 0xFFFFFFFF;

void Link(Data* group, LinkedObservation& observation) {
  if (group != nullptr) group->AddMessung(&observation);
}

bool IsActive(const Data* group) { return group != nullptr && group->IsActive(); }

// The active bit of a constraint survives only with both its groups active.
template <typename Constraint, typename Objects>
void LinkConstraint(Constraint& constraint, IndexedList<DataObko>& points, Objects& objects) {
  const DataObko* point = points.Find(constraint.PunktNummer());
  const auto* object = objects.Find(constraint.ObjektNummer());
  constraint.SetLinks(point, object);
  if (constraint.HasActiveBit()) constraint.SetActive(IsActive(point) && IsActive(object));
}

}  // namespace

void KLBundel::LinkEorCameras() {
  for (DataEor& eor : fEors) {
    if (eor.IorId() != kNoId) eor.SetIor(fIors.Find(eor.IorId()));
    if (eor.ProjektionId() != kNoId) eor.SetProjektion(fProjektionen.Find(eor.ProjektionId()));
  }
}

void KLBundel::PrepareDerivatives() {
  for (DataEor& eor : fEors) eor.PrepareDerivatives();
  for (DataLinie& linie : fLinien) linie.PrepareDerivatives();
  for (DataPlane& plane : fPlanes) plane.PrepareDerivatives();
}

void KLBundel::CheckGroupLinks() {
  for (DoppelOrientierung& pair : fDoppelOrientierungen)
    if (fEors.Find(pair.EorId()) == nullptr || fEors.Find(pair.BaseEorId()) == nullptr)
      WarnDataWithoutSubData(pair);

  for (DataObko& point : fObkos) {
    if (point.ReferenceEorId() == kNoId) continue;
    const DataEor* reference = fEors.Find(point.ReferenceEorId());
    if (IsActive(reference)) {
      point.SetReferenceEor(reference);
    } else {
      point.SetActive(false);
      WarnDataWithoutSubData(point);
    }
  }
}

KLBundel::RelativePair KLBundel::FindRelativePair(std::uint32_t imageId) {
  DoppelOrientierung* orientation = fDoppelOrientierungen.Find(imageId);
  if (orientation == nullptr) return {};
  DataEor* eor = fEors.Find(orientation->EorId());
  DataEor* base = fEors.Find(orientation->BaseEorId());
  if (eor == nullptr || base == nullptr) return {orientation, nullptr, nullptr};
  return {orientation, eor, base};
}

void KLBundel::LinkBiko() {
  for (MessungBiko& biko : fBiko) {
    DataObko* point = fObkos.Find(biko.Nummer());
    DataEor* eor = fEors.Find(biko.BildNummer());
    DataEor* base = nullptr;
    DataIor* ior = nullptr;
    if (eor != nullptr) {
      if (fDoppelOrientierungen.Contains(biko.BildNummer()))
        throw KlException(failure::kDoubleData);
      ior = eor->Ior();
    } else if (const RelativePair pair = FindRelativePair(biko.BildNummer()); pair.eor != nullptr) {
      eor = pair.eor;
      base = pair.base;
      ior = base->Ior();
      pair.orientation->AddMessung(&biko);
    }
    DataProjektion* projektion = nullptr;
    if (base != nullptr)
      projektion = base->Projektion();
    else if (eor != nullptr)
      projektion = eor->Projektion();

    biko.SetPunkt(point);
    biko.SetEor(eor);
    biko.SetEorBasis(base);
    biko.SetIor(ior);
    biko.SetProjektion(projektion);
    Link(point, biko);
    Link(eor, biko);
    Link(base, biko);
    Link(ior, biko);
    Link(projektion, biko);

    // The base image is not asked here; an inactive one makes the observation unusable in the
    // first build.
    if (!biko.IsActive()) continue;
    biko.SetActive(IsActive(point) && IsActive(eor) && IsActive(ior) &&
                   (projektion == nullptr || projektion->IsActive()));
    if (!biko.IsActive()) WarnObservationWithoutData(biko);
  }
}

void KLBundel::LinkLinko() {
  for (MessungLinko& linko : fLinko) {
    DataLinie* linie = fLinien.Find(linko.LinienNummer());
    DataEor* eor = fEors.Find(linko.BildNummer());
    DataEor* base = nullptr;
    DataIor* ior = nullptr;
    if (eor != nullptr) {
      if (fDoppelOrientierungen.Contains(linko.BildNummer()))
        throw KlException(failure::kDoubleData);
      if (eor->Projektion() != nullptr) throw KlException(failure::kLineCoordsWithPrincipalPoint);
      ior = eor->Ior();
    } else if (const RelativePair pair = FindRelativePair(linko.BildNummer());
               pair.eor != nullptr) {
      if (pair.base->Projektion() != nullptr)
        throw KlException(failure::kLineCoordsWithPrincipalPoint);
      eor = pair.eor;
      base = pair.base;
      ior = base->Ior();
    }
    linko.SetLinie(linie);
    linko.SetEor(eor);
    linko.SetEorBasis(base);
    linko.SetIor(ior);
    Link(linie, linko);
    Link(eor, linko);
    Link(ior, linko);
    Link(base, linko);

    if (!linko.IsActive()) continue;
    // A base image alone decides.
    linko.SetActive(base != nullptr ? base->IsActive()
                                    : IsActive(linie) && IsActive(eor) && IsActive(ior));
    if (!linko.IsActive()) WarnObservationWithoutData(linko);
  }
}

void KLBundel::LinkObko() {
  for (MessungObko& obko : fObko) {
    if (!obko.IsActive()) continue;
    DataObko* point = fObkos.Find(obko.Nummer());
    if (!IsActive(point)) {
      // The stage ends here: what stands behind stays without a link and active as given.
      obko.SetActive(false);
      WarnObservationWithoutData(obko);
      return;
    }
    obko.SetPunkt(point);
    Link(point, obko);
    if (!obko.NamesBezug()) continue;
    DataEor* bezug = fEors.Find(obko.BezugNummer());
    if (IsActive(bezug)) {
      obko.SetBezug(bezug);
      Link(bezug, obko);
    } else {
      obko.SetActive(false);
      WarnObservationWithoutData(obko);
    }
  }
}

void KLBundel::LinkPointOnLine() {
  for (BedingungPunktGerade& constraint : fPunktGeraden)
    LinkConstraint(constraint, fObkos, fLinien);
}

void KLBundel::LinkPointOnPlane() {
  for (ConstraintPointOnPlane& constraint : fPunktEbenen)
    LinkConstraint(constraint, fObkos, fPlanes);
}

void KLBundel::ActivateDatum() {
  fDatumCandidates.clear();
  for (DataObko& point : fObkos) fDatumCandidates.push_back(&point);
  fHlmTrans.SetPunkte(fDatumCandidates);
  fHlmRot.SetPunkte(fDatumCandidates);
  fHlmM.SetPunkte(fDatumCandidates);
  if (fNetworkSettings.TranslationDatum()) fHlmTrans.SetActive(true);
  if (fNetworkSettings.RotationDatum()) fHlmRot.SetActive(true);
  if (fNetworkSettings.ScaleDatum()) fHlmM.SetActive(true);
}

void KLBundel::LinkStrecken() {
  for (MessungStrecke& strecke : fStrecken) {
    DataObko* first = fObkos.Find(strecke.Punkt1Nummer());
    DataObko* second = fObkos.Find(strecke.Punkt2Nummer());
    strecke.SetPunkte(first, second);
    Link(first, strecke);
    Link(second, strecke);
    if (!strecke.IsActive()) continue;
    strecke.SetActive(IsActive(first) && IsActive(second));
    if (!strecke.IsActive()) WarnObservationWithoutData(strecke);
  }
}

}  // namespace vermo
