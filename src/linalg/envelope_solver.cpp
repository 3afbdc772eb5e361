#include "linalg/envelope_solver.h"

#include "checks/failure_codes.h"
#include "checks/kl_exception.h"
#include "linalg/vector_kernels.h"

#include <algorithm>
#include <cmath>

namespace vermo {
namespace {

// A diagonal element smaller than the other elements of its column by this factor is looked at
// as a pivot candidate at all.
constexpr double kDominance = 100000.0;
// And it is repaired when it is smaller by the reciprocal of this one.
constexpr double kPivotRatio = 1e-6;
constexpr double kSmallestPivot = 1e-20;
constexpr std::uint32_t kNone = 0xFFFFFFFF;

// One factorisation. Step i eliminates column i from the rows behind it. Only rows that store
// column i take part, and they are known without a search: a row becomes active at the first
// column of its span and stays so up to its diagonal.
class Elimination {
 public:
  Elimination(CEnvelopeMatrix& n, CEnvelopeMatrix& f, FactorizeWorkspace& w)
      : fN(n), fF(f), fW(w), fSize(n.Rows()) {
    fF.SetIdentity(fSize);
    fW.active.clear();
    fW.firstWithColumn.assign(fSize, kNone);
    fW.nextWithColumn.resize(fSize);
    for (std::uint32_t j = fSize; j-- > 0;) {
      const CEnvelopeRow& row = fN.Row(j);
      if (row.IsEmpty() || row.First() > j) continue;
      fW.nextWithColumn[j] = fW.firstWithColumn[row.First()];
      fW.firstWithColumn[row.First()] = j;
    }
  }

  void Run(bool pivotSearch) {
    for (std::uint32_t i = 0; i < fSize; ++i) {
      ActivateRows(i);
      if (pivotSearch && NeedsPivotRow(i)) AddPivotRow(i);
      GatherColumn(i);
      GatherFactorRow(i);
      Eliminate(i);
      if (!fW.active.empty() && fW.active.front() == i) fW.active.erase(fW.active.begin());
    }
  }

 private:
  // Rows whose span begins at column i join the active ones, which stay in ascending order.
  void ActivateRows(std::uint32_t i) {
    for (std::uint32_t j = fW.firstWithColumn[i]; j != kNone; j = fW.nextWithColumn[j]) {
      if (fN.Row(j).First() != i) continue;
      const auto place = std::lower_bound(fW.active.begin(), fW.active.end(), j);
      if (place == fW.active.end() || *place != j) fW.active.insert(place, j);
    }
  }

  // True when the diagonal is exactly 0, or when some element c of its column makes one of
  //   q = d / |c|,  q2 = |N(j, j)| d / c^2
  // smaller than the limit.
  [[nodiscard]] bool NeedsPivotRow(std::uint32_t i) const {
    const double d = std::fabs(fN.At(i, i));
    if (d == 0.0) return true;
    for (const std::uint32_t j : fW.active) {
      if (j == i) continue;
      const double c = fN.At(j, i);
      if (!(std::fabs(c) > d * kDominance)) continue;
      if (kPivotRatio > d / std::fabs(c)) return true;
      if (kPivotRatio > std::fabs(fN.At(j, j)) * d / (c * c)) return true;
    }
    return false;
  }

  // Adds row and column p, where column i has its largest element, to row and column i. The
  // comparison starts with the signed diagonal: any stored element beats a negative one.
  void AddPivotRow(std::uint32_t i) {
    std::uint32_t p = i;
    double best = fN.At(i, i);
    for (const std::uint32_t j : fW.active) {
      if (j == i || !fN.Row(j).Stores(i)) continue;
      const double candidate = std::fabs(fN.At(j, i));
      if (candidate > best) {
        p = j;
        best = candidate;
      }
    }
    if (p == i) return;

    for (std::uint32_t k = i; k < p; ++k) {
      CEnvelopeRow& row = fN.Row(k);
      row.Widen(i, k - i + 1);
      row.Element(i) += fN.At(p, k);
    }
    for (std::uint32_t k = p; k < fSize; ++k) {
      CEnvelopeRow& row = fN.Row(k);
      row.Widen(i, k - i + 1);
      if (row.Stores(p)) row.Element(i) += row.At(p);
    }
    CEnvelopeRow& row = fN.Row(i);
    if (fN.Row(p).Stores(i)) row.Element(i) += fN.At(p, i);

    CEnvelopeRow& factor = fF.Row(i);
    const CEnvelopeRow& added = fF.Row(p);
    factor.Widen(added.First(), added.Count());
    AddScaled(factor.Columns(added.First(), added.End()), added.Elements(), 1.0);

    // Every row from i on stores column i now.
    fW.active.clear();
    for (std::uint32_t k = i; k < fSize; ++k) fW.active.push_back(k);
  }

  // The rows with a non-zero element in column i; each covers the columns from i to its diagonal.
  void GatherColumn(std::uint32_t i) {
    fW.column.clear();
    for (const std::uint32_t j : fW.active)
      if (const double value = fN.At(j, i); value != 0.0) {
        fW.column.push_back({j, value});
        fN.Row(j).Widen(i, j - i + 1);
      }
    if (fW.column.empty()) throw KlException(failure::kSingular);
  }

  void GatherFactorRow(std::uint32_t i) {
    fW.factor.clear();
    const CEnvelopeRow& row = fF.Row(i);
    for (std::uint32_t c = row.First(); c < row.End(); ++c)
      if (const double value = row.At(c); value != 0.0) fW.factor.push_back({c, value});
    if (fW.factor.empty()) throw KlException(failure::kSingular);
  }

  void Eliminate(std::uint32_t i) {
    const double pivot = fN.At(i, i);
    if (kSmallestPivot > std::fabs(pivot)) throw KlException(failure::kSingular);
    const CEnvelopeRow& source = fF.Row(i);
    const bool withoutGap = fW.factor.size() == source.Count();

    for (std::size_t index = 0; index < fW.column.size(); ++index) {
      const std::uint32_t j = fW.column[index].row;
      if (j == i) continue;
      CEnvelopeRow& row = fN.Row(j);
      const double factor = -(row.At(i) / pivot);
      // Row j takes its update before its entry in column i is cleared.
      for (std::size_t later = index; later < fW.column.size(); ++later) {
        CEnvelopeRow& target = fN.Row(fW.column[later].row);
        target.Element(j) += factor * fW.column[later].value;
      }
      row.Element(i) = 0.0;

      CEnvelopeRow& transformed = fF.Row(j);
      transformed.Widen(source.First(), source.Count());
      if (withoutGap) {
        AddScaled(transformed.Columns(source.First(), source.End()), source.Elements(), factor);
      } else {
        for (const auto& entry : fW.factor) transformed.Element(entry.row) += factor * entry.value;
      }
    }
  }

  CEnvelopeMatrix& fN;
  CEnvelopeMatrix& fF;
  FactorizeWorkspace& fW;
  std::uint32_t fSize;
};

}  // namespace

void Factorize(CEnvelopeMatrix& n,
               CEnvelopeMatrix& f,
               CVektor& d,
               bool pivotSearch,
               FactorizeWorkspace& workspace) {
  Elimination(n, f, workspace).Run(pivotSearch);
  const std::uint32_t size = n.Rows();
  // An empty system leaves an empty vector, and that is no failure.
  static_cast<void>(d.Size() == size ? 0 : d.Allocate(size));
  for (std::uint32_t k = 0; k < size; ++k) d[k] = 1.0 / n.At(k, k);
}

CVektor Solve(const CEnvelopeMatrix& f, const CVektor& d, const CVektor& rhs) {
  CVektor solution;
  SolveInto(solution, f, d, rhs);
  solution.SetTemporary(true);
  return solution;
}

void SolveInto(CVektor& solution, const CEnvelopeMatrix& f, const CVektor& d, const CVektor& rhs) {
  if (f.Rows() != rhs.Size()) throw KlException(failure::kSizesDiffer);
  if (solution.Size() != rhs.Size()) static_cast<void>(solution.Allocate(rhs.Size()));
  solution.Fill(0.0);
  const std::span<double> x = solution.Span();
  const std::span<const double> b = rhs.Span();
  for (std::uint32_t k = 0; k < f.Rows(); ++k) {
    const CEnvelopeRow& row = f.Row(k);
    const std::span<const double> elements = row.Elements();
    double y = 0.0;
    for (std::size_t c = 0; c < elements.size(); ++c) y += elements[c] * b[row.First() + c];
    AddScaled(x.subspan(row.First(), row.Count()), elements, y * d[k]);
  }
}

double InverseElement(const CEnvelopeMatrix& f,
                      const CVektor& d,
                      std::uint32_t i,
                      std::uint32_t j) {
  double sum = 0.0;
  for (std::uint32_t k = 0; k < f.Rows(); ++k) {
    const CEnvelopeRow& row = f.Row(k);
    if (row.Stores(i) && row.Stores(j)) sum += row.At(i) * d[k] * row.At(j);
  }
  return sum;
}

void DiagonalOfInverse(const CEnvelopeMatrix& f, const CVektor& d, std::span<double> diagonal) {
  std::ranges::fill(diagonal, 0.0);
  for (std::uint32_t k = 0; k < f.Rows(); ++k) {
    const CEnvelopeRow& row = f.Row(k);
    const std::span<const double> elements = row.Elements();
    const double factor = d[k];
    double* const target = diagonal.data() + row.First();
    for (std::size_t c = 0; c < elements.size(); ++c)
      target[c] += elements[c] * factor * elements[c];
  }
}

void InverseBlock(ostra_bundle::Matrix& target,
                  const CEnvelopeMatrix& f,
                  const CVektor& d,
                  std::uint32_t r0,
                  std::uint32_t rows,
                  std::uint32_t c0,
                  std::uint32_t cols) {
  target.Resize(rows, cols);
  target.Detach();
  for (std::uint32_t r = 0; r < target.Rows(); ++r)
    for (std::uint32_t c = 0; c < target.Cols(); ++c)
      target.At(r, c) = InverseElement(f, d, r0 + r, c0 + c);
}

void ComputeInverse(CEnvelopeMatrix& n,
                    const CEnvelopeMatrix& f,
                    const CVektor& d,
                    std::uint32_t unknowns) {
  n.Fill(0.0);
  if (f.Rows() != n.Rows()) throw KlException(failure::kSizesDiffer);
  for (std::uint32_t k = 0; k < f.Rows(); ++k) {
    const CEnvelopeRow& source = f.Row(k);
    const std::uint32_t end = std::min(source.End(), unknowns);
    for (std::uint32_t c = source.First(); c < end; ++c) {
      CEnvelopeRow& target = n.Row(c);
      const std::uint32_t lower = std::max(target.First(), source.First());
      const std::uint32_t upper = std::min(target.End(), source.End());
      if (lower < upper)
        AddScaled(target.Columns(lower, upper), source.Columns(lower, upper), d[k] * source.At(c));
    }
  }
}

}  // namespace vermo
