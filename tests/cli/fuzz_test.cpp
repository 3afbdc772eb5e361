#include "cli/job_scene.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace cardo {
namespace {

constexpr unsigned kSeed = 20240117;

const std::vector<std::string>& Interesting() {
  static const std::vector<std::string> texts = {",",
                                                 "\"",
                                                 "\"\"",
                                                 "\n",
                                                 "\r",
                                                 "\r\n",
                                                 "-1",
                                                 "1e999",
                                                 "nan",
                                                 "inf",
                                                 "0",
                                                 "2147483648",
                                                 "\xEF\xBB\xBF",
                                                 "\xFF\xFE",
                                                 "\xC3",
                                                 std::string(1, '\0'),
                                                 ";",
                                                 "\t",
                                                 " ",
                                                 "=",
                                                 "[",
                                                 "]",
                                                 "id",
                                                 "x",
                                                 std::string(5000, '9'),
                                                 std::string(300, '"'),
                                                 std::string(300, ',')};
  return texts;
}

// Changes a text in a few places: bytes, pieces left out, doubled or put in, the end cut off.
std::string Mutated(std::string text, std::mt19937& random) {
  const auto below = [&random](std::size_t limit) {
    return limit == 0 ? 0 : std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
  };
  const std::size_t changes = 1 + below(4);
  for (std::size_t change = 0; change < changes; ++change) {
    const std::size_t at = below(text.size() + 1);
    switch (below(5)) {
      case 0:
        if (at < text.size()) text[at] = static_cast<char>(below(256));
        break;
      case 1:
        text.erase(at, below(8));
        break;
      case 2:
        text.insert(at, text.substr(below(text.size() + 1), below(40)));
        break;
      case 3:
        text.insert(at, Interesting()[below(Interesting().size())]);
        break;
      default:
        text.resize(at);
        break;
    }
  }
  return text;
}

// Reading any of it ends with messages or without, each on one line and with its file.
TEST(Fuzz, MutatedTablesNeverCrash) {
  test::JobScene scene;
  std::mt19937 random(kSeed);
  std::size_t refused = 0;
  constexpr std::size_t kRounds = 150;
  for (const std::string name : {"job.toml",
                                 "cameras.csv",
                                 "projections.csv",
                                 "images.csv",
                                 "relative_orientations.csv",
                                 "points.csv",
                                 "image_coordinates.csv",
                                 "measured_coordinates.csv",
                                 "distances.csv"}) {
    const std::string original = scene.Folder().Read(name);
    for (std::size_t round = 0; round < kRounds; ++round) {
      scene.Write(name, Mutated(original, random));
      const std::vector<std::string> messages = scene.Messages();
      if (!messages.empty()) ++refused;
      for (const std::string& message : messages) {
        EXPECT_EQ(message.find('\n'), std::string::npos) << message;
        EXPECT_NE(message.find(": "), std::string::npos) << message;
      }
    }
    scene.Write(name, original);
  }
  // Most changes do harm; if none did, they would not reach the readers.
  EXPECT_GT(refused, 9 * kRounds / 3);
}

TEST(Fuzz, BinaryTablesNeverCrash) {
  std::mt19937 random(kSeed);
  std::uniform_int_distribution<int> byte(0, 255);
  test::JobScene scene;
  for (std::size_t round = 0; round < 100; ++round) {
    std::string text(round * 37, '\0');
    for (char& c : text) c = static_cast<char>(byte(random));
    scene.Write("points.csv", text);
    EXPECT_FALSE(scene.Messages().empty());
  }
}

TEST(Fuzz, TruncatedTablesNeverCrash) {
  test::JobScene scene;
  for (const std::string name : {"job.toml", "images.csv", "image_coordinates.csv"}) {
    const std::string original = scene.Folder().Read(name);
    for (std::size_t length = 0; length < original.size(); ++length) {
      scene.Write(name, original.substr(0, length));
      for (const std::string& message : scene.Messages()) {
        EXPECT_NE(message.find(": "), std::string::npos) << message;
      }
    }
    scene.Write(name, original);
  }
}

}  // namespace
}  // namespace cardo
