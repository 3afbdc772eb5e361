#pragma once

#include <array>
#include <cstddef>

namespace vermo {

// A UTF-8 literal as it stands in the source.
template <std::size_t N>
struct Utf8Literal {
  char bytes[N];
  constexpr Utf8Literal(const char (&text)[N]) {  // NOLINT(google-explicit-constructor)
    for (std::size_t i = 0; i < N; ++i) bytes[i] = text[i];
  }
};

// The one place where literals become ISO 8859-1, the encoding of everything the library reports.
// A character above U+00FF does not compile.
template <Utf8Literal Text>
struct Latin1Text {
  static constexpr std::size_t kSize = sizeof(Text.bytes);

  static constexpr std::array<char, kSize> Convert() {
    std::array<char, kSize> result{};
    std::size_t out = 0;
    for (std::size_t in = 0; in + 1 < kSize; ++in) {
      const auto byte = static_cast<unsigned char>(Text.bytes[in]);
      if (byte < 0x80) {
        result[out++] = Text.bytes[in];
      } else if (byte == 0xC2 || byte == 0xC3) {
        const auto next = static_cast<unsigned char>(Text.bytes[++in]);
        result[out++] = static_cast<char>(((byte & 0x03U) << 6U) | (next & 0x3FU));
      } else {
        throw "not an ISO 8859-1 character";
      }
    }
    return result;
  }

  static constexpr std::array<char, kSize> kBytes = Convert();
};

// "Bündel"_latin1: a NUL-terminated text of static lifetime.
template <Utf8Literal Text>
constexpr const char* operator""_latin1() {
  return Latin1Text<Text>::kBytes.data();
}

}  // namespace vermo
