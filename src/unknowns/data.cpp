#include "unknowns/data.h"

#include "linalg/normal_system.h"

namespace vermo {

Data::~Data() = default;

void Data::AddToNormalEquations(NormalSystem& /*system*/, AdjustmentStatistics& /*statistics*/) {}

void Data::ResetUnknowns() { fFirstUnknown = kNoColumn; }

std::uint32_t Data::CountMessungen(MessungKind kind) const {
  std::uint32_t count = 0;
  for (const LinkedObservation* messung : fMessungen)
    if (messung->Kind() == kind && messung->IsUsed()) ++count;
  return count;
}

bool Data::HasMessungen(MessungKind kind, std::uint32_t atLeast) const noexcept {
  if (atLeast > fMessungen.size()) return false;
  std::uint32_t missing = atLeast;
  for (auto messung = fMessungen.begin(); missing != 0 && messung != fMessungen.end(); ++messung)
    if ((*messung)->Kind() == kind && (*messung)->IsUsed()) --missing;
  return missing == 0;
}

std::uint32_t Data::CountMessungDimensions() const {
  std::uint32_t count = 0;
  for (const LinkedObservation* messung : fMessungen) count += messung->UsedCount();
  return count;
}

std::uint32_t Data::CountAusreisser(MessungKind kind) const {
  std::uint32_t count = 0;
  for (const LinkedObservation* messung : fMessungen)
    if (messung->Kind() == kind && messung->IsAusreisser()) ++count;
  return count;
}

std::uint32_t Data::CountAusreisserDimensions() const {
  std::uint32_t count = 0;
  for (const LinkedObservation* messung : fMessungen)
    if (messung->IsActive() && messung->IsAusreisser()) count += messung->Dimension();
  return count;
}

std::uint32_t Data::AssignUnknowns(std::uint32_t next) {
  if (!(IsActive() && IsVariable())) {
    fFirstUnknown = kNoColumn;
    return next;
  }
  fFirstUnknown = static_cast<std::int32_t>(next);
  return next + UnknownCount();
}

void Data::Connect(const NetworkSettings& /*settings*/) {}

std::span<const double> Data::Increments(std::span<const double> solution) const {
  return solution.subspan(static_cast<std::size_t>(fFirstUnknown), UnknownCount());
}

double Data::OwnCofactor(const NormalSystem& cofactors,
                         std::uint32_t row,
                         std::uint32_t column) const {
  const auto first = static_cast<std::uint32_t>(fFirstUnknown);
  return cofactors.Cofactor(first + row, first + column);
}

double Data::Variance(const NormalSystem& cofactors, double s0, std::uint32_t i) const {
  return s0 * s0 * OwnCofactor(cofactors, i, i);
}

}  // namespace vermo
