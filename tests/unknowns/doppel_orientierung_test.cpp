#include "unknowns/doppel_orientierung.h"

#include "support/dense_system.h"
#include "support/language_guard.h"

#include <gtest/gtest.h>
#include <vector>

namespace vermo::test {
namespace {

TEST(DoppelOrientierung, NeverHasUnknowns) {
  DoppelOrientierung relative;
  EXPECT_FALSE(relative.IsVariable());
  relative.SetActive(true);
  EXPECT_EQ(relative.UnknownCount(), 0U);
  EXPECT_EQ(relative.AssignUnknowns(4), 4U);
  EXPECT_EQ(relative.FirstUnknown(), -1);
  relative.SetVariable(true);
  EXPECT_EQ(relative.UnknownCount(), 0U);
}

TEST(DoppelOrientierung, KeepsTheThreeNumbersApart) {
  DoppelOrientierung relative;
  EXPECT_EQ(relative.Id(), 0xFFFFFFFFU);
  relative.SetIds(7, 8, 9);
  relative.ApplySolution(std::vector<double>{1.0});
  relative.StoreAccuracy(DenseSystem(1), 1.0);
  EXPECT_EQ(relative.Id(), 7U);
  EXPECT_EQ(relative.EorId(), 8U);
  EXPECT_EQ(relative.BaseEorId(), 9U);
}

TEST(DoppelOrientierung, DescribesItselfInBothLanguagesAndHasNoIdentText) {
  DoppelOrientierung relative;
  relative.SetIds(7, 8, 9);
  EXPECT_EQ(relative.GetIdentText(), "");
  {
    const LanguageGuard german(Language::German);
    EXPECT_EQ(relative.GetDescription(), "Relative Orientierung 7");
  }
  const LanguageGuard english(Language::English);
  EXPECT_EQ(relative.GetDescription(), "Relative orientation 7");
}

}  // namespace
}  // namespace vermo::test
