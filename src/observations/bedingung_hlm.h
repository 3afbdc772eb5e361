#pragma once

#include "observations/bedingung.h"
#include "unknowns/data_obko.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vermo {

// The datum of a free network in the manner of a Helmert transformation: translation, rotation
// and scale of the set of datum points stay as they were in the approximate coordinates X0. A
// datum point takes part with its stored coordinates X; one without columns (a fixed point) takes
// part in centroid, spread and right-hand side, and has no element to store.
class BedingungHlm : public Bedingung {
 public:
  // The points that the constraint looks through, not owned; fixed for the life of the job.
  void SetPunkte(std::span<DataObko* const> points) noexcept { fPunkte = points; }
  [[nodiscard]] bool IsDatum() const noexcept final { return true; }

 protected:
  [[nodiscard]] bool HasDatumPoints() const;
  // Mean of X over the datum points.
  [[nodiscard]] DataObko::Vector Centroid() const;
  // Calls visit(point) for every datum point in order.
  template <typename Visit>
  void ForEachDatumPoint(Visit visit) const {
    for (const DataObko* point : fPunkte)
      if (point->IsReferencePoint()) visit(*point);
  }

 private:
  std::span<DataObko* const> fPunkte;
};

// A datum constraint of so many rows, which keeps its solved multipliers.
template <std::uint32_t Rows>
class TBedingungHlm : public BedingungHlm {
 public:
  void StoreMultipliers(std::span<const double> solution) final {
    if (IsActive()) std::ranges::copy(solution.subspan(FirstRow(), Rows), fWerte.begin());
  }
  [[nodiscard]] std::uint32_t ConstraintCount() const final { return IsActive() ? Rows : 0; }
  [[nodiscard]] std::vector<double> CollectMultipliers() const final {
    return {fWerte.begin(), fWerte.end()};
  }

 private:
  std::array<double, Rows> fWerte{};
};

// Three rows 1e-5 dX: the sum of the coordinates goes back to that of X0.
class BedingungHlmTrans final : public TBedingungHlm<3> {
 public:
  void AddConstraintRows(NormalSystem& system) const override;
  [[nodiscard]] std::string GetDescription() const override;
};

// Three rows s (X - c) x dX: takes back the rotation between X and X0. The scale s is 1e-5 over
// the spread m; m carries the sign of the coordinate that it was taken from, and so do all three
// rows with their right-hand side.
class BedingungHlmRot final : public TBedingungHlm<3> {
 public:
  void AddConstraintRows(NormalSystem& system) const override;
  [[nodiscard]] std::string GetDescription() const override;
};

// One row s (X - c) . dX: the sum of the squared distances from the centroid stays the same to
// first order.
class BedingungHlmM final : public TBedingungHlm<1> {
 public:
  void AddConstraintRows(NormalSystem& system) const override;
  [[nodiscard]] std::string GetDescription() const override;
};

}  // namespace vermo
