// The warnings and their list.

#include "checks/warnings.h"

#include "observations/bedingung_hlm.h"
#include "observations/messung_strecke.h"
#include "unknowns/data_obko.h"

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <type_traits>
#include <vector>

namespace vermo {
namespace {

using testing::ElementsAre;

template <typename Warning>
const Warning& Last(const WarningList& list) {
  return dynamic_cast<const Warning&>(*list.At(list.Size() - 1));
}

TEST(WarningList, IsEmptyAtFirst) {
  const WarningList list;
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_EQ(list.Size(), 0U);
}

TEST(WarningList, EveryWarningKeepsItsNumberAndWhatItIsAbout) {
  const DataObko point;
  const MessungStrecke distance;
  const BedingungHlmTrans constraint;
  WarningList list;
  list.AddWarningDataDisabled(&point);
  EXPECT_EQ(Last<WarningDataDisabled>(list).fData, &point);
  list.AddWarningObsevationWithoutData(&distance);
  EXPECT_EQ(Last<WarningObsevationWithoutData>(list).fMessung, &distance);
  list.AddWarningDataWithoutSubData(&point);
  EXPECT_EQ(Last<WarningDataWithoutSubData>(list).fData, &point);
  list.AddWarningDataHasManyBlunder(&point, 8, 5);
  EXPECT_EQ(Last<WarningDataHasManyBlunder>(list).fData, &point);
  EXPECT_EQ(Last<WarningDataHasManyBlunder>(list).fMessungen, 8U);
  EXPECT_EQ(Last<WarningDataHasManyBlunder>(list).fAusreisser, 5U);
  list.AddWarningObservationHasLessRedundancy(&distance);
  EXPECT_EQ(Last<WarningObservationHasLessRedundancy>(list).fMessung, &distance);
  list.AddWarningConstraintShouldBeFree(&constraint);
  EXPECT_EQ(Last<WarningConstraintShouldBeFree>(list).fBedingung, &constraint);
  list.AddWarningDataEnabled(&point);
  EXPECT_EQ(Last<WarningDataEnabled>(list).fData, &point);

  EXPECT_FALSE(list.IsEmpty());
  std::vector<std::int32_t> codes;
  for (std::size_t i = 0; i < list.Size(); ++i) codes.push_back(list.At(i)->GetCode());
  EXPECT_THAT(codes, ElementsAre(101, 102, 103, 104, 105, 106, 107));
}

TEST(WarningList, ElementAppendedToItsOwnListSurvivesTheGrowth) {
  const DataObko point;
  WarningList list;
  list.AddWarningDataDisabled(&point);
  for (int i = 0; i < 100; ++i) list.Append(list.Pointer(list.Size() / 2));
  EXPECT_EQ(list.Size(), 101U);
  EXPECT_EQ(list.Pointer(0).UseCount(), 101U);
  EXPECT_EQ(list.At(100), list.At(0));
  EXPECT_EQ(Last<WarningDataDisabled>(list).fData, &point);
}

TEST(WarningList, CopySharesTheWarnings) {
  const DataObko point;
  WarningList list;
  list.AddWarningDataDisabled(&point);
  {
    WarningList copy(list);
    copy.AddWarningDataEnabled(&point);
    EXPECT_EQ(copy.At(0), list.At(0));
    EXPECT_EQ(list.Pointer(0).UseCount(), 2U);
    EXPECT_EQ(list.Size(), 1U);
  }
  EXPECT_EQ(list.Pointer(0).UseCount(), 1U);
}

TEST(WarningItf, IsAbstractAndDeletedThroughItself) {
  static_assert(std::is_abstract_v<WarningItf>);
  static_assert(std::has_virtual_destructor_v<WarningItf>);
  const lumo::smart_ptr<WarningItf> warning(new WarningDataEnabled(nullptr));
  EXPECT_EQ(warning->GetCode(), 107);
}

}  // namespace
}  // namespace vermo
