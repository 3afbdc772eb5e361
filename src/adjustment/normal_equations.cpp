// How the lists of an adjustment become the system of one iteration. Nothing is kept from one
// iteration to the next but the values of the unknowns.

#include "adjustment/adjustment.h"
#include "observations/bedingung.h"
#include "observations/messung.h"
#include "unknowns/data.h"

#include <typeinfo>

namespace vermo {
namespace {

// Observations whose groups are fetched before their turn.
constexpr std::size_t kAhead = 8;

}  // namespace

std::uint32_t Adjustment::BuildNormalEquations() {
  // An inactive group is not touched and keeps its old column: unusable observations are
  // dropped, so nothing reads it.
  std::uint32_t unknowns = 0;
  for (Data* group : fDaten)
    if (group->IsActive()) unknowns = group->AssignUnknowns(unknowns);

  std::uint32_t rows = unknowns;
  for (Bedingung* constraint : fBedingungen) rows = constraint->AssignConstraintIndex(rows);

  SetLayout(rows);
  std::uint32_t components = 0;
  do {
    TellCouplings(unknowns, rows);
    fSystem->Reset(unknowns, rows - unknowns);
    if (fSystem->TakesReservations()) ReserveRows();
    components = 0;
    ResidualSums sums;
    for (std::size_t k = 0; k < fMessungen.size(); ++k) {
      FetchAhead(k);
      const MessungEntry& entry = fMessungen[k];
      if (!entry.messung->IsUsable()) entry.messung->SetActive(false);
      if (!entry.messung->IsConnected()) continue;
      components += entry.messung->UsedCount();
      entry.messung->AddToNormals(*fSystem, fEquations);
      sums.Add(*entry.messung);
    }
    fResidualSums = sums;
    for (const Bedingung* constraint : fBedingungen)
      if (constraint->IsActive()) constraint->AddConstraintRows(*fSystem);
    for (Data* group : fDaten) group->AddToNormalEquations(*fSystem, fStatistik);
  } while (!fSystem->Seal());
  return components;
}

// The groups of the first class lead: its type is that of the first group. Multipliers of the datum
// stand together, as every point has to do with all of them.
void Adjustment::SetLayout(std::uint32_t size) {
  fLayout.starts.clear();
  fLayout.leading = 0;
  const Data* first = fDaten.empty() ? nullptr : fDaten.front();
  for (const Data* group : fDaten) {
    if (!group->IsActive() || group->FirstUnknown() < 0 || group->UnknownCount() == 0) continue;
    fLayout.starts.push_back(static_cast<std::uint32_t>(group->FirstUnknown()));
    if (typeid(*group) == typeid(*first)) ++fLayout.leading;
  }
  bool isBehindDatum = false;
  for (const Bedingung* constraint : fBedingungen) {
    if (constraint->ConstraintCount() == 0) continue;
    const bool isDatum = constraint->IsDatum();
    if (!(isDatum && isBehindDatum)) fLayout.starts.push_back(constraint->FirstRow());
    isBehindDatum = isDatum;
  }
  fLayout.starts.push_back(size);
  fSystem->SetLayout(fLayout);
}

void Adjustment::FetchAhead(std::size_t k) const {
  if (k + 2 * kAhead < fMessungen.size()) fMessungen[k + 2 * kAhead].messung->Fetch();
  if (k + kAhead < fMessungen.size()) fMessungen[k + kAhead].messung->FetchGroups();
}

// An engine that wants to know where elements will be learns it from the links, which costs less
// than an assembly.
void Adjustment::TellCouplings(std::uint32_t unknowns, std::uint32_t rows) {
  GroupColumns columns;
  while (fSystem->WantsCouplings()) {
    fSystem->Reset(unknowns, rows - unknowns);
    for (std::size_t k = 0; k < fMessungen.size(); ++k) {
      FetchAhead(k);
      const MessungEntry& entry = fMessungen[k];
      if (!entry.messung->IsUsed() || !entry.messung->IsUsable()) continue;
      columns.clear();
      entry.messung->CollectColumns(columns);
      fSystem->Couple({columns.begin(), columns.size()});
    }
    for (const Bedingung* constraint : fBedingungen)
      if (constraint->IsActive()) constraint->AddConstraintRows(*fSystem);
    static_cast<void>(fSystem->Seal());
  }
}

// Groups come in the order of their columns: the first one that an observation is linked to has the
// smallest column of its rows, and a group's rows reach to the smallest of its observations.
void Adjustment::ReserveRows() {
  for (const MessungEntry& entry : fMessungen)
    entry.messung->SetSmallestColumn(LinkedObservation::kNoColumn);
  for (const Data* group : fDaten) {
    if (!group->IsActive() || group->FirstUnknown() < 0) continue;
    const auto first = static_cast<std::uint32_t>(group->FirstUnknown());
    std::uint32_t smallest = first;
    for (LinkedObservation* messung : group->Messungen()) {
      if (!messung->IsUsed()) continue;
      if (messung->SmallestColumn() == LinkedObservation::kNoColumn)
        messung->SetSmallestColumn(first);
      if (messung->SmallestColumn() < smallest) smallest = messung->SmallestColumn();
    }
    for (std::uint32_t i = 0; i < group->UnknownCount(); ++i)
      fSystem->ReserveRow(first + i, smallest);
  }
}

}  // namespace vermo
