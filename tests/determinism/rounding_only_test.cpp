// What may change a result, and then by rounding only: the order of the records and the vector
// instructions of the machine.

#include "determinism/samples.h"
#include "reference/network_builder.h"

#include <cstdint>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace determinism {
namespace {

// Rounding at 2^-53 of every sum counts by the condition number of the normal equations. 1e7 is
// allowed for that: values and residuals agree to 1e-9 of their standard deviations, standard
// deviations to 1e-9 of themselves. The samples lie below 1e-10.
constexpr double kRounding = 1e-9;

void ExpectRoundingOnly(const Figures& found, const Figures& wanted) {
  for (const auto& [kind, worst] : Compare(found, wanted))
    EXPECT_LE(worst.difference, kind == Kind::Count ? 0.0 : kRounding)
        << "kind " << static_cast<int>(kind) << ": " << worst.name;
}

class RoundingOnly : public testing::TestWithParam<Sample> {};

INSTANTIATE_TEST_SUITE_P(Samples,
                         RoundingOnly,
                         testing::ValuesIn(Samples().begin(), Samples().end()),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_P(RoundingOnly, OrderOfTheRecords) {
  const Steps steps = GetParam().steps();
  const Outcome wanted = RunSteps(steps);
  ASSERT_EQ(wanted.status, eXYZ_Ok);
  for (std::uint64_t seed = 1; seed <= 4; ++seed) {
    reference::Random random(seed);
    Steps shuffled = steps;
    for (std::size_t i = shuffled.size(); i > 1; --i)
      std::swap(shuffled[i - 1], shuffled[random.Below(static_cast<std::uint32_t>(i))]);
    const Outcome found = RunSteps(shuffled);
    ExpectRoundingOnly(found.figures, wanted.figures);
  }
  // The other way round, with parameters first and cameras last.
  ExpectRoundingOnly(RunSteps(Steps(steps.rbegin(), steps.rend())).figures, wanted.figures);
}

std::string OutputOf(const std::string& command) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(::popen(command.c_str(), "r"),
                                                             ::pclose);
  std::string text;
  char buffer[4096];
  for (std::size_t n = 0; (n = std::fread(buffer, 1, sizeof buffer, pipe.get())) > 0;)
    text.append(buffer, n);
  return text;
}

TEST_P(RoundingOnly, VectorInstructionsOfTheMachine) {
  const std::string sample = std::string(" ") + GetParam().name;
  const std::string portable = OutputOf(CARDO_FIGURES_PORTABLE + sample);
  const std::string avx2 = OutputOf(CARDO_FIGURES_AVX2 + sample);
  const std::string widest = OutputOf(CARDO_FIGURES_WIDEST + sample);
  ASSERT_FALSE(portable.empty());
  const Figures wanted = FromText(portable);
  ASSERT_EQ(wanted.at("run status").value, eXYZ_Ok);
  ExpectRoundingOnly(FromText(avx2), wanted);
  ExpectRoundingOnly(FromText(widest), wanted);
#if defined(__x86_64__) && defined(__OPTIMIZE__) && !defined(__SANITIZE_ADDRESS__)
  // Fused products round otherwise: equal bits would mean that the variant was not used. A build
  // that optimises little fuses none.
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
    EXPECT_TRUE(avx2 != portable);
  }
#endif
}

// Each process has its own random addresses.
TEST_P(RoundingOnly, AnotherProcessChangesNotEvenThat) {
  const std::string command = std::string(CARDO_FIGURES_WIDEST) + " " + GetParam().name;
  const std::string first = OutputOf(command);
  ASSERT_FALSE(first.empty());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(OutputOf(command), first);
  EXPECT_EQ(ToText(RunSteps(GetParam().steps()).figures), first);
}

TEST(Figures, TextKeepsEveryBit) {
  const Outcome run = RunSteps(Samples()[0].steps());
  ASSERT_GT(run.figures.size(), 1000U);
  EXPECT_EQ(ToText(FromText(ToText(run.figures))), ToText(run.figures));
}

}  // namespace
}  // namespace determinism
