#include "observations/mat_object.h"

#include <cmath>

namespace vermo {
namespace {

using ostra_bundle::VektorD;

// The product of dy/drelation, 3 by 12, with the Jacobian of the relation, appended to the
// result as columns.
void AppendRelationPart(const double (&byRelation)[3][12],
                        const RelationJacobian& relation,
                        VectorJacobian& result) noexcept {
  for (unsigned i = 0; i < 3; ++i)
    for (unsigned c = 0; c < relation.columns; ++c) {
      double sum = 0.0;
      for (unsigned k = 0; k < 12; ++k) sum += byRelation[i][k] * relation.elements[k][c];
      result.elements[i][c] = sum;
    }
  for (unsigned c = 0; c < relation.columns; ++c) result.AppendTag(relation.tags[c]);
}

// The product of dy/dx, 3 by 3 with element (i, k) at byPoint[i][k], with the Jacobian of the
// point, appended to the result.
void AppendPointPart(const double (&byPoint)[3][3],
                     const VectorJacobian& point,
                     VectorJacobian& result) noexcept {
  const unsigned first = result.columns;
  for (unsigned i = 0; i < 3; ++i)
    for (unsigned c = 0; c < point.columns; ++c)
      result.elements[i][first + c] = byPoint[i][0] * point.elements[0][c] +
                                      byPoint[i][1] * point.elements[1][c] +
                                      byPoint[i][2] * point.elements[2][c];
  for (unsigned c = 0; c < point.columns; ++c) result.AppendTag(point.tags[c]);
}

}  // namespace

void MatObjectInVektor3D::Derivatives(Jacobian& jacobian) const {
  jacobian.columns = 0;
  for (unsigned i = 0; i < 3; ++i) {
    for (unsigned c = 0; c < 3; ++c) jacobian.elements[i][c] = i == c ? 1.0 : 0.0;
    jacobian.AppendTag(Tag(static_cast<std::int32_t>(i)));
  }
}

void MatObjectInRelation3D::Derivatives(Jacobian& jacobian) const {
  const auto& r = fValue.fRotation;
  for (unsigned c = 0; c < 3; ++c) {
    const double rotation[3][3] = {
        {0.0, r[6 + c], -r[3 + c]}, {-r[6 + c], 0.0, r[c]}, {r[3 + c], -r[c], 0.0}};
    for (unsigned i = 0; i < 3; ++i)
      for (unsigned k = 0; k < 3; ++k) {
        jacobian.elements[3 * i + c][k] = rotation[i][k];
        jacobian.elements[3 * i + c][3 + k] = 0.0;
      }
    for (unsigned k = 0; k < 3; ++k) {
      jacobian.elements[9 + c][k] = 0.0;
      jacobian.elements[9 + c][3 + k] = k == c ? 1.0 : 0.0;
    }
  }
  // The tags cross over: the translations are numbered first.
  jacobian.columns = 0;
  for (std::int32_t i = 3; i < 6; ++i) jacobian.AppendTag(Tag(i));
  for (std::int32_t i = 0; i < 3; ++i) jacobian.AppendTag(Tag(i));
}

MatTransformBase::Operands MatTransformBase::EvaluateOperands() const {
  if (fLeft == nullptr || fRight == nullptr) throw MatException(0);
  Operands operands;
  fLeft->Value(operands.relation);
  fRight->Value(operands.point);
  return operands;
}

void MatTransformVektor3D::Value(VektorD<3>& value) const {
  const Operands o = EvaluateOperands();
  value = o.relation.Forward(o.point);
}

void MatTransformVektor3D::Derivatives(Jacobian& jacobian) const {
  const Operands o = EvaluateOperands();
  RelationJacobian relation;
  Left().Derivatives(relation);
  VectorJacobian point;
  Right().Derivatives(point);

  double byRelation[3][12] = {};
  double byPoint[3][3];
  for (unsigned i = 0; i < 3; ++i) {
    for (unsigned k = 0; k < 3; ++k) {
      byRelation[i][3 * i + k] = o.point[k];
      byPoint[i][k] = o.relation.fRotation[3 * i + k];
    }
    byRelation[i][9 + i] = 1.0;
  }
  jacobian.columns = 0;
  AppendRelationPart(byRelation, relation, jacobian);
  AppendPointPart(byPoint, point, jacobian);
}

void MatTransformBackVektor3D::Value(VektorD<3>& value) const {
  const Operands o = EvaluateOperands();
  value = o.relation.Back(o.point);
}

void MatTransformBackVektor3D::Derivatives(Jacobian& jacobian) const {
  const Operands o = EvaluateOperands();
  RelationJacobian relation;
  Left().Derivatives(relation);
  VectorJacobian point;
  Right().Derivatives(point);

  double byRelation[3][12] = {};
  double byPoint[3][3];
  for (unsigned i = 0; i < 3; ++i)
    for (unsigned k = 0; k < 3; ++k) {
      const double element = o.relation.fRotation[3 * k + i];
      byRelation[i][3 * k + i] = o.point[k] - o.relation.fTranslation[k];
      byRelation[i][9 + k] = -element;
      byPoint[i][k] = element;
    }
  jacobian.columns = 0;
  AppendRelationPart(byRelation, relation, jacobian);
  AppendPointPart(byPoint, point, jacobian);
}

void MatDistance3D::Value(double& value) const {
  if (fLeft == nullptr || fRight == nullptr) throw MatException(0);
  VektorD<3> a;
  VektorD<3> b;
  fLeft->Value(a);
  fRight->Value(b);
  value = ostra_bundle::Length(ostra_bundle::Subtract(a, b));
}

void MatDistance3D::Derivatives(Jacobian& jacobian) const {
  VektorD<3> a;
  VektorD<3> b;
  fLeft->Value(a);
  fRight->Value(b);
  const VektorD<3> difference = ostra_bundle::Subtract(a, b);
  const double d = ostra_bundle::Length(difference);
  const VektorD<3> direction =
      d == 0.0 ? VektorD<3>{0.0, 0.0, 0.0} : ostra_bundle::Scale(difference, 1.0 / d);

  jacobian.columns = 0;
  double sign = 1.0;
  for (const MatObject<VektorD<3>>* operand : {fLeft, fRight}) {
    VectorJacobian point;
    operand->Derivatives(point);
    for (unsigned c = 0; c < point.columns; ++c) {
      jacobian.elements[0][jacobian.columns] =
          sign * (direction[0] * point.elements[0][c] + direction[1] * point.elements[1][c] +
                  direction[2] * point.elements[2][c]);
      jacobian.AppendTag(point.tags[c]);
    }
    sign = -1.0;
  }
}

}  // namespace vermo
