// One program per fuzz target, see CMakeLists.txt. A target ends the process when something is
// wrong, so the name of every input is printed before its turn.
#include "fuzz_targets.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

namespace cardo::fuzz {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> InputsIn(const char* kind) {
  std::vector<fs::path> inputs;
  const fs::path folder = fs::path(CARDO_FUZZ_DIR) / kind / CARDO_FUZZ_NAME;
  if (!fs::exists(folder)) return inputs;
  for (const auto& entry : fs::directory_iterator(folder)) inputs.push_back(entry.path());
  std::sort(inputs.begin(), inputs.end());
  return inputs;
}

void Replay(const fs::path& input) {
  std::ifstream stream(input, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
  std::printf("%s, %zu bytes\n", input.filename().c_str(), bytes.size());
  std::fflush(stdout);
  // A copy of just that size, so that a sanitizer sees a step beyond it.
  const std::vector<std::uint8_t> data(bytes.begin(), bytes.end());
  EXPECT_EQ(CARDO_FUZZ_TARGET(data.data(), data.size()), 0);
}

TEST(FuzzReplay, StoredInputsKeepEveryPromise) {
  const std::vector<fs::path> inputs = InputsIn("corpus");
  ASSERT_FALSE(inputs.empty());
  for (const fs::path& input : inputs) Replay(input);
}

TEST(FuzzReplay, InputsThatOnceFailedKeepEveryPromise) {
  for (const fs::path& input : InputsIn("crashes")) Replay(input);
}

TEST(FuzzReplay, ShortAndEmptyInputsKeepEveryPromise) {
  EXPECT_EQ(CARDO_FUZZ_TARGET(nullptr, 0), 0);
  for (unsigned byte = 0; byte < 256; ++byte) {
    const auto value = static_cast<std::uint8_t>(byte);
    EXPECT_EQ(CARDO_FUZZ_TARGET(&value, 1), 0) << byte;
  }
}

}  // namespace
}  // namespace cardo::fuzz
