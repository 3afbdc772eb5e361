#pragma once

#include "checks/language.h"
#include "protocol/old_style_message_handler.h"
#include "protocol/protocol_target.h"
#include "support/language_guard.h"

#include <memory>
#include <string>
#include <vector>

namespace vermo::test {

// A writer without a file and the texts that it has written, one by one. The process speaks the
// writer's language meanwhile.
class RecordedWriter final : private ProtocolTarget {
 public:
  explicit RecordedWriter(WriterLanguage language)
      : fLanguage(language == WriterLanguage::German ? Language::German : Language::English) {
    if (language == WriterLanguage::German)
      fWriter = std::make_unique<OldStyleMessageHandlerDE>("");
    else
      fWriter = std::make_unique<OldStyleMessageHandlerEN>("");
    fWriter->SetJob(this);
  }

  OldStyleMessageHandler* operator->() { return fWriter.get(); }
  [[nodiscard]] const std::vector<std::string>& Texts() const { return fTexts; }
  [[nodiscard]] std::string Joined() const {
    std::string joined;
    for (const std::string& text : fTexts) joined += text;
    return joined;
  }

 private:
  void OnProtocolText(const char* text) override { fTexts.emplace_back(text); }

  LanguageGuard fLanguage;
  std::unique_ptr<OldStyleMessageHandler> fWriter;
  std::vector<std::string> fTexts;
};

// What a writer of the language writes when it is asked by act(writer).
template <typename Act>
std::string Written(WriterLanguage language, Act act) {
  RecordedWriter writer(language);
  act(writer);
  return writer.Joined();
}

}  // namespace vermo::test
