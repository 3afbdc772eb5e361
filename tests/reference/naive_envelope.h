#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

// The elimination F N transpose(F) = D told once more in the plainest form: dense arrays with the
// span of every row kept beside them, every row visited in every step. Shares no code with the
// library.
namespace reference {

struct NaiveMatrix {
  explicit NaiveMatrix(std::size_t n)
      : value(n, std::vector<double>(n, 0.0)), first(n, 0), end(n, 0) {}

  [[nodiscard]] std::size_t Size() const { return value.size(); }
  [[nodiscard]] bool Stores(std::size_t r, std::size_t c) const {
    return first[r] < end[r] && c >= first[r] && c < end[r];
  }
  void Widen(std::size_t r, std::size_t from, std::size_t to) {
    if (from >= to) return;
    if (first[r] >= end[r]) {
      first[r] = from;
      end[r] = to;
      return;
    }
    first[r] = std::min(first[r], from);
    end[r] = std::max(end[r], to);
  }

  std::vector<std::vector<double>> value;
  std::vector<std::size_t> first;
  std::vector<std::size_t> end;
};

struct NaiveFactorization {
  NaiveMatrix n;
  NaiveMatrix f;
  std::vector<double> d;
  std::optional<std::size_t> failedAt;
};

inline NaiveFactorization Factorize(const NaiveMatrix& input, bool pivotSearch) {
  const std::size_t size = input.Size();
  NaiveFactorization result{input, NaiveMatrix(size), {}, std::nullopt};
  NaiveMatrix& n = result.n;
  NaiveMatrix& f = result.f;
  for (std::size_t k = 0; k < size; ++k) {
    f.value[k][k] = 1.0;
    f.Widen(k, k, k + 1);
  }
  for (std::size_t i = 0; i < size; ++i) {
    const double d = std::fabs(n.value[i][i]);
    std::vector<double> c(size, 0.0);
    for (std::size_t j = i + 1; j < size; ++j)
      if (n.Stores(j, i)) c[j] = n.value[j][i];
    if (pivotSearch) {
      double a = 1e-6;
      double b = 1e-6;
      std::size_t firstCandidate = 0;
      std::size_t secondCandidate = 0;
      for (std::size_t j = i + 1; j < size; ++j) {
        if (!(std::fabs(c[j]) > d * 100000.0)) continue;
        const double q = d / std::fabs(c[j]);
        if (a > q) {
          a = q;
          firstCandidate = j;
        }
        const double q2 = std::fabs(n.value[j][j]) * d / (c[j] * c[j]);
        if (b > q2) {
          b = q2;
          secondCandidate = j;
        }
      }
      if (d == 0.0 || firstCandidate != 0 || secondCandidate != 0) {
        std::size_t p = i;
        double best = n.value[i][i];
        for (std::size_t j = i + 1; j < size; ++j)
          if (n.Stores(j, i) && std::fabs(n.value[j][i]) > best) {
            p = j;
            best = std::fabs(n.value[j][i]);
          }
        if (p != i) {
          for (std::size_t k = i; k < p; ++k) {
            n.Widen(k, i, k + 1);
            n.value[k][i] += n.Stores(p, k) ? n.value[p][k] : 0.0;
          }
          for (std::size_t k = p; k < size; ++k) {
            n.Widen(k, i, k + 1);
            if (n.Stores(k, p)) n.value[k][i] += n.value[k][p];
          }
          if (n.Stores(p, i)) n.value[i][i] += n.value[p][i];
          f.Widen(i, f.first[p], f.end[p]);
          for (std::size_t k = f.first[p]; k < f.end[p]; ++k) f.value[i][k] += f.value[p][k];
        }
      }
    }
    std::vector<std::size_t> rows;
    for (std::size_t j = i; j < size; ++j)
      if (n.Stores(j, i) && n.value[j][i] != 0.0) rows.push_back(j);
    if (rows.empty() || 1e-20 > std::fabs(n.value[i][i])) {
      result.failedAt = i;
      return result;
    }
    for (std::size_t index = 0; index < rows.size(); ++index) {
      const std::size_t j = rows[index];
      if (j == i) continue;
      n.Widen(j, i, j + 1);
      const double factor = -(n.value[j][i] / n.value[i][i]);
      for (std::size_t later = index; later < rows.size(); ++later)
        n.value[rows[later]][j] += factor * n.value[rows[later]][i];
      n.value[j][i] = 0.0;
      f.Widen(j, f.first[i], f.end[i]);
      for (std::size_t k = f.first[i]; k < f.end[i]; ++k)
        if (f.value[i][k] != 0.0) f.value[j][k] += factor * f.value[i][k];
    }
  }
  for (std::size_t k = 0; k < size; ++k) result.d.push_back(1.0 / n.value[k][k]);
  return result;
}

}  // namespace reference
