#pragma once

#include <algorithm>
#include <cstdint>

namespace vermo {

// How an outlier test compares a residual with its accuracy.
enum class TestMethod : std::int32_t { Redundancy = 0, InnerReliability = 1 };

// What the adjustment loop reads of the caller's parameters. Values without a setter are taken
// as they come; the loop's comparisons decide what they mean.
class AdjustmentSettings {
 public:
  [[nodiscard]] bool BlunderTest() const noexcept { return (fFlags & kBlunderTest) != 0; }
  void SetBlunderTest(bool on) noexcept { SetFlag(kBlunderTest, on); }
  [[nodiscard]] bool SolvabilityCheck() const noexcept { return (fFlags & kSolvabilityCheck) != 0; }
  void SetSolvabilityCheck(bool on) noexcept { SetFlag(kSolvabilityCheck, on); }

  // Damping of the outlier threshold, clamped into 0 to 1.
  void SetDamping(double value) noexcept { fDamping = std::clamp(value, 0.0, 1.0); }
  // Both ends of the dynamic range go through the same limit.
  void SetDynamicRange(double lower, double upper) noexcept {
    fDynamicLower = std::min(lower, kLargestDynamic);
    fDynamicUpper = std::min(upper, kLargestDynamic);
  }

  std::uint32_t fFlags = kBlunderTest | kSolvabilityCheck;
  std::int32_t fTestMethod = static_cast<std::int32_t>(TestMethod::InnerReliability);
  double fS0Floor = 1e-5;              // S0 below it counts as zero
  double fS0Limit = 1e10;              // S0 above it fails the run
  double fConvergenceLimit = 0.00032;  // both change measures, relative to S0
  double fDamping = 0.8;
  double fDynamicLower = 1.0;
  double fDynamicUpper = 4.0;
  std::int32_t fMaxIterations = 200;        // of the whole run, compared as unsigned
  std::int32_t fSecondIterationLimit = 50;  // has no effect
  std::int32_t fMinRays = 0;                // of an object point, compared as unsigned; 0 is off
  std::int32_t fProgressWindow = 5;         // iterations of the no-progress watch
  double fProgressTolerance = 0.5;          // and its ratio
  std::uint8_t fPivotSearch = 1;

 private:
  static constexpr std::uint32_t kBlunderTest = 1U << 0U;
  static constexpr std::uint32_t kSolvabilityCheck = 1U << 2U;
  static constexpr double kLargestDynamic = 1000.0;

  void SetFlag(std::uint32_t flag, bool on) noexcept {
    fFlags = on ? (fFlags | flag) : (fFlags & ~flag);
  }
};

}  // namespace vermo
