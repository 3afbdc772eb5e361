#include "linalg/block_system.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace vermo {
namespace {

// A pivot of a positive definite block below this share of its diagonal element counts as zero.
constexpr double kSmallestPivot = 1e-12;
// Larger groups stand as several blocks.
constexpr std::uint32_t kLargestBlock = 16;
// What will be needed soon is fetched before its turn: blocks of an observation, and before them
// what is known of its groups.
constexpr std::size_t kPlansAhead = 4;
constexpr std::size_t kGroupsAhead = 10;
// Columns of a link, as many as an image has.
constexpr std::size_t kFetchedColumns = 6;

template <typename Element>
void Fetch(const Element* first, std::size_t count) noexcept {
  __builtin_prefetch(first, 1);
  __builtin_prefetch(reinterpret_cast<const char*>(first + count) - 1, 1);
}
// Blocks of an observation that are handed to the kernel together.
constexpr std::uint32_t kProductsAtOnce = 16;
// So many trailing groups that a table of all their pairs is small beside the rest.
constexpr std::size_t kMostKnownBlocks = 1200;

// The inverse of a symmetric positive definite block by rows, n <= 6, from its factors P = L D L^T
// with ones on the diagonal of L, and its root M = D^-1/2 L^-1 with P^-1 = M^T M. False when P is
// not positive definite.
template <std::uint32_t N>
bool InvertPositive(const double* block, double* inverse, double* root) {
  double l[N][N];
  double reciprocal[N];
  for (std::size_t i = 0; i < N; ++i) {
    double pivot = block[i * N + i];
    for (std::size_t j = 0; j < i; ++j) {
      double sum = block[i * N + j];
      // Row i is still L D here, row j is L already.
      for (std::size_t k = 0; k < j; ++k) sum -= l[i][k] * l[j][k];
      l[i][j] = sum;
    }
    for (std::size_t j = 0; j < i; ++j) {
      const double scaled = l[i][j] * reciprocal[j];
      pivot -= l[i][j] * scaled;
      l[i][j] = scaled;
    }
    if (!(pivot > kSmallestPivot * block[i * N + i])) return false;
    reciprocal[i] = 1.0 / pivot;
  }
  double m[N][N];  // L^-1
  for (std::size_t j = 0; j < N; ++j) {
    m[j][j] = 1.0;
    for (std::size_t i = j + 1; i < N; ++i) {
      double sum = 0.0;
      for (std::size_t k = j; k < i; ++k) sum -= l[i][k] * m[k][j];
      m[i][j] = sum;
    }
  }
  for (std::size_t i = 0; i < N; ++i)
    for (std::size_t j = 0; j <= i; ++j) {
      double sum = 0.0;
      for (std::size_t k = i; k < N; ++k) sum += m[k][i] * reciprocal[k] * m[k][j];
      inverse[i * N + j] = inverse[j * N + i] = sum;
    }
  for (std::size_t i = 0; i < N; ++i) {
    const double scale = std::sqrt(reciprocal[i]);
    for (std::size_t j = 0; j < N; ++j) root[i * N + j] = j <= i ? m[i][j] * scale : 0.0;
  }
  return true;
}

bool InvertPositive(const double* block, std::uint32_t n, double* inverse, double* root) {
  switch (n) {
    case 1:
      return InvertPositive<1>(block, inverse, root);
    case 2:
      return InvertPositive<2>(block, inverse, root);
    case 3:
      return InvertPositive<3>(block, inverse, root);
    case 4:
      return InvertPositive<4>(block, inverse, root);
    case 5:
      return InvertPositive<5>(block, inverse, root);
    default:
      return InvertPositive<6>(block, inverse, root);
  }
}

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

BlockSystem::BlockSystem() : fSpread(std::make_unique<Spread>()) {}
BlockSystem::~BlockSystem() = default;

void BlockSystem::SetLayout(const SystemLayout& layout) {
  if (layout == fLayout) return;
  fLayout = layout;
  fIsNew = true;
}

void BlockSystem::Reset(std::uint32_t unknowns, std::uint32_t multipliers) {
  fUnknowns = unknowns;
  fSize = unknowns + multipliers;
  if (fLayout.starts.empty() || fLayout.starts.back() != fSize) {
    // Nobody told: every column stands for itself.
    SystemLayout columns;
    for (std::uint32_t i = 0; i <= fSize; ++i) columns.starts.push_back(i);
    SetLayout(columns);
  }
  if (fIsNew) {
    fIsNew = false;
    fStored = {};
    fGroups.clear();
    fGroupOf.assign(fSize, 0);
    for (std::uint32_t g = 0; g + 1 < fLayout.starts.size(); ++g) {
      const std::uint32_t end = fLayout.starts[g + 1];
      for (std::uint32_t start = fLayout.starts[g]; start < end; start += kLargestBlock) {
        Group group;
        group.start = start;
        group.size = std::min(end - start, kLargestBlock);
        group.leads = g < fLayout.leading && group.size <= kLargestLeading;
        group.isMultiplier = start >= unknowns;
        for (std::uint32_t i = 0; i < group.size; ++i)
          fGroupOf[start + i] = static_cast<std::uint32_t>(fGroups.size());
        fGroups.push_back(group);
      }
    }
    const std::size_t count = fGroups.size();
    fForcedRoot.assign(count, false);
    ForgetMeetings();
    fArranged = false;
    fValues.clear();
  }
  if (fIsDiagonal) ArrangeDiagonal();
  fComplete = fArranged;
  fIsEliminated = false;
  fNextPlan = 0;
  fHasCross = false;
  fDemoted = false;
  std::ranges::fill(fValues, 0.0);
  fRhs.assign(fSize, 0.0);
  fSolution.assign(fSize, 0.0);
  fDiagonal.assign(fSize, 0.0);
}

void BlockSystem::ArrangeDiagonal() {
  std::size_t values = 0;
  for (Group& group : fGroups) {
    group.diagonal = values;
    values += std::size_t{group.size} * group.size;
  }
  fValues.resize(values + kReadBeyond);
  fArranged = false;
  // The next whole system is laid out afresh.
  fIsNew = true;
}

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

void BlockSystem::SpreadRows(std::span<const DesignRow> rows, Spread& spread) const {
  spread.count = spread.columns = 0;
  spread.rows = static_cast<std::uint32_t>(rows.size());
  if (FindRuns(rows, spread)) return;
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
  static_assert(sizeof(DesignRow) % sizeof(double) == 0);
  spread.a = rows[0].Coefficients();
  spread.stride = sizeof(DesignRow) / sizeof(double);
  return true;
}

void BlockSystem::Record(std::uint32_t a, std::uint32_t b) {
  if (a == b) return;
  fComplete = false;
  fArranged = false;
  const Pairing pairing = PairingOf(a, b);
  // Observations of one image follow each other.
  const Meeting meeting{pairing.from, pairing.to};
  if (meeting == fLastTrailing) return;
  if (!fGroups[pairing.from].leads) {
    fLastTrailing = meeting;
  } else if (!fHasMet[pairing.from]) {
    fHasMet[pairing.from] = true;
    fOrderOfMeeting.push_back(pairing.from);
  }
  fMeetings.push_back(meeting);
}

void BlockSystem::ForgetMeetings() {
  fMeetings.clear();
  fMet.clear();
  fMetBy.assign(fGroups.size() + 1, 0);
  fLastTrailing = {};
  fHasMet.assign(fGroups.size(), false);
  fOrderOfMeeting.clear();
}

// Sorts what was recorded by the group that keeps the block (a counting sort), then each group's.
void BlockSystem::SortMeetings() {
  for (std::uint32_t g = 0; g + 1 < fMetBy.size(); ++g)
    for (const std::uint32_t other : MetBy(g)) fMeetings.push_back({g, other});
  std::vector<std::size_t> place(fGroups.size() + 1, 0);
  for (const Meeting& meeting : fMeetings) ++place[meeting.from + 1];
  for (std::size_t g = 1; g < place.size(); ++g) place[g] += place[g - 1];
  std::vector<std::uint32_t> sorted(fMeetings.size());
  for (const Meeting& meeting : fMeetings) sorted[place[meeting.from]++] = meeting.to;
  fMeetings.clear();
  fMeetings.shrink_to_fit();
  fLastTrailing = {};
  fMet.clear();
  auto first = sorted.begin();
  for (std::size_t g = 0; g < fGroups.size(); ++g) {
    const auto end = sorted.begin() + static_cast<std::ptrdiff_t>(place[g]);
    std::sort(first, end);
    fMetBy[g] = fMet.size();
    fMet.insert(fMet.end(), first, std::unique(first, end));
    first = end;
  }
  fMetBy.back() = fMet.size();
}

BlockSystem::Pairing BlockSystem::PairingOf(std::uint32_t a, std::uint32_t b) const noexcept {
  // Of a pair the leading group keeps the block, of two trailing groups the first.
  const bool aKeeps = fGroups[a].leads || (!fGroups[b].leads && a < b);
  return aKeeps ? Pairing{a, b, false} : Pairing{b, a, true};
}

std::size_t BlockSystem::OffsetOf(std::uint32_t a, std::uint32_t b) const {
  if (!fArranged) return kNoOffset;
  const Pairing pairing = PairingOf(a, b);
  const Link* link = FindLink(pairing.from, pairing.to);
  return link != nullptr ? link->offset : kNoOffset;
}

const BlockSystem::Link* BlockSystem::FindLink(std::uint32_t from, std::uint32_t to) const {
  const std::span<const Link> links = LinksOf(fGroups[from]);
  const auto link = std::ranges::lower_bound(links, fGroups[to].order, {}, &Link::order);
  return link != links.end() && link->group == to ? &*link : nullptr;
}

// Observations come in the same order again and again: each one's blocks are looked up once.
const BlockSystem::Plan* BlockSystem::NextPlan(const Spread& spread) {
  if (!fArranged || spread.count > Plan::kGroups) return nullptr;
  if (fNextPlan == fPlans.size()) fPlans.emplace_back();
  Plan& plan = fPlans[fNextPlan++];
  if (plan.count != spread.count ||
      !std::equal(plan.groups.begin(), plan.groups.begin() + plan.count, spread.groups.begin())) {
    plan.count = spread.count;
    std::copy_n(spread.groups.begin(), spread.count, plan.groups.begin());
    std::size_t* block = plan.blocks.data();
    for (std::uint32_t i = 1; i < spread.count; ++i)
      for (std::uint32_t j = 0; j < i; ++j) *block++ = OffsetOf(spread.groups[i], spread.groups[j]);
    plan.leading = kNone;
    for (std::uint32_t i = 0; i < spread.count; ++i) {
      const Group& group = fGroups[spread.groups[i]];
      if (!group.leads) continue;
      plan.leading = i;
      plan.size = group.size;
      plan.width = group.width;
      plan.diagonal = group.diagonal;
    }
  }
  // The blocks of a leading group are likely far from those of the one before, and so is what is
  // known of it.
  if (fNextPlan + kPlansAhead < fPlans.size()) FetchBlocks(fPlans[fNextPlan + kPlansAhead]);
  if (fNextPlan + kGroupsAhead < fPlans.size()) {
    const Plan& ahead = fPlans[fNextPlan + kGroupsAhead];
    if (ahead.leading != kNone) Fetch(fGroups.data() + ahead.groups[ahead.leading], 1);
  }
  return &plan;
}

void BlockSystem::FetchBlocks(const Plan& plan) const {
  if (plan.leading == kNone) return;
  Fetch(fValues.data() + plan.diagonal, std::size_t{plan.size} * plan.size);
  const std::size_t* block = plan.blocks.data();
  for (std::uint32_t i = 1; i < plan.count; ++i)
    for (std::uint32_t j = 0; j < i; ++j, ++block)
      if ((i == plan.leading || j == plan.leading) && *block != kNoOffset)
        for (std::uint32_t r = 0; r < plan.size; ++r)
          Fetch(fValues.data() + *block + r * std::size_t{plan.width}, kFetchedColumns);
}

void BlockSystem::AddSpread(const Spread& spread,
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
  const Plan* plan = NextPlan(spread);
  const std::size_t* block = plan != nullptr ? plan->blocks.data() : nullptr;
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
      const std::size_t offset =
          block != nullptr ? *block++ : OffsetOf(spread.groups[i], spread.groups[j]);
      if (offset == kNoOffset)
        Record(pairing.from, pairing.to);
      else
        add(offset,
            fGroups[pairing.from].width,
            pairing.isTurned ? j : i,
            pairing.isTurned ? i : j);
    }
  }
  flush();
}

void BlockSystem::Couple(std::span<const std::uint32_t> columns) {
  for (std::size_t i = 0; i < columns.size(); ++i)
    for (std::size_t j = 0; j < i; ++j) {
      const std::uint32_t a = fGroupOf[columns[i]];
      const std::uint32_t b = fGroupOf[columns[j]];
      if (a == b) continue;
      if (fGroups[a].leads && fGroups[b].leads) Demote(a);
      Record(a, b);
    }
}

void BlockSystem::AddEquation(const DesignRow& row, double weight, double misclosure) {
  SpreadRows({&row, 1}, *fSpread);
  AddSpread(*fSpread, &weight, &misclosure);
}

void BlockSystem::AddEquations(std::span<DesignRow> rows,
                               const double* weights,
                               const double* misclosures) {
  for (std::size_t first = 0; first < rows.size(); first += Spread::kRows) {
    const std::size_t count = std::min(rows.size() - first, Spread::kRows);
    SpreadRows(rows.subspan(first, count), *fSpread);
    AddSpread(*fSpread, weights + first, misclosures + first);
  }
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
  const bool isOne = fStored.Holds(firstRow, firstColumn) || OpenStored(firstRow, firstColumn);
  if (isOne && !fStored.isDiagonal &&
      fStored.Holds(firstRow + rows - 1, firstColumn + columns - 1)) {
    for (std::uint32_t r = 0; r < rows; ++r)
      for (std::uint32_t c = 0; c < columns; ++c)
        *fStored.At(firstRow + r, firstColumn + c) = *values++;
    return;
  }
  for (std::uint32_t r = 0; r < rows; ++r)
    for (std::uint32_t c = 0; c < columns; ++c)
      StoreElement(firstRow + r, firstColumn + c, *values++);
}

bool BlockSystem::OpenStored(std::uint32_t row, std::uint32_t column) {
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
    const std::size_t stride = fGroups[pairing.from].width;
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

void BlockSystem::Demote(std::uint32_t group) {
  if (!fGroups[group].leads) return;
  fGroups[group].leads = false;
  fComplete = false;
  fArranged = false;
  fStored = {};
  fDemoted = true;
  // Its links change sides: they are learnt afresh.
  ForgetMeetings();
}

bool BlockSystem::Seal() {
  if (fIsDiagonal) return true;
  if (fComplete) return InvertLeading();
  // After a demotion the links of this assembly are not all known.
  if (!fDemoted) {
    SortMeetings();
    ArrangeReduced();
    ArrangeBlocks();
    ArrangePairs();
    fArranged = true;
  }
  return false;
}

void BlockSystem::ArrangeReduced() {
  fTrailing.clear();
  for (std::uint32_t g = 0; g < fGroups.size(); ++g) {
    fGroups[g].trailing = kNone;
    if (fGroups[g].leads) continue;
    fGroups[g].trailing = static_cast<std::uint32_t>(fTrailing.size());
    fTrailing.push_back(g);
  }
  const auto blocks = static_cast<std::uint32_t>(fTrailing.size());
  BlockPattern pattern(blocks);
  std::vector<std::uint32_t> sizes(blocks);
  std::vector<bool> isRoot(blocks);
  for (std::uint32_t t = 0; t < blocks; ++t) {
    sizes[t] = fGroups[fTrailing[t]].size;
    isRoot[t] = fGroups[fTrailing[t]].isMultiplier || fForcedRoot[fTrailing[t]];
  }
  // Which leading groups a trailing one meets; through them it meets others.
  std::vector<std::vector<std::uint32_t>> leadersOf(blocks);
  for (std::uint32_t g = 0; g < fGroups.size(); ++g)
    for (const std::uint32_t other : MetBy(g)) {
      const std::uint32_t t = fGroups[other].trailing;
      if (fGroups[g].leads) {
        leadersOf[t].push_back(g);
      } else {
        pattern[t].push_back(fGroups[g].trailing);
        pattern[fGroups[g].trailing].push_back(t);
      }
    }
  std::vector<std::uint32_t> seenBy(blocks, kNone);
  for (std::uint32_t t = 0; t < blocks; ++t) {
    seenBy[t] = t;
    std::vector<std::uint32_t> met;
    const auto meet = [&](std::uint32_t other) {
      if (seenBy[other] == t) return;
      seenBy[other] = t;
      met.push_back(other);
    };
    for (const std::uint32_t other : pattern[t]) meet(other);
    for (const std::uint32_t leader : leadersOf[t])
      for (const std::uint32_t other : MetBy(leader)) meet(fGroups[other].trailing);
    std::ranges::sort(met);
    pattern[t] = std::move(met);
  }
  fReduced.Arrange(pattern, sizes, isRoot);
}

// The diagonal blocks come first, as some passes read nothing else. Leading groups stand in the
// order in which observations first meet them, so that observations find them close to each other;
// links in the order of the reduced system, so that neighbours there are neighbours here.
void BlockSystem::ArrangeBlocks() {
  fStored = {};
  fPlans.clear();
  fLinks.clear();
  fLeading = fOrderOfMeeting;
  for (std::uint32_t g = 0; g < fGroups.size(); ++g)
    if (fGroups[g].leads && !fHasMet[g]) fLeading.push_back(g);
  std::vector<std::uint32_t> order = fLeading;
  order.insert(order.end(), fTrailing.begin(), fTrailing.end());
  std::size_t values = 0;
  for (const std::uint32_t g : order) {
    Group& group = fGroups[g];
    group.diagonal = values;
    values += std::size_t{group.size} * group.size;
    if (!group.leads) group.order = fReduced.Order(group.trailing);
  }
  const std::size_t diagonals = values;
  std::size_t widest = 0;  // elements
  for (const std::uint32_t g : order) {
    Group& group = fGroups[g];
    group.firstLink = static_cast<std::uint32_t>(fLinks.size());
    group.links = static_cast<std::uint32_t>(MetBy(g).size());
    group.width = 0;
    for (const std::uint32_t other : MetBy(g)) {
      fLinks.push_back({other, fGroups[other].size, fGroups[other].order, 0, 0});
      group.width += fGroups[other].size;
    }
    const std::span<Link> links = std::span(fLinks).subspan(group.firstLink);
    std::ranges::sort(links, {}, &Link::order);
    group.coupling = values;
    std::uint32_t column = 0;
    for (Link& link : links) {
      link.stride = group.width;
      link.offset = values + column;
      column += link.size;
    }
    values += std::size_t{group.size} * group.width;
    if (group.leads) widest = std::max(widest, std::size_t{group.size} * group.width);
  }
  fValues.assign(values + kReadBeyond, 0.0);
  for (Working& working : fWorking) working.rows.assign(widest + kReadBeyond, 0.0);
  fGathered.assign(widest, 0.0);
  fInverses.assign(diagonals, 0.0);
  fOwnCofactors.assign(diagonals + kReadBeyond, 0.0);
  fCross.reset();
  fCouplings = values - diagonals;
}

void BlockSystem::ArrangePairs() {
  fPairs.clear();
  fJoined.clear();
  const auto pairOf = [this](std::uint32_t rows, std::uint32_t columns) -> Pair {
    const ReducedSystem::Place place = fReduced.PlaceOf(rows, columns);
    const bool swapped = place.rowStride != 1;
    return {place.offset, swapped ? place.rowStride : place.columnStride, swapped};
  };
  // The same pairs come with thousands of points: each is looked up once.
  const std::size_t blockCount = fTrailing.size();
  std::vector<Pair> known;
  if (blockCount <= kMostKnownBlocks) known.assign(blockCount * blockCount, Pair{0, 0, false});
  const auto add = [&](std::uint32_t rows, std::uint32_t columns) {
    if (known.empty()) {
      fPairs.push_back(pairOf(rows, columns));
      return;
    }
    Pair& pair = known[rows * blockCount + columns];
    if (pair.stride == 0) pair = pairOf(rows, columns);
    fPairs.push_back(pair);
  };
  // The couplings of a trailing group have one place each.
  for (const std::uint32_t g : fTrailing) {
    fGroups[g].firstPair = fPairs.size();
    for (const Link& link : LinksOf(fGroups[g]))
      add(fGroups[link.group].trailing, fGroups[g].trailing);
  }
  std::vector<std::uint32_t> blocks;  // the first of each joined link
  for (const std::uint32_t g : fLeading) {
    Group& group = fGroups[g];
    group.firstPair = fPairs.size();
    group.firstJoined = static_cast<std::uint32_t>(fJoined.size());
    blocks.clear();
    std::uint32_t column = 0;
    std::uint32_t before = ReducedSystem::kNoBlock;
    for (const Link& link : LinksOf(group)) {
      const std::uint32_t block = fGroups[link.group].trailing;
      if (before != ReducedSystem::kNoBlock && fReduced.AreNeighbours(before, block)) {
        fJoined.back().size += link.size;
      } else {
        fJoined.push_back({column, link.size});
        blocks.push_back(block);
      }
      before = block;
      column += link.size;
    }
    group.joined = static_cast<std::uint32_t>(blocks.size());
    for (std::size_t x = 0; x < blocks.size(); ++x)
      for (std::size_t z = 0; z <= x; ++z) add(blocks[x], blocks[z]);
  }
}

bool BlockSystem::InvertLeading() {
  bool allInverted = true;
  for (const std::uint32_t g : fLeading) {
    const Group& group = fGroups[g];
    double root[kLargestLeading * kLargestLeading];
    if (InvertPositive(
            fValues.data() + group.diagonal, group.size, fInverses.data() + group.diagonal, root))
      continue;
    allInverted = false;
    Demote(g);
  }
  return allInverted;
}

// Every leading group is taken once while its blocks are at hand: its share of the reduced system
// and of the right-hand side there, and Y in the place of W.
void BlockSystem::Eliminate() {
  fReduced.Clear();
  FillReduced();
  fReducedRhs.assign(fReduced.Unknowns(), 0.0);
  for (const std::uint32_t g : fTrailing)
    std::copy_n(fRhs.begin() + fGroups[g].start,
                fGroups[g].size,
                fReducedRhs.begin() + fReduced.Start(fGroups[g].trailing));
  const Group* before = nullptr;
  for (const std::uint32_t g : fLeading) {
    const Group& group = fGroups[g];
    const double* own = fValues.data() + group.diagonal;
    double* w = fValues.data() + group.coupling;
    // W = P Y
    if (fIsEliminated) MultiplyRows(group.size, group.width, own, w, w);
    Working& working = fWorking[fTurn];
    double root[kLargestLeading * kLargestLeading];
    InvertPositive(own, group.size, fInverses.data() + group.diagonal, root);
    for (std::size_t i = 0; i < group.size; ++i)
      for (std::size_t j = 0; j < group.size; ++j)
        working.transposedRoot[i * group.size + j] = root[j * group.size + i];
    MultiplyRows(group.size, group.width, root, w, working.rows.data());
    fTurn = 1 - fTurn;
    if (before != nullptr) ReduceLeading(*before);
    before = &group;
  }
  fTurn = 1 - fTurn;
  if (before != nullptr) ReduceLeading(*before);
  fIsEliminated = true;
}

// With the root M of P^-1 and V = M W: V^T V leaves the reduced system, Y = M^T V. Taking the share
// as a square keeps digits where P is nearly singular.
void BlockSystem::ReduceLeading(const Group& group) {
  const Working& working = fWorking[fTurn];
  const double* v = working.rows.data();
  SubtractShares(BlocksOf(group), v, v, fReduced.Values().data());
  MultiplyRows(
      group.size, group.width, working.transposedRoot.data(), v, fValues.data() + group.coupling);
  GatherInto(group, fRhs.data() + group.start, fGathered.data(), fReducedRhs);
}

double BlockSystem::Element(std::uint32_t row, std::uint32_t column) const {
  const std::uint32_t a = fGroupOf[row];
  const std::uint32_t b = fGroupOf[column];
  const std::size_t i = row - fGroups[a].start;
  const std::size_t j = column - fGroups[b].start;
  if (a == b) return fValues[fGroups[a].diagonal + i * fGroups[a].size + j];
  if (const Link* link = FindLink(a, b)) return fValues[link->offset + i * link->stride + j];
  if (const Link* link = FindLink(b, a)) return fValues[link->offset + j * link->stride + i];
  return 0.0;
}

void BlockSystem::DiagonalBlock(std::uint32_t first, std::uint32_t size, double* block) const {
  const Group& group = fGroups[fGroupOf[first]];
  if (group.start == first && group.size == size)
    std::copy_n(fValues.data() + group.diagonal, std::size_t{size} * size, block);
  else
    NormalSystem::DiagonalBlock(first, size, block);
}

void BlockSystem::FactorizeAndSolve(bool /*pivotSearch*/) {
  for (;;) {
    Eliminate();
    const std::uint32_t failed = fReduced.Factorize();
    if (failed == ReducedSystem::kNoBlock) break;
    fForcedRoot[fTrailing[failed]] = true;
    ArrangeReduced();
    ArrangePairs();
  }
  fHasCross = false;
  fReduced.Solve(fReducedRhs);
  fReduced.Invert();
  const std::span<const double> inverse = fReduced.Inverse();
  for (const std::uint32_t g : fTrailing) {
    const Group& group = fGroups[g];
    std::copy_n(fReducedRhs.begin() + fReduced.Start(group.trailing),
                group.size,
                fSolution.begin() + group.start);
    const ReducedSystem::Place own = fReduced.PlaceOf(group.trailing, group.trailing);
    for (std::size_t i = 0; i < group.size; ++i)
      fDiagonal[group.start + i] = inverse[own.offset + i * (own.rowStride + own.columnStride)];
  }
  const Group* before = nullptr;
  for (const std::uint32_t g : fLeading) {
    const Group& group = fGroups[g];
    SolveLeading(group,
                 fReducedRhs,
                 fRhs.data() + group.start,
                 fGathered.data(),
                 fSolution.data() + group.start);
    MultiplyByHalfInverse(BlocksOf(group),
                          fValues.data() + group.coupling,
                          fReduced.Inverse().data(),
                          fWorking[fTurn].rows.data());
    fTurn = 1 - fTurn;
    if (before != nullptr) CofactorsOf(*before);
    before = &group;
  }
  fTurn = 1 - fTurn;
  if (before != nullptr) CofactorsOf(*before);
}

// Q_ii = P^-1 + Y Q_rr Y^T, the working memory holding half of the product.
void BlockSystem::CofactorsOf(const Group& group) {
  SubtractBothProducts(group.size,
                       group.width,
                       fWorking[fTurn].rows.data(),
                       fValues.data() + group.coupling,
                       fInverses.data() + group.diagonal,
                       fOwnCofactors.data() + group.diagonal);
  TakeDiagonal(group);
}

void BlockSystem::TakeDiagonal(const Group& group) {
  const double* own = fOwnCofactors.data() + group.diagonal;
  for (std::size_t i = 0; i < group.size; ++i) fDiagonal[group.start + i] = own[i * group.size + i];
}

// Q_ir = -Y Q_rr, and Q_ii from it: forms of both, in which much cancels, keep
// more digits so.
void BlockSystem::InvertCofactors() {
  if (fHasCross) return;
  // Written whole before it is read.
  if (fCross == nullptr)
    fCross = std::make_unique_for_overwrite<double[]>(fCouplings + kReadBeyond);
  for (const std::uint32_t g : fLeading) {
    const Group& group = fGroups[g];
    const double* y = fValues.data() + group.coupling;
    double* cross = fCross.get() + (group.coupling - fInverses.size());
    double* own = fOwnCofactors.data() + group.diagonal;
    MultiplyByInverse(BlocksOf(group), y, fReduced.Inverse().data(), cross);
    const std::size_t elements = std::size_t{group.size} * group.width;
    double* half = fWorking[0].rows.data();
    for (std::size_t k = 0; k < elements; ++k) half[k] = 0.5 * cross[k];
    SubtractBothProducts(group.size, group.width, half, y, fInverses.data() + group.diagonal, own);
    TakeDiagonal(group);
  }
  fHasCross = true;
}

void BlockSystem::FillReduced() {
  const std::span<double> reduced = fReduced.Values();
  for (const std::uint32_t g : fTrailing) {
    const Group& group = fGroups[g];
    const double* block = fValues.data() + group.diagonal;
    const ReducedSystem::Place own = fReduced.PlaceOf(group.trailing, group.trailing);
    const std::span<double> limits = fReduced.Limits(group.trailing);
    for (std::size_t i = 0; i < group.size; ++i) {
      limits[i] = kSmallestPivot * block[i * group.size + i];
      for (std::size_t j = 0; j < group.size; ++j)
        reduced[own.offset + i * own.rowStride + j * own.columnStride] += block[i * group.size + j];
    }
    for (std::uint32_t l = 0; l < group.links; ++l) {
      const Link& link = fLinks[group.firstLink + l];
      const Pair& pair = fPairs[group.firstPair + l];
      // The pair's rows are the link's, its columns this group's, or the other way round.
      for (std::size_t i = 0; i < group.size; ++i)
        for (std::size_t j = 0; j < link.size; ++j)
          reduced[pair.offset + (pair.swapped ? j * pair.stride + i : i * pair.stride + j)] +=
              fValues[link.offset + i * link.stride + j];
    }
  }
}

LeadingBlocks BlockSystem::BlocksOf(const Group& group) const noexcept {
  return {group.size,
          group.joined,
          group.width,
          fJoined.data() + group.firstJoined,
          fPairs.data() + group.firstPair};
}

// reduced -= Y^T n_i
void BlockSystem::GatherInto(const Group& group,
                             const double* rhs,
                             double* gathered,
                             std::span<double> reduced) const {
  std::fill_n(gathered, group.width, 0.0);
  for (std::uint32_t i = 0; i < group.size; ++i) {
    const double* y = fValues.data() + group.coupling + i * std::size_t{group.width};
    for (std::uint32_t c = 0; c < group.width; ++c) gathered[c] += y[c] * rhs[i];
  }
  const double* from = gathered;
  for (const Link& link : LinksOf(group)) {
    double* to = reduced.data() + fReduced.Start(fGroups[link.group].trailing);
    for (std::uint32_t j = 0; j < link.size; ++j) to[j] -= *from++;
  }
}

// x_i = P^-1 n_i - Y x_r
void BlockSystem::SolveLeading(const Group& group,
                               std::span<const double> reduced,
                               const double* rhs,
                               double* gathered,
                               double* x) const {
  double* to = gathered;
  for (const Link& link : LinksOf(group))
    to = std::copy_n(reduced.data() + fReduced.Start(fGroups[link.group].trailing), link.size, to);
  double result[kLargestLeading] = {};
  const double* inverse = fInverses.data() + group.diagonal;
  for (std::size_t i = 0; i < group.size; ++i) {
    for (std::size_t k = 0; k < group.size; ++k) result[i] += inverse[i * group.size + k] * rhs[k];
    const double* y = fValues.data() + group.coupling + i * std::size_t{group.width};
    for (std::uint32_t c = 0; c < group.width; ++c) result[i] -= y[c] * gathered[c];
  }
  std::copy_n(result, group.size, x);
}

std::optional<BlockSystem::View> BlockSystem::ViewOf(std::uint32_t a, std::uint32_t b) const {
  const Group& ga = fGroups[a];
  const Group& gb = fGroups[b];
  if (!ga.leads && !gb.leads) {
    if (!fReduced.HasPlace(ga.trailing, gb.trailing)) return {};
    const ReducedSystem::Place place = fReduced.PlaceOf(ga.trailing, gb.trailing);
    return View{fReduced.Inverse().data() + place.offset, place.rowStride, place.columnStride};
  }
  if (a == b) return View{fOwnCofactors.data() + ga.diagonal, ga.size, 1};
  if (!fHasCross || (ga.leads && gb.leads)) return {};
  const Link* link = ga.leads ? FindLink(a, b) : FindLink(b, a);
  if (link == nullptr) return {};
  const double* from = fCross.get() + (link->offset - fInverses.size());
  return ga.leads ? View{from, link->stride, 1} : View{from, 1, link->stride};
}

bool BlockSystem::BlockOf(std::uint32_t a, std::uint32_t b, double* block) const {
  const std::optional<View> view = ViewOf(a, b);
  if (!view) return false;
  for (std::uint32_t i = 0; i < fGroups[a].size; ++i)
    for (std::uint32_t j = 0; j < fGroups[b].size; ++j)
      *block++ = view->from[i * view->rowStride + j * view->columnStride];
  return true;
}

void BlockSystem::SolveColumn(std::uint32_t column, std::vector<double>& x) const {
  x.assign(fSize, 0.0);
  const Group& own = fGroups[fGroupOf[column]];
  std::vector<double> reduced(fReduced.Unknowns());
  std::vector<double> gathered(fGathered.size());
  double unit[kLargestBlock] = {};
  unit[column - own.start] = 1.0;
  if (own.leads)
    GatherInto(own, unit, gathered.data(), reduced);
  else
    reduced[fReduced.Start(own.trailing) + column - own.start] = 1.0;
  fReduced.Solve(reduced);
  constexpr double kZeros[kLargestBlock] = {};
  for (const Group& group : fGroups) {
    double* solution = x.data() + group.start;
    if (group.leads)
      SolveLeading(group, reduced, &group == &own ? unit : kZeros, gathered.data(), solution);
    else
      std::copy_n(reduced.begin() + fReduced.Start(group.trailing), group.size, solution);
  }
}

double BlockSystem::Cofactor(std::uint32_t row, std::uint32_t column) const {
  const std::uint32_t a = fGroupOf[row];
  const std::uint32_t b = fGroupOf[column];
  if (const std::optional<View> view = ViewOf(a, b))
    return view->from[(row - fGroups[a].start) * view->rowStride +
                      (column - fGroups[b].start) * view->columnStride];
  std::vector<double> x;
  SolveColumn(column, x);
  return x[row];
}

void BlockSystem::CofactorForms(std::span<DesignRow> rows, double* forms) const {
  Spread& spread = *fSpread;
  for (std::size_t first = 0; first < rows.size(); first += Spread::kRows) {
    SpreadRows(rows.subspan(first, std::min(rows.size() - first, Spread::kRows)), spread);
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

double BlockSystem::CofactorForm(const DesignRow& row) const {
  double form = 0.0;
  SpreadRows({&row, 1}, *fSpread);
  FormsOf(*fSpread, &form);
  return form;
}

void BlockSystem::CofactorBlock(ostra_bundle::Matrix& target,
                                std::uint32_t firstRow,
                                std::uint32_t rows,
                                std::uint32_t firstColumn,
                                std::uint32_t columns) const {
  target.Resize(rows, columns);
  target.Detach();
  std::vector<double> block;
  std::vector<double> x;
  for (std::uint32_t c = 0; c < columns; ++c) {
    const std::uint32_t column = firstColumn + c;
    const std::uint32_t b = fGroupOf[column];
    bool hasColumn = false;
    std::uint32_t blockOf = kNone;
    for (std::uint32_t r = 0; r < rows; ++r) {
      const std::uint32_t row = firstRow + r;
      const std::uint32_t a = fGroupOf[row];
      if (a != blockOf && !hasColumn) {
        block.resize(std::size_t{fGroups[a].size} * fGroups[b].size);
        if (BlockOf(a, b, block.data())) {
          blockOf = a;
        } else {
          SolveColumn(column, x);
          hasColumn = true;
        }
      }
      target.At(r, c) = hasColumn ? x[row]
                                  : block[(row - fGroups[a].start) * std::size_t{fGroups[b].size} +
                                          column - fGroups[b].start];
    }
  }
}

}  // namespace vermo
