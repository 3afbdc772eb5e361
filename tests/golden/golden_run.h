#pragma once

#include "golden/scene.h"

#include <string>

namespace golden {

enum class Language { German, English };

// What one run leaves: its status, the file of the protocol, and the texts that the protocol
// function received, joined.
struct Outcome {
  int status = -1;
  std::string file;
  std::string texts;
};

// Runs a job built by build(job) in a language, with its protocol in a file of its own; before(job)
// may attach a progress function. The process speaks German afterwards.
template <typename Build>
Outcome RunGolden(Language language, Build build);

// The protocol with its dates, its times and numbers of nothing but rounding masked: they differ
// from run to run or from machine to machine.
std::string Masked(const std::string& protocol);

// Holds a protocol against its golden file byte for byte and tells the first line that differs; or,
// with CARDO_REFRESH_GOLDEN set in the environment, writes the golden file.
void ExpectGolden(const std::string& name, Language language, const std::string& protocol);

// Implementation of RunGolden.
class ProtocolFile {
 public:
  ProtocolFile();
  ~ProtocolFile();
  ProtocolFile(const ProtocolFile&) = delete;
  ProtocolFile& operator=(const ProtocolFile&) = delete;
  [[nodiscard]] const std::string& Name() const { return fName; }
  [[nodiscard]] std::string Contents() const;

 private:
  std::string fName;
};
void SetProcessLanguage(Language language);
void CollectText(void* job, char* text, void* userData);

template <typename Build>
Outcome RunGolden(Language language, Build build) {
  SetProcessLanguage(language);
  const ProtocolFile file;
  Outcome outcome;
  {
    const Job job(XYZ_CreateJob(file.Name().c_str()));
    XYZ_SetProtocolCallback(job.get(), CollectText, &outcome.texts);
    build(job.get());
    outcome.status = XYZ_CalcBundle(job.get());
  }
  outcome.file = file.Contents();
  SetProcessLanguage(Language::German);
  return outcome;
}

}  // namespace golden
