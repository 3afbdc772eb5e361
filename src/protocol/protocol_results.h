#pragma once

#include "adjustment/adjustment_statistics.h"
#include "protocol/network_figures.h"

#include <cstdint>
#include <vector>

namespace vermo {

class BedingungHlmM;
class BedingungHlmRot;
class BedingungHlmTrans;
class BedingungPunktGerade;
class ConstraintPointOnPlane;
class DataEor;
class DataIor;
class DataLinie;
class DataObko;
class DataPlane;
class DataProjektion;
class DoppelOrientierung;
class MessungBiko;
class MessungLinko;
class MessungObko;
class MessungStrecke;
class NormalSystem;
class WarningList;

// The objects of one kind in the order of their container, not owned.
template <typename T>
using ProtocolList = std::vector<const T*>;

// What the report of a finished run reads. Everything that is pointed at lives longer.
struct ProtocolResults {
  ProtocolList<DataIor> cameras;
  ProtocolList<DataProjektion> projections;
  ProtocolList<DataEor> exteriorOrientations;
  ProtocolList<DoppelOrientierung> relativeOrientations;
  ProtocolList<DataObko> objectPoints;
  ProtocolList<DataLinie> lines;
  ProtocolList<DataPlane> planes;
  ProtocolList<MessungBiko> imageCoordinates;
  ProtocolList<MessungLinko> lineCoordinates;
  ProtocolList<MessungObko> measuredObjectPoints;
  ProtocolList<MessungStrecke> distances;
  ProtocolList<BedingungPunktGerade> pointOnLine;
  ProtocolList<ConstraintPointOnPlane> pointOnPlane;
  const BedingungHlmTrans* translation = nullptr;
  const BedingungHlmRot* rotation = nullptr;
  const BedingungHlmM* scale = nullptr;
  // The last system, for covariances.
  const NormalSystem* system = nullptr;
  const WarningList* warnings = nullptr;
  AdjustmentStatistics statistics;
  NetworkFigures figures;
  double redundancySum = 0.0;
  // Leaves the table of the projections out; its link in the contents stays.
  bool hideProjections = false;
  // Rotation type in the low byte, angle unit in the high one; 0 is each orientation's own.
  std::uint32_t eorFormat = 0;
};

}  // namespace vermo
