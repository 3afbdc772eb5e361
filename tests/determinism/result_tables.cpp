// What the command line writes, byte for byte.

#include "golden/golden_run.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// Contents by file name, times masked.
using Files = std::map<std::string, std::string>;

Files Adjust(const std::string& environment, const std::string& example) {
  const fs::path folder =
      fs::temp_directory_path() / ("cardo_determinism_" + std::to_string(::getpid()));
  fs::remove_all(folder);
  const std::string command = environment + " '" + CARDO_BUNDLE_PROGRAM + "' adjust --quiet '" +
                              CARDO_EXAMPLES_DIR + "/" + example + "' --output '" +
                              folder.string() + "'";
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
  static const std::regex kElapsed("(\"elapsed_seconds\": )[-+.0-9e]+");
  Files files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    std::ostringstream text;
    text << std::ifstream(entry.path(), std::ios_base::binary).rdbuf();
    const std::string name = entry.path().filename().string();
    files[name] = name.ends_with(".htm")    ? golden::Masked(text.str())
                  : name.ends_with(".json") ? std::regex_replace(text.str(), kElapsed, "$1T")
                                            : text.str();
  }
  fs::remove_all(folder);
  return files;
}

class ResultTables : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Examples,
                         ResultTables,
                         testing::Values("camera-calibration", "gross-errors", "lines-and-planes"),
                         [](const auto& instance) {
                           std::string name = instance.param;
                           for (char& c : name)
                             if (c == '-') c = '_';
                           return name;
                         });

TEST_P(ResultTables, AreTheSameTwiceAndUnderAGermanLocale) {
  const Files first = Adjust("", GetParam());
  ASSERT_GE(first.size(), 6U);
  const std::string german = std::string("LOCPATH='") + CARDO_LOCALE_DIR + "' LC_ALL=de_DE";
  for (const std::string& environment : {std::string(), german}) {
    const Files again = Adjust(environment, GetParam());
    ASSERT_EQ(again.size(), first.size());
    for (const auto& [name, text] : first) EXPECT_EQ(again.at(name), text) << name;
  }
}

}  // namespace
