#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace cardo {

// Times of the stages of a command, in seconds, and what the process took of memory. The stages
// inside a run are told by the library's protocol, to a millisecond an iteration.
struct Timing {
  double reading = 0.0;
  double assembly = 0.0;  // of all iterations
  double solution = 0.0;  // factorisation, solution and statistics of all iterations
  double accuracy = 0.0;  // cofactors, standard deviations, redundancy numbers, protocol
  double writing = 0.0;
  double total = 0.0;
};

class StopWatch {
 public:
  [[nodiscard]] double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - fStart).count();
  }

 private:
  std::chrono::steady_clock::time_point fStart = std::chrono::steady_clock::now();
};

// Adds the times of an iteration, if the text of a protocol holds them.
void AddIterationTimes(std::string_view text, Timing& timing);

// One line a stage, and the largest memory of the process.
[[nodiscard]] std::string TimingText(const Timing& timing);

}  // namespace cardo
