#pragma once

#include "observations/messung.h"
#include "unknowns/data.h"

#include <cstdint>

// What all records share: the tag and the flag word.

namespace record {

inline constexpr std::uint16_t kActive = 0x01;
inline constexpr std::uint16_t kFixed = 0x10;      // of a group
inline constexpr std::uint16_t kBlunder = 0x10;    // of an observation
inline constexpr std::uint16_t kProtected = 0x20;  // of an observation

// Ids are unsigned in the engine and signed in the records; -1 is "none" in both.
inline std::uint32_t IdIn(std::int32_t id) noexcept { return static_cast<std::uint32_t>(id); }
inline std::int32_t IdOut(std::uint32_t id) noexcept { return static_cast<std::int32_t>(id); }

// A tag of 0 is none; any other is stored as the number before it.
template <typename Object>
void ApplyTag(std::uint16_t tag, Object& object) noexcept {
  if (tag != 0) object.SetOrdinal(tag - 1);
}

inline void ApplyGroupFlags(std::uint16_t flags, vermo::Data& group) {
  group.ClearFlags();
  group.SetActive((flags & kActive) != 0);
  group.SetVariable((flags & kFixed) == 0);
}

inline void ApplyObservationFlags(std::uint16_t flags, vermo::Messung& observation) noexcept {
  observation.SetActive((flags & kActive) != 0);
  if ((flags & kBlunder) != 0) observation.SetAusreisser();
  observation.SetNoBlunderTest((flags & kProtected) != 0);
}

inline std::uint16_t ActiveFlag(const vermo::Data& group) { return group.IsActive() ? kActive : 0; }

inline std::uint16_t GroupFlags(const vermo::Data& group) {
  return static_cast<std::uint16_t>(ActiveFlag(group) | (group.IsVariable() ? 0 : kFixed));
}

inline std::uint16_t ObservationFlags(const vermo::Messung& observation) noexcept {
  return static_cast<std::uint16_t>((observation.IsActive() ? kActive : 0) |
                                    (observation.IsAusreisser() ? kBlunder : 0) |
                                    (observation.TakesPartInBlunderTest() ? 0 : kProtected));
}

// The position as the engine counts, valid when the result is true.
inline bool ValidPosition(int index, std::uint32_t count, std::uint32_t& position) noexcept {
  position = static_cast<std::uint32_t>(index);
  return index >= 0 && position < count;
}

}  // namespace record
