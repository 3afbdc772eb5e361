#pragma once

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

namespace cardo::fuzz {

// Takes an input apart from the front; behind its end everything is zero.
class ByteStream {
 public:
  ByteStream(const std::uint8_t* data, std::size_t size) noexcept : fData(data), fSize(size) {}

  [[nodiscard]] bool IsEmpty() const noexcept { return fSize == 0; }
  std::uint8_t Byte() noexcept {
    if (fSize == 0) return 0;
    --fSize;
    return *fData++;
  }
  std::uint32_t Below(std::uint32_t n) noexcept { return Byte() % n; }
  std::int32_t Integer() noexcept {
    static constexpr std::int32_t kSpecial[] = {
        -1, 0, 1, 2, 3, 0x7fffffff, static_cast<std::int32_t>(-0x7fffffff - 1), 255, 256, 65536};
    const std::uint8_t kind = Byte();
    if (kind < 0xc0) return static_cast<std::int32_t>(kind) - 1;
    if (kind < 0xf0) return kSpecial[kind % (sizeof kSpecial / sizeof kSpecial[0])];
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8U | Byte();
    return static_cast<std::int32_t>(value);
  }
  // Mostly a small number, else one of those that hurt, or any bits.
  double Real() noexcept {
    using Limits = std::numeric_limits<double>;
    static constexpr double kSpecial[] = {0.0,
                                          -0.0,
                                          1.0,
                                          -1.0,
                                          Limits::quiet_NaN(),
                                          Limits::infinity(),
                                          -Limits::infinity(),
                                          Limits::denorm_min(),
                                          Limits::min(),
                                          Limits::max(),
                                          -Limits::max(),
                                          Limits::epsilon(),
                                          1e-10,
                                          1e-5,
                                          1e10,
                                          1e150,
                                          1e-150,
                                          5e6,
                                          1e-300,
                                          1e300};
    const std::uint8_t kind = Byte();
    if (kind < 0x80) return Small();
    if (kind < 0xc0) return 1e-3 * Small();
    if (kind < 0xe0) return kSpecial[Below(sizeof kSpecial / sizeof kSpecial[0])];
    if (kind < 0xf0) return std::ldexp(Small(), static_cast<int>(Byte()) - 128);
    std::uint64_t bits = 0;
    for (int i = 0; i < 8; ++i) bits = bits << 8U | Byte();
    double value = 0.0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }
  // In [-1, 1].
  double Share() noexcept { return static_cast<double>(static_cast<std::int8_t>(Byte())) / 128.0; }

 private:
  // In [-128, 128), steps of 1/256.
  double Small() noexcept {
    const auto whole = static_cast<double>(static_cast<std::int8_t>(Byte()));
    return whole + static_cast<double>(Byte()) / 256.0;
  }

  const std::uint8_t* fData;
  std::size_t fSize;
};

}  // namespace cardo::fuzz
