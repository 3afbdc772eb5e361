#pragma once

#include "unknowns/linked_observation.h"

#include <cstdint>
#include <optional>

namespace vermo::test {

// What a group sees of an observation, and no more.
class FakeObservation final : public LinkedObservation {
 public:
  explicit FakeObservation(MessungKind kind, std::uint32_t dimension = 2)
      : LinkedObservation(kind), fDimension(dimension) {
    SetActive(true);
  }

  [[nodiscard]] std::uint32_t Dimension() const noexcept override { return fDimension; }
  bool EvaluateImagePoint(ImagePointPair& point) override {
    ++evaluations;
    if (!model) return false;
    point = *model;
    return true;
  }

  std::optional<ImagePointPair> model;  // none: there is no model value
  unsigned evaluations = 0;

 private:
  std::uint32_t fDimension;
};

}  // namespace vermo::test
