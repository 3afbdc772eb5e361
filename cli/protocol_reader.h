#pragma once

#include "timing.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cardo {

// Why a run failed, as its protocol says.
struct ProtocolFailure {
  int code;
  std::string text;  // UTF-8, often empty
};

// Finds the failure in a text of a protocol, as the library hands it out (ISO 8859-1).
[[nodiscard]] std::optional<ProtocolFailure> FindFailure(std::string_view text);

// A warning of the protocol's last section, in UTF-8 and in the protocol's language.
struct RunWarning {
  int code;            // 101 to 107
  std::string text;    // what is doubtful
  std::string object;  // what it is about; empty if the protocol does not say
};

// Listens to a protocol while it is written and keeps what the library tells nowhere else. The
// tables of observations pass through here row by row, so a text is judged by its beginning.
class ProtocolReader {
 public:
  // Takes the next text, ISO 8859-1. Adds the times of an iteration to the timing.
  void Take(std::string_view text, Timing& timing);

  // Reports of a converged pass so far. There is one as well when no outlier test is made.
  [[nodiscard]] int BlunderRounds() const noexcept { return fRounds; }
  // The last of them rejected observations or took some back.
  [[nodiscard]] bool LastRoundChangedMarks() const noexcept { return fMarksChanged; }
  [[nodiscard]] const std::vector<RunWarning>& Warnings() const noexcept { return fWarnings; }
  // Codes of which the protocol tells no more warnings than those, though there are more.
  [[nodiscard]] const std::vector<int>& CutWarnings() const noexcept { return fCutWarnings; }
  [[nodiscard]] const std::optional<ProtocolFailure>& Failure() const noexcept { return fFailure; }

 private:
  void TakeWarning(std::string_view text);

  int fRounds = 0;
  bool fMarksChanged = false;
  bool fInWarnings = false;
  std::vector<RunWarning> fWarnings;
  std::vector<int> fCutWarnings;
  std::optional<ProtocolFailure> fFailure;
};

}  // namespace cardo
