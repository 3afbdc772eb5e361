#pragma once

#include "xyz_api.h"

#include <map>
#include <string>

namespace determinism {

// What a figure is decides how far it may lie from its counterpart of another run.
enum class Kind { Value, Sigma, Residual, Redundancy, Test, Count };

struct Figure {
  Kind kind = Kind::Count;
  double value = 0.0;
  // Of a value and of a residual: the standard deviation that a difference is measured in.
  double sigma = 0.0;
};

// By the name of the group or of the observation, which does not depend on the order of records:
// "point 12 X", "ray 12/3 Vx". Equal records are numbered.
using Figures = std::map<std::string, Figure>;

// Every figure that a job gives out after a run, status of the run included.
[[nodiscard]] Figures ReadFigures(void* job, int status);

// One line for each figure with all bits of its value, and back.
[[nodiscard]] std::string ToText(const Figures& figures);
[[nodiscard]] Figures FromText(const std::string& text);

// The largest difference of each kind and where it is. Values and residuals are measured in
// standard deviations, sigmas relative to themselves; the others are plain. A figure that only one
// side has, or that is not finite on one side only, differs infinitely.
struct Worst {
  double difference = 0.0;
  std::string name;
};
[[nodiscard]] std::map<Kind, Worst> Compare(const Figures& a, const Figures& b);

}  // namespace determinism
