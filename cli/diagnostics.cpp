#include "diagnostics.h"

#include "text_encoding.h"

#include <fmt/format.h>
#include <utility>

namespace cardo {
namespace {

constexpr std::size_t kLongestQuote = 60;

}  // namespace

std::string ToString(const Place& place) {
  if (place.line == 0) return place.file;
  if (place.column == 0) return fmt::format("{}:{}", place.file, place.line);
  return fmt::format("{}:{}:{}", place.file, place.line, place.column);
}

std::string ToString(const Diagnostic& diagnostic) {
  return fmt::format("{}: {}", ToString(diagnostic.place), diagnostic.message);
}

void Diagnostics::Add(Place place, std::string message) {
  std::size_t& count = fCounts[place.file];
  if (count >= kLimitPerFile) return;
  ++count;
  fList.push_back({std::move(place), std::move(message)});
}

std::size_t Diagnostics::CountOf(const std::string& file) const {
  const auto found = fCounts.find(file);
  return found == fCounts.end() ? 0 : found->second;
}

bool Diagnostics::IsFull(const std::string& file) const { return CountOf(file) >= kLimitPerFile; }

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  std::size_t shown = 0;
  while (!text.empty()) {
    if (shown == kLongestQuote) return quoted + "...\"";
    const std::size_t length = Utf8CharacterLength(text);
    const auto first = static_cast<unsigned char>(text.front());
    if (length == 0 || first < 0x20 || first == 0x7F) {
      quoted += fmt::format("\\x{:02X}", first);
      text.remove_prefix(1);
    } else {
      if (first == '"' || first == '\\') quoted += '\\';
      quoted += text.substr(0, length);
      text.remove_prefix(length);
    }
    ++shown;
  }
  return quoted + '"';
}

}  // namespace cardo
