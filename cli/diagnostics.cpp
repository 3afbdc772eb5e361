#include "diagnostics.h"

#include "text_encoding.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace cardo {
namespace {

constexpr std::size_t kLongestQuote = 60;

}  // namespace

std::string ToString(const Place& place) {
  std::string file = Printable(place.file);
  if (place.line == 0) return file;
  if (place.column == 0) return fmt::format("{}:{}", file, place.line);
  return fmt::format("{}:{}:{}", file, place.line, place.column);
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
    const std::size_t length = std::max<std::size_t>(Utf8CharacterLength(text), 1);
    if (text.front() == '"' || text.front() == '\\') quoted += '\\';
    quoted += Printable(text.substr(0, length));
    text.remove_prefix(length);
    ++shown;
  }
  return quoted + '"';
}

}  // namespace cardo
