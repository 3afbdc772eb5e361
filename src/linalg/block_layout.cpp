// Which blocks there are, learnt from the groups that meet, and where they lie in memory.

#include "linalg/block_system.h"

#include <algorithm>

namespace vermo {
namespace {

// Room for so many meetings of a group is made; what is not used is not touched.
constexpr std::size_t kMeetingsExpected = 16;
// So many trailing groups that a table of all their pairs is small beside the rest.
constexpr std::size_t kMostKnownBlocks = 1200;

}  // namespace

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
  fNextPlan = fNextForm = fNextStored = fStoredTold = 0;
  if (!fArranged) {
    fPlans.clear();
    fPlansAreNew = true;
  }
  fGathering->rows.count = 0;
  fGathering->count = 0;
  fHasCross = false;
  fDemoted = false;
  if (!fIsZero) std::ranges::fill(fValues, 0.0);
  fIsZero = false;
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

std::uint32_t BlockSystem::Record(std::uint32_t a, std::uint32_t b) {
  fComplete = false;
  fArranged = false;
  const Pairing pairing = PairingOf(a, b);
  // Observations of one image follow each other.
  const Meeting meeting{pairing.from, pairing.to};
  if (meeting == fLastTrailing) return fRankOfLastTrailing;
  const auto rank = static_cast<std::uint32_t>(fMeetings.size());
  if (!fGroups[pairing.from].leads) {
    fLastTrailing = meeting;
    fRankOfLastTrailing = rank;
  } else if (!fHasMet[pairing.from]) {
    fHasMet[pairing.from] = true;
    fOrderOfMeeting.push_back(pairing.from);
  }
  fMeetings.push_back(meeting);
  return rank;
}

void BlockSystem::ForgetMeetings() {
  fPlans.clear();
  fMeetings.clear();
  fMeetings.reserve(kMeetingsExpected * fGroups.size());
  fMet.clear();
  fMetBy.assign(fGroups.size() + 1, 0);
  fLastTrailing = {};
  fHasMet.assign(fGroups.size(), false);
  fOrderOfMeeting.clear();
}

// Sorts what was recorded by the group that keeps the block (a counting sort), then each group's.
void BlockSystem::SortMeetings() {
  for (std::uint32_t g = 0; g + 1 < fMetBy.size(); ++g)
    for (const Met& met : MetBy(g)) fMeetings.push_back({g, met.group});
  std::vector<std::size_t> place(fGroups.size() + 1, 0);
  for (const Meeting& meeting : fMeetings) ++place[meeting.from + 1];
  for (std::size_t g = 1; g < place.size(); ++g) place[g] += place[g - 1];
  std::vector<Met> sorted(fMeetings.size());
  std::uint32_t rank = 0;
  for (const Meeting& meeting : fMeetings) sorted[place[meeting.from]++] = {meeting.to, rank++};
  fFirstMeeting.resize(fMeetings.size());
  fMeetings.clear();
  fMeetings.shrink_to_fit();
  fLastTrailing = {};
  fMet.clear();
  auto first = sorted.begin();
  for (std::size_t g = 0; g < fGroups.size(); ++g) {
    const auto end = sorted.begin() + static_cast<std::ptrdiff_t>(place[g]);
    // The first one of several stays.
    std::sort(first, end);
    fMetBy[g] = fMet.size();
    for (; first != end; ++first) {
      if (fMet.size() == fMetBy[g] || fMet.back().group != first->group) fMet.push_back(*first);
      fFirstMeeting[first->rank] = fMet.back().rank;
    }
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
  const LeadingRun* block = FindBlock(pairing.from, pairing.to);
  return block != nullptr ? block->place : kNoOffset;
}

const LeadingRun* BlockSystem::FindBlock(std::uint32_t from, std::uint32_t to) const {
  const std::span<const Link> links = LinksOf(fGroups[from]);
  const auto link = std::ranges::lower_bound(links, fGroups[to].order, {}, &Link::order);
  if (link == links.end() || link->group != to) return nullptr;
  return fPlaces.data() + fGroups[from].firstLink + (link - links.begin());
}

void BlockSystem::Couple(std::span<const std::uint32_t> columns) {
  Plan plan;
  std::size_t pairs = 0;
  bool isPlanned = columns.size() <= Plan::kGroups;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const std::uint32_t a = fGroupOf[columns[i]];
    if (isPlanned) plan.groups[i] = a;
    for (std::size_t j = 0; j < i; ++j) {
      const std::uint32_t b = fGroupOf[columns[j]];
      if (a == b) {
        isPlanned = false;
        continue;
      }
      if (fGroups[a].leads && fGroups[b].leads) Demote(a);
      const std::uint32_t rank = Record(a, b);
      if (isPlanned) plan.blocks[pairs++] = rank;
    }
  }
  if (!isPlanned) return;
  plan.count = static_cast<std::uint8_t>(columns.size());
  fPlans.push_back(plan);
}

void BlockSystem::Demote(std::uint32_t group) {
  fGroups[group].leads = false;
  fComplete = false;
  fArranged = false;
  fStored = {};
  fDemoted = true;
  // Its links change sides: they are learnt afresh.
  ForgetMeetings();
}

bool BlockSystem::Seal() {
  AddGathered();
  if (fIsDiagonal) return true;
  if (fComplete) return InvertLeading();
  // After a demotion the links of this assembly are not all known.
  if (!fDemoted) {
    SortMeetings();
    ArrangeReduced();
    ArrangeBlocks();
    ArrangePairs();
    fArranged = true;
    for (Plan& plan : fPlans) CompletePlan(plan);
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
    for (const Met& met : MetBy(g)) {
      const std::uint32_t t = fGroups[met.group].trailing;
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
      for (const Met& other : MetBy(leader)) meet(fGroups[other.group].trailing);
    std::ranges::sort(met);
    pattern[t] = std::move(met);
  }
  fReduced.Arrange(pattern, sizes, isRoot);
}

// The diagonal blocks come first, as some passes read nothing else. Leading groups stand in the
// order in which observations first meet them, and so do their couplings with others: observations
// then find most of what they need close to what the ones before needed. A group's links are in the
// order of the reduced system, so that neighbours there are neighbours here.
void BlockSystem::ArrangeBlocks() {
  fStored = {};
  fLastPair = {};
  fStoredPlans.clear();
  fStoredPlans.reserve(fStoredTold);
  fLinks.clear();
  fLinks.reserve(fMet.size());
  fPlaces.clear();
  fPlaces.reserve(fMet.size());
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
  struct Owner {
    std::uint32_t link = kNone;
    std::uint32_t rows = 0;
  };
  std::vector<Owner> ownerOf(fFirstMeeting.size());  // of a meeting
  std::vector<Met> met;
  for (const std::uint32_t g : order) {
    Group& group = fGroups[g];
    group.firstLink = static_cast<std::uint32_t>(fLinks.size());
    met.assign(MetBy(g).begin(), MetBy(g).end());
    group.links = static_cast<std::uint32_t>(met.size());
    std::ranges::sort(met, {}, [this](const Met& m) { return fGroups[m.group].order; });
    group.width = 0;
    for (const Met& m : met) {
      const Group& other = fGroups[m.group];
      ownerOf[m.rank] = {static_cast<std::uint32_t>(fLinks.size()), group.size};
      fLinks.push_back({m.group, other.order});
      fPlaces.push_back({0, group.width, other.size});
      group.width += other.size;
    }
    if (group.leads) widest = std::max(widest, std::size_t{group.size} * group.width);
  }
  // Blocks of trailing groups, then those of leading groups.
  const std::size_t trailingLinks =
      fTrailing.empty() ? fLinks.size() : fGroups[fTrailing[0]].firstLink;
  for (const bool isLeading : {false, true})
    for (const Owner& owner : ownerOf) {
      if (owner.link == kNone || (owner.link < trailingLinks) != isLeading) continue;
      LeadingRun& block = fPlaces[owner.link];
      block.place = values;
      values += std::size_t{owner.rows} * block.size;
    }
  if (fPlansAreNew && values < Plan::kNoBlock) {
    for (Plan& plan : fPlans)
      for (std::uint32_t k = 0; k < plan.Pairs(); ++k)
        plan.blocks[k] =
            static_cast<std::uint32_t>(fPlaces[ownerOf[fFirstMeeting[plan.blocks[k]]].link].place);
  } else {
    fPlans.clear();
  }
  fPlansAreNew = false;
  fFirstMeeting = {};
  fValues.assign(values + kReadBeyond, 0.0);
  fIsZero = true;
  for (Working& working : fWorking)
    for (std::vector<double>* block : {&working.v, &working.half})
      block->assign(widest + kReadBeyond, 0.0);
  fFactors.assign(diagonals, 0.0);
  fOwnCofactors.assign(diagonals + kReadBeyond, 0.0);
  fCross.reset();
}

void BlockSystem::ArrangePairs() {
  fJoined.clear();
  fJoined.reserve(fLinks.size());
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
  // Links of leading groups that are neighbours are joined.
  std::size_t pairs = 0;
  for (const std::uint32_t g : fTrailing) pairs += fGroups[g].links;
  std::vector<std::uint32_t> blocks;  // the first of each joined link
  for (const std::uint32_t g : fLeading) {
    Group& group = fGroups[g];
    group.firstJoined = static_cast<std::uint32_t>(fJoined.size());
    std::uint32_t column = 0;
    std::uint32_t before = ReducedSystem::kNoBlock;
    for (const Link& link : LinksOf(group)) {
      const std::uint32_t block = fGroups[link.group].trailing;
      const std::uint32_t size = fGroups[link.group].size;
      if (before != ReducedSystem::kNoBlock && fReduced.AreNeighbours(before, block)) {
        fJoined.back().size += size;
      } else {
        fJoined.push_back({fReduced.Start(block), column, size});
        blocks.push_back(block);
      }
      before = block;
      column += size;
    }
    group.joined = static_cast<std::uint32_t>(fJoined.size()) - group.firstJoined;
    pairs += std::size_t{group.joined} * (group.joined + 1) / 2;
  }
  fPairs.clear();
  fPairs.reserve(pairs);
  // The couplings of a trailing group have one place each.
  for (const std::uint32_t g : fTrailing) {
    fGroups[g].firstPair = fPairs.size();
    for (const Link& link : LinksOf(fGroups[g]))
      add(fGroups[link.group].trailing, fGroups[g].trailing);
  }
  for (const std::uint32_t g : fLeading) {
    Group& group = fGroups[g];
    group.firstPair = fPairs.size();
    const std::uint32_t* block = blocks.data() + group.firstJoined;
    for (std::size_t x = 0; x < group.joined; ++x)
      for (std::size_t z = 0; z <= x; ++z) add(block[x], block[z]);
  }
  fLeaders.clear();
  fLeaders.reserve(fLeading.size());
  for (const std::uint32_t g : fLeading) fLeaders.push_back(fGroups[g]);
}

}  // namespace vermo
