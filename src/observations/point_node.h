#pragma once

#include "observations/mat_object.h"
#include "observations/messung.h"
#include "unknowns/data_eor.h"
#include "unknowns/data_obko.h"

namespace vermo {

// The nodes of an object point in the object frame: its coordinates and, when it is given in the
// frame of an image, the transformation out of that frame. Lives on the stack of an evaluation.
class PointNode {
 public:
  explicit PointNode(const DataObko& point) noexcept
      : fPoint(point.Current(), point.FirstUnknown()) {
    if (const DataEor* body = point.ReferenceEor()) {
      fBody.SetValue(*body);
      fBody.SetIndex(body->FirstUnknown());
      fToObject.SetLeft(&fBody);
      fToObject.SetRight(&fPoint);
      fRoot = &fToObject;
    }
  }
  PointNode(const PointNode&) = delete;
  PointNode& operator=(const PointNode&) = delete;

  [[nodiscard]] const MatObject<ostra_bundle::VektorD<3>>* Root() const noexcept { return fRoot; }

 private:
  MatObjectInVektor3D fPoint;
  MatObjectInRelation3D fBody;
  MatTransformVektor3D fToObject;
  const MatObject<ostra_bundle::VektorD<3>>* fRoot = &fPoint;
};

// The groups that a point depends on: itself and the image in whose frame it is given.
inline void AddPoint(GroupColumns& columns, const DataObko& point) noexcept {
  columns.Add(point);
  if (point.ReferenceEor() != nullptr) columns.Add(*point.ReferenceEor());
}

// The transformation of a point into the frame of an image.
class IntoImageNode {
 public:
  IntoImageNode(const DataEor& eor, const MatObject<ostra_bundle::VektorD<3>>* point) noexcept
      : fRelation(eor, eor.FirstUnknown()) {
    fTransform.SetLeft(&fRelation);
    fTransform.SetRight(point);
  }
  IntoImageNode(const IntoImageNode&) = delete;
  IntoImageNode& operator=(const IntoImageNode&) = delete;

  [[nodiscard]] const MatObject<ostra_bundle::VektorD<3>>* Root() const noexcept {
    return &fTransform;
  }

 private:
  MatObjectInRelation3D fRelation;
  MatTransformBackVektor3D fTransform;
};

}  // namespace vermo
