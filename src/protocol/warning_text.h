#pragma once

#include "protocol/protocol_texts.h"

#include <string>

namespace vermo {

class WarningItf;

// The line of a warning: its number, what holds, and the description of the element that it is
// about. The numbers 101 to 106 are told in full, any other one only by number and "***".
[[nodiscard]] std::string WarningText(WriterLanguage language, const WarningItf& warning);

}  // namespace vermo
