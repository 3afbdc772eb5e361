#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace cardo {

// The kinds of unknown groups, in the order in which they are told.
enum GroupKind : std::size_t { kCameras, kProjections, kImages, kPoints, kLines, kPlanes };
inline constexpr std::array<std::string_view, 6> kGroupKinds = {
    "cameras", "projections", "images", "points", "lines", "planes"};

// Ids of groups by kind, each list in ascending order.
using GroupIds = std::array<std::vector<std::int32_t>, kGroupKinds.size()>;

// The groups of the job that take part.
[[nodiscard]] GroupIds ActiveGroups(void* job);

// Those of the first that are not in the second.
[[nodiscard]] GroupIds Without(const GroupIds& groups, const GroupIds& others);

[[nodiscard]] std::size_t CountOf(const GroupIds& groups);

// "points 3, 7; images 5", empty if there are none.
[[nodiscard]] std::string ListOfGroups(const GroupIds& groups);

}  // namespace cardo
