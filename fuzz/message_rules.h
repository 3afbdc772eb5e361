#pragma once

#include "diagnostics.h"
#include "require.h"
#include "text_encoding.h"

#include <string>

namespace cardo::fuzz {

// Whatever the input, a message is one line of text that a terminal can show, with its place.
inline void RequireUsefulMessages(const Diagnostics& diagnostics) {
  for (const Diagnostic& diagnostic : diagnostics.List()) {
    const std::string text = ToString(diagnostic);
    Require(!diagnostic.place.file.empty(), "a message names its file");
    Require(text.find(": ") != std::string::npos, "a message stands behind its place");
    Require(Printable(text) == text, "a message is one printable line");
    Require(diagnostics.CountOf(diagnostic.place.file) <= Diagnostics::kLimitPerFile + 1,
            "a file has few messages");
  }
}

}  // namespace cardo::fuzz
