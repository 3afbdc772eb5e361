#include "linalg/vektor.h"

#include "checks/failure_codes.h"
#include "checks/kl_exception.h"

#include <cmath>
#include <new>

namespace vermo {
namespace {

// A direction of this length or less is none.
constexpr double kSmallestDirection = 1e-20;

}  // namespace

void CVektorSlice::Fill(double value) noexcept {
  for (std::uint32_t i = 0; i < fSize; ++i) (*this)[i] = value;
}

double CVektorSlice::Dot(const CVektorSlice& other) const {
  if (fSize != other.fSize) throw KlException(failure::kVectorSizes);
  double sum = 0.0;
  for (std::uint32_t i = 0; i < fSize; ++i) sum += (*this)[i] * other[i];
  return sum;
}

double CVektorSlice::Norm() const noexcept {
  double sum = 0.0;
  for (std::uint32_t i = 0; i < fSize; ++i) {
    const double element = (*this)[i];
    if (element != 0.0) sum += element * element;
  }
  return std::sqrt(sum);
}

void CVektorSlice::Orthogonalize(CVektorSlice& other) const {
  if (fSize != other.fSize) throw KlException(failure::kVectorSizes);
  const double norm = Norm();
  if (!(kSmallestDirection < norm)) throw KlException(failure::kVectorNorm);
  const double factor = Dot(other) / (norm * norm);
  for (std::uint32_t i = 0; i < fSize; ++i) other[i] -= (*this)[i] * factor;
}

void CVektorSlice::Normalize() {
  const double norm = Norm();
  if (norm == 0.0) throw KlException(failure::kVectorNorm);
  for (std::uint32_t i = 0; i < fSize; ++i) (*this)[i] /= norm;
}

// A copy has a buffer of its own, so the base must not take the source's.
// NOLINTNEXTLINE(bugprone-copy-constructor-init,readability-redundant-member-init)
CVektor::CVektor(const CVektor& source) : CVektorSlice() {
  if (source.fTemporary) {
    Take(source);
  } else if (source.fSize != 0) {
    if (const std::int32_t code = Copy(source); code != 0) throw KlException(code);
  }
}

CVektor::CVektor(CVektor&& source) noexcept { Take(source); }

CVektor::~CVektor() { delete[] fData; }

CVektor& CVektor::operator=(const CVektor& source) {
  if (this == &source) return *this;
  if (source.fTemporary)
    Take(source);
  else if (const std::int32_t code = Copy(source); code != 0)
    throw KlException(code);
  return *this;
}

CVektor& CVektor::operator=(CVektor&& source) noexcept {
  if (this != &source) Take(source);
  return *this;
}

void CVektor::Free() noexcept {
  delete[] fData;
  fData = nullptr;
  fSize = 0;
}

std::int32_t CVektor::Allocate(std::uint32_t size) noexcept {
  Free();
  if (size == 0) return failure::kVectorEmpty;
  fData = new (std::nothrow) double[size];
  if (fData == nullptr) return failure::kVectorAllocation;
  fSize = size;
  fStride = 1;
  fTemporary = false;
  return 0;
}

std::int32_t CVektor::Copy(const CVektorSlice& source) noexcept {
  if (const std::int32_t code = Allocate(source.Size()); code != 0) return code;
  for (std::uint32_t i = 0; i < fSize; ++i) (*this)[i] = source[i];
  return 0;
}

void CVektor::Take(const CVektor& source) noexcept {
  Free();
  fData = source.fData;
  fSize = source.fSize;
  fStride = source.fStride;
  fTemporary = source.fTemporary;
  source.Release();
}

void CVektor::Release() const noexcept {
  auto* self = const_cast<CVektor*>(this);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
  self->fData = nullptr;
  self->fSize = 0;
}

}  // namespace vermo
