#pragma once

#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <span>

namespace vermo::test {

// Compares element by element and reports the worst one and its place. A NaN fails.
inline testing::AssertionResult ElementsNear(std::span<const double> actual,
                                             std::span<const double> expected,
                                             double tolerance) {
  if (actual.size() != expected.size())
    return testing::AssertionFailure()
           << actual.size() << " elements instead of " << expected.size();
  std::size_t worst = actual.size();
  double largest = tolerance;
  for (std::size_t i = 0; i < actual.size(); ++i) {
    const double difference = std::fabs(actual[i] - expected[i]);
    if (!(difference <= largest)) {
      worst = i;
      largest = difference;
      if (std::isnan(difference)) break;
    }
  }
  if (worst == actual.size()) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << "element " << worst << " is " << actual[worst] << " instead of " << expected[worst]
         << ", off by " << largest << " with a tolerance of " << tolerance;
}

}  // namespace vermo::test
