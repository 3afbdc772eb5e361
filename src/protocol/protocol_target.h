#pragma once

namespace vermo {

// Receives every text of a protocol before the file does: NUL-terminated, ISO 8859-1, valid
// during the call.
class ProtocolTarget {
 public:
  virtual ~ProtocolTarget() = default;
  virtual void OnProtocolText(const char* text) = 0;
  // Whether anybody hears the texts at this moment.
  [[nodiscard]] virtual bool IsListening() const { return true; }

 protected:
  ProtocolTarget() = default;
  ProtocolTarget(const ProtocolTarget&) = default;
  ProtocolTarget& operator=(const ProtocolTarget&) = default;
};

}  // namespace vermo
