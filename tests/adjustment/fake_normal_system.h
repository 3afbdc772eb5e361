#pragma once

#include "linalg/normal_system.h"

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace vermo::test {

// A linear engine without linear algebra. Its answers are set by the test and its calls are
// recorded, so that a loop runs step by step along a script.
class FakeNormalSystem final : public NormalSystem {
 public:
  using ElementFunction = std::function<double(std::uint32_t row, std::uint32_t column)>;

  // Answers. The vectors are cut or filled with zeros to the size of the system.
  std::vector<double> rhs;
  std::vector<double> solution;
  std::vector<double> diagonalCofactors;
  std::uint32_t multipliers = 0;  // rows that the system has beside the unknowns
  double form = 0.0;              // every a Q a^T
  // The assembled matrix; a unit matrix is regular group by group.
  ElementFunction element = [](std::uint32_t row, std::uint32_t column) {
    return row == column ? 1.0 : 0.0;
  };
  ElementFunction cofactor = [](std::uint32_t, std::uint32_t) { return 0.0; };

  // Records.
  std::vector<std::string>* events = nullptr;
  std::vector<std::uint32_t> resets;  // number of unknowns of each build pass
  std::vector<double> misclosures;    // of the equations since the last reset
  std::vector<bool> pivotSearches;    // argument of each factorization
  std::vector<bool> expectations;     // before each factorization, whether an inversion follows
  std::uint32_t inversions = 0;

  void Reset(std::uint32_t unknowns, std::uint32_t /*constraintRows*/) override {
    Note("Reset");
    resets.push_back(unknowns);
    misclosures.clear();
  }
  [[nodiscard]] std::uint32_t Unknowns() const override { return resets.back(); }
  [[nodiscard]] std::uint32_t Size() const override { return resets.back() + multipliers; }

  void AddEquation(const DesignRow& /*row*/, double /*weight*/, double misclosure) override {
    Note("AddEquation");
    misclosures.push_back(misclosure);
  }
  void WidenRow(std::uint32_t /*row*/, std::uint32_t /*first*/) override {}
  void StoreElement(std::uint32_t /*row*/, std::uint32_t /*column*/, double /*value*/) override {}
  void SetRhs(std::uint32_t /*row*/, double /*value*/) override {}
  [[nodiscard]] double Element(std::uint32_t row, std::uint32_t column) const override {
    return element(row, column);
  }

  void ExpectInvertCofactors(bool expected) override { expectations.push_back(expected); }
  void FactorizeAndSolve(bool pivotSearch) override {
    Note("FactorizeAndSolve");
    pivotSearches.push_back(pivotSearch);
    rhs.resize(Size());
    solution.resize(Size());
    diagonalCofactors.resize(Size());
  }
  [[nodiscard]] std::span<const double> Rhs() const override { return rhs; }
  [[nodiscard]] std::span<const double> Solution() const override { return solution; }
  [[nodiscard]] std::span<const double> DiagonalCofactors() override {
    Note("DiagonalCofactors");
    return diagonalCofactors;
  }

  void InvertCofactors() override {
    Note("InvertCofactors");
    ++inversions;
  }
  [[nodiscard]] double Cofactor(std::uint32_t row, std::uint32_t column) const override {
    return cofactor(row, column);
  }
  [[nodiscard]] double CofactorForm(const DesignRow& /*row*/) const override { return form; }
  void CofactorBlock(ostra_bundle::Matrix& /*target*/,
                     std::uint32_t /*firstRow*/,
                     std::uint32_t /*rows*/,
                     std::uint32_t /*firstColumn*/,
                     std::uint32_t /*columns*/) const override {}

 private:
  void Note(const char* event) {
    if (events != nullptr) events->emplace_back(event);
  }
};

}  // namespace vermo::test
