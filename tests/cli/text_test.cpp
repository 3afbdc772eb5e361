#include "diagnostics.h"
#include "field_text.h"
#include "nearest_name.h"
#include "number_text.h"
#include "text_encoding.h"

#include <clocale>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace cardo {
namespace {

using ::testing::HasSubstr;
using namespace std::string_literals;

double RealOf(const std::string& text) {
  double value = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(ParseReal(text, value), NumberError::kNone) << text;
  return value;
}

TEST(NumberText, ReadsRealNumbersOfTheCLocale) {
  EXPECT_EQ(RealOf("1.5"), 1.5);
  EXPECT_EQ(RealOf("+2"), 2.0);
  EXPECT_EQ(RealOf("-.25e-3"), -0.25e-3);
  EXPECT_EQ(RealOf("0.1"), 0.1);
  EXPECT_EQ(RealOf("1E308"), 1e308);
}

TEST(NumberText, RefusesWhatIsNoNumber) {
  double value = 3.0;
  for (const char* text :
       {"", " ", "x", "1,5", "1.5mm", "--1", "+-1", "+", ".", "0x10", "1e", "1 2"}) {
    EXPECT_EQ(ParseReal(text, value), NumberError::kNoNumber) << text;
  }
  for (const char* text : {"nan", "NaN", "inf", "-inf", "Infinity"}) {
    EXPECT_EQ(ParseReal(text, value), NumberError::kNotFinite) << text;
  }
  for (const char* text : {"1e999", "-1e999", "1e-999"}) {
    EXPECT_EQ(ParseReal(text, value), NumberError::kOutOfRange) << text;
  }
  EXPECT_EQ(value, 3.0);
}

TEST(NumberText, ReadsIntegersOnlyAsAWhole) {
  std::int64_t value = 7;
  EXPECT_EQ(ParseInteger("1.0", value), NumberError::kNoNumber);
  EXPECT_EQ(ParseInteger("99999999999999999999", value), NumberError::kOutOfRange);
  EXPECT_EQ(value, 7);
  EXPECT_EQ(ParseInteger("-12", value), NumberError::kNone);
  EXPECT_EQ(value, -12);
}

TEST(FieldText, NamesWhatWasExpected) {
  double real = 0.0;
  EXPECT_EQ(ReadReal("sx", "abc", RealRange::kAny, real), "sx must be a number");
  EXPECT_EQ(ReadReal("sx", "nan", RealRange::kAny, real), "sx must be a finite number");
  EXPECT_THAT(ReadReal("sx", "1e999", RealRange::kAny, real), HasSubstr("in the range"));
  EXPECT_EQ(ReadReal("sx", "0", RealRange::kPositive, real), "sx must be positive");
  EXPECT_EQ(ReadReal("r0", "-1", RealRange::kNotNegative, real), "r0 must not be negative");
  EXPECT_EQ(ReadReal("ck", "-0.0", RealRange::kNotZero, real), "ck must not be zero");
  std::int32_t id = 5;
  EXPECT_EQ(ReadId("id", "-1", id), "id must be a whole number from 0 to 2147483647");
  EXPECT_EQ(ReadId("id", "2147483648", id), "id must be a whole number from 0 to 2147483647");
  EXPECT_EQ(id, 5);
  bool flag = true;
  EXPECT_EQ(ReadFlag("fixed", "yes", flag), "fixed must be 0 or 1");
  EXPECT_TRUE(flag);
}

TEST(NearestName, FindsMisspelledNames) {
  const std::vector<std::string> names = {"omega", "phi", "kappa", "camera", "x0"};
  EXPECT_EQ(NearestName("kapa", names), "kappa");
  EXPECT_EQ(NearestName("OMEGA", names), "omega");
  EXPECT_EQ(NearestName("caemra", names), "camera");
  EXPECT_EQ(NearestName("x1", names), "x0");
  EXPECT_EQ(NearestName("zzz", names), "");
  EXPECT_EQ(NearestName("", names), "");
  EXPECT_EQ(NearestName(std::string(100000, 'a'), names), "");
}

TEST(NearestName, SuggestsTheNearestOrListsAll) {
  const std::vector<std::string> names = {"omega", "phi"};
  EXPECT_EQ(Suggestion("omgea", names), ", did you mean \"omega\"?");
  EXPECT_EQ(Suggestion("qqqqqq", names), "; known are omega, phi");
}

TEST(Diagnostics, QuotesAnythingOnOneLine) {
  EXPECT_EQ(Quoted("-0.01"), "\"-0.01\"");
  EXPECT_EQ(Quoted("a\"b\\"), "\"a\\\"b\\\\\"");
  EXPECT_EQ(Quoted("a\nb\0\xE9\x7F"s), "\"a\\x0Ab\\x00\\xE9\\x7F\"");
  EXPECT_EQ(Quoted("\xC3\xA4"), "\"\xC3\xA4\"");
  EXPECT_EQ(Quoted(std::string(1000, 'x')), '"' + std::string(60, 'x') + "...\"");
  EXPECT_EQ(ToString(Place{"a\x1B\xFF.csv", 3}), "a\\x1B\\xFF.csv:3");
}

TEST(TextEncoding, ShowsWhatATerminalWouldObey) {
  EXPECT_EQ(Printable("a \xC3\xA4\xE2\x82\xAC\xF0\x9F\x93\xB7"),
            "a \xC3\xA4\xE2\x82\xAC\xF0\x9F\x93\xB7");
  EXPECT_EQ(Printable("\x1F\x20\x7E\x7F\t"), "\\x1F ~\\x7F\\x09");
  // U+0080 to U+009F, not U+00A0.
  EXPECT_EQ(Printable("\xC2\x80\xC2\x9F"), "\\xC2\\x80\\xC2\\x9F");
  EXPECT_EQ(Printable("\xC2\xA0"), "\xC2\xA0");
  for (const char* unseen : {"\u200E",
                             "\u200F",
                             "\u2028",
                             "\u2029",
                             "\u202A",
                             "\u202B",
                             "\u202C",
                             "\u202D",
                             "\u202E",
                             "\u2066",
                             "\u2067",
                             "\u2068",
                             "\u2069",
                             "\uFEFF"})
    EXPECT_THAT(Printable(unseen), ::testing::StartsWith("\\xE")) << unseen;
  for (const char* seen : {"\u200D", "\u2010", "\u2027", "\u202F", "\u2065", "\u206A"})
    EXPECT_EQ(Printable(seen), seen);
}

TEST(Diagnostics, KeepsTheFirstTwentyOfAFile) {
  Diagnostics diagnostics;
  for (std::size_t i = 0; i < 30; ++i) diagnostics.Add({"a.csv", i + 1, 1}, "x");
  diagnostics.Add({"b.csv", 1, 1}, "y");
  EXPECT_EQ(diagnostics.List().size(), 21U);
  EXPECT_TRUE(diagnostics.IsFull("a.csv"));
  EXPECT_FALSE(diagnostics.IsFull("b.csv"));
}

TEST(Diagnostics, LeavesOutUnknownPartsOfAPlace) {
  EXPECT_EQ(ToString(Place{"a.csv"}), "a.csv");
  EXPECT_EQ(ToString(Place{"a.csv", 3}), "a.csv:3");
  EXPECT_EQ(ToString(Place{"a.csv", 3, 4}), "a.csv:3:4");
}

TEST(TextEncoding, AcceptsExactlyUtf8) {
  for (const char* good :
       {"a", "\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(FindNoText(good), std::nullopt) << good;
    EXPECT_EQ(CountCharacters(good), 1U) << good;
  }
  for (const char* bad : {"\x80",
                          "\xC0\x80",
                          "\xC3",
                          "\xE0\x80\x80",
                          "\xED\xA0\x80",
                          "\xF0\x80\x80\x80",
                          "\xF4\x90\x80\x80",
                          "\xF5\x80\x80\x80"}) {
    EXPECT_EQ(FindNoText(bad), 0U);
  }
}

TEST(TextEncoding, FindsTheFirstBadByteWhereverItStands) {
  for (std::size_t length = 0; length < 40; ++length) {
    for (const char bad : {'\x00', '\x1F', '\x7F', '\x80', '\xFF'}) {
      const std::string text = std::string(length, 'a') + bad + std::string(20, 'b');
      EXPECT_EQ(FindNoText(text), length);
    }
  }
  EXPECT_EQ(FindNoText("tab\tand\r\nline ends, long enough for a block"), std::nullopt);
}

TEST(TextEncoding, TurnsLatin1IntoUtf8) {
  EXPECT_EQ(Utf8FromLatin1("Ung\xFCltige"), "Ung\xC3\xBCltige");
}

}  // namespace
}  // namespace cardo
