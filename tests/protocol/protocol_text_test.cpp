// The numbers of the protocol are those of a stream of the classic locale.

#include "observations/protocol_text.h"

#include "support/comma_locale.h"

#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <iomanip>
#include <ios>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

namespace vermo {
namespace {

using Limits = std::numeric_limits<double>;

const std::vector<double>& Values() {
  static const std::vector<double> values = {0.0,
                                             -0.0,
                                             1.0,
                                             -1.0,
                                             0.8,
                                             0.5,
                                             1.5,
                                             2.5,
                                             0.125,
                                             -0.375,
                                             1.0 / 3.0,
                                             -2.0 / 3.0,
                                             0.00004999,
                                             0.00005,
                                             9.99995,
                                             99999.99995,
                                             999999.5,
                                             -1234567.891,
                                             1e-7,
                                             -3.0e-12,
                                             1e15,
                                             1e16,
                                             1e22,
                                             6.02214076e23,
                                             -1e100,
                                             Limits::max(),
                                             -Limits::max(),
                                             Limits::min(),
                                             Limits::denorm_min(),
                                             -Limits::denorm_min(),
                                             Limits::min() / 3.0,
                                             Limits::epsilon(),
                                             Limits::infinity(),
                                             -Limits::infinity(),
                                             Limits::quiet_NaN(),
                                             -Limits::quiet_NaN()};
  return values;
}

std::string Streamed(double value, int width, int precision, std::ios_base::fmtflags flags) {
  std::ostringstream stream;
  stream.imbue(std::locale::classic());
  stream.setf(flags, std::ios_base::floatfield);
  stream << std::setw(width) << std::setprecision(precision) << value;
  return stream.str();
}

void ExpectAllAsStreamed() {
  for (const double value : Values()) {
    SCOPED_TRACE(testing::Message() << std::hexfloat << value);
    for (const std::size_t width : {0U, 5U, 12U, 15U}) {
      const int w = static_cast<int>(width);
      for (const int decimals : {0, 1, 2, 3, 4, 6, 8, 9}) {
        EXPECT_EQ(ProtocolText().Fixed(value, width, decimals).Str(),
                  Streamed(value, w, decimals, std::ios_base::fixed));
        EXPECT_EQ(ProtocolText().Scientific(value, width, decimals).Str(),
                  Streamed(value, w, decimals, std::ios_base::scientific));
        EXPECT_EQ(ProtocolText().General(value, width, decimals).Str(),
                  Streamed(value, w, decimals, std::ios_base::fmtflags{}));
        // The precision has no effect on this form.
        EXPECT_EQ(ProtocolText().Hexadecimal(value, width).Str(),
                  Streamed(value, w, decimals, std::ios_base::fixed | std::ios_base::scientific));
      }
    }
  }
}

TEST(ProtocolText, NumbersAreThoseOfAStream) { ExpectAllAsStreamed(); }

TEST(ProtocolText, NumbersDoNotFollowTheLocaleOfTheProcess) {
  const test::CommaLocale comma;
  ExpectAllAsStreamed();
  EXPECT_EQ(ProtocolText().Fixed(1234.5, 0, 1).Str(), "1234.5");
  EXPECT_EQ(ProtocolText().Integer(1234567).Str(), "1234567");
}

TEST(ProtocolText, FormsOfOneNumber) {
  EXPECT_EQ(ProtocolText().Fixed(-30.5, 12, 4).Str(), "    -30.5000");
  EXPECT_EQ(ProtocolText().Scientific(-30.5, 15, 6).Str(), "  -3.050000e+01");
  EXPECT_EQ(ProtocolText().General(-30.5, 7, 3).Str(), "  -30.5");
  EXPECT_EQ(ProtocolText().Hexadecimal(-30.5, 12).Str(), "  -0x1.e8p+4");
  EXPECT_EQ(ProtocolText().Hexadecimal(0.0, 12).Str(), "      0x0p+0");
  EXPECT_EQ(ProtocolText().General(0.8, 7, 3).Str(), "    0.8");
}

TEST(ProtocolText, IntegersAreThoseOfAStream) {
  for (const std::int64_t value : {std::int64_t{0},
                                   std::int64_t{7},
                                   std::int64_t{-12011},
                                   std::int64_t{4294967295},
                                   std::numeric_limits<std::int64_t>::max(),
                                   std::numeric_limits<std::int64_t>::min()})
    for (const std::size_t width : {0U, 5U, 8U, 15U}) {
      std::ostringstream stream;
      stream.imbue(std::locale::classic());
      stream << std::setw(static_cast<int>(width)) << value;
      EXPECT_EQ(ProtocolText().Integer(value, width).Str(), stream.str());
    }
}

TEST(ProtocolText, WidthsFillTextsAndCutNothing) {
  EXPECT_EQ(ProtocolText().Text("ab", 4).Str(), "  ab");
  EXPECT_EQ(ProtocolText().Text("abcdef", 4).Str(), "abcdef");
  EXPECT_EQ(ProtocolText().LeftText("ab", 4).Text("|").Str(), "ab  |");
  EXPECT_EQ(ProtocolText().LeftText("abcdef", 4).Text("|").Str(), "abcdef|");
  EXPECT_EQ(ProtocolText().Text("\n", 8).Str(), "       \n");
}

TEST(ProtocolText, OrdinalGrowsWithItsDigits) {
  EXPECT_EQ(ProtocolText().Ordinal(-1).Str(), "    ");
  EXPECT_EQ(ProtocolText().Ordinal(0).Str(), "(0) ");
  EXPECT_EQ(ProtocolText().Ordinal(9).Str(), "(9) ");
  EXPECT_EQ(ProtocolText().Ordinal(12).Str(), "(12) ");
  EXPECT_EQ(ProtocolText().Ordinal(65534).Str(), "(65534) ");
}

}  // namespace
}  // namespace vermo
