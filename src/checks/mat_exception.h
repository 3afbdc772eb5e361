#pragma once

#include <cstdint>

// A node of a differentiable expression was evaluated without its operand: code 0.
class MatException {
 public:
  explicit MatException(std::int32_t code) noexcept : fCode(code) {}
  virtual ~MatException() = default;
  [[nodiscard]] std::int32_t GetCode() const noexcept { return fCode; }

 private:
  std::int32_t fCode;
};
