#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>
#include <xyz_api.h>

namespace cardo {

enum class ParameterKind {
  kReal,     // a number
  kInteger,  // a whole number
  kSwitch,   // true or false; the library takes 1 or 0
  kChoice,   // one of some words
  kSet       // any number of some words, their bits added up
};

// A parameter of the library under its name in the job file.
struct Parameter {
  std::string name;
  eXYZ_Parameter selector;
  ParameterKind kind;
  // The library's default, as it is written in the job file.
  std::string defaultText;
  // Allowed range of a number; the lower end belongs to it unless lowerIsOpen.
  double lower = 0.0;
  double upper = 0.0;
  bool lowerIsOpen = false;
  // Words of a choice or a set and what they mean to the library.
  std::vector<std::pair<std::string, int>> words = {};
};

using ParameterValue = std::variant<double, int>;

// All parameters of the library, in the order of their selectors.
[[nodiscard]] std::span<const Parameter> AllParameters();
[[nodiscard]] const Parameter* FindParameter(std::string_view name);
[[nodiscard]] std::vector<std::string> ParameterNames();

// What the parameter takes, in words: "a number above 0", "one of "off", "redundancy" ...".
[[nodiscard]] std::string Expectation(const Parameter& parameter);

// Readers of one notation each. They answer true and the value, or false if the parameter does
// not take it.
[[nodiscard]] bool FromReal(const Parameter& parameter, double number, ParameterValue& value);
[[nodiscard]] bool FromInteger(const Parameter& parameter,
                               std::int64_t number,
                               ParameterValue& value);
[[nodiscard]] bool FromSwitch(const Parameter& parameter, bool on, ParameterValue& value);
[[nodiscard]] bool FromWords(const Parameter& parameter,
                             std::span<const std::string> words,
                             ParameterValue& value);
// Of --set: the bare text, the words of a set separated by commas.
[[nodiscard]] bool FromText(const Parameter& parameter,
                            std::string_view text,
                            ParameterValue& value);

// The default as a value.
[[nodiscard]] ParameterValue DefaultOf(const Parameter& parameter);

// Values by parameter name; a parameter that is not in it keeps the library's default.
using ParameterValues = std::map<std::string, ParameterValue>;

[[nodiscard]] ParameterValue ValueOf(const ParameterValues& values, std::string_view name);

// Hands the values to the job. The language belongs to the whole process, so it is always set,
// to its default if need be.
void ApplyParameters(void* job, const ParameterValues& values);

}  // namespace cardo
