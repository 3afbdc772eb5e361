#include "linalg/elimination_order.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace vermo {
namespace {

constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();

// One bit per block.
class BlockSet {
 public:
  explicit BlockSet(std::size_t blocks) : fWords((blocks + 63) / 64) {}
  void Insert(std::uint32_t i) { fWords[i / 64] |= std::uint64_t{1} << (i % 64); }
  void Remove(std::uint32_t i) { fWords[i / 64] &= ~(std::uint64_t{1} << (i % 64)); }
  void Join(const BlockSet& other) {
    for (std::size_t w = 0; w < fWords.size(); ++w) fWords[w] |= other.fWords[w];
  }
  template <typename Visit>
  void ForEach(Visit visit) const {
    for (std::size_t w = 0; w < fWords.size(); ++w)
      for (std::uint64_t bits = fWords[w]; bits != 0; bits &= bits - 1)
        visit(static_cast<std::uint32_t>(64 * w) +
              static_cast<std::uint32_t>(std::countr_zero(bits)));
  }

 private:
  std::vector<std::uint64_t> fWords;
};

// Children before their parents, each chain without a gap.
std::vector<std::uint32_t> Postorder(const std::vector<std::uint32_t>& parents) {
  const auto n = static_cast<std::uint32_t>(parents.size());
  std::vector<std::vector<std::uint32_t>> children(n);
  std::vector<std::uint32_t> stack;
  for (std::uint32_t j = n; j-- > 0;) {
    if (parents[j] == kNone)
      stack.push_back(j);
    else
      children[parents[j]].push_back(j);
  }
  std::vector<std::uint32_t> order;
  order.reserve(n);
  // Visiting parents first and turning the result round puts the children in front.
  std::ranges::reverse(stack);
  while (!stack.empty()) {
    const std::uint32_t j = stack.back();
    stack.pop_back();
    order.push_back(j);
    stack.insert(stack.end(), children[j].begin(), children[j].end());
  }
  std::ranges::reverse(order);
  return order;
}

}  // namespace

EliminationOrder OrderByMinimumDegree(const BlockPattern& pattern,
                                      const std::vector<std::uint32_t>& sizes) {
  const auto n = static_cast<std::uint32_t>(pattern.size());
  std::vector<BlockSet> meets(n, BlockSet(n));
  std::vector<std::uint64_t> degrees(n, 0);
  for (std::uint32_t i = 0; i < n; ++i)
    for (const std::uint32_t j : pattern[i]) {
      meets[i].Insert(j);
      degrees[i] += sizes[j];
    }

  std::vector<std::uint32_t> order;
  std::vector<std::uint32_t> position(n, kNone);
  BlockPattern met;  // by position, as blocks
  for (std::uint32_t step = 0; step < n; ++step) {
    std::uint32_t best = kNone;
    for (std::uint32_t i = 0; i < n; ++i)
      if (position[i] == kNone && (best == kNone || degrees[i] < degrees[best])) best = i;
    position[best] = step;
    order.push_back(best);
    std::vector<std::uint32_t>& others = met.emplace_back();
    meets[best].ForEach([&others](std::uint32_t j) { others.push_back(j); });
    for (const std::uint32_t j : others) {
      meets[j].Join(meets[best]);
      meets[j].Remove(j);
      meets[j].Remove(best);
      degrees[j] = 0;
      meets[j].ForEach([&](std::uint32_t k) { degrees[j] += sizes[k]; });
    }
  }

  std::vector<std::uint32_t> parents(n, kNone);
  for (std::uint32_t step = 0; step < n; ++step)
    for (const std::uint32_t j : met[step]) parents[step] = std::min(parents[step], position[j]);

  const std::vector<std::uint32_t> posts = Postorder(parents);
  std::vector<std::uint32_t> place(n);  // of a block
  EliminationOrder result;
  result.order.resize(n);
  for (std::uint32_t p = 0; p < n; ++p) {
    result.order[p] = order[posts[p]];
    place[result.order[p]] = p;
  }
  result.structure.resize(n);
  for (std::uint32_t p = 0; p < n; ++p) {
    for (const std::uint32_t j : met[posts[p]]) result.structure[p].push_back(place[j]);
    std::ranges::sort(result.structure[p]);
  }
  return result;
}

}  // namespace vermo
