#pragma once

namespace vermo {

// A literal of the report, German and English side by side, ISO 8859-1.
struct BilingualText {
  const char* german;
  const char* english;
};

// The writer's language picks one of the two.
enum class WriterLanguage { German, English };

[[nodiscard]] constexpr const char* In(WriterLanguage language, const BilingualText& text) {
  return language == WriterLanguage::English ? text.english : text.german;
}

// Text of an engine failure; empty for a code without one.
[[nodiscard]] const char* ErrorText(WriterLanguage language, int code) noexcept;

// Two letters for the days from Sunday on, in the language of the process; "**" for others.
[[nodiscard]] const char* WeekdayName(int index) noexcept;
// The months from January on, in the language of the process; "**" for others.
[[nodiscard]] const char* MonthName(int index) noexcept;

}  // namespace vermo
