// What observations and constraints add to the blocks, and the forms that observations take from
// the cofactors.

#include "linalg/block_system.h"
#include "linalg/prefetch.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace vermo {
namespace {

// Blocks that will be needed soon are fetched before their turn.
constexpr std::size_t kPlansAhead = 4;
constexpr std::size_t kStoredAhead = 16;
// From a row of an observation to its next one.
static_assert(sizeof(DesignRow) % sizeof(double) == 0);
constexpr std::size_t kRowStride = sizeof(DesignRow) / sizeof(double);
// Blocks of an observation that are handed to the kernel together.
constexpr std::uint32_t kProductsAtOnce = 16;

}  // namespace

// An observation by groups: `a` has the coefficients of all columns of all groups, by rows,
// `stride` from row to row. At most as many groups as the rows have entries.
struct BlockSystem::Spread {
  static constexpr std::size_t kRows = 3;
  // Rows may name different columns.
  static constexpr std::size_t kGroups = kRows * DesignRow::kCapacity;
  static constexpr std::uint32_t kColumns = kGroups * kLargestBlock;

  std::uint32_t count = 0;    // groups
  std::uint32_t columns = 0;  // of all of them
  std::array<std::uint32_t, kGroups> groups;
  std::array<std::uint32_t, kGroups> firsts;  // first column of a group
  std::uint32_t rows = 0;
  const double* a = nullptr;
  std::size_t stride = 0;
  // For rows that do not have their columns as they are needed.
  std::array<double, kRows * kColumns + kReadBeyond> own;

  double* Row(std::uint32_t r) noexcept { return own.data() + std::size_t{r} * kColumns; }
};

BlockSystem::BlockSystem()
    : fSpread(std::make_unique<Spread>()), fGathering(std::make_unique<Gathered>()) {}
BlockSystem::~BlockSystem() = default;

std::uint32_t BlockSystem::Open(std::uint32_t group, Spread& spread) const {
  for (std::uint32_t i = 0; i < spread.count; ++i)
    if (spread.groups[i] == group) return i;
  const std::uint32_t end = spread.columns + fGroups[group].size;
  for (std::uint32_t r = 0; r < spread.rows; ++r)
    for (std::uint32_t c = spread.columns; c < end; ++c) spread.Row(r)[c] = 0.0;
  spread.groups[spread.count] = group;
  spread.firsts[spread.count] = spread.columns;
  spread.columns = end;
  return spread.count++;
}

// True when the rows stand as they are needed.
bool BlockSystem::SpreadRows(std::span<const DesignRow> rows, Spread& spread) const {
  spread.count = spread.columns = 0;
  spread.rows = static_cast<std::uint32_t>(rows.size());
  if (FindRuns(rows, spread)) return true;
  spread.count = spread.columns = 0;
  spread.a = spread.own.data();
  spread.stride = Spread::kColumns;
  std::uint32_t offset = 0;  // from a column of the group to its place
  std::uint32_t first = 1;   // columns of the group; none yet
  std::uint32_t end = 0;
  for (std::uint32_t r = 0; r < spread.rows; ++r)
    for (const DesignEntry& entry : rows[r]) {
      if (entry.column < first || entry.column >= end) {
        const std::uint32_t group = fGroupOf[entry.column];
        first = fGroups[group].start;
        end = first + fGroups[group].size;
        offset = spread.firsts[Open(group, spread)] - first;
      }
      spread.Row(r)[offset + entry.column] += entry.coefficient;
    }
  return false;
}

// Rows that name the same columns, group after group and each one whole, stand as they are needed.
bool BlockSystem::FindRuns(std::span<const DesignRow> rows, Spread& spread) const {
  for (std::size_t r = 1; r < rows.size(); ++r)
    if (!rows[r].HasColumnsOf(rows[0])) return false;
  const std::uint32_t* columns = rows[0].Columns();
  const std::uint32_t count = rows[0].size();
  while (spread.columns < count) {
    const std::uint32_t first = spread.columns;
    const std::uint32_t g = fGroupOf[columns[first]];
    const Group& group = fGroups[g];
    if (count - first < group.size) return false;
    for (std::uint32_t k = 0; k < group.size; ++k)
      if (columns[first + k] != group.start + k) return false;
    for (std::uint32_t i = 0; i < spread.count; ++i)
      if (spread.groups[i] == g) return false;
    spread.groups[spread.count] = g;
    spread.firsts[spread.count++] = first;
    spread.columns += group.size;
  }
  spread.a = rows[0].Coefficients();
  spread.stride = kRowStride;
  return true;
}

// Observations of one image follow each other: of two trailing groups the block that was asked for
// last is remembered.
std::size_t BlockSystem::OffsetInTurn(std::uint32_t a, std::uint32_t b) {
  if (fGroups[a].leads || fGroups[b].leads) return OffsetOf(a, b);
  const Meeting pair{a, b};
  if (!(pair == fLastPair)) {
    fLastPair = pair;
    fLastOffset = OffsetOf(a, b);
  }
  return fLastOffset;
}

// Observations come in the same order again and again: each one's blocks are looked up once.
const BlockSystem::Plan* BlockSystem::NextPlan(const Spread& spread) {
  if (!fArranged || spread.count > Plan::kGroups || fValues.size() > Plan::kNoBlock) return nullptr;
  if (fNextPlan == fPlans.size()) fPlans.emplace_back();
  Plan& plan = fPlans[fNextPlan++];
  if (plan.count != spread.count ||
      !std::equal(plan.groups.begin(), plan.groups.begin() + plan.count, spread.groups.begin())) {
    plan.count = static_cast<std::uint8_t>(spread.count);
    std::copy_n(spread.groups.begin(), spread.count, plan.groups.begin());
    std::uint32_t* block = plan.blocks.data();
    for (std::uint32_t i = 1; i < spread.count; ++i)
      for (std::uint32_t j = 0; j < i; ++j) {
        const std::size_t offset = OffsetInTurn(spread.groups[i], spread.groups[j]);
        *block++ = offset == kNoOffset ? Plan::kNoBlock : static_cast<std::uint32_t>(offset);
      }
    CompletePlan(plan);
  }
  FetchAhead();
  return &plan;
}

void BlockSystem::CompletePlan(Plan& plan) const {
  plan.leading = Plan::kNoLeader;
  plan.columns = 0;
  plan.size = 0;
  std::uint32_t leaders = 0;
  for (std::uint32_t i = 0; i < plan.count; ++i) {
    const Group& group = fGroups[plan.groups[i]];
    plan.columns = static_cast<std::uint16_t>(plan.columns + group.size);
    if (!group.leads) continue;
    ++leaders;
    plan.leading = static_cast<std::uint8_t>(i);
    plan.size = static_cast<std::uint8_t>(group.size);
    plan.start = group.start;
    plan.diagonal = static_cast<std::uint32_t>(group.diagonal);
  }
  const std::span<const std::uint32_t> blocks(plan.blocks.data(), plan.Pairs());
  plan.isRay = leaders == 1 &&
               std::uint32_t{plan.columns} - plan.size < GatheredRows::kMostColumns &&
               std::ranges::find(blocks, Plan::kNoBlock) == blocks.end();
}

// The blocks of a leading group are likely far from those of the one before, and so is what is
// known of it.
void BlockSystem::FetchAhead() const {
  if (fNextPlan + kPlansAhead < fPlans.size()) FetchBlocks(fPlans[fNextPlan + kPlansAhead]);
}

bool BlockSystem::Fits(const Plan& plan, std::span<const DesignRow> rows) const {
  if (rows[0].size() != plan.columns) return false;
  for (std::size_t r = 1; r < rows.size(); ++r)
    if (!rows[r].HasColumnsOf(rows[0])) return false;
  const std::uint32_t* column = rows[0].Columns();
  for (std::uint32_t i = 0; i < plan.count; ++i) {
    const Group& group = fGroups[plan.groups[i]];
    const std::uint32_t start = i == plan.leading ? plan.start : group.start;
    const std::uint32_t end = start + (i == plan.leading ? plan.size : group.size);
    for (std::uint32_t expected = start; expected < end; ++expected)
      if (*column++ != expected) return false;
  }
  return true;
}

void BlockSystem::AddRay(const Plan& plan,
                         std::span<const DesignRow> rows,
                         const double* weights,
                         const double* misclosures) {
  LeadingProducts products;
  products.n = plan.size;
  products.own = fValues.data() + plan.diagonal;
  products.rhs = fRhs.data() + plan.start;
  products.couplings = 0;
  std::uint32_t first = 0;
  for (std::uint32_t i = 0; i < plan.count; ++i) {
    if (i == plan.leading) {
      products.first = first;
      first += plan.size;
      continue;
    }
    const std::uint32_t size = fGroups[plan.groups[i]].size;
    products.coupling[products.couplings++] = {fValues.data() + plan.CouplingOf(i), first, size};
    first += size;
  }
  const ProductRows product{
      static_cast<std::uint32_t>(rows.size()), rows[0].Coefficients(), kRowStride, weights};
  AddToLeading(products, product, misclosures);
  if (products.couplings == 0) return;
  if (!IsGathered(plan))
    AddTrailing(plan, product, misclosures);
  else
    Gather(plan, rows, weights, misclosures);
}

// Whether the ray before had the same trailing groups; those of this one are noted.
bool BlockSystem::IsGathered(const Plan& plan) {
  Gathered& gathered = *fGathering;
  bool isSame = gathered.count + 1 == plan.count;
  for (std::uint32_t i = 0, k = 0; isSame && i < plan.count; ++i)
    if (i != plan.leading) isSame = gathered.groups[k++] == plan.groups[i];
  if (isSame) return true;
  AddGathered();
  gathered.count = 0;
  for (std::uint32_t i = 0; i < plan.count; ++i)
    if (i != plan.leading) gathered.groups[gathered.count++] = plan.groups[i];
  gathered.rows.width = std::uint32_t{plan.columns} - plan.size + 1;
  return false;
}

void BlockSystem::AddTrailing(const Plan& plan,
                              const ProductRows& rows,
                              const double* misclosures) {
  ProductBlock blocks[Plan::kGroups * (Plan::kGroups + 1) / 2];
  std::uint32_t count = 0;
  std::array<std::uint32_t, Plan::kGroups> firsts{};
  std::uint32_t first = 0;
  for (std::uint32_t i = 0; i < plan.count; ++i) {
    const std::uint32_t size = i == plan.leading ? plan.size : fGroups[plan.groups[i]].size;
    firsts[i] = first;
    first += size;
    if (i == plan.leading) continue;
    const Group& group = fGroups[plan.groups[i]];
    double* rhs = fRhs.data() + group.start;
    for (std::uint32_t r = 0; r < rows.components; ++r) {
      const double* a = rows.a + r * rows.stride + firsts[i];
      const double weighted = rows.weights[r] * misclosures[r];
      for (std::uint32_t p = 0; p < size; ++p) rhs[p] += weighted * a[p];
    }
    blocks[count++] = {fValues.data() + group.diagonal, size, firsts[i], size, firsts[i], size};
    for (std::uint32_t j = 0; j < i; ++j) {
      if (j == plan.leading) continue;
      const Group& other = fGroups[plan.groups[j]];
      const bool isTurned = PairingOf(plan.groups[i], plan.groups[j]).isTurned;
      blocks[count++] = {fValues.data() + plan.BlockOf(i, j),
                         isTurned ? size : other.size,
                         firsts[isTurned ? j : i],
                         isTurned ? other.size : size,
                         firsts[isTurned ? i : j],
                         isTurned ? size : other.size};
    }
  }
  AddProducts({blocks, count}, rows);
}

void BlockSystem::Gather(const Plan& plan,
                         std::span<const DesignRow> rows,
                         const double* weights,
                         const double* misclosures) {
  Gathered& gathered = *fGathering;
  if (gathered.rows.count + rows.size() > GatheredRows::kMost) AddGathered();
  for (std::size_t r = 0; r < rows.size(); ++r) {
    const double* from = rows[r].Coefficients();
    double* to = gathered.rows.a.data() + gathered.rows.count * std::size_t{GatheredRows::kStride};
    for (std::uint32_t i = 0; i < plan.count; ++i) {
      if (i == plan.leading) {
        from += plan.size;
        continue;
      }
      const std::uint32_t size = fGroups[plan.groups[i]].size;
      // What is too much stays within both rows, and the next group is written over it.
      static_assert(kLargestBlock == 16 &&
                    DesignRow::kCapacity >= GatheredRows::kMostColumns + 16 &&
                    GatheredRows::kStride >= GatheredRows::kMostColumns + 8);
      std::memcpy(to, from, 8 * sizeof(double));
      if (size > 8) std::memcpy(to + 8, from + 8, 8 * sizeof(double));
      from += size;
      to += size;
    }
    *to = misclosures[r];
    gathered.rows.weights[gathered.rows.count++] = weights[r];
  }
}

void BlockSystem::AddGathered() {
  Gathered& gathered = *fGathering;
  // Where a block was missing the assembly is done again.
  if (!fArranged) gathered.rows.count = 0;
  if (gathered.rows.count == 0) return;
  ComputeNormals(gathered.rows);
  gathered.rows.count = 0;
  constexpr std::size_t kStride = GatheredRows::kStride;
  const double* row = gathered.rows.normals.data();
  const double* const misclosures = row + (gathered.rows.width - 1) * kStride;
  std::uint32_t firstRow = 0;
  for (std::uint32_t i = 0; i < gathered.count; ++i) {
    const Group& group = fGroups[gathered.groups[i]];
    for (std::uint32_t p = 0; p < group.size; ++p)
      fRhs[group.start + p] += misclosures[firstRow + p];
    std::uint32_t firstColumn = 0;
    for (std::uint32_t j = 0; j < i; ++j) {
      const Group& other = fGroups[gathered.groups[j]];
      const Pairing pairing = PairingOf(gathered.groups[i], gathered.groups[j]);
      const std::size_t stride = fGroups[pairing.to].size;
      double* to = fValues.data() + OffsetOf(gathered.groups[i], gathered.groups[j]);
      for (std::uint32_t p = 0; p < group.size; ++p)
        for (std::uint32_t q = 0; q < other.size; ++q)
          to[pairing.isTurned ? q * stride + p : p * stride + q] +=
              row[p * kStride + firstColumn + q];
      firstColumn += other.size;
    }
    double* own = fValues.data() + group.diagonal;
    for (std::size_t p = 0; p < group.size; ++p)
      for (std::size_t q = 0; q < group.size; ++q)
        own[p * group.size + q] += row[std::max(p, q) * kStride + firstColumn + std::min(p, q)];
    firstRow += group.size;
    row += group.size * kStride;
  }
}

void BlockSystem::FetchBlocks(const Plan& plan) const {
  if (plan.leading == Plan::kNoLeader) return;
  __builtin_prefetch(fRhs.data() + plan.start, 1);
  FetchAll(fValues.data() + plan.diagonal, std::size_t{plan.size} * plan.size);
  const std::uint32_t* block = plan.blocks.data();
  for (std::uint32_t i = 1; i < plan.count; ++i)
    for (std::uint32_t j = 0; j < i; ++j, ++block)
      if ((i == plan.leading || j == plan.leading) && *block != Plan::kNoBlock)
        FetchAll(fValues.data() + *block,
                 std::size_t{plan.size} * fGroups[plan.groups[i == plan.leading ? j : i]].size);
}

void BlockSystem::AddSpread(const Spread& spread,
                            const Plan* plan,
                            const double* weights,
                            const double* misclosures) {
  for (std::uint32_t i = 0; i < spread.count && !fIsDiagonal; ++i) {
    const std::uint32_t g = spread.groups[i];
    for (std::uint32_t j = 0; j < i; ++j)
      if (fGroups[g].leads && fGroups[spread.groups[j]].leads) Demote(g);
  }
  const ProductRows rows{spread.rows, spread.a, spread.stride, weights};
  ProductBlock products[kProductsAtOnce];
  std::uint32_t count = 0;
  const auto flush = [&] {
    AddProducts({products, count}, rows);
    count = 0;
  };
  const auto add = [&](std::size_t offset, std::size_t stride, std::uint32_t i, std::uint32_t j) {
    if (count == kProductsAtOnce) flush();
    products[count++] = {fValues.data() + offset,
                         stride,
                         spread.firsts[i],
                         fGroups[spread.groups[i]].size,
                         spread.firsts[j],
                         fGroups[spread.groups[j]].size};
  };
  const std::uint32_t* block = plan != nullptr ? plan->blocks.data() : nullptr;
  for (std::uint32_t i = 0; i < spread.count; ++i) {
    const Group& group = fGroups[spread.groups[i]];
    double* rhs = fRhs.data() + group.start;
    for (std::uint32_t r = 0; r < spread.rows; ++r) {
      const double* a = spread.a + r * spread.stride + spread.firsts[i];
      const double weighted = weights[r] * misclosures[r];
      for (std::uint32_t p = 0; p < group.size; ++p) rhs[p] += weighted * a[p];
    }
    if (fArranged || fIsDiagonal) add(group.diagonal, group.size, i, i);
    for (std::uint32_t j = 0; j < i && !fIsDiagonal; ++j) {
      const Pairing pairing = PairingOf(spread.groups[i], spread.groups[j]);
      const std::size_t offset = block == nullptr || *block == Plan::kNoBlock
                                     ? OffsetOf(spread.groups[i], spread.groups[j])
                                     : *block;
      if (block != nullptr) ++block;
      if (offset == kNoOffset)
        Record(pairing.from, pairing.to);
      else
        add(offset, fGroups[pairing.to].size, pairing.isTurned ? j : i, pairing.isTurned ? i : j);
    }
  }
  flush();
}

void BlockSystem::AddEquation(const DesignRow& row, double weight, double misclosure) {
  AddUnknown({&row, 1}, &weight, &misclosure);
}

void BlockSystem::AddEquations(std::span<DesignRow> rows,
                               const double* weights,
                               const double* misclosures) {
  for (std::size_t first = 0; first < rows.size(); first += Spread::kRows) {
    const std::size_t count = std::min(rows.size() - first, Spread::kRows);
    const std::span<const DesignRow> some = rows.subspan(first, count);
    if (const Plan* plan = KnownRay(some))
      AddRay(*plan, some, weights + first, misclosures + first);
    else
      AddUnknown(some, weights + first, misclosures + first);
  }
}

// The plan of the next observation, which is passed by, if it is that of a ray and fits.
const BlockSystem::Plan* BlockSystem::KnownRay(std::span<const DesignRow> rows) {
  if (!fArranged || fNextPlan >= fPlans.size()) return nullptr;
  const Plan& plan = fPlans[fNextPlan];
  if (!plan.isRay || !Fits(plan, rows)) return nullptr;
  ++fNextPlan;
  FetchAhead();
  return &plan;
}

void BlockSystem::AddUnknown(std::span<const DesignRow> rows,
                             const double* weights,
                             const double* misclosures) {
  const bool areRuns = SpreadRows(rows, *fSpread);
  const Plan* plan = NextPlan(*fSpread);
  if (areRuns && plan != nullptr && plan->isRay)
    AddRay(*plan, rows, weights, misclosures);
  else
    AddSpread(*fSpread, plan, weights, misclosures);
}

void BlockSystem::StoreElement(std::uint32_t row, std::uint32_t column, double value) {
  // A constraint stores the elements of one block one after the other.
  if (!fStored.Holds(row, column) && !OpenStored(row, column)) return;
  *fStored.At(row, column) = value;
  if (fStored.isDiagonal) *fStored.At(column, row) = value;
}

void BlockSystem::StoreBlock(std::uint32_t firstRow,
                             std::uint32_t rows,
                             std::uint32_t firstColumn,
                             std::uint32_t columns,
                             const double* values) {
  const bool isOne = fGroupOf[firstRow] == fGroupOf[firstRow + rows - 1] &&
                     fGroupOf[firstColumn] == fGroupOf[firstColumn + columns - 1];
  if (isOne && !fArranged && !fIsDiagonal) {
    // No element has a place: it is enough to note the meeting.
    OpenStored(firstRow, firstColumn);
    ++fStoredTold;
    return;
  }
  const StoredPlan* plan = isOne ? NextStored(firstRow, rows, firstColumn, columns) : nullptr;
  if (plan == nullptr) {
    for (std::uint32_t r = 0; r < rows; ++r)
      for (std::uint32_t c = 0; c < columns; ++c)
        StoreElement(firstRow + r, firstColumn + c, *values++);
    return;
  }
  double* to = fValues.data() + plan->offset;
  for (std::uint32_t r = 0; r < rows; ++r)
    for (std::uint32_t c = 0; c < columns; ++c)
      to[r * std::size_t{plan->rowStride} + c * std::size_t{plan->columnStride}] = *values++;
}

// Constraints store the same blocks in each assembly: each one is looked up once. None for a block
// on the diagonal or one that has no place of its own.
const BlockSystem::StoredPlan* BlockSystem::NextStored(std::uint32_t firstRow,
                                                       std::uint32_t rows,
                                                       std::uint32_t firstColumn,
                                                       std::uint32_t columns) {
  if (!fArranged) return nullptr;
  if (fNextStored == fStoredPlans.size()) fStoredPlans.emplace_back();
  if (fNextStored + kStoredAhead < fStoredPlans.size()) {
    const StoredPlan& ahead = fStoredPlans[fNextStored + kStoredAhead];
    FetchAll(fValues.data() + ahead.offset, std::size_t{ahead.rows} * ahead.columns);
  }
  StoredPlan& plan = fStoredPlans[fNextStored++];
  if (plan.firstRow == firstRow && plan.rows == rows && plan.firstColumn == firstColumn &&
      plan.columns == columns)
    return &plan;
  plan = {};
  if (!OpenStored(firstRow, firstColumn) || fStored.isDiagonal) return nullptr;
  plan = {static_cast<std::size_t>(fStored.At(firstRow, firstColumn) - fValues.data()),
          firstRow,
          firstColumn,
          static_cast<std::uint16_t>(rows),
          static_cast<std::uint16_t>(columns),
          static_cast<std::uint16_t>(fStored.rowStride),
          static_cast<std::uint16_t>(fStored.columnStride)};
  return &plan;
}

bool BlockSystem::OpenStored(std::uint32_t row, std::uint32_t column) {
  AddGathered();
  const std::uint32_t a = fGroupOf[column];
  const std::uint32_t b = fGroupOf[row];
  if (fIsDiagonal && a != b) return false;
  if (a != b && fGroups[a].leads && fGroups[b].leads) Demote(b);
  const Group& rows = fGroups[b];
  const Group& columns = fGroups[a];
  fStored = {};
  if (a == b) {
    if (!fArranged && !fIsDiagonal) return false;
    fStored.block = fValues.data() + rows.diagonal;
    fStored.rowStride = rows.size;
    fStored.columnStride = 1;
  } else {
    const std::size_t offset = OffsetOf(a, b);
    if (offset == kNoOffset) {
      Record(a, b);
      return false;
    }
    const Pairing pairing = PairingOf(a, b);
    const std::size_t stride = fGroups[pairing.to].size;
    fStored.block = fValues.data() + offset;
    fStored.rowStride = pairing.isTurned ? stride : 1;
    fStored.columnStride = pairing.isTurned ? 1 : stride;
  }
  fStored.isDiagonal = a == b;
  fStored.firstRow = rows.start;
  fStored.rows = rows.size;
  fStored.firstColumn = columns.start;
  fStored.columns = columns.size;
  return true;
}

void BlockSystem::CofactorForms(std::span<DesignRow> rows, double* forms) const {
  Spread& spread = *fSpread;
  for (std::size_t first = 0; first < rows.size(); first += Spread::kRows) {
    const std::span<const DesignRow> some =
        rows.subspan(first, std::min(rows.size() - first, Spread::kRows));
    if (FormsOfRay(some, forms + first)) continue;
    SpreadRows(some, spread);
    // As in the assembly observations of many groups have no plan.
    if (fNextForm < fPlans.size() && spread.count <= Plan::kGroups) ++fNextForm;
    FormsOf(spread, forms + first);
  }
}

void BlockSystem::FormsOf(const Spread& spread, double* forms) const {
  FormBlock blocks[kProductsAtOnce];
  std::uint32_t count = 0;
  std::fill_n(forms, spread.rows, 0.0);
  const auto flush = [&] {
    double parts[Spread::kRows];
    ComputeForms({blocks, count}, spread.rows, spread.a, spread.stride, parts);
    for (std::uint32_t r = 0; r < spread.rows; ++r) forms[r] += parts[r];
    count = 0;
  };
  for (std::uint32_t i = 0; i < spread.count; ++i)
    for (std::uint32_t j = 0; j <= i; ++j) {
      const std::optional<View> view = ViewOf(spread.groups[i], spread.groups[j]);
      if (!view) continue;
      // The kernel takes the side that stands side by side as columns.
      const bool isTurned = view->columnStride != 1;
      const std::uint32_t rows = isTurned ? j : i;
      const std::uint32_t columns = isTurned ? i : j;
      blocks[count] = {view->from,
                       isTurned ? view->columnStride : view->rowStride,
                       spread.firsts[rows],
                       fGroups[spread.groups[rows]].size,
                       spread.firsts[columns],
                       fGroups[spread.groups[columns]].size,
                       i == j ? 1.0 : 2.0};
      if (++count == kProductsAtOnce) flush();
    }
  flush();
}

// The forms of the next observation, which is passed by, if its plan is that of a ray and fits.
bool BlockSystem::FormsOfRay(std::span<const DesignRow> rows, double* forms) const {
  if (!fHasCross || fNextForm >= fPlans.size()) return false;
  const Plan& plan = fPlans[fNextForm];
  if (!plan.isRay || !Fits(plan, rows)) return false;
  ++fNextForm;
  if (fNextForm + kPlansAhead < fPlans.size()) {
    const Plan& ahead = fPlans[fNextForm + kPlansAhead];
    if (ahead.isRay) {
      FetchAll(fOwnCofactors.data() + ahead.diagonal, std::size_t{ahead.size} * ahead.size);
      for (std::uint32_t i = 0; i < ahead.count; ++i)
        if (i != ahead.leading)
          FetchAll(fCross.get() + ahead.CouplingOf(i),
                   std::size_t{ahead.size} * fGroups[ahead.groups[i]].size);
    }
  }
  FormBlock blocks[Plan::kGroups * (Plan::kGroups + 1) / 2];
  std::uint32_t count = 0;
  std::array<std::uint32_t, Plan::kGroups> firsts{};
  std::uint32_t first = 0;
  for (std::uint32_t i = 0; i < plan.count; ++i) {
    firsts[i] = first;
    first += i == plan.leading ? plan.size : fGroups[plan.groups[i]].size;
  }
  const std::uint32_t lead = firsts[plan.leading];
  blocks[count++] = {
      fOwnCofactors.data() + plan.diagonal, plan.size, lead, plan.size, lead, plan.size, 1.0};
  for (std::uint32_t i = 0; i < plan.count; ++i) {
    if (i == plan.leading) continue;
    const std::uint32_t size = fGroups[plan.groups[i]].size;
    blocks[count++] = {
        fCross.get() + plan.CouplingOf(i), size, lead, plan.size, firsts[i], size, 2.0};
    for (std::uint32_t j = 0; j <= i; ++j) {
      if (j == plan.leading) continue;
      const ReducedSystem::Place place =
          fReduced.PlaceOf(fGroups[plan.groups[i]].trailing, fGroups[plan.groups[j]].trailing);
      // The kernel takes the side that stands side by side as columns.
      const bool isTurned = place.columnStride != 1;
      const std::uint32_t rowGroup = isTurned ? j : i;
      const std::uint32_t columnGroup = isTurned ? i : j;
      blocks[count++] = {fReduced.Inverse().data() + place.offset,
                         isTurned ? place.columnStride : place.rowStride,
                         firsts[rowGroup],
                         fGroups[plan.groups[rowGroup]].size,
                         firsts[columnGroup],
                         fGroups[plan.groups[columnGroup]].size,
                         i == j ? 1.0 : 2.0};
    }
  }
  ComputeForms({blocks, count},
               static_cast<std::uint32_t>(rows.size()),
               rows[0].Coefficients(),
               kRowStride,
               forms);
  return true;
}

double BlockSystem::CofactorForm(const DesignRow& row) const {
  double form = 0.0;
  SpreadRows({&row, 1}, *fSpread);
  FormsOf(*fSpread, &form);
  return form;
}

}  // namespace vermo
