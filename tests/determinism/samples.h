#pragma once

#include "determinism/figures.h"
#include "reference/dense_adjustment.h"

#include <functional>
#include <span>
#include <string>
#include <vector>

namespace determinism {

// One call of the interface each; in whatever order they are made, they tell the same network.
using Steps = std::vector<std::function<void(void* job)>>;

// A network of every kind of record between them, none with two equal records.
struct Sample {
  const char* name;
  Steps (*steps)();
};
[[nodiscard]] std::span<const Sample> Samples();

[[nodiscard]] Steps StepsOf(const reference::Network& network);

// What a run of the steps leaves.
struct Outcome {
  int status = -1;
  std::string protocol;  // the texts of the protocol function, joined
  Figures figures;
};
[[nodiscard]] Outcome RunSteps(const Steps& steps,
                               const std::string& protocolFile = "determinism.htm");

}  // namespace determinism
