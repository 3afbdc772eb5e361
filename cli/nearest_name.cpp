#include "nearest_name.h"

#include "diagnostics.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace cardo {
namespace {

// Names are short; anything longer is not near to one.
constexpr std::size_t kLongestName = 64;

char Lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::size_t Distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> beforeLast(b.size() + 1);
  std::vector<std::size_t> last(b.size() + 1);
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) last[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const bool equal = Lower(a[i - 1]) == Lower(b[j - 1]);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (equal ? 0U : 1U)});
      if (i > 1 && j > 1 && Lower(a[i - 1]) == Lower(b[j - 2]) &&
          Lower(a[i - 2]) == Lower(b[j - 1])) {
        row[j] = std::min(row[j], beforeLast[j - 2] + 1);
      }
    }
    beforeLast.swap(last);
    last.swap(row);
  }
  return last[b.size()];
}

}  // namespace

std::string NearestName(std::string_view name, std::span<const std::string> candidates) {
  if (name.empty() || name.size() > kLongestName) return {};
  std::string nearest;
  std::size_t fewest = std::max<std::size_t>(1, name.size() / 3) + 1;
  for (const std::string& candidate : candidates) {
    const std::size_t distance = Distance(name, candidate);
    // A name of which every letter changes is another name.
    if (distance < fewest && distance < std::max(name.size(), candidate.size())) {
      fewest = distance;
      nearest = candidate;
    }
  }
  return nearest;
}

std::string Suggestion(std::string_view name, std::span<const std::string> candidates) {
  const std::string nearest = NearestName(name, candidates);
  if (!nearest.empty()) return ", did you mean " + Quoted(nearest) + "?";
  std::string known = "; known are";
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    known += (i == 0 ? " " : ", ") + candidates[i];
  }
  return known;
}

}  // namespace cardo
