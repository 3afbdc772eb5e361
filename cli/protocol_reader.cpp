#include "protocol_reader.h"

#include "text_encoding.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <system_error>

namespace cardo {
namespace {

// German and English.
using Beginnings = std::array<std::string_view, 2>;

constexpr Beginnings kFailure = {"\n<h3>Abbruch: Fehler ", "\n<h3>Abbort: Error "};
constexpr Beginnings kRound = {"\n\nAnzahl der Beobachtungen      : ",
                               "\n\nNumber of observations        : "};
constexpr Beginnings kRejected = {
    "Ausrei\xDF"
    "er: \n",
    "Blunders: \n"};
constexpr Beginnings kReadmitted = {
    "Reaktivierte Ausrei\xDF"
    "er: \n",
    "Reactivated Blunders: \n"};
constexpr std::string_view kWarnings = "<h4><a name=\"warnungen\">";
constexpr Beginnings kBehindWarnings = {"\nGesamtredundanz: ", "\nRedundancy at all: "};

// The protocol names no group here.
constexpr int kGroupEnabled = 107;

bool BeginsWith(std::string_view text, const Beginnings& beginnings) {
  return text.starts_with(beginnings[0]) || text.starts_with(beginnings[1]);
}

// The text of an iteration begins with a line end behind blanks, no row of a table does.
bool MayBeIteration(std::string_view text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first != std::string_view::npos && text[first] == '\n';
}

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \n\r\t";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

std::optional<ProtocolFailure> FindFailure(std::string_view text) {
  for (std::string_view head : kFailure) {
    head.remove_prefix(1);
    const std::size_t found = text.rfind(head);
    if (found == std::string_view::npos) continue;
    std::string_view rest = text.substr(found + head.size());
    int code = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), code);
    if (error != std::errc{}) continue;
    rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    if (rest.starts_with(" - ")) rest.remove_prefix(3);
    return ProtocolFailure{code, Utf8FromLatin1(rest.substr(0, rest.find("</h3>")))};
  }
  return std::nullopt;
}

void ProtocolReader::Take(std::string_view text, Timing& timing) {
  if (fInWarnings) {
    fInWarnings = !BeginsWith(text, kBehindWarnings);
    if (fInWarnings) TakeWarning(text);
    return;
  }
  if (text.starts_with(kWarnings)) {
    fInWarnings = true;
  } else if (BeginsWith(text, kRound)) {
    ++fRounds;
    fMarksChanged = false;
  } else if (BeginsWith(text, kRejected) || BeginsWith(text, kReadmitted)) {
    fMarksChanged = true;
  } else if (BeginsWith(text, kFailure)) {
    fFailure = FindFailure(text);
  } else if (MayBeIteration(text)) {
    AddIterationTimes(text, timing);
  }
}

// "  105: Observation has less redundancy     > " and the object.
void ProtocolReader::TakeWarning(std::string_view text) {
  text = Trimmed(text);
  int code = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), code);
  if (error != std::errc{}) return;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  if (!text.starts_with(": ")) return;
  text.remove_prefix(2);
  if (text.starts_with("... ")) {
    fCutWarnings.push_back(code);
    return;
  }
  if (code == kGroupEnabled) {
    fWarnings.push_back({code, "Group enabled again", ""});
    return;
  }
  const std::size_t arrow = text.find(" > ");
  const std::string_view object =
      arrow == std::string_view::npos ? std::string_view{} : text.substr(arrow + 3);
  fWarnings.push_back(
      {code, Utf8FromLatin1(Trimmed(text.substr(0, arrow))), Utf8FromLatin1(Trimmed(object))});
}

}  // namespace cardo
