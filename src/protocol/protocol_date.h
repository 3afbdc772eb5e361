#pragma once

#include "observations/protocol_text.h"
#include "protocol/protocol_texts.h"

#include <cstdint>

namespace vermo {

// How the weekday and the day are set apart: the start line lets a width of 2 go to the blank
// between them, the end line does not.
enum class DateGap { OneBlank, TwoBlanks };

// Appends the local date and time of a calendar time, German "Mo  16.11.2026   9:03:05", English
// "Mo  16 November 2026   9:03:05 am". A time that the calendar cannot express becomes "**".
void AppendDate(ProtocolText& out, WriterLanguage language, std::int64_t time, DateGap gap);

}  // namespace vermo
