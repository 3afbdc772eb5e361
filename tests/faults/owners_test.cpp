// What owns memory inside the library, each allocation failing in its turn: it tells the failure in
// its own way, is as it was or empty as it says, and leaks nothing.

#include "checks/container_exception.h"
#include "checks/failure_codes.h"
#include "checks/kl_exception.h"
#include "checks/warnings.h"
#include "faults/failing_allocations.h"
#include "linalg/envelope_matrix.h"
#include "linalg/matrix_dense.h"
#include "linalg/tensor_matrix.h"
#include "linalg/vektor.h"
#include "observations/bedingung_hlm.h"
#include "observations/messung_strecke.h"
#include "unknowns/data_obko.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <new>

namespace faults {
namespace {

using vermo::CEnvelopeRow;
using vermo::CMatrix;
using vermo::ContainerException;
using vermo::CVektor;
using vermo::KlException;

enum class Told { Nothing, BadAlloc, Container, Code };

struct Outcome {
  Told told = Told::Nothing;
  std::int32_t code = 0;
  bool operator==(const Outcome&) const = default;
};

template <typename Action>
Outcome WithoutMemory(std::uint64_t k, Action action) {
  const FailingAllocations failing(k);
  try {
    action();
  } catch (const std::bad_alloc&) {
    return {Told::BadAlloc};
  } catch (const ContainerException& failure) {
    return {Told::Container, failure.GetCode()};
  } catch (const KlException& failure) {
    return {Told::Code, failure.GetCode()};
  }
  return {};
}

const Outcome kVectorFailed{Told::Code, vermo::failure::kVectorAllocation};
const Outcome kMatrixFailed{Told::Code, vermo::failure::kMatrixAllocation};

TEST(Owners, AMatrixThatCannotGrowStaysAsItWas) {
  const std::int64_t live = LiveAllocations();
  {
    ostra_bundle::Matrix matrix(2, 3);
    matrix.Fill(7.0);
    for (std::uint64_t k = 1; k <= 2; ++k) {
      const std::int64_t before = LiveAllocations();
      EXPECT_EQ(WithoutMemory(k, [&] { matrix.Resize(4, 5); }), Outcome{Told::BadAlloc}) << k;
      EXPECT_EQ(LiveAllocations(), before) << k;
      EXPECT_EQ(matrix.Rows(), 2U);
      EXPECT_EQ(matrix.Cols(), 3U);
      EXPECT_EQ(matrix.At(1, 2), 7.0);
    }
    EXPECT_EQ(WithoutMemory(3, [&] { matrix.Resize(4, 5); }), Outcome{});
    EXPECT_EQ(matrix.Rows(), 4U);
    const ostra_bundle::Matrix shared(matrix);
    for (std::uint64_t k = 1; k <= 2; ++k)
      EXPECT_EQ(WithoutMemory(k, [&] { matrix.Detach(); }), Outcome{Told::BadAlloc}) << k;
    EXPECT_EQ(matrix.Rows(), 4U);
  }
  EXPECT_EQ(LiveAllocations(), live);
}

TEST(Owners, AVectorWithoutMemoryIsEmptyAndTellsItsCode) {
  CVektor source;
  ASSERT_EQ(source.Allocate(3), 0);
  source.Fill(2.0);
  CVektor vector;
  ASSERT_EQ(vector.Allocate(2), 0);
  std::int32_t code = 0;
  EXPECT_EQ(WithoutMemory(1, [&] { code = vector.Allocate(5); }), Outcome{});
  EXPECT_EQ(code, vermo::failure::kVectorAllocation);
  EXPECT_EQ(vector.Size(), 0U);
  const CVektor& constant = source;
  EXPECT_EQ(WithoutMemory(1, [&] { const CVektor copy(constant); }), kVectorFailed);
  EXPECT_EQ(WithoutMemory(1, [&] { vector = constant; }), kVectorFailed);
  EXPECT_EQ(vector.Size(), 0U);
  EXPECT_EQ(source[2], 2.0);
}

TEST(Owners, ADenseMatrixWithoutMemoryIsEmptyAndTellsItsCode) {
  CMatrix source(2, 2);
  source.At(0, 0) = source.At(1, 1) = 3.0;
  source.At(0, 1) = source.At(1, 0) = 1.0;
  CMatrix matrix(1, 1);
  std::int32_t code = 0;
  EXPECT_EQ(WithoutMemory(1, [&] { code = matrix.Allocate(4, 4); }), Outcome{});
  EXPECT_EQ(code, vermo::failure::kMatrixAllocation);
  EXPECT_EQ(matrix.Rows(), 0U);
  EXPECT_EQ(WithoutMemory(1, [&] { matrix.Assign(source); }), kMatrixFailed);
  EXPECT_EQ(WithoutMemory(1, [] { const CMatrix made(2, 2); }), kMatrixFailed);
  EXPECT_EQ(WithoutMemory(1, [&] { static_cast<void>(source.Determinant()); }), kMatrixFailed);
  EXPECT_DOUBLE_EQ(source.Determinant(), 8.0);
}

TEST(Owners, ARowOfTheEnvelopeThatCannotGrowStaysAsItWas) {
  CEnvelopeRow row;
  row.Widen(4, 2);
  row.Element(5) = 7.0;
  const Outcome failed{Told::Container, ContainerException::kOutOfMemory};
  EXPECT_EQ(WithoutMemory(1, [&] { row.Widen(0, 200); }), failed);
  EXPECT_EQ(row.First(), 4U);
  EXPECT_EQ(row.Count(), 2U);
  EXPECT_EQ(row.At(5), 7.0);
  row.Clear();
  EXPECT_EQ(WithoutMemory(1, [&] { row.Reserve(300); }), failed);
  EXPECT_TRUE(row.IsEmpty());
}

TEST(Owners, AWarningThatFindsNoRoomIsNotInTheList) {
  using vermo::WarningList;
  const vermo::DataObko point;
  const vermo::MessungStrecke distance;
  const vermo::BedingungHlmTrans constraint;
  const std::function<void(WarningList&)> additions[] = {
      [&](WarningList& list) { list.AddWarningDataDisabled(&point); },
      [&](WarningList& list) { list.AddWarningObsevationWithoutData(&distance); },
      [&](WarningList& list) { list.AddWarningDataWithoutSubData(&point); },
      [&](WarningList& list) { list.AddWarningDataHasManyBlunder(&point, 3, 2); },
      [&](WarningList& list) { list.AddWarningObservationHasLessRedundancy(&distance); },
      [&](WarningList& list) { list.AddWarningConstraintShouldBeFree(&constraint); },
      [&](WarningList& list) { list.AddWarningDataEnabled(&point); },
  };
  for (const auto& add : additions) {
    const std::int64_t live = LiveAllocations();
    // The warning, what counts its pointers, and its place in the list.
    for (std::uint64_t k = 1; k <= 3; ++k) {
      WarningList list;
      EXPECT_EQ(WithoutMemory(k, [&] { add(list); }), Outcome{Told::BadAlloc}) << k;
      EXPECT_TRUE(list.IsEmpty());
      EXPECT_EQ(LiveAllocations(), live) << k;
    }
    WarningList list;
    EXPECT_EQ(WithoutMemory(4, [&] { add(list); }), Outcome{});
    EXPECT_EQ(list.Size(), 1U);
  }
}

}  // namespace
}  // namespace faults
