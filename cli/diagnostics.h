#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace cardo {

// A place in an input file; line and column count from 1, 0 means unknown. The column counts
// characters, not bytes.
struct Place {
  std::string file;
  std::size_t line = 0;
  std::size_t column = 0;
};

// "points.csv:12:4", without the parts that are unknown, on one line whatever the file's name
// holds.
[[nodiscard]] std::string ToString(const Place& place);

struct Diagnostic {
  Place place;
  std::string message;
};

// "points.csv:12:4: sigma must be positive, found "-0.01""
[[nodiscard]] std::string ToString(const Diagnostic& diagnostic);

// The mistakes found in the input, in the order in which they were found. Each file keeps at most
// kLimitPerFile of them; readers ask IsFull and stop.
class Diagnostics {
 public:
  static constexpr std::size_t kLimitPerFile = 20;

  void Add(Place place, std::string message);
  [[nodiscard]] bool IsEmpty() const noexcept { return fList.empty(); }
  [[nodiscard]] std::size_t CountOf(const std::string& file) const;
  [[nodiscard]] bool IsFull(const std::string& file) const;
  [[nodiscard]] const std::vector<Diagnostic>& List() const noexcept { return fList; }

 private:
  std::vector<Diagnostic> fList;
  std::map<std::string, std::size_t> fCounts;
};

// The text in double quotes as it can be shown on one line of a terminal: control characters and
// bytes that are no UTF-8 as \xNN, a long text cut with three dots.
[[nodiscard]] std::string Quoted(std::string_view text);

}  // namespace cardo
