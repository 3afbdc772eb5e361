#pragma once

#include <cstdint>

namespace vermo {

// A failure that can tell itself in words, German only.
class StandardException {
 public:
  StandardException() = default;
  StandardException(const StandardException&) = default;
  StandardException& operator=(const StandardException&) = default;
  virtual ~StandardException() = default;
  // ISO 8859-1.
  [[nodiscard]] virtual const char* GetText() const noexcept;
};

// A failure of a container. The engine throws code 2 when the memory for a row is exhausted.
class ContainerException : public StandardException {
 public:
  static constexpr std::int32_t kOutOfMemory = 2;

  explicit ContainerException(std::int32_t code) noexcept : fCode(code) {}
  [[nodiscard]] std::int32_t GetCode() const noexcept { return fCode; }
  [[nodiscard]] const char* GetText() const noexcept override;

 private:
  std::int32_t fCode;
};

}  // namespace vermo
