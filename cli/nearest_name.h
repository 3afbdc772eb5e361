#pragma once

#include <span>
#include <string>
#include <string_view>

namespace cardo {

// The candidate with the fewest changes of one letter (inserted, left out, replaced, swapped with
// its neighbour) to the name, the first of equals; empty if none is near enough to be what was
// meant. Upper and lower case count as equal.
[[nodiscard]] std::string NearestName(std::string_view name,
                                      std::span<const std::string> candidates);

// ", did you mean "kappa"?" or, when nothing is near, "; known are "a", "b" ..." with the rest.
[[nodiscard]] std::string Suggestion(std::string_view name,
                                     std::span<const std::string> candidates);

}  // namespace cardo
