#include "protocol/protocol_date.h"

#include <ctime>

namespace vermo {
namespace {

// A number with two digits, filled up with a zero.
void AppendTwoDigits(ProtocolText& out, int number) {
  if (number < 10) out.Text("0");
  out.Integer(number);
}

}  // namespace

void AppendDate(ProtocolText& out, WriterLanguage language, std::int64_t time, DateGap gap) {
  const auto seconds = static_cast<std::time_t>(time);
  std::tm local{};
  if (localtime_r(&seconds, &local) == nullptr) {
    out.Text("**");
    return;
  }
  out.Text(WeekdayName(local.tm_wday), 2);
  out.Text(gap == DateGap::TwoBlanks ? "  " : " ").Integer(local.tm_mday);
  const std::int64_t year = 1900LL + local.tm_year;
  if (language == WriterLanguage::German) {
    out.Text(".");
    AppendTwoDigits(out, local.tm_mon + 1);
    out.Text(".").Integer(year).Text("  ").Integer(local.tm_hour, 2);
  } else {
    out.Text(" ").Text(MonthName(local.tm_mon)).Text(" ").Integer(year).Text("  ");
    out.Integer((local.tm_hour + 11) % 12 + 1, 2);
  }
  out.Text(":");
  AppendTwoDigits(out, local.tm_min);
  out.Text(":");
  AppendTwoDigits(out, local.tm_sec);
  if (language == WriterLanguage::English) out.Text(local.tm_hour < 12 ? " am" : " pm");
}

}  // namespace vermo
