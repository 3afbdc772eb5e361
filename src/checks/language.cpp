#include "checks/language.h"

#include <atomic>

namespace vermo {
namespace {

std::atomic<unsigned char> gLanguage{static_cast<unsigned char>(Language::German)};

}  // namespace

Language CurrentLanguage() noexcept {
  return static_cast<Language>(gLanguage.load(std::memory_order_relaxed));
}

void SetLanguage(Language language) noexcept {
  gLanguage.store(static_cast<unsigned char>(language), std::memory_order_relaxed);
}

}  // namespace vermo
