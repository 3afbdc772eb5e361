#pragma once

#include "linalg/tensors.h"

#include <array>
#include <cstdint>
#include <limits>

namespace vermo {

// The number of a measured point.
class Ident {
 public:
  [[nodiscard]] std::uint32_t Nummer() const noexcept { return fNummer; }
  void SetNummer(std::uint32_t nummer) noexcept { fNummer = nummer; }

 private:
  std::uint32_t fNummer = 0xFFFFFFFF;
};

// A measured image point with its a-priori standard deviations, image units.
class Punkt2S : public Ident, public ostra_bundle::VektorD<2> {
 public:
  [[nodiscard]] const std::array<double, 2>& Sigma() const noexcept { return fSigma; }
  void SetSigma(double sx, double sy) noexcept { fSigma = {sx, sy}; }

 private:
  std::array<double, 2> fSigma{std::numeric_limits<double>::quiet_NaN(),
                               std::numeric_limits<double>::quiet_NaN()};
};

// A measured object point, object units.
class Punkt3S : public Ident, public ostra_bundle::VektorD<3> {};

}  // namespace vermo
