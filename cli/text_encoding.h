#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace cardo {

// Bytes of the UTF-8 character at the front of the text, 0 if there is none: overlong forms,
// surrogates and numbers above U+10FFFF are none.
[[nodiscard]] std::size_t Utf8CharacterLength(std::string_view text) noexcept;

// Characters of a text; a byte that is no UTF-8 counts as one.
[[nodiscard]] std::size_t CountCharacters(std::string_view text) noexcept;

// Byte position of the first byte that cannot stand in a text file: no UTF-8, or a control
// character other than tab, carriage return and line feed.
[[nodiscard]] std::optional<std::size_t> FindNoText(std::string_view text) noexcept;

// What a file in another encoding begins with, in words ("UTF-16"), empty for a file that may be
// UTF-8. Looks at the first bytes only.
[[nodiscard]] std::string_view ForeignEncoding(std::string_view beginning) noexcept;

inline constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

// Whether the character at the front would do something to a terminal instead of being seen:
// control characters, line separators, and marks that turn the direction of writing.
[[nodiscard]] bool IsUnseen(std::string_view character) noexcept;

// The text as it can be shown on one line of a terminal: what is unseen and bytes that are no
// UTF-8 as \xNN, byte by byte.
[[nodiscard]] std::string Printable(std::string_view text);

[[nodiscard]] std::string Utf8FromLatin1(std::string_view text);

}  // namespace cardo
