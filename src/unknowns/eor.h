#pragma once

#include "linalg/tensors.h"

#include <cstdint>

namespace vermo {

// Position and rotation of an image, x object = R x camera + t, with the ids of the image and of
// its camera.
class Eor : public ostra_bundle::RelationD<3> {
 public:
  static constexpr std::uint32_t kNoId = 0xFFFFFFFF;

  [[nodiscard]] std::uint32_t Id() const noexcept { return fId; }
  void SetId(std::uint32_t id) noexcept { fId = id; }
  [[nodiscard]] std::uint32_t IorId() const noexcept { return fIorId; }
  void SetIorId(std::uint32_t id) noexcept { fIorId = id; }

 private:
  std::uint32_t fIorId = kNoId;
  std::uint32_t fId = kNoId;
};

}  // namespace vermo
