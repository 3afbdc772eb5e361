#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vermo::test {

// Moves unknown i of a numbered group by an increment, as the adjustment does.
template <typename Group>
void Move(Group& group, std::uint32_t i, double increment) {
  const auto first = static_cast<std::size_t>(group.FirstUnknown());
  std::vector<double> solution(first + group.UnknownCount(), 0.0);
  solution[first + i] = increment;
  group.ApplySolution(solution);
}

// d function / d unknown i of the group by five-point differences:
//   (8 (f(h) - f(-h)) - (f(2h) - f(-2h))) / (12 h), with an error of the order h^4.
// The group moves through its own ApplySolution and is put back afterwards. The function returns
// an array of doubles.
template <typename Group, typename Function>
auto DerivativeBy(Group& group, std::uint32_t i, double step, Function&& function) {
  const Group saved = group;
  const auto at = [&](double increment) {
    Move(group, i, increment);
    const auto values = function();
    group = saved;
    return values;
  };
  const auto farBehind = at(-2.0 * step);
  const auto behind = at(-step);
  const auto ahead = at(step);
  const auto farAhead = at(2.0 * step);
  auto derivative = ahead;
  for (std::size_t k = 0; k < derivative.size(); ++k)
    derivative[k] = (8.0 * (ahead[k] - behind[k]) - (farAhead[k] - farBehind[k])) / (12.0 * step);
  return derivative;
}

}  // namespace vermo::test
