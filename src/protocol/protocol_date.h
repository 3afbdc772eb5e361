#pragma once

#include "protocol/protocol_texts.h"

#include <cstdint>
#include <ostream>

namespace vermo {

// How the weekday and the day are set apart: the start line lets a width of 2 go to the blank
// between them, the end line does not.
enum class DateGap { OneBlank, TwoBlanks };

// Writes the local date and time of a calendar time, German "Mo  16.11.2026   9:03:05", English
// "Mo  16 November 2026   9:03:05 am", and leaves the stream in fixed notation. A time that the
// calendar cannot express is written as "**".
void WriteDate(std::ostream& out, WriterLanguage language, std::int64_t time, DateGap gap);

}  // namespace vermo
