#include "linalg/reduced_system.h"

#include "linalg/dense_kernels.h"
#include "linalg/leading_kernels.h"

#include <algorithm>

namespace vermo {
namespace {

// A smaller interior is not worth its panels.
constexpr std::uint32_t kSmallestInterior = 48;
// Unknowns of the interior's end that the root takes over: a camera and some images hold the datum.
constexpr std::uint32_t kRootUnknowns = 40;
constexpr std::uint32_t kWidestPanel = 64;
// Zeros that a panel may store so that columns of nearly equal structure share it.
constexpr std::uint32_t kFewExtraRows = 12;
constexpr double kExtraRowShare = 0.15;

void Transpose(std::vector<double>& target,
               const double* source,
               std::size_t rows,
               std::size_t cols) {
  target.resize(rows * cols);
  for (std::size_t i = 0; i < rows; ++i)
    for (std::size_t j = 0; j < cols; ++j) target[j + i * cols] = source[i + j * rows];
}

}  // namespace

void ReducedSystem::Arrange(const BlockPattern& pattern,
                            const std::vector<std::uint32_t>& sizes,
                            const std::vector<bool>& isRoot) {
  const auto blocks = static_cast<std::uint32_t>(sizes.size());
  fSizes = sizes;

  // The pattern among the candidates of the interior.
  std::vector<std::uint32_t> candidates;
  std::vector<std::uint32_t> candidateOf(blocks, kNoBlock);
  std::uint32_t candidateUnknowns = 0;
  for (std::uint32_t b = 0; b < blocks; ++b) {
    if (isRoot[b]) continue;
    candidateOf[b] = static_cast<std::uint32_t>(candidates.size());
    candidates.push_back(b);
    candidateUnknowns += sizes[b];
  }
  EliminationOrder order;
  if (candidateUnknowns >= kSmallestInterior) {
    BlockPattern inner(candidates.size());
    std::vector<std::uint32_t> innerSizes;
    for (std::size_t c = 0; c < candidates.size(); ++c) {
      innerSizes.push_back(sizes[candidates[c]]);
      for (const std::uint32_t other : pattern[candidates[c]])
        if (candidateOf[other] != kNoBlock) inner[c].push_back(candidateOf[other]);
    }
    order = OrderByMinimumDegree(inner, innerSizes);
    for (std::uint32_t& b : order.order) b = candidates[b];
  }

  auto interior = static_cast<std::uint32_t>(order.order.size());
  std::uint32_t taken = 0;
  while (interior > 0 && taken < kRootUnknowns) taken += sizes[order.order[--interior]];

  fPosition.assign(blocks, kNoBlock);
  fBlockAt.assign(order.order.begin(), order.order.begin() + interior);
  fStart.assign(blocks, 0);
  fUnknowns = 0;
  for (std::uint32_t p = 0; p < interior; ++p) {
    const std::uint32_t b = fBlockAt[p];
    fPosition[b] = p;
    fStart[b] = fUnknowns;
    fUnknowns += sizes[b];
  }
  fRootStart = fUnknowns;
  fRootOffset.assign(blocks, 0);
  for (std::uint32_t b = 0; b < blocks; ++b) {
    if (fPosition[b] != kNoBlock) continue;
    fRootOffset[b] = fUnknowns - fRootStart;
    fStart[b] = fUnknowns;
    fUnknowns += sizes[b];
  }
  fRootSize = fUnknowns - fRootStart;
  MakePanels(order, interior);
}

void ReducedSystem::MakePanels(const EliminationOrder& order, std::uint32_t interior) {
  fPanels.clear();
  fPanelOf.assign(interior, 0);
  fColumnOffset.assign(interior, 0);
  // Structures without what went to the root.
  BlockPattern structure(interior);
  std::vector<std::uint32_t> extent(interior, 0);  // unknowns of the structure
  for (std::uint32_t p = 0; p < interior; ++p)
    for (const std::uint32_t row : order.structure[p]) {
      if (row >= interior) break;
      structure[p].push_back(row);
      extent[p] += fSizes[fBlockAt[row]];
    }

  std::size_t values = 0;
  for (std::uint32_t p = 0; p < interior;) {
    Panel panel{};
    panel.firstPosition = p;
    panel.first = fStart[fBlockAt[p]];
    panel.width = fSizes[fBlockAt[p]];
    std::uint32_t last = p;
    while (last + 1 < interior && !structure[last].empty() && structure[last].front() == last + 1) {
      const std::uint32_t next = fSizes[fBlockAt[last + 1]];
      const std::uint32_t extra = extent[last + 1] + next - extent[last];
      const bool isClose =
          extra <= kFewExtraRows || extra <= kExtraRowShare * (extent[last] + panel.width);
      if (!isClose || panel.width + next > kWidestPanel) break;
      panel.width += next;
      ++last;
    }
    std::uint32_t offset = panel.width;
    for (const std::uint32_t row : structure[last]) {
      panel.rows.push_back({row, offset, fSizes[fBlockAt[row]]});
      offset += fSizes[fBlockAt[row]];
    }
    panel.rootOffset = offset;
    panel.height = offset + fRootSize;
    panel.values = values;
    values += std::size_t{panel.height} * panel.width;
    std::uint32_t column = 0;
    for (; p <= last; ++p) {
      fPanelOf[p] = static_cast<std::uint32_t>(fPanels.size());
      fColumnOffset[p] = column;
      column += fSizes[fBlockAt[p]];
    }
    fPanels.push_back(std::move(panel));
  }
  fRootValues = values;
  values += std::size_t{fRootSize} * fRootSize;
  // The kernels of the leading groups read beyond the ends of blocks.
  fValues.assign(values + kReadBeyond, 0.0);
  fInverse.assign(values + kReadBeyond, 0.0);
  fLimits.assign(fUnknowns, 0.0);
}

std::uint32_t ReducedSystem::RowIn(const Panel& panel,
                                   std::uint32_t panelIndex,
                                   std::uint32_t position) const {
  if (fPanelOf[position] == panelIndex) return fColumnOffset[position];
  const auto row = std::ranges::lower_bound(panel.rows, position, {}, &Row::position);
  return row == panel.rows.end() || row->position != position ? kNoBlock : row->offset;
}

bool ReducedSystem::AreNeighbours(std::uint32_t a, std::uint32_t b) const noexcept {
  const std::uint32_t pa = fPosition[a];
  const std::uint32_t pb = fPosition[b];
  if (pa == kNoBlock || pb == kNoBlock)
    return pa == pb && fRootOffset[b] == fRootOffset[a] + fSizes[a];
  return pb == pa + 1 && fPanelOf[pa] == fPanelOf[pb];
}

bool ReducedSystem::HasPlace(std::uint32_t a, std::uint32_t b) const {
  if (fPosition[a] == kNoBlock || fPosition[b] == kNoBlock) return true;
  const std::uint32_t earlier = std::min(fPosition[a], fPosition[b]);
  const std::uint32_t later = std::max(fPosition[a], fPosition[b]);
  const std::uint32_t index = fPanelOf[earlier];
  return RowIn(fPanels[index], index, later) != kNoBlock;
}

ReducedSystem::Place ReducedSystem::PlaceOf(std::uint32_t a, std::uint32_t b) const {
  const std::uint32_t pa = fPosition[a];
  const std::uint32_t pb = fPosition[b];
  if (pa == kNoBlock && pb == kNoBlock) {
    // One triangle of the root, that of the later rows.
    const bool isLower = fRootOffset[a] >= fRootOffset[b];
    const std::uint32_t row = isLower ? fRootOffset[a] : fRootOffset[b];
    const std::uint32_t column = isLower ? fRootOffset[b] : fRootOffset[a];
    const std::size_t offset = fRootValues + row + std::size_t{column} * fRootSize;
    return isLower ? Place{offset, 1, fRootSize} : Place{offset, fRootSize, 1};
  }
  // Positions of the root lie behind all of the interior.
  const bool aIsLater = pa == kNoBlock || (pb != kNoBlock && pa >= pb);
  const std::uint32_t column = aIsLater ? pb : pa;
  const std::uint32_t rowBlock = aIsLater ? a : b;
  const std::uint32_t index = fPanelOf[column];
  const Panel& panel = fPanels[index];
  const std::uint32_t row = fPosition[rowBlock] == kNoBlock
                                ? panel.rootOffset + fRootOffset[rowBlock]
                                : RowIn(panel, index, fPosition[rowBlock]);
  const std::size_t offset = panel.values + row + std::size_t{fColumnOffset[column]} * panel.height;
  return aIsLater ? Place{offset, 1, panel.height} : Place{offset, panel.height, 1};
}

void ReducedSystem::Clear() { std::ranges::fill(fValues, 0.0); }

std::uint32_t ReducedSystem::Factorize() {
  for (const Panel& panel : fPanels) {
    double* values = fValues.data() + panel.values;
    const std::size_t done =
        dense::Cholesky(values, panel.height, panel.width, fLimits.data() + panel.first);
    if (done < panel.width) {
      std::uint32_t position = panel.firstPosition;
      while (fColumnOffset[position] + fSizes[fBlockAt[position]] <= done) ++position;
      return fBlockAt[position];
    }
    dense::SolveTransposedRight(values + panel.width,
                                panel.height,
                                values,
                                panel.height,
                                panel.height - panel.width,
                                panel.width);
    UpdateLaterPanels(panel);
  }
  fRoot.Factorize(std::span(fValues).subspan(fRootValues), fRootSize);
  return kNoBlock;
}

void ReducedSystem::UpdateLaterPanels(const Panel& panel) {
  const double* values = fValues.data() + panel.values;
  const std::size_t height = panel.height;
  for (std::size_t first = 0; first < panel.rows.size();) {
    const std::uint32_t targetIndex = fPanelOf[panel.rows[first].position];
    const Panel& target = fPanels[targetIndex];
    std::size_t last = first;
    while (last < panel.rows.size() && fPanelOf[panel.rows[last].position] == targetIndex) ++last;
    // Rows from here on times the rows that are columns of the target.
    const std::uint32_t top = panel.rows[first].offset;
    const std::size_t m = height - top;
    const std::size_t n = panel.rows[last - 1].offset + panel.rows[last - 1].size - top;
    fProduct.assign(m * n, 0.0);
    dense::SubtractProduct(
        fProduct.data(), m, values + top, height, values + top, height, m, n, panel.width);

    double* targetValues = fValues.data() + target.values;
    for (std::size_t c = first; c < last; ++c) {
      const Row& columns = panel.rows[c];
      const std::uint32_t targetColumn = fColumnOffset[columns.position];
      const auto add = [&](std::uint32_t row, std::uint32_t size, std::uint32_t targetRow) {
        for (std::uint32_t j = 0; j < columns.size; ++j) {
          const double* from = fProduct.data() + (row - top) + (columns.offset - top + j) * m;
          double* to = targetValues + targetRow + std::size_t{targetColumn + j} * target.height;
          for (std::uint32_t i = 0; i < size; ++i) to[i] += from[i];
        }
      };
      for (std::size_t r = c; r < panel.rows.size(); ++r)
        add(panel.rows[r].offset,
            panel.rows[r].size,
            RowIn(target, targetIndex, panel.rows[r].position));
      add(panel.rootOffset, fRootSize, target.rootOffset);
    }
    first = last;
  }
  const double* root = values + panel.rootOffset;
  dense::SubtractProduct(fValues.data() + fRootValues,
                         fRootSize,
                         root,
                         height,
                         root,
                         height,
                         fRootSize,
                         fRootSize,
                         panel.width);
}

void ReducedSystem::Solve(std::span<double> x) const {
  double* const root = x.data() + fRootStart;
  for (const Panel& panel : fPanels) {
    const double* values = fValues.data() + panel.values;
    double* part = x.data() + panel.first;
    dense::SolveLower(part, values, panel.height, panel.width);
    const auto subtract = [&](std::uint32_t row, double& target) {
      for (std::uint32_t j = 0; j < panel.width; ++j)
        target -= values[row + std::size_t{j} * panel.height] * part[j];
    };
    for (const Row& row : panel.rows)
      for (std::uint32_t i = 0; i < row.size; ++i)
        subtract(row.offset + i, x[fStart[fBlockAt[row.position]] + i]);
    for (std::uint32_t i = 0; i < fRootSize; ++i) subtract(panel.rootOffset + i, root[i]);
  }
  fRoot.Solve(root);
  for (auto panel = fPanels.rbegin(); panel != fPanels.rend(); ++panel) {
    const double* values = fValues.data() + panel->values;
    double* part = x.data() + panel->first;
    const auto subtract = [&](std::uint32_t row, double known) {
      for (std::uint32_t j = 0; j < panel->width; ++j)
        part[j] -= values[row + std::size_t{j} * panel->height] * known;
    };
    for (const Row& row : panel->rows)
      for (std::uint32_t i = 0; i < row.size; ++i)
        subtract(row.offset + i, x[fStart[fBlockAt[row.position]] + i]);
    for (std::uint32_t i = 0; i < fRootSize; ++i) subtract(panel->rootOffset + i, root[i]);
    dense::SolveLowerTransposed(part, values, panel->height, panel->width);
  }
}

void ReducedSystem::GatherInverse(const Panel& panel, std::vector<double>& gathered) const {
  const std::size_t m = panel.height - panel.width;
  gathered.resize(m * m);
  const auto copy = [&](std::uint32_t row,
                        std::uint32_t rows,
                        std::uint32_t column,
                        std::uint32_t columns,
                        const double* from,
                        std::size_t stride) {
    for (std::uint32_t j = 0; j < columns; ++j)
      for (std::uint32_t i = 0; i < rows; ++i) {
        const double value = from[i + j * stride];
        gathered[(row + i) + (column + j) * m] = value;
        gathered[(column + j) + (row + i) * m] = value;
      }
  };
  for (std::size_t c = 0; c < panel.rows.size(); ++c) {
    const Row& column = panel.rows[c];
    const std::uint32_t index = fPanelOf[column.position];
    const Panel& source = fPanels[index];
    const double* from = fInverse.data() + source.values +
                         std::size_t{fColumnOffset[column.position]} * source.height;
    for (std::size_t r = c; r < panel.rows.size(); ++r)
      copy(panel.rows[r].offset - panel.width,
           panel.rows[r].size,
           column.offset - panel.width,
           column.size,
           from + RowIn(source, index, panel.rows[r].position),
           source.height);
    copy(panel.rootOffset - panel.width,
         fRootSize,
         column.offset - panel.width,
         column.size,
         from + source.rootOffset,
         source.height);
  }
  const std::uint32_t root = panel.rootOffset - panel.width;
  copy(root, fRootSize, root, fRootSize, fInverse.data() + fRootValues, fRootSize);
}

// With Y = L_RJ L_JJ^-1 and Q_RR known from the later panels and the root:
//   Q_RJ = -Q_RR Y
//   Q_JJ = L_JJ^-T L_JJ^-1 - Y^T Q_RJ
void ReducedSystem::Invert() {
  fRoot.Inverse(fRootInverse);
  std::ranges::copy(fRootInverse, fInverse.begin() + static_cast<std::ptrdiff_t>(fRootValues));
  std::vector<double> negativeY;
  std::vector<double> cross;
  std::vector<double> corner;
  for (auto panel = fPanels.rbegin(); panel != fPanels.rend(); ++panel) {
    const std::size_t w = panel->width;
    const std::size_t m = panel->height - w;
    const double* values = fValues.data() + panel->values;
    double* inverse = fInverse.data() + panel->values;
    GatherInverse(*panel, fGathered);

    fLower.assign(w * w, 0.0);
    for (std::size_t j = 0; j < w; ++j)
      for (std::size_t i = j; i < w; ++i) fLower[i + j * w] = values[i + j * panel->height];
    dense::InvertLower(fLower.data(), w, w);
    Transpose(fTransposed, fLower.data(), w, w);

    negativeY.assign(m * w, 0.0);
    dense::SubtractProduct(
        negativeY.data(), m, values + w, panel->height, fTransposed.data(), w, m, w, w);
    corner.assign(w * w, 0.0);
    dense::SubtractProduct(corner.data(), w, fTransposed.data(), w, fTransposed.data(), w, w, w, w);

    // cross = Q_RR (-Y), computed as the negative of Q_RR Y.
    std::vector<double>& transposedY = fTransposed;
    Transpose(transposedY, negativeY.data(), m, w);
    for (double& value : transposedY) value = -value;
    cross.assign(m * w, 0.0);
    dense::SubtractProduct(cross.data(), m, fGathered.data(), m, transposedY.data(), w, m, w, m);

    // corner holds -L^-T L^-1 so far; with Y^T Q_RJ added it is -Q_JJ.
    for (double& value : transposedY) value = -value;
    Transpose(fProduct, cross.data(), m, w);
    dense::SubtractProduct(corner.data(), w, transposedY.data(), w, fProduct.data(), w, w, w, m);

    for (std::size_t j = 0; j < w; ++j) {
      for (std::size_t i = 0; i < w; ++i)
        inverse[i + j * panel->height] = -0.5 * (corner[i + j * w] + corner[j + i * w]);
      std::copy_n(cross.data() + j * m, m, inverse + w + j * panel->height);
    }
  }
}

}  // namespace vermo
