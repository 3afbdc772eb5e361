#include "linalg/envelope_matrix.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace vermo {
namespace {

std::vector<double> Span(const CEnvelopeRow& row) {
  return {row.Elements().begin(), row.Elements().end()};
}

TEST(CEnvelopeRow, EmptyRowReadsZeroAndTakesAnySpan) {
  CEnvelopeRow row;
  EXPECT_TRUE(row.IsEmpty());
  EXPECT_FALSE(row.Stores(0));
  EXPECT_EQ(row.At(3), 0.0);
  row.Widen(5, 2);
  EXPECT_EQ(row.First(), 5U);
  EXPECT_EQ(row.End(), 7U);
  EXPECT_EQ(Span(row), (std::vector<double>{0.0, 0.0}));
}

TEST(CEnvelopeRow, WidenTakesTheUnionAndKeepsValues) {
  CEnvelopeRow row;
  row.Widen(4, 2);
  row.Element(4) = 1.0;
  row.Element(5) = 2.0;
  row.Widen(4, 1);
  EXPECT_EQ(row.Count(), 2U);
  row.Widen(2, 1);
  EXPECT_EQ(Span(row), (std::vector<double>{0.0, 0.0, 1.0, 2.0}));
  row.Widen(8, 1);
  EXPECT_EQ(Span(row), (std::vector<double>{0.0, 0.0, 1.0, 2.0, 0.0, 0.0, 0.0}));
  row.Widen(0, 0);
  EXPECT_EQ(row.First(), 2U);
}

TEST(CEnvelopeRow, ReshapeKeepsTheOverlapAndDropsTheRest) {
  CEnvelopeRow row;
  row.Reshape(4, 4);
  for (std::uint32_t c = 4; c < 8; ++c) row.Element(c) = c;
  row.Reshape(6, 4);
  EXPECT_EQ(Span(row), (std::vector<double>{6.0, 7.0, 0.0, 0.0}));
  row.Reshape(5, 2);
  EXPECT_EQ(Span(row), (std::vector<double>{0.0, 6.0}));
  row.Reshape(20, 3);
  EXPECT_EQ(Span(row), (std::vector<double>{0.0, 0.0, 0.0}));
  row.Reshape(20, 0);
  EXPECT_TRUE(row.IsEmpty());
}

TEST(CEnvelopeRow, BehavesLikeAPlainSpanOverRandomSteps) {
  std::mt19937 engine(5);
  const auto generator = [&engine] { return static_cast<std::uint32_t>(engine()); };
  CEnvelopeRow row;
  std::vector<double> model(40, 0.0);
  std::uint32_t first = 0;
  std::uint32_t end = 0;
  for (int step = 0; step < 20000; ++step) {
    const std::uint32_t f = generator() % 30;
    const std::uint32_t n = generator() % 10;
    switch (generator() % 8) {
      case 0:
        row.Reshape(f, n);
        for (std::uint32_t c = 0; c < 40; ++c)
          if (c < first || c >= end || c < f || c >= f + n) model[c] = 0.0;
        first = f;
        end = f + n;
        break;
      case 1:
        row.Clear();
        first = end = 0;
        std::fill(model.begin(), model.end(), 0.0);
        break;
      default:
        row.Widen(f, n);
        if (n == 0) break;
        if (first == end) {
          first = f;
          end = f + n;
        } else {
          first = std::min(first, f);
          end = std::max(end, f + n);
        }
    }
    if (first != end) {
      const std::uint32_t c = first + generator() % (end - first);
      row.Element(c) = model[c] = static_cast<double>(step);
    }
    for (std::uint32_t c = 0; c < 40; ++c) ASSERT_EQ(row.At(c), model[c]) << step << ' ' << c;
  }
}

TEST(CEnvelopeRow, ReserveLeavesARowWithElementsAlone) {
  CEnvelopeRow row;
  row.Widen(4, 2);
  row.Element(5) = 7.0;
  const double* const place = row.Elements().data();
  row.Reserve(1000);
  EXPECT_EQ(row.Elements().data(), place);
  EXPECT_EQ(Span(row), (std::vector<double>{0.0, 7.0}));
}

TEST(CEnvelopeMatrix, IdentityHasSingleElements) {
  CEnvelopeMatrix matrix;
  matrix.SetIdentity(3);
  for (std::uint32_t r = 0; r < 3; ++r) {
    EXPECT_EQ(matrix.Row(r).First(), r);
    EXPECT_EQ(Span(matrix.Row(r)), std::vector<double>{1.0});
  }
}

TEST(CEnvelopeMatrix, ResizeEmptiesAllRowsAlsoReusedOnes) {
  CEnvelopeMatrix matrix;
  matrix.SetIdentity(5);
  matrix.Resize(3);
  EXPECT_EQ(matrix.Rows(), 3U);
  for (std::uint32_t r = 0; r < 3; ++r) EXPECT_TRUE(matrix.Row(r).IsEmpty());
  matrix.Resize(5);
  EXPECT_TRUE(matrix.Row(4).IsEmpty());
  matrix.Row(4).Widen(1, 4);
  EXPECT_EQ(Span(matrix.Row(4)), (std::vector<double>{0.0, 0.0, 0.0, 0.0}));
}

TEST(CEnvelopeMatrix, FillWritesStoredElementsOnly) {
  CEnvelopeMatrix matrix;
  matrix.Resize(2);
  matrix.Row(1).Widen(0, 2);
  matrix.Fill(3.0);
  EXPECT_EQ(matrix.At(0, 0), 0.0);
  EXPECT_EQ(matrix.At(1, 0), 3.0);
}

TEST(CEnvelopeMatrix, ColumnIsThatOfTheSymmetricMatrix) {
  CEnvelopeMatrix matrix;
  matrix.Resize(4);
  matrix.Row(1).Widen(0, 2);
  matrix.Row(1).Element(0) = 1.0;
  matrix.Row(1).Element(1) = 2.0;
  matrix.Row(3).Widen(1, 3);
  matrix.Row(3).Element(1) = 4.0;
  const CVektor column = matrix.Column(1);
  EXPECT_TRUE(column.IsTemporary());
  ASSERT_EQ(column.Size(), 4U);
  EXPECT_EQ(column[0], 1.0);
  EXPECT_EQ(column[1], 2.0);
  EXPECT_EQ(column[2], 0.0);
  EXPECT_EQ(column[3], 4.0);
}

TEST(CEnvelopeMatrix, ColumnReadsNothingBeyondTheDiagonal) {
  CEnvelopeMatrix matrix;
  matrix.Resize(3);
  matrix.Row(1).Widen(0, 3);
  matrix.Row(1).Element(2) = 9.0;
  matrix.Row(2).Widen(1, 2);
  matrix.Row(2).Element(1) = 4.0;
  EXPECT_EQ(matrix.Column(1)[2], 4.0);
}

}  // namespace
}  // namespace vermo
