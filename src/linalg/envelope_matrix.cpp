#include "linalg/envelope_matrix.h"

#include "checks/container_exception.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace vermo {

void CEnvelopeRow::Reshape(std::uint32_t first, std::uint32_t count) {
  const std::uint32_t keptFirst = std::max(first, fFirst);
  const std::uint32_t keptEnd = std::min(first + count, End());
  const bool keeps = !IsEmpty() && keptFirst < keptEnd;
  const bool toTheLeft = first < fFirst;
  const std::size_t keptPlace = keeps ? fOffset + (keptFirst - fFirst) : 0;
  const std::size_t keptCount = keeps ? keptEnd - keptFirst : 0;

  std::size_t offset;
  if (keeps && keptPlace >= keptFirst - first &&
      keptPlace - (keptFirst - first) + count <= fCapacity) {
    // The kept elements stay where they are.
    offset = keptPlace - (keptFirst - first);
  } else if (count <= fCapacity) {
    // A row without elements begins at the right end: assembly widens it to the left.
    offset = keeps && !toTheLeft ? 0 : fCapacity - count;
    if (keeps)
      std::memmove(fData.get() + offset + (keptFirst - first),
                   fData.get() + keptPlace,
                   keptCount * sizeof(double));
  } else {
    // Half as much again, and not beyond column 0 on the left.
    std::size_t slack = 0;
    if (keeps) slack = toTheLeft ? std::min<std::size_t>(first, count / 2) : count / 2;
    std::unique_ptr<double[]> data(new (std::nothrow) double[count + slack]);
    if (data == nullptr) throw ContainerException(ContainerException::kOutOfMemory);
    offset = toTheLeft ? slack : 0;
    if (keeps)
      std::memcpy(data.get() + offset + (keptFirst - first),
                  fData.get() + keptPlace,
                  keptCount * sizeof(double));
    fData = std::move(data);
    fCapacity = count + slack;
  }

  double* const elements = fData.get() + offset;
  const std::size_t before = keeps ? keptFirst - first : count;
  std::fill(elements, elements + before, 0.0);
  std::fill(elements + std::min<std::size_t>(before + keptCount, count), elements + count, 0.0);
  fOffset = offset;
  fFirst = first;
  fCount = count;
}

void CEnvelopeRow::Reserve(std::uint32_t count) {
  if (!IsEmpty() || count <= fCapacity) return;
  Reshape(0, count);
  Clear();
}

void CEnvelopeRow::Widen(std::uint32_t first, std::uint32_t count) {
  if (count == 0) return;
  if (IsEmpty()) {
    Reshape(first, count);
    return;
  }
  const std::uint32_t newFirst = std::min(first, fFirst);
  const std::uint32_t newEnd = std::max(first + count, End());
  if (newFirst != fFirst || newEnd != End()) Reshape(newFirst, newEnd - newFirst);
}

void CEnvelopeMatrix::Resize(std::uint32_t n) {
  if (n > fRows.size()) fRows.resize(n);
  for (std::uint32_t i = 0; i < n; ++i) fRows[i].Clear();
  fSize = n;
}

void CEnvelopeMatrix::SetIdentity(std::uint32_t n) {
  Resize(n);
  for (std::uint32_t k = 0; k < n; ++k) {
    fRows[k].Reshape(k, 1);
    fRows[k].Element(k) = 1.0;
  }
}

void CEnvelopeMatrix::Fill(double value) noexcept {
  for (std::uint32_t i = 0; i < fSize; ++i) std::ranges::fill(fRows[i].Elements(), value);
}

CVektor CEnvelopeMatrix::Column(std::uint32_t i) const {
  CVektor column;
  column.Allocate(fSize);
  column.Fill(0.0);
  const CEnvelopeRow& row = fRows[i];
  for (std::uint32_t j = row.First(); j < row.End() && j <= i; ++j) column[j] = row.At(j);
  for (std::uint32_t j = i + 1; j < fSize; ++j) column[j] = fRows[j].At(i);
  column.SetTemporary(true);
  return column;
}

}  // namespace vermo
