#pragma once

#include <cstdint>
#include <span>

namespace vermo {

// A strided view of doubles; owns nothing. Failures are thrown as KlException.
class CVektorSlice {
 public:
  CVektorSlice(double* data, std::uint32_t size, std::uint32_t stride) noexcept
      : fData(data), fSize(size), fStride(stride) {}
  virtual ~CVektorSlice() = default;
  CVektorSlice(const CVektorSlice&) = default;
  CVektorSlice& operator=(const CVektorSlice&) = default;

  [[nodiscard]] std::uint32_t Size() const noexcept { return fSize; }
  [[nodiscard]] double& operator[](std::uint32_t i) noexcept { return fData[Offset(i)]; }
  [[nodiscard]] double operator[](std::uint32_t i) const noexcept { return fData[Offset(i)]; }

  void Fill(double value) noexcept;
  // -2005 if the sizes differ; 0 when empty.
  [[nodiscard]] double Dot(const CVektorSlice& other) const;
  // Square root of the sum of squares; NaN when an element is NaN.
  [[nodiscard]] double Norm() const noexcept;
  // Takes the part along this vector out of the other one: b - a (a b) / |a|^2. -2005 if the
  // sizes differ, -2007 unless 1e-20 is smaller than the norm of this vector.
  void Orthogonalize(CVektorSlice& other) const;
  // To unit length; -2007 if the norm is exactly 0.
  void Normalize();

 protected:
  CVektorSlice() = default;
  [[nodiscard]] std::size_t Offset(std::uint32_t i) const noexcept {
    return std::size_t{i} * fStride;
  }

  double* fData = nullptr;
  std::uint32_t fSize = 0;
  std::uint32_t fStride = 1;
};

// A vector that owns its elements. One that is marked temporary gives its buffer away when it is
// copied or assigned.
class CVektor : public CVektorSlice {
 public:
  CVektor() = default;
  // A copy, or the buffer of a temporary source; a copy that fails throws its code. An empty
  // source gives an empty vector.
  CVektor(const CVektor& source);
  CVektor(CVektor&& source) noexcept;
  ~CVektor() override;
  // A temporary source gives its buffer; otherwise a copy, and its code is thrown if it is not 0:
  // an empty source that is not temporary throws -2002.
  CVektor& operator=(const CVektor& source);
  CVektor& operator=(CVektor&& source) noexcept;

  // Releases the buffer.
  void Free() noexcept;
  // Releases the buffer and allocates another, contents undefined. 0; -2002 for size 0, which
  // leaves an empty vector; -2001 when the allocation fails.
  std::int32_t Allocate(std::uint32_t size) noexcept;
  // A copy of the elements; the code of Allocate, so -2002 for an empty source.
  std::int32_t Copy(const CVektorSlice& source) noexcept;
  // The buffer, stride and mark of the source, which becomes empty.
  void Take(const CVektor& source) noexcept;

  void SetTemporary(bool temporary) noexcept { fTemporary = temporary; }
  [[nodiscard]] bool IsTemporary() const noexcept { return fTemporary; }

  // The elements; they are contiguous.
  [[nodiscard]] std::span<double> Span() noexcept { return {fData, fSize}; }
  [[nodiscard]] std::span<const double> Span() const noexcept { return {fData, fSize}; }

 private:
  // The buffer moves out of a temporary source although the source is named as constant.
  void Release() const noexcept;

  bool fTemporary = false;
};

}  // namespace vermo
