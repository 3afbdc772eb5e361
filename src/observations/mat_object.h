#pragma once

#include "checks/mat_exception.h"
#include "linalg/design_row.h"
#include "linalg/tensors.h"

#include <cstdint>

namespace vermo {

// Differentiable expressions: leaves hold a point or a rigid transformation with the column of
// its first unknown, inner nodes transform points or measure distances. The root delivers its
// value and its exact Jacobian by all unknowns below it. Nodes live on the stack of the
// evaluating function and point to each other without owning; nothing allocates.

// A Jacobian whose columns carry the numbers of the unknowns, kNoUnknown for none. A number may
// occur more than once; such columns add up when they become a design row.
template <unsigned Rows, unsigned MaxColumns>
struct TaggedJacobian {
  static constexpr std::int32_t kNoUnknown = -1;

  unsigned columns = 0;
  std::int32_t tags[MaxColumns];
  double elements[Rows][MaxColumns];

  void AppendTag(std::int32_t tag) noexcept { tags[columns++] = tag; }
};

// Three transformations with six unknowns each over a point with three.
inline constexpr unsigned kVectorColumns = 21;
// Rows r0 to r8, t0 to t2; columns three rotations, then three translations.
using RelationJacobian = TaggedJacobian<12, 6>;
using VectorJacobian = TaggedJacobian<3, kVectorColumns>;
using ScalarJacobian = TaggedJacobian<1, 2 * kVectorColumns>;

template <typename T>
struct JacobianFor;
template <>
struct JacobianFor<double> {
  using Type = ScalarJacobian;
};
template <>
struct JacobianFor<ostra_bundle::VektorD<3>> {
  using Type = VectorJacobian;
};
template <>
struct JacobianFor<ostra_bundle::RelationD<3>> {
  using Type = RelationJacobian;
};

class MatObjectBase {
 public:
  virtual ~MatObjectBase() = default;

 protected:
  MatObjectBase() = default;
  MatObjectBase(const MatObjectBase&) = default;
  MatObjectBase& operator=(const MatObjectBase&) = default;
};

// An expression of type T.
template <typename T>
class MatObject : public MatObjectBase {
 public:
  using Jacobian = typename JacobianFor<T>::Type;

  // Throws MatException 0 when an operand is missing.
  virtual void Value(T& value) const = 0;
  // Expects all operands to be set.
  virtual void Derivatives(Jacobian& jacobian) const = 0;
};

// A leaf's place among the unknowns.
class MatObjectIn {
 public:
  // Column of the first unknown, kNoUnknown for none.
  [[nodiscard]] std::int32_t Index() const noexcept { return fIndex; }
  void SetIndex(std::int32_t index) noexcept { fIndex = index; }

 protected:
  MatObjectIn() = default;
  ~MatObjectIn() = default;
  MatObjectIn(const MatObjectIn&) = default;
  MatObjectIn& operator=(const MatObjectIn&) = default;

  // Column of unknown i of the leaf.
  [[nodiscard]] std::int32_t Tag(std::int32_t i) const noexcept {
    return fIndex < 0 ? VectorJacobian::kNoUnknown : fIndex + i;
  }

 private:
  std::int32_t fIndex = VectorJacobian::kNoUnknown;
};

class MatObjectInVektor3D final : public MatObjectIn, public MatObject<ostra_bundle::VektorD<3>> {
 public:
  MatObjectInVektor3D() = default;
  MatObjectInVektor3D(const ostra_bundle::VektorD<3>& value, std::int32_t index) noexcept
      : fValue(value) {
    SetIndex(index);
  }

  void SetValue(const ostra_bundle::VektorD<3>& value) noexcept { fValue = value; }
  void Value(ostra_bundle::VektorD<3>& value) const override { value = fValue; }
  // The unit matrix.
  void Derivatives(Jacobian& jacobian) const override;

 private:
  ostra_bundle::VektorD<3> fValue{};
};

// A rigid transformation. Its rotation moves by dR = skew(dtheta) R, multiplied from the left
// about the axes of the superior frame; its unknowns are numbered translations first.
class MatObjectInRelation3D final : public MatObjectIn,
                                    public MatObject<ostra_bundle::RelationD<3>> {
 public:
  // The identity.
  MatObjectInRelation3D() = default;
  MatObjectInRelation3D(const ostra_bundle::RelationD<3>& value, std::int32_t index) noexcept
      : fValue(value) {
    SetIndex(index);
  }

  void SetValue(const ostra_bundle::RelationD<3>& value) noexcept { fValue = value; }
  void Value(ostra_bundle::RelationD<3>& value) const override { value = fValue; }
  void Derivatives(Jacobian& jacobian) const override;

 private:
  ostra_bundle::RelationD<3> fValue{};
};

// What the two transformations of a point share: their operands.
class MatTransformBase : public MatObject<ostra_bundle::VektorD<3>> {
 public:
  void SetLeft(const MatObject<ostra_bundle::RelationD<3>>* left) noexcept { fLeft = left; }
  void SetRight(const MatObject<ostra_bundle::VektorD<3>>* right) noexcept { fRight = right; }

 protected:
  struct Operands {
    ostra_bundle::RelationD<3> relation;
    ostra_bundle::VektorD<3> point;
  };

  // Throws MatException 0 when an operand is missing.
  [[nodiscard]] Operands EvaluateOperands() const;
  [[nodiscard]] const MatObject<ostra_bundle::RelationD<3>>& Left() const noexcept {
    return *fLeft;
  }
  [[nodiscard]] const MatObject<ostra_bundle::VektorD<3>>& Right() const noexcept {
    return *fRight;
  }

 private:
  const MatObject<ostra_bundle::RelationD<3>>* fLeft = nullptr;
  const MatObject<ostra_bundle::VektorD<3>>* fRight = nullptr;
};

// y = R x + t
class MatTransformVektor3D final : public MatTransformBase {
 public:
  void Value(ostra_bundle::VektorD<3>& value) const override;
  // Columns of the relation, then of the point.
  void Derivatives(Jacobian& jacobian) const override;
};

// y = transpose(R) (x - t)
class MatTransformBackVektor3D final : public MatTransformBase {
 public:
  void Value(ostra_bundle::VektorD<3>& value) const override;
  // Columns of the relation, then of the point.
  void Derivatives(Jacobian& jacobian) const override;
};

// d = |a - b|
class MatDistance3D final : public MatObject<double> {
 public:
  void SetLeft(const MatObject<ostra_bundle::VektorD<3>>* left) noexcept { fLeft = left; }
  void SetRight(const MatObject<ostra_bundle::VektorD<3>>* right) noexcept { fRight = right; }

  void Value(double& value) const override;
  // Columns of a, then of b; all zero when d is exactly 0.
  void Derivatives(Jacobian& jacobian) const override;

 private:
  const MatObject<ostra_bundle::VektorD<3>>* fLeft = nullptr;
  const MatObject<ostra_bundle::VektorD<3>>* fRight = nullptr;
};

// Appends (tag, element) of one row for every column that is an unknown; zeros are kept.
template <unsigned Rows, unsigned MaxColumns>
void AppendToDesignRow(const TaggedJacobian<Rows, MaxColumns>& jacobian,
                       unsigned row,
                       DesignRow& designRow) noexcept {
  for (unsigned c = 0; c < jacobian.columns; ++c)
    if (jacobian.tags[c] >= 0)
      designRow.push(static_cast<std::uint32_t>(jacobian.tags[c]), jacobian.elements[row][c]);
}

}  // namespace vermo
