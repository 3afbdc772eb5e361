#pragma once

#include "checks/language.h"

namespace vermo::test {

// Another language for one scope; the one before comes back, so that no test sees another's.
class LanguageGuard {
 public:
  explicit LanguageGuard(Language language) : fBefore(CurrentLanguage()) { SetLanguage(language); }
  ~LanguageGuard() { SetLanguage(fBefore); }
  LanguageGuard(const LanguageGuard&) = delete;
  LanguageGuard& operator=(const LanguageGuard&) = delete;

 private:
  Language fBefore;
};

}  // namespace vermo::test
