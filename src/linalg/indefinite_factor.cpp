#include "linalg/indefinite_factor.h"

#include "checks/failure_codes.h"
#include "checks/kl_exception.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace vermo {
namespace {

// (1 + sqrt 17) / 8 bounds the growth of the elements.
constexpr double kAlpha = 0.6403882032022076;
constexpr int kEquilibrations = 3;

}  // namespace

void IndefiniteFactor::Equilibrate() {
  fScale.assign(fSize, 1.0);
  std::vector<double> largest(fSize);
  for (int sweep = 0; sweep < kEquilibrations; ++sweep) {
    std::ranges::fill(largest, 0.0);
    for (std::uint32_t j = 0; j < fSize; ++j)
      for (std::uint32_t i = j; i < fSize; ++i) {
        const double magnitude = std::fabs(L(i, j));
        if (magnitude > largest[i]) largest[i] = magnitude;
        if (magnitude > largest[j]) largest[j] = magnitude;
      }
    for (double& value : largest) {
      // 1 / sqrt of the largest element, rounded to a power of two: scaling is exact.
      int exponent = 0;
      if (value > 0.0 && std::isfinite(value)) std::frexp(value, &exponent);
      value = std::ldexp(1.0, -exponent / 2);
    }
    for (std::uint32_t j = 0; j < fSize; ++j) {
      fScale[j] *= largest[j];
      for (std::uint32_t i = j; i < fSize; ++i) L(i, j) *= largest[i] * largest[j];
    }
  }
}

void IndefiniteFactor::Factorize(std::span<const double> matrix, std::uint32_t n) {
  fMatrix.assign(matrix.begin(), matrix.end());
  fSize = n;
  fExchanges.assign(n, 0);
  fIsDouble.assign(n, false);
  Equilibrate();
  for (std::uint32_t k = 0; k < n;) {
    const double diagonal = std::fabs(L(k, k));
    std::uint32_t r = k;
    double lambda = 0.0;
    for (std::uint32_t i = k + 1; i < n; ++i)
      if (std::fabs(L(i, k)) > lambda) {
        lambda = std::fabs(L(i, k));
        r = i;
      }
    if (diagonal == 0.0 && lambda == 0.0) throw KlException(failure::kSingular);
    std::uint32_t pivot = k;
    bool isDouble = false;
    if (diagonal < kAlpha * lambda) {
      double sigma = 0.0;
      for (std::uint32_t j = k; j < r; ++j) sigma = std::max(sigma, std::fabs(L(r, j)));
      for (std::uint32_t i = r + 1; i < n; ++i) sigma = std::max(sigma, std::fabs(L(i, r)));
      if (diagonal * sigma < kAlpha * lambda * lambda) {
        pivot = r;
        isDouble = std::fabs(L(r, r)) < kAlpha * sigma;
      }
    }
    const std::uint32_t place = isDouble ? k + 1 : k;
    fExchanges[k] = fExchanges[place] = pivot;
    if (pivot != place) Exchange(place, pivot);
    fIsDouble[k] = isDouble;
    if (isDouble) {
      EliminateTwo(k);
      k += 2;
    } else {
      EliminateOne(k);
      k += 1;
    }
  }
}

void IndefiniteFactor::Exchange(std::uint32_t k, std::uint32_t p) {
  // Rows of L and of the untouched columns before k.
  for (std::uint32_t j = 0; j < k; ++j) std::swap(L(k, j), L(p, j));
  std::swap(L(k, k), L(p, p));
  for (std::uint32_t i = k + 1; i < p; ++i) std::swap(L(i, k), L(p, i));
  for (std::uint32_t i = p + 1; i < fSize; ++i) std::swap(L(i, k), L(i, p));
}

void IndefiniteFactor::EliminateOne(std::uint32_t k) {
  const double d = L(k, k);
  for (std::uint32_t j = k + 1; j < fSize; ++j) {
    const double factor = L(j, k) / d;
    if (factor != 0.0)
      for (std::uint32_t i = j; i < fSize; ++i) L(i, j) -= L(i, k) * factor;
  }
  for (std::uint32_t i = k + 1; i < fSize; ++i) L(i, k) /= d;
}

void IndefiniteFactor::EliminateTwo(std::uint32_t k) {
  const double a = L(k, k);
  const double b = L(k + 1, k);
  const double c = L(k + 1, k + 1);
  // The off-diagonal element is the largest: dividing by it first keeps the determinant safe.
  const double determinant = (a / b) * c - b;
  for (std::uint32_t j = k + 2; j < fSize; ++j) {
    const double x = L(j, k);
    const double y = L(j, k + 1);
    const double f = ((c / b) * x - y) / determinant;
    const double g = ((a / b) * y - x) / determinant;
    for (std::uint32_t i = j; i < fSize; ++i) L(i, j) -= L(i, k) * f + L(i, k + 1) * g;
  }
  for (std::uint32_t i = k + 2; i < fSize; ++i) {
    const double x = L(i, k);
    const double y = L(i, k + 1);
    L(i, k) = ((c / b) * x - y) / determinant;
    L(i, k + 1) = ((a / b) * y - x) / determinant;
  }
}

void IndefiniteFactor::Solve(double* x) const {
  for (std::uint32_t i = 0; i < fSize; ++i) x[i] *= fScale[i];
  // The rows of L were exchanged along, so all exchanges come first.
  const auto exchanges = [&](auto visit) {
    for (std::uint32_t k = 0; k < fSize;) {
      const std::uint32_t place = fIsDouble[k] ? k + 1 : k;
      visit(place, fExchanges[k]);
      k = place + 1;
    }
  };
  exchanges([x](std::uint32_t place, std::uint32_t p) { std::swap(x[place], x[p]); });
  for (std::uint32_t k = 0; k < fSize;) {
    if (fIsDouble[k]) {
      for (std::uint32_t i = k + 2; i < fSize; ++i) x[i] -= L(i, k) * x[k] + L(i, k + 1) * x[k + 1];
      k += 2;
    } else {
      for (std::uint32_t i = k + 1; i < fSize; ++i) x[i] -= L(i, k) * x[k];
      k += 1;
    }
  }
  for (std::uint32_t k = 0; k < fSize;) {
    if (fIsDouble[k]) {
      const double a = L(k, k), b = L(k + 1, k), c = L(k + 1, k + 1);
      const double determinant = (a / b) * c - b;
      const double first = ((c / b) * x[k] - x[k + 1]) / determinant;
      x[k + 1] = ((a / b) * x[k + 1] - x[k]) / determinant;
      x[k] = first;
      k += 2;
    } else {
      x[k] /= L(k, k);
      k += 1;
    }
  }
  std::vector<std::pair<std::uint32_t, std::uint32_t>> undo;
  exchanges([&undo](std::uint32_t place, std::uint32_t p) { undo.emplace_back(place, p); });
  for (std::uint32_t k = fSize; k > 0;) {
    --k;
    const bool second = k > 0 && fIsDouble[k - 1];
    const std::uint32_t from = k + 1;
    if (second) {
      double sum0 = x[k - 1];
      double sum1 = x[k];
      for (std::uint32_t i = from; i < fSize; ++i) {
        sum0 -= L(i, k - 1) * x[i];
        sum1 -= L(i, k) * x[i];
      }
      x[k - 1] = sum0;
      x[k] = sum1;
      --k;
    } else {
      double sum = x[k];
      for (std::uint32_t i = from; i < fSize; ++i) sum -= L(i, k) * x[i];
      x[k] = sum;
    }
  }
  for (auto it = undo.rbegin(); it != undo.rend(); ++it) std::swap(x[it->first], x[it->second]);
  for (std::uint32_t i = 0; i < fSize; ++i) x[i] *= fScale[i];
}

void IndefiniteFactor::Inverse(std::vector<double>& inverse) const {
  inverse.assign(std::size_t{fSize} * fSize, 0.0);
  for (std::uint32_t j = 0; j < fSize; ++j) {
    double* column = inverse.data() + std::size_t{j} * fSize;
    column[j] = 1.0;
    Solve(column);
  }
  for (std::uint32_t j = 0; j < fSize; ++j)
    for (std::uint32_t i = j + 1; i < fSize; ++i) {
      double& lower = inverse[i + std::size_t{j} * fSize];
      double& upper = inverse[j + std::size_t{i} * fSize];
      lower = upper = 0.5 * (lower + upper);
    }
}

}  // namespace vermo
