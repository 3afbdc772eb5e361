#pragma once

#include "linalg/leading_kernels.h"
#include "linalg/normal_system.h"
#include "linalg/reduced_system.h"

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace vermo {

// The engine on blocks. Points (or images, where they are the larger class) lead: their diagonal
// blocks stand apart and are eliminated one by one, each adding its share to the reduced system of
// the trailing groups (Brown 1976).
//
//     | P1          W1   |        P_i^-1 = M_i^T M_i    V_i = M_i W_i
//     |    P2       W2   |        S   = R - sum of V_i^T V_i        ReducedSystem
//     |       ...   ...  |        x_r = S^-1 (n_r - sum of V_i^T M_i n_i)
//     | W1' W2' ...  R   |        x_i = M_i^T (M_i n_i - V_i x_r)
//
//   Q_rr = S^-1    Q_ir = -M_i^T V_i Q_rr    Q_ii = M_i^T (1 + V_i Q_rr V_i^T) M_i
//
// Where nothing but x_i and the diagonal of Q_ii is wanted U_i = P_i^-1 W_i takes the place of V_i:
//
//   x_i = P_i^-1 n_i - U_i x_r    Q_ii = P_i^-1 + U_i Q_rr U_i^T
//
// W stays as it was assembled; V is made anew, in working memory, whenever it is needed: memory is
// slower than the product. Taking the share as a square keeps digits where P is nearly singular.
//
// A leading group that meets another leading group, or whose block is singular, trails instead.
// Which blocks there are is learnt from couplings, or else from the first assembly, and kept until
// the layout changes.
class BlockSystem final : public NormalSystem {
 public:
  BlockSystem();
  ~BlockSystem() override;

  void SetLayout(const SystemLayout& layout) override;
  void Reset(std::uint32_t unknowns, std::uint32_t multipliers) override;
  [[nodiscard]] std::uint32_t Unknowns() const override { return fUnknowns; }
  [[nodiscard]] std::uint32_t Size() const override { return fSize; }
  [[nodiscard]] bool WantsCouplings() const override {
    return !fIsDiagonal && (fIsNew || !fArranged);
  }
  bool SetDiagonalOnly(bool on) override {
    fIsDiagonal = on;
    return true;
  }
  void Couple(std::span<const std::uint32_t> columns) override;
  void AddEquation(const DesignRow& row, double weight, double misclosure) override;
  void AddEquations(std::span<DesignRow> rows,
                    const double* weights,
                    const double* misclosures) override;
  void WidenRow(std::uint32_t /*row*/, std::uint32_t /*first*/) override {}
  void StoreElement(std::uint32_t row, std::uint32_t column, double value) override;
  void StoreBlock(std::uint32_t firstRow,
                  std::uint32_t rows,
                  std::uint32_t firstColumn,
                  std::uint32_t columns,
                  const double* values) override;
  // Also behind Seal, for another right-hand side of the same system.
  void SetRhs(std::uint32_t row, double value) override { fRhs[row] = value; }
  bool Seal() override;
  [[nodiscard]] double Element(std::uint32_t row, std::uint32_t column) const override;
  void DiagonalBlock(std::uint32_t first, std::uint32_t size, double* block) const override;
  void ExpectInvertCofactors(bool expected) override { fExpectsCross = expected; }
  // The pivots are always searched.
  void FactorizeAndSolve(bool pivotSearch) override;
  [[nodiscard]] std::span<const double> Rhs() const override { return fRhs; }
  [[nodiscard]] std::span<const double> Solution() const override { return fSolution; }
  [[nodiscard]] std::span<const double> DiagonalCofactors() override { return fDiagonal; }
  void InvertCofactors() override;
  // Any element; one beside the blocks costs a solution. 0 while no blocks are laid out.
  [[nodiscard]] double Cofactor(std::uint32_t row, std::uint32_t column) const override;
  [[nodiscard]] double CofactorForm(const DesignRow& row) const override;
  void CofactorForms(std::span<DesignRow> rows, double* forms) const override;
  void CofactorBlock(ostra_bundle::Matrix& target,
                     std::uint32_t firstRow,
                     std::uint32_t rows,
                     std::uint32_t firstColumn,
                     std::uint32_t columns) const override;

 private:
  static constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();
  static constexpr std::uint32_t kLargestLeading = 6;
  // Larger groups stand as several blocks.
  static constexpr std::uint32_t kLargestBlock = 16;

  // A block beside the diagonal: of a leading group some columns of its W, of a trailing group its
  // coupling with a later one.
  struct Link {
    std::uint32_t group;  // the other one
    std::uint32_t order;  // of that group
  };
  struct Group {
    std::uint32_t start = 0;
    std::uint32_t size = 0;
    bool leads = false;
    bool isMultiplier = false;
    std::uint32_t trailing = kNone;  // number in the reduced system
    std::uint32_t order = 0;         // and place in the order of its elimination
    std::size_t diagonal = 0;        // square block, by rows
    std::uint32_t firstLink = 0;
    std::uint32_t links = 0;
    std::uint32_t width = 0;  // columns of all links
    // Links and pairs as the kernels take them: neighbours in the reduced system are joined.
    std::uint32_t firstJoined = 0;
    std::uint32_t joined = 0;
    std::size_t firstPair = 0;
  };
  using Pair = LeadingPair;
  // The groups of one observation and its rows, spread out over their columns.
  struct Spread;
  // The rows of rays, one below the other, that meet the same trailing groups: those of an image
  // come one after the other. The misclosure stands behind the groups' columns.
  struct Gathered {
    std::uint32_t count = 0;
    std::array<std::uint32_t, LeadingProducts::kMostCouplings> groups;
    GatheredRows rows;
  };

  // Of a pair of groups the one that keeps the block gives its rows.
  struct Pairing {
    std::uint32_t from;
    std::uint32_t to;
    bool isTurned;  // the second one keeps it
  };
  [[nodiscard]] Pairing PairingOf(std::uint32_t a, std::uint32_t b) const noexcept;
  // Of the block of a pair in fValues, or kNoOffset.
  [[nodiscard]] std::size_t OffsetOf(std::uint32_t a, std::uint32_t b) const;
  std::size_t OffsetInTurn(std::uint32_t a, std::uint32_t b);
  static constexpr std::size_t kNoOffset = std::numeric_limits<std::size_t>::max();

  // The groups of an observation and where the blocks of its pairs (1, 0), (2, 0), (2, 1) ... are.
  // Kept small, as there is one for each observation.
  struct Plan {
    static constexpr std::uint32_t kGroups = 4;
    static constexpr std::uint8_t kNoLeader = 0xFF;
    static constexpr std::uint32_t kNoBlock = kNone;
    std::array<std::uint32_t, std::size_t{kGroups} * (kGroups - 1) / 2> blocks;
    std::array<std::uint32_t, kGroups> groups;
    std::uint32_t diagonal = 0;  // block of the leading group
    std::uint32_t start = 0;     // its first column
    std::uint16_t columns = 0;   // of all groups
    std::uint8_t count = 0;
    std::uint8_t leading = kNoLeader;  // which of the groups leads
    std::uint8_t size = 0;             // of that one
    // Its blocks are there, no other group leads, and the others' columns are few.
    bool isRay = false;

    [[nodiscard]] std::uint32_t Pairs() const noexcept { return count * (count - 1U) / 2; }
    // Of the groups at places i and j < i.
    [[nodiscard]] std::size_t BlockOf(std::uint32_t i, std::uint32_t j) const noexcept {
      return blocks[i * (i - 1) / 2 + j];
    }
    // Of the leading group and the one at place i.
    [[nodiscard]] std::size_t CouplingOf(std::uint32_t i) const noexcept {
      return i < leading ? BlockOf(leading, i) : BlockOf(i, leading);
    }
  };
  // What a plan with groups and blocks knows of them.
  void CompletePlan(Plan& plan) const;
  // That of the next observation; none for one of many groups.
  const Plan* NextPlan(const Spread& spread);
  [[nodiscard]] bool Fits(const Plan& plan, std::span<const DesignRow> rows) const;
  const Plan* KnownRay(std::span<const DesignRow> rows);
  // The equations of a ray: the blocks of its leading group get their products at once, the other
  // groups' rows are gathered.
  void AddRay(const Plan& plan,
              std::span<const DesignRow> rows,
              const double* weights,
              const double* misclosures);
  void AddUnknown(std::span<const DesignRow> rows,
                  const double* weights,
                  const double* misclosures);
  bool IsGathered(const Plan& plan);
  void AddTrailing(const Plan& plan, const ProductRows& rows, const double* misclosures);
  void Gather(const Plan& plan,
              std::span<const DesignRow> rows,
              const double* weights,
              const double* misclosures);
  // Adds what was gathered to the blocks.
  void AddGathered();
  void FetchAhead() const;
  void FetchBlocks(const Plan& plan) const;

  // The place of a group in the spread, which it gets with zeros if it has none.
  std::uint32_t Open(std::uint32_t group, Spread& spread) const;
  bool SpreadRows(std::span<const DesignRow> rows, Spread& spread) const;
  // Makes the block of an element the one to store into. False when it has no place yet.
  bool OpenStored(std::uint32_t row, std::uint32_t column);
  // A group that another one meets, and which meeting was the first.
  struct Met {
    std::uint32_t group;
    std::uint32_t rank;
    bool operator<(const Met& other) const noexcept {
      return group < other.group || (group == other.group && rank < other.rank);
    }
  };
  // Notes that two groups meet and have no block yet. Returns the rank of the meeting.
  std::uint32_t Record(std::uint32_t a, std::uint32_t b);
  void ForgetMeetings();
  void SortMeetings();
  [[nodiscard]] std::span<const Met> MetBy(std::uint32_t group) const noexcept {
    return std::span(fMet).subspan(fMetBy[group], fMetBy[group + 1] - fMetBy[group]);
  }
  // Where the block of a link stands, by rows; none where the groups are not linked.
  [[nodiscard]] const LeadingRun* FindBlock(std::uint32_t from, std::uint32_t to) const;
  bool FindRuns(std::span<const DesignRow> rows, Spread& spread) const;
  void AddSpread(const Spread& spread,
                 const Plan* plan,
                 const double* weights,
                 const double* misclosures);
  void ArrangeDiagonal();
  // Lay out the blocks, the reduced system, and the places of the shares in it.
  void ArrangeBlocks();
  void ArrangeReduced();
  void ArrangePairs();
  // False when blocks of leading groups are singular: these groups trail from now on.
  bool InvertLeading();
  void Eliminate();
  // A leading group trails from the next assembly on.
  void Demote(std::uint32_t group);
  // Of one leading group: M, V and half of a product with it, both as wide as the widest. Or P^-1
  // and U = P^-1 W instead of M and V.
  enum class Scaling : std::uint8_t { kRoot, kInverse };
  struct Working {
    std::array<double, std::size_t{kLargestLeading} * kLargestLeading> matrix;
    std::vector<double> v;
    std::vector<double> half;
  };
  static constexpr std::size_t kTurns = 3;
  template <Scaling kScaling, typename Use, typename Finish>
  void ForEachLeader(Use use, Finish finish);
  template <Scaling kScaling>
  void Scale(const Group& group, Working& working) const;
  [[nodiscard]] std::span<const Link> LinksOf(const Group& group) const noexcept {
    return std::span(fLinks).subspan(group.firstLink, group.links);
  }
  [[nodiscard]] std::span<const LeadingRun> PlacesOf(const Group& group) const noexcept {
    return std::span(fPlaces).subspan(group.firstLink, group.links);
  }
  [[nodiscard]] LeadingBlocks BlocksOf(const Group& group) const noexcept;
  void FillReduced();
  void OpenCross();
  void CrossOf(const Group& group, Working& working);
  void CofactorsOf(const Group& group, const Working& working);
  void FormsOf(const Spread& spread, double* forms) const;
  bool FormsOfRay(std::span<const DesignRow> rows, double* forms) const;
  // Q of two groups where it stands, when it is one of the blocks that were computed. One of the
  // strides is 1.
  struct View {
    const double* from;
    std::size_t rowStride;
    std::size_t columnStride;
  };
  [[nodiscard]] std::optional<View> ViewOf(std::uint32_t a, std::uint32_t b) const;
  // The same by rows.
  bool BlockOf(std::uint32_t a, std::uint32_t b, double* block) const;
  // The solution for a unit vector.
  void SolveColumn(std::uint32_t column, std::vector<double>& x) const;
  // The share of a leading group with the right-hand side n_i in that of the reduced system, by V,
  // and its solution x_i.
  void GatherInto(const Group& group,
                  const double* rhs,
                  const Working& working,
                  std::span<double> reduced) const;
  template <Scaling kScaling>
  void SolveLeading(const Group& group,
                    std::span<const double> reduced,
                    const double* rhs,
                    const Working& working,
                    double* x) const;

  SystemLayout fLayout;
  bool fIsNew = true;  // the groups of the layout are not made yet
  std::uint32_t fUnknowns = 0;
  std::uint32_t fSize = 0;
  std::vector<Group> fGroups;
  std::vector<std::uint32_t> fGroupOf;  // of a column
  std::vector<std::uint32_t> fLeading;  // in the order of their blocks
  std::vector<Group> fLeaders;          // the same, side by side
  std::vector<std::uint32_t> fTrailing;
  std::vector<bool> fForcedRoot;
  // Of two groups that share an observation the one that keeps the block, and the other.
  struct Meeting {
    std::uint32_t from = kNone;
    std::uint32_t to = kNone;
    bool operator==(const Meeting&) const = default;
  };
  std::vector<Meeting> fMeetings;   // recorded since the blocks were laid out
  std::vector<Met> fMet;            // of all groups, ascending for each
  std::vector<std::size_t> fMetBy;  // where those of a group begin
  // Of each meeting the first one of the same groups.
  std::vector<std::uint32_t> fFirstMeeting;
  Meeting fLastTrailing;  // of two trailing groups
  std::uint32_t fRankOfLastTrailing = 0;
  Meeting fLastPair;  // likewise, whose block was asked for
  std::size_t fLastOffset = 0;
  std::vector<bool> fHasMet;                   // whether a leading group was recorded
  std::vector<std::uint32_t> fOrderOfMeeting;  // leading groups
  bool fComplete = false;                      // every element had its place
  bool fArranged = false;
  bool fIsDiagonal = false;  // nothing but diagonal blocks is wanted
  bool fDemoted = false;     // in this assembly

  std::vector<Link> fLinks;
  // Of the links: their blocks in fValues, by rows, and their columns among those of all links.
  std::vector<LeadingRun> fPlaces;
  // The block that a constraint stored into last.
  struct StoredBlock {
    double* block = nullptr;
    std::size_t rowStride = 0;
    std::size_t columnStride = 0;
    std::uint32_t firstRow = 0, rows = 0;
    std::uint32_t firstColumn = 0, columns = 0;
    bool isDiagonal = false;

    [[nodiscard]] bool Holds(std::uint32_t row, std::uint32_t column) const noexcept {
      return row - firstRow < rows && column - firstColumn < columns;
    }
    [[nodiscard]] double* At(std::uint32_t row, std::uint32_t column) const noexcept {
      return block + (row - firstRow) * rowStride + (column - firstColumn) * columnStride;
    }
  };
  StoredBlock fStored;
  // One that a constraint stores whole, beside the diagonal.
  struct StoredPlan {
    std::size_t offset = 0;  // in fValues
    std::uint32_t firstRow = 0, firstColumn = 0;
    std::uint16_t rows = 0, columns = 0;
    std::uint16_t rowStride = 0, columnStride = 0;
  };
  const StoredPlan* NextStored(std::uint32_t firstRow,
                               std::uint32_t rows,
                               std::uint32_t firstColumn,
                               std::uint32_t columns);
  std::vector<StoredPlan> fStoredPlans;  // in the order of an assembly
  std::size_t fNextStored = 0;
  std::size_t fStoredTold = 0;      // blocks that constraints announced
  std::vector<LeadingRun> fJoined;  // with places in a vector of the reduced system
  std::vector<Pair> fPairs;
  ReducedSystem fReduced;
  std::vector<Plan> fPlans;  // of the observations, in the order of an assembly
  // They come from couplings: their blocks are ranks of meetings until the blocks are laid out.
  bool fPlansAreNew = false;
  std::size_t fNextPlan = 0;
  mutable std::size_t fNextForm = 0;
  std::vector<double> fValues;        // diagonal blocks, couplings, W
  bool fIsZero = false;               // they hold nothing yet
  std::vector<double> fFactors;       // of P^-1 at the places of the diagonal blocks
  std::vector<double> fOwnCofactors;  // Q_ii likewise
  std::unique_ptr<double[]> fCross;   // Q_ir at the places of W
  bool fHasCross = false;             // fCross is that of the solution
  bool fExpectsCross = false;
  std::array<Working, kTurns> fWorking;
  std::unique_ptr<Spread> fSpread;  // working memory
  std::unique_ptr<Gathered> fGathering;
  std::vector<double> fReducedRhs;  // then the reduced solution
  std::vector<double> fRhs, fSolution, fDiagonal;
};

}  // namespace vermo
