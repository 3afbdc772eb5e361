#include "timing.h"

#include <array>
#include <charconv>
#include <fmt/format.h>
#include <sys/resource.h>

namespace cardo {
namespace {

// The number behind a label of an iteration's text, 0 without the label.
double NumberBehind(std::string_view text, const std::array<std::string_view, 2>& labels) {
  for (const std::string_view label : labels) {
    const std::size_t found = text.find(label);
    if (found == std::string_view::npos) continue;
    double value = 0.0;
    const char* first = text.data() + found + label.size();
    std::from_chars(first, text.data() + text.size(), value);
    return value;
  }
  return 0.0;
}

double PeakMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

}  // namespace

void AddIterationTimes(std::string_view text, Timing& timing) {
  timing.assembly += NumberBehind(text, {"\nAufstellung: ", "\n      Build: "});
  timing.solution += NumberBehind(text, {" s\n     L\xF6sung: ", " s\n   Solution: "});
}

std::string TimingText(const Timing& timing) {
  return fmt::format(
      "Timing [s]\n"
      "  reading                               {:>9.3f}\n"
      "  assembly                              {:>9.3f}\n"
      "  factorisation and statistics          {:>9.3f}\n"
      "  accuracy and protocol                 {:>9.3f}\n"
      "  results                               {:>9.3f}\n"
      "  total                                 {:>9.3f}\n"
      "Peak memory [MiB]                       {:>9.1f}\n",
      timing.reading,
      timing.assembly,
      timing.solution,
      timing.accuracy,
      timing.writing,
      timing.total,
      PeakMegabytes());
}

}  // namespace cardo
