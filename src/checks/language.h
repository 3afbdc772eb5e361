#pragma once

namespace vermo {

enum class Language : unsigned char { German = 0, English = 1 };

// The language of all jobs of the process, German at load. Changing it while jobs run on other
// threads is no data race, but their reports may mix the languages.
[[nodiscard]] Language CurrentLanguage() noexcept;
void SetLanguage(Language language) noexcept;

// The text of the language of the moment.
[[nodiscard]] inline const char* ByLanguage(const char* german, const char* english) noexcept {
  return CurrentLanguage() == Language::English ? english : german;
}

}  // namespace vermo
