#include "network_survey.h"

#include "image_records.h"
#include "job_folder.h"
#include "record_flags.h"

#include <algorithm>
#include <cstddef>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <numeric>
#include <span>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <xyz_api.h>

namespace cardo {
namespace {

// Sets of nodes that observations join.
class Parts {
 public:
  std::size_t Add() {
    fParents.push_back(fParents.size());
    return fParents.size() - 1;
  }
  void Join(std::size_t a, std::size_t b) { fParents[Root(a)] = Root(b); }
  std::size_t Root(std::size_t node) {
    while (fParents[node] != node) {
      fParents[node] = fParents[fParents[node]];
      node = fParents[node];
    }
    return node;
  }

 private:
  std::vector<std::size_t> fParents;
};

struct Point {
  std::size_t node;
  bool isVariable;
  bool isMeasured;
  std::unordered_set<std::int32_t> images;
  // Equations of constraints.
  std::size_t constraints = 0;
};

struct Image {
  std::size_t node;
  std::int32_t camera;
  bool isVariable;
  // Equations that it gets from points and lines; a line gives no more than two.
  std::size_t equations;
};

// A line or a plane.
struct Shape {
  std::size_t node;
  std::unordered_set<std::int32_t> images;
  std::size_t points = 0;
};

using Shapes = std::map<std::int32_t, Shape>;

class Surveyor {
 public:
  Surveyor(void* job, const JobTables& tables)
      : fJob(job), fLineCoordinates(tables.LineImageCoordinates()) {
    for (const auto& table : tables.tables) {
      const auto fixed = table->FixedShapes();
      fFixedShapes.insert(fixed.begin(), fixed.end());
    }
  }

  NetworkSurvey Survey() {
    TakeImages();
    TakePoints();
    TakeImageCoordinates();
    TakeMeasuredCoordinates();
    TakeDistances();
    TakeLinesAndPlanes();
    fSurvey.verdict = XYZ_CheckSettings(fJob);
    return Judge();
  }

 private:
  void TakeImages() {
    for (const sXYZ_ExteriorOrient2& image : ReadImagesAsMatrices(fJob)) {
      if ((image.Flags & kActive) == 0) continue;
      const bool isVariable = (image.Flags & kFixed) == 0;
      fImages[image.Id] = {fParts.Add(), image.IorId, isVariable, 0};
      if (!isVariable) ++fSurvey.fixedImages;
    }
    sXYZ_RelativeOrientation orientation{};
    for (int i = 0; i < XYZ_GetRelativeOrientationCnt(fJob); ++i) {
      if (XYZ_GetRelativeOrientationAt(fJob, i, &orientation) != eXYZ_Ok) continue;
      fOrientations[orientation.Id] = {orientation.EorId, orientation.BaseEorId};
    }
  }

  void TakePoints() {
    sXYZ_ObjectCoord point{};
    for (int i = 0; i < XYZ_GetObjectCoordCnt(fJob); ++i) {
      if (XYZ_GetObjectCoordAt(fJob, i, &point) != eXYZ_Ok || (point.Flags & kActive) == 0)
        continue;
      const bool isVariable = (point.Flags & kFixed) == 0;
      const Point& taken = (fPoints[point.Id] = {fParts.Add(), isVariable, false, {}});
      if (!isVariable) ++fSurvey.fixedPoints;
      const auto reference = fImages.find(point.ReferenceEor);
      if (reference != fImages.end()) fParts.Join(taken.node, reference->second.node);
    }
  }

  // An image, or both of a relative orientation, sees a point or a line.
  void TakeSight(std::size_t node, std::int32_t imageId, std::size_t equations) {
    const auto take = [&](std::int32_t id) {
      const auto image = fImages.find(id);
      if (image == fImages.end()) return;
      image->second.equations += equations;
      fParts.Join(node, image->second.node);
    };
    const auto relative = fOrientations.find(imageId);
    if (relative == fOrientations.end()) {
      take(imageId);
    } else {
      take(relative->second.first);
      take(relative->second.second);
    }
  }

  void TakeImageCoordinates() {
    sXYZ_PictureCoord ray{};
    for (int i = 0; i < XYZ_GetPictureCoordCnt(fJob); ++i) {
      if (XYZ_GetPictureCoordsAt(fJob, i, &ray) != eXYZ_Ok || !IsUsed(ray.Flags)) continue;
      const auto point = fPoints.find(ray.PointId);
      if (point == fPoints.end()) continue;
      point->second.images.insert(ray.EorId);
      TakeSight(point->second.node, ray.EorId, 2);
    }
  }

  void TakeMeasuredCoordinates() {
    sXYZ_MeasuredObjectCoord measured{};
    for (int i = 0; i < XYZ_GetMeasuredObjectCoordCnt(fJob); ++i) {
      if (XYZ_GetMeasuredObjectCoordAt(fJob, i, &measured) != eXYZ_Ok) continue;
      const auto point = fPoints.find(measured.PointId);
      if (!IsUsed(measured.Flags) || point == fPoints.end()) continue;
      point->second.isMeasured = true;
      ++fSurvey.measuredPoints;
      const auto reference = fImages.find(measured.ReferenceEor);
      if (reference != fImages.end()) fParts.Join(point->second.node, reference->second.node);
    }
  }

  void TakeDistances() {
    sXYZ_Distance distance{};
    for (int i = 0; i < XYZ_GetDistanceCnt(fJob); ++i) {
      if (XYZ_GetDistanceAt(fJob, i, &distance) != eXYZ_Ok || !IsUsed(distance.Flags)) continue;
      const auto first = fPoints.find(distance.Point1);
      const auto second = fPoints.find(distance.Point2);
      if (first == fPoints.end() || second == fPoints.end()) continue;
      fParts.Join(first->second.node, second->second.node);
      ++fSurvey.distances;
    }
  }

  void TakeLinesAndPlanes() {
    sXYZ_Line line{};
    for (int i = 0; i < XYZ_GetLineCnt(fJob); ++i) {
      if (XYZ_GetLineAt(fJob, i, &line) != eXYZ_Ok || (line.Flags & kActive) == 0) continue;
      fLines[line.Id] = {fParts.Add(), {}};
    }
    sXYZ_Plane plane{};
    for (int i = 0; i < XYZ_GetPlaneCnt(fJob); ++i) {
      if (XYZ_GetPlaneAt(fJob, i, &plane) != eXYZ_Ok || (plane.Flags & kActive) == 0) continue;
      fPlanes[plane.Id] = {fParts.Add(), {}};
    }
    TakeLineImageCoordinates();
    sXYZ_ConstraintPointOnLine onLine{};
    for (int i = 0; i < XYZ_GetConstraintPointOnLineCnt(fJob); ++i) {
      if (XYZ_GetConstraintPointOnLineAt(fJob, i, &onLine) != eXYZ_Ok || onLine.Flags == 0)
        continue;
      TakeConstraint(onLine.PointId, fLines, onLine.LineId, 2);
    }
    sXYZ_ConstraintPointOnPlane onPlane{};
    for (int i = 0; i < XYZ_GetConstraintPointOnPlaneCnt(fJob); ++i) {
      if (XYZ_GetConstraintPointOnPlaneAt(fJob, i, &onPlane) != eXYZ_Ok || onPlane.Flags == 0)
        continue;
      TakeConstraint(onPlane.PointId, fPlanes, onPlane.PlaneId, 1);
    }
    for (const auto& [id, shape] : fLines) {
      if (!fFixedShapes.contains(id) && shape.images.size() < 2 && shape.points < 2)
        fSurvey.weakLines.push_back(id);
    }
    for (const auto& [id, shape] : fPlanes) {
      if (!fFixedShapes.contains(id) && shape.points < 3) fSurvey.weakPlanes.push_back(id);
    }
  }

  void TakeLineImageCoordinates() {
    std::map<std::pair<std::int32_t, std::int32_t>, int> countOfLineInImage;
    sXYZ_PictureLineCoord ray{};
    for (std::size_t i = 0; i < fLineCoordinates.size(); ++i) {
      // The mark of an outlier may be the run's.
      if (XYZ_GetLinePictureCoordAt(fJob, static_cast<int>(i), &ray) != eXYZ_Ok) {
        ray = fLineCoordinates[i];
      }
      if (!IsUsed(ray.Flags)) continue;
      const auto line = fLines.find(ray.LineId);
      if (line == fLines.end()) continue;
      line->second.images.insert(ray.EorId);
      const int count = ++countOfLineInImage[{ray.LineId, ray.EorId}];
      TakeSight(line->second.node, ray.EorId, count <= 2 ? 1 : 0);
    }
  }

  void TakeConstraint(std::int32_t pointId,
                      Shapes& shapes,
                      std::int32_t shapeId,
                      std::size_t equations) {
    const auto point = fPoints.find(pointId);
    const auto shape = shapes.find(shapeId);
    if (point == fPoints.end() || shape == shapes.end()) return;
    point->second.constraints += equations;
    ++shape->second.points;
    fParts.Join(point->second.node, shape->second.node);
  }

  NetworkSurvey Judge() {
    for (const auto& [id, point] : fPoints) {
      if (point.isVariable && !point.isMeasured && point.images.size() < 2 &&
          2 * point.images.size() + point.constraints < 3) {
        fSurvey.weakPoints.push_back(id);
      }
    }
    JudgeImagesAndCameras();
    fSurvey.hasControl =
        fSurvey.fixedPoints > 0 || fSurvey.fixedImages > 0 || fSurvey.measuredPoints > 0;
    return std::move(fSurvey);
  }

  void JudgeImagesAndCameras() {
    std::map<std::int32_t, std::size_t> equationsOfCamera;
    std::map<std::size_t, std::vector<std::int32_t>> parts;
    constexpr std::size_t kUnknownsOfImage = 6;
    for (const auto& [id, image] : fImages) {
      if (image.isVariable && image.equations < kUnknownsOfImage) fSurvey.weakImages.push_back(id);
      equationsOfCamera[image.camera] += image.equations;
      parts[fParts.Root(image.node)].push_back(id);
    }
    for (auto& [root, images] : parts) fSurvey.parts.push_back(std::move(images));
    std::sort(fSurvey.parts.begin(), fSurvey.parts.end());
    auto camera = std::make_unique<sXYZ_InteriorOrient>();
    for (int i = 0; i < XYZ_GetInteriorOrientCnt(fJob); ++i) {
      if (XYZ_GetInteriorOrientAt(fJob, i, camera.get()) != eXYZ_Ok) continue;
      const bool isVariable = (camera->Flags & (kActive | kFixed)) == kActive;
      if (isVariable && equationsOfCamera[camera->Id] == 0) {
        fSurvey.unusedCameras.push_back(camera->Id);
      }
    }
  }

  void* fJob;
  std::span<const sXYZ_PictureLineCoord> fLineCoordinates;
  // No line has the id of a plane.
  std::unordered_set<std::int32_t> fFixedShapes;
  Parts fParts;
  std::map<std::int32_t, Image> fImages;
  std::map<std::int32_t, Point> fPoints;
  Shapes fLines;
  Shapes fPlanes;
  std::unordered_map<std::int32_t, std::pair<std::int32_t, std::int32_t>> fOrientations;
  NetworkSurvey fSurvey;
};

}  // namespace

NetworkSurvey SurveyNetwork(void* job, const JobTables& tables) {
  return Surveyor(job, tables).Survey();
}

std::string ListOfIds(const std::vector<std::int32_t>& ids) {
  constexpr std::size_t kShown = 10;
  std::string list;
  for (std::size_t i = 0; i < std::min(ids.size(), kShown); ++i) {
    list += fmt::format("{}{}", i == 0 ? "" : ", ", ids[i]);
  }
  if (ids.size() > kShown) list += fmt::format(" and {} more", ids.size() - kShown);
  return list;
}

}  // namespace cardo
