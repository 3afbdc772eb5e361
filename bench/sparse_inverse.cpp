#include "sparse_inverse.h"

#include <algorithm>
#include <cholmod.h>
#include <span>
#include <stdexcept>
#include <utility>

extern "C" {
void dpotri_(const char* uplo, const int* n, double* a, const int* lda, int* info);
void dtrsm_(const char* side,
            const char* uplo,
            const char* trans,
            const char* diag,
            const int* m,
            const int* n,
            const double* alpha,
            const double* a,
            const int* lda,
            double* b,
            const int* ldb);
void dsymm_(const char* side,
            const char* uplo,
            const int* m,
            const int* n,
            const double* alpha,
            const double* a,
            const int* lda,
            const double* b,
            const int* ldb,
            const double* beta,
            double* c,
            const int* ldc);
void dgemm_(const char* transA,
            const char* transB,
            const int* m,
            const int* n,
            const int* k,
            const double* alpha,
            const double* a,
            const int* lda,
            const double* b,
            const int* ldb,
            const double* beta,
            double* c,
            const int* ldc);
}

namespace cardo::bench {
namespace {

// The factorisation counts in int.
std::size_t At(int place) { return static_cast<std::size_t>(place); }

// The factor L of P A P' = L L' in supernodes: columns J of equal structure, stored as one matrix
// of the rows J and R. Row 0 of its structure is its first column.
class SupernodalFactor {
 public:
  explicit SupernodalFactor(cholmod_sparse& matrix) {
    cholmod_start(&fCommon);
    fCommon.supernodal = CHOLMOD_SUPERNODAL;
    fCommon.print = 0;
    fFactor = cholmod_analyze(&matrix, &fCommon);
    if (fFactor != nullptr) cholmod_factorize(&matrix, fFactor, &fCommon);
    const bool isFactor = fFactor != nullptr && fCommon.status == CHOLMOD_OK;
    if (!isFactor) Free();
    if (!isFactor) throw std::runtime_error("the reduced system is not positive definite");
    fNodeOf.resize(fFactor->n);
    for (int node = 0; node < Nodes(); ++node)
      std::fill(fNodeOf.begin() + FirstColumn(node), fNodeOf.begin() + FirstColumn(node + 1), node);
  }
  ~SupernodalFactor() { Free(); }
  SupernodalFactor(const SupernodalFactor&) = delete;
  SupernodalFactor& operator=(const SupernodalFactor&) = delete;

  [[nodiscard]] int Nodes() const { return static_cast<int>(fFactor->nsuper); }
  [[nodiscard]] int NodeOf(int column) const { return fNodeOf[At(column)]; }
  [[nodiscard]] int FirstColumn(int node) const { return Array(fFactor->super)[node]; }
  [[nodiscard]] int Width(int node) const { return FirstColumn(node + 1) - FirstColumn(node); }
  // Rows of J and R, ascending.
  [[nodiscard]] std::span<const int> Rows(int node) const {
    const int* const begins = Array(fFactor->pi);
    return {Array(fFactor->s) + begins[node], Array(fFactor->s) + begins[node + 1]};
  }
  [[nodiscard]] double* Values(int node) const {
    return static_cast<double*>(fFactor->x) + Array(fFactor->px)[node];
  }
  // Place of every row of the matrix in the factor.
  [[nodiscard]] std::vector<int> Places() const {
    std::vector<int> places(fFactor->n);
    for (std::size_t i = 0; i < places.size(); ++i)
      places[At(Array(fFactor->Perm)[i])] = static_cast<int>(i);
    return places;
  }

 private:
  static const int* Array(const void* values) { return static_cast<const int*>(values); }
  void Free() {
    cholmod_free_factor(&fFactor, &fCommon);
    cholmod_finish(&fCommon);
  }

  cholmod_common fCommon{};
  cholmod_factor* fFactor = nullptr;
  std::vector<int> fNodeOf;  // supernode of a column
};

// Lower half of the inverse's rows and columns R of a supernode, from those behind it. R beyond
// the columns of the next supernode is part of the structure of that one.
void GatherBehind(const SupernodalFactor& inverse, std::span<const int> r, std::vector<double>& q) {
  q.resize(r.size() * r.size());
  std::vector<std::size_t> places(r.size());
  for (std::size_t begin = 0; begin < r.size();) {
    const int node = inverse.NodeOf(r[begin]);
    const int first = inverse.FirstColumn(node), last = first + inverse.Width(node);
    const std::span<const int> rows = inverse.Rows(node);
    std::size_t place = 0;
    for (std::size_t i = begin; i < r.size(); ++i) {
      while (rows[place] != r[i]) ++place;
      places[i] = place;
    }
    for (; begin < r.size() && r[begin] < last; ++begin) {
      const double* const column = inverse.Values(node) + At(r[begin] - first) * rows.size();
      for (std::size_t i = begin; i < r.size(); ++i) q[begin * r.size() + i] = column[places[i]];
    }
  }
}

// Replaces the factor by the inverse in its places, last supernode first:
//   Y    = L_RJ L_JJ^-1
//   Q_RJ = -Q_RR Y
//   Q_JJ = L_JJ^-T L_JJ^-1 - Y' Q_RJ
void InvertInPlace(const SupernodalFactor& factor) {
  std::vector<double> y, behind;
  for (int node = factor.Nodes() - 1; node >= 0; --node) {
    const std::span<const int> rows = factor.Rows(node);
    const int width = factor.Width(node), height = static_cast<int>(rows.size());
    const int below = height - width;
    double* const diagonal = factor.Values(node);
    double* const block = diagonal + width;
    const double one = 1.0, minusOne = -1.0, zero = 0.0;
    int info = 0;
    if (below > 0) {
      dtrsm_("R", "L", "N", "N", &below, &width, &one, diagonal, &height, block, &height);
      y.resize(At(below) * At(width));
      for (int j = 0; j < width; ++j)
        std::copy_n(block + At(j) * At(height), below, y.data() + At(j) * At(below));
      GatherBehind(factor, rows.subspan(At(width)), behind);
      dsymm_("L",
             "L",
             &below,
             &width,
             &minusOne,
             behind.data(),
             &below,
             y.data(),
             &below,
             &zero,
             block,
             &height);
    }
    dpotri_("L", &width, diagonal, &height, &info);
    if (info != 0) throw std::runtime_error("the reduced system has no inverse");
    if (below > 0)
      dgemm_("T",
             "N",
             &width,
             &width,
             &below,
             &minusOne,
             y.data(),
             &below,
             block,
             &height,
             &one,
             diagonal,
             &height);
  }
}

}  // namespace

SparseSymmetric::SparseSymmetric(const std::vector<int>& widths, std::vector<std::vector<int>> rows)
    : fRows(std::move(rows)), fOffsets(fRows.size()), fColumns{0}, fFirst{0} {
  for (const int width : widths) fFirst.push_back(fFirst.back() + width);
  for (std::size_t c = 0; c < fRows.size(); ++c) {
    std::vector<int> indices;
    for (const int row : fRows[c]) {
      fOffsets[c].push_back(fColumns.back() + static_cast<int>(indices.size()));
      for (int i = fFirst[At(row)]; i < fFirst[At(row) + 1]; ++i) indices.push_back(i);
    }
    for (int j = 0; j < widths[c]; ++j) {
      fIndices.insert(fIndices.end(), indices.begin(), indices.end());
      fColumns.push_back(static_cast<int>(fIndices.size()));
    }
  }
  fValues.resize(fIndices.size());
}

std::size_t SparseSymmetric::Place(int row, std::size_t column, std::size_t from) const {
  const std::vector<int>& rows = fRows[column];
  const auto begin = rows.begin() + static_cast<std::ptrdiff_t>(from);
  return static_cast<std::size_t>(std::lower_bound(begin, rows.end(), row) - rows.begin());
}

double* SparseSymmetric::Block(std::size_t column, std::size_t place) {
  return fValues.data() + fOffsets[column][place];
}

int SparseSymmetric::Stride(std::size_t column) const {
  const std::size_t first = At(fFirst[column]);
  return fColumns[first + 1] - fColumns[first];
}

void SparseSymmetric::Invert() {
  cholmod_sparse matrix{};
  matrix.nrow = matrix.ncol = fColumns.size() - 1;
  matrix.nzmax = fIndices.size();
  matrix.p = fColumns.data();
  matrix.i = fIndices.data();
  matrix.x = fValues.data();
  matrix.stype = -1;
  matrix.itype = CHOLMOD_INT;
  matrix.xtype = CHOLMOD_REAL;
  matrix.dtype = CHOLMOD_DOUBLE;
  matrix.sorted = matrix.packed = 1;
  const SupernodalFactor factor(matrix);
  InvertInPlace(factor);

  // Neighbours in a block are mostly neighbours in a supernode too.
  const std::vector<int> places = factor.Places();
  int lastNode = -1;
  std::size_t place = 0;
  for (std::size_t j = 0; j + 1 < fColumns.size(); ++j) {
    for (std::size_t element = At(fColumns[j]); element < At(fColumns[j + 1]); ++element) {
      const auto [column, row] = std::minmax(places[j], places[At(fIndices[element])]);
      const int node = factor.NodeOf(column);
      const std::span<const int> rows = factor.Rows(node);
      if (node != std::exchange(lastNode, node)) place = 0;
      if (rows[place] < row && place + 1 < rows.size()) ++place;
      if (rows[place] != row) {
        const auto found = std::lower_bound(rows.begin(), rows.end(), row);
        place = static_cast<std::size_t>(found - rows.begin());
      }
      const std::size_t columnInNode = At(column - factor.FirstColumn(node));
      fValues[element] = factor.Values(node)[columnInNode * rows.size() + place];
    }
  }
}

}  // namespace cardo::bench
