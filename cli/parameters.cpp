#include "parameters.h"

#include "number_text.h"

#include <cmath>
#include <cstdint>
#include <fmt/format.h>
#include <limits>
#include <numbers>
#include <optional>
#include <stdexcept>

namespace cardo {
namespace {

constexpr double kLargestReal = std::numeric_limits<double>::max();
constexpr double kLargestInt = std::numeric_limits<std::int32_t>::max();

Parameter Real(std::string name,
               eXYZ_Parameter selector,
               std::string defaultText,
               double lower,
               double upper) {
  return {std::move(name), selector, ParameterKind::kReal, std::move(defaultText), lower, upper};
}

Parameter PositiveReal(std::string name, eXYZ_Parameter selector, std::string defaultText) {
  Parameter parameter = Real(std::move(name), selector, std::move(defaultText), 0.0, kLargestReal);
  parameter.lowerIsOpen = true;
  return parameter;
}

Parameter Integer(std::string name, eXYZ_Parameter selector, std::string defaultText) {
  return {
      std::move(name), selector, ParameterKind::kInteger, std::move(defaultText), 0.0, kLargestInt};
}

Parameter Switch(std::string name, eXYZ_Parameter selector, std::string defaultText) {
  return {std::move(name), selector, ParameterKind::kSwitch, std::move(defaultText)};
}

Parameter Words(std::string name,
                eXYZ_Parameter selector,
                ParameterKind kind,
                std::string defaultText,
                std::vector<std::pair<std::string, int>> words) {
  Parameter parameter{std::move(name), selector, kind, std::move(defaultText)};
  parameter.words = std::move(words);
  return parameter;
}

std::vector<std::pair<std::string, int>> EorFormats() {
  std::vector<std::pair<std::string, int>> formats = {{"own", 0}, {"matrix", 0x403}};
  for (const auto& [type, typeCode] :
       {std::pair{"omega-phi-kappa", 1}, std::pair{"arc", 2}, std::pair{"ttg", 4}}) {
    for (const auto& [unit, unitCode] :
         {std::pair{"degrees", 0x400}, std::pair{"gon", 0x200}, std::pair{"radians", 0x100}}) {
      formats.emplace_back(fmt::format("{} {}", type, unit), typeCode + unitCode);
    }
  }
  return formats;
}

std::vector<Parameter> MakeParameters() {
  return {
      PositiveReal("convergence_limit", eXYZ_ParamConvergenceLimit, "0.00032"),
      PositiveReal("s0_limit", eXYZ_ParamS0Limit, "1e10"),
      Integer("max_iterations", eXYZ_ParamMaxIterations, "200"),
      Words("datum",
            eXYZ_ParamDatum,
            ParameterKind::kSet,
            "",
            {{"translation", 0x700}, {"rotation", 0x3800}, {"scale", 0x4000}}),
      Words("blunder_test",
            eXYZ_ParamBlunderTest,
            ParameterKind::kChoice,
            "inner-reliability",
            {{"off", 0}, {"redundancy", 1}, {"inner-reliability", 2}}),
      Switch("solvability_check", eXYZ_ParamSolvabilityCheck, "true"),
      Real("dynamic_lower", eXYZ_ParamDynamicLower, "1", 0.0, 1000.0),
      Real("dynamic_upper", eXYZ_ParamDynamicUpper, "4", 0.0, 1000.0),
      Real("damping", eXYZ_ParamDamping, "0.8", 0.0, 1.0),
      PositiveReal("s0_apriori", eXYZ_ParamS0Apriori, "0.005"),
      Words("language",
            eXYZ_ParamLanguage,
            ParameterKind::kChoice,
            "german",
            {{"german", 1}, {"english", 2}}),
      Real("s0_floor", eXYZ_ParamS0Floor, "1e-5", 0.0, kLargestReal),
      Switch("hide_projections", eXYZ_ParamHideProjections, "false"),
      Integer("min_rays", eXYZ_ParamMinRays, "0"),
      Real("angle_limit", eXYZ_ParamAngleLimit, "0.523599", 0.0, std::numbers::pi),
      Words("eor_format", eXYZ_ParamEorFormat, ParameterKind::kChoice, "own", EorFormats()),
      Integer("progress_window", eXYZ_ParamProgressWindow, "5"),
      Real("progress_tolerance", eXYZ_ParamProgressTolerance, "0.5", 0.0, kLargestReal),
      Switch("pivot_search", eXYZ_ParamPivotSearch, "true"),
  };
}

bool IsInRange(const Parameter& parameter, double number) {
  if (!std::isfinite(number)) return false;
  const bool above = parameter.lowerIsOpen ? number > parameter.lower : number >= parameter.lower;
  return above && number <= parameter.upper;
}

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

std::optional<int> CodeOf(const Parameter& parameter, std::string_view word) {
  for (const auto& [known, code] : parameter.words) {
    if (known == word) return code;
  }
  return std::nullopt;
}

std::string QuotedWords(const Parameter& parameter) {
  std::string list;
  for (const auto& [word, code] : parameter.words) {
    list += fmt::format("{}\"{}\"", list.empty() ? "" : ", ", word);
  }
  return list;
}

}  // namespace

std::span<const Parameter> AllParameters() {
  static const std::vector<Parameter> parameters = MakeParameters();
  return parameters;
}

const Parameter* FindParameter(std::string_view name) {
  for (const Parameter& parameter : AllParameters()) {
    if (parameter.name == name) return &parameter;
  }
  return nullptr;
}

std::vector<std::string> ParameterNames() {
  std::vector<std::string> names;
  for (const Parameter& parameter : AllParameters()) names.push_back(parameter.name);
  return names;
}

std::string Expectation(const Parameter& parameter) {
  switch (parameter.kind) {
    case ParameterKind::kReal:
    case ParameterKind::kInteger: {
      const std::string_view number =
          parameter.kind == ParameterKind::kReal ? "a number" : "a whole number";
      if (parameter.lowerIsOpen) return fmt::format("{} above {}", number, parameter.lower);
      if (parameter.upper == kLargestReal) {
        return fmt::format("{} not below {}", number, parameter.lower);
      }
      return fmt::format("{} from {} to {}", number, parameter.lower, parameter.upper);
    }
    case ParameterKind::kSwitch:
      return "true or false";
    case ParameterKind::kChoice:
      return "one of " + QuotedWords(parameter);
    case ParameterKind::kSet:
      return "a list of any of " + QuotedWords(parameter);
  }
  throw std::logic_error("parameter kind");
}

bool FromReal(const Parameter& parameter, double number, ParameterValue& value) {
  if (parameter.kind != ParameterKind::kReal || !IsInRange(parameter, number)) return false;
  value = number;
  return true;
}

bool FromInteger(const Parameter& parameter, std::int64_t number, ParameterValue& value) {
  const auto real = static_cast<double>(number);
  if (parameter.kind == ParameterKind::kReal) return FromReal(parameter, real, value);
  if (parameter.kind != ParameterKind::kInteger || !IsInRange(parameter, real)) return false;
  value = static_cast<int>(number);
  return true;
}

bool FromSwitch(const Parameter& parameter, bool on, ParameterValue& value) {
  if (parameter.kind != ParameterKind::kSwitch) return false;
  value = on ? 1 : 0;
  return true;
}

bool FromWords(const Parameter& parameter,
               std::span<const std::string> words,
               ParameterValue& value) {
  if (parameter.kind != ParameterKind::kChoice && parameter.kind != ParameterKind::kSet) {
    return false;
  }
  if (parameter.kind == ParameterKind::kChoice && words.size() != 1) return false;
  int sum = 0;
  for (const std::string& word : words) {
    const std::optional<int> code = CodeOf(parameter, word);
    if (!code) return false;
    sum |= *code;
  }
  value = sum;
  return true;
}

bool FromText(const Parameter& parameter, std::string_view text, ParameterValue& value) {
  text = Trimmed(text);
  switch (parameter.kind) {
    case ParameterKind::kReal: {
      double number = 0.0;
      return ParseReal(text, number) == NumberError::kNone && FromReal(parameter, number, value);
    }
    case ParameterKind::kInteger: {
      std::int64_t number = 0;
      return ParseInteger(text, number) == NumberError::kNone &&
             FromInteger(parameter, number, value);
    }
    case ParameterKind::kSwitch:
      if (text != "true" && text != "false") return false;
      return FromSwitch(parameter, text == "true", value);
    case ParameterKind::kChoice: {
      const std::string word(text);
      return FromWords(parameter, {&word, 1}, value);
    }
    case ParameterKind::kSet: {
      std::vector<std::string> words;
      while (!text.empty()) {
        const std::size_t comma = text.find(',');
        words.emplace_back(Trimmed(text.substr(0, comma)));
        text = comma == std::string_view::npos ? std::string_view{} : text.substr(comma + 1);
      }
      return FromWords(parameter, words, value);
    }
  }
  return false;
}

ParameterValue DefaultOf(const Parameter& parameter) {
  ParameterValue value;
  if (!FromText(parameter, parameter.defaultText, value)) {
    throw std::logic_error("default of " + parameter.name);
  }
  return value;
}

ParameterValue ValueOf(const ParameterValues& values, std::string_view name) {
  const auto found = values.find(std::string(name));
  if (found != values.end()) return found->second;
  const Parameter* parameter = FindParameter(name);
  if (parameter == nullptr) throw std::logic_error("parameter " + std::string(name));
  return DefaultOf(*parameter);
}

void ApplyParameters(void* job, const ParameterValues& values) {
  const auto apply = [job](const Parameter& parameter, const ParameterValue& value) {
    const int status = std::holds_alternative<double>(value)
                           ? XYZ_SetParam(job, parameter.selector, std::get<double>(value))
                           : XYZ_SetParam(job, parameter.selector, std::get<int>(value));
    // The pivot search is set though the answer is another.
    if (status != eXYZ_Ok && parameter.selector != eXYZ_ParamPivotSearch) {
      throw std::logic_error("the library refuses " + parameter.name);
    }
  };
  for (const Parameter& parameter : AllParameters()) {
    const auto found = values.find(parameter.name);
    if (found != values.end()) {
      apply(parameter, found->second);
    } else if (parameter.selector == eXYZ_ParamLanguage) {
      apply(parameter, DefaultOf(parameter));
    }
  }
}

}  // namespace cardo
