#include "table_registry.h"

// Each kind of table is one file of the folder tables and one line here. A table stands behind
// those it refers to.
#define CARDO_TABLES(TABLE)   \
  TABLE(Cameras)              \
  TABLE(Projections)          \
  TABLE(Images)               \
  TABLE(RelativeOrientations) \
  TABLE(Points)               \
  TABLE(Lines)                \
  TABLE(Planes)               \
  TABLE(ImageCoordinates)     \
  TABLE(LineImageCoordinates) \
  TABLE(MeasuredCoordinates)  \
  TABLE(Distances)            \
  TABLE(PointsOnLines)        \
  TABLE(PointsOnPlanes)

namespace cardo {

#define CARDO_DECLARE(Kind) std::unique_ptr<Table> Make##Kind##Table();
CARDO_TABLES(CARDO_DECLARE)
#undef CARDO_DECLARE

std::vector<std::unique_ptr<Table>> MakeTables() {
  std::vector<std::unique_ptr<Table>> tables;
#define CARDO_MAKE(Kind) tables.push_back(Make##Kind##Table());
  CARDO_TABLES(CARDO_MAKE)
#undef CARDO_MAKE
  return tables;
}

}  // namespace cardo
