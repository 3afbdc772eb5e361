#include "text_encoding.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fmt/format.h>

namespace cardo {
namespace {

constexpr unsigned char Byte(char c) noexcept { return static_cast<unsigned char>(c); }

constexpr bool IsControl(unsigned char byte) noexcept {
  return (byte < 0x20 && byte != '\t' && byte != '\r' && byte != '\n') || byte == 0x7F;
}

// The end of the run of plain printable ASCII and white space at the front, eight bytes a step.
std::size_t PlainLength(std::string_view text) noexcept {
  std::size_t position = 0;
  while (position + 8 <= text.size()) {
    std::uint64_t block = 0;
    std::memcpy(&block, text.data() + position, 8);
    // Any byte at 0x7F or above, or below 0x20, stops the run. A borrow can only report a byte
    // too many, which the slow walk then accepts.
    const std::uint64_t high = (block | (block + 0x0101010101010101U)) & 0x8080808080808080U;
    const std::uint64_t low = (block - 0x2020202020202020U) & ~block & 0x8080808080808080U;
    if ((high | low) != 0) break;
    position += 8;
  }
  return position;
}

}  // namespace

std::size_t Utf8CharacterLength(std::string_view text) noexcept {
  if (text.empty()) return 0;
  const unsigned char first = Byte(text[0]);
  if (first < 0x80) return 1;
  if (first < 0xC2 || first > 0xF4) return 0;
  const std::size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((Byte(text[i]) & 0xC0U) != 0x80U) return 0;
  }
  const unsigned char second = Byte(text[1]);
  if (first == 0xE0 && second < 0xA0) return 0;
  if (first == 0xED && second > 0x9F) return 0;
  if (first == 0xF0 && second < 0x90) return 0;
  if (first == 0xF4 && second > 0x8F) return 0;
  return length;
}

std::size_t CountCharacters(std::string_view text) noexcept {
  std::size_t count = 0;
  while (!text.empty()) {
    const std::size_t length = Utf8CharacterLength(text);
    text.remove_prefix(length == 0 ? 1 : length);
    ++count;
  }
  return count;
}

std::optional<std::size_t> FindNoText(std::string_view text) noexcept {
  std::size_t position = 0;
  while (position < text.size()) {
    position += PlainLength(text.substr(position));
    if (position == text.size()) break;
    const std::size_t length = Utf8CharacterLength(text.substr(position));
    if (length == 0 || IsControl(Byte(text[position]))) return position;
    position += length;
  }
  return std::nullopt;
}

std::string_view ForeignEncoding(std::string_view beginning) noexcept {
  using namespace std::string_view_literals;
  if (beginning.starts_with("\xFF\xFE\0\0"sv) || beginning.starts_with("\0\0\xFE\xFF"sv)) {
    return "UTF-32";
  }
  if (beginning.starts_with("\xFF\xFE"sv) || beginning.starts_with("\xFE\xFF"sv)) return "UTF-16";
  // Without a mark: ASCII characters, every other byte zero.
  if (beginning.size() >= 4 && ((beginning[0] == '\0' && beginning[2] == '\0') ||
                                (beginning[1] == '\0' && beginning[3] == '\0'))) {
    const bool textual = Byte(beginning[0] == '\0' ? beginning[1] : beginning[0]) >= 0x20;
    if (textual) return "UTF-16";
  }
  return {};
}

bool IsUnseen(std::string_view character) noexcept {
  const unsigned char first = Byte(character.front());
  if (character.size() == 1) return first < 0x20 || first == 0x7F;
  if (character.size() == 2) return first == 0xC2 && Byte(character[1]) < 0xA0;
  if (character.size() > 3) return false;
  // Line and paragraph separator, marks, embeddings and isolates of the direction, byte order mark.
  constexpr std::string_view kUnseen[] = {"\xE2\x80\x8E",
                                          "\xE2\x80\x8F",
                                          "\xE2\x80\xA8",
                                          "\xE2\x80\xA9",
                                          "\xE2\x80\xAA",
                                          "\xE2\x80\xAB",
                                          "\xE2\x80\xAC",
                                          "\xE2\x80\xAD",
                                          "\xE2\x80\xAE",
                                          "\xE2\x81\xA6",
                                          "\xE2\x81\xA7",
                                          "\xE2\x81\xA8",
                                          "\xE2\x81\xA9",
                                          kUtf8Mark};
  return std::ranges::find(kUnseen, character) != std::end(kUnseen);
}

std::string Printable(std::string_view text) {
  std::string printable;
  while (!text.empty()) {
    const std::size_t length = Utf8CharacterLength(text);
    const std::string_view character = text.substr(0, length == 0 ? 1 : length);
    if (length == 0 || IsUnseen(character)) {
      for (const char c : character) printable += fmt::format("\\x{:02X}", Byte(c));
    } else {
      printable += character;
    }
    text.remove_prefix(character.size());
  }
  return printable;
}

std::string Utf8FromLatin1(std::string_view text) {
  std::string utf8;
  utf8.reserve(text.size());
  for (const char c : text) {
    const unsigned byte = Byte(c);
    if (byte < 0x80) {
      utf8 += c;
    } else {
      utf8 += static_cast<char>(0xC0U | (byte >> 6U));
      utf8 += static_cast<char>(0x80U | (byte & 0x3FU));
    }
  }
  return utf8;
}

}  // namespace cardo
