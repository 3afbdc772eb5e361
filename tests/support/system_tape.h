#pragma once

#include "linalg/normal_system.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

namespace vermo::test {

// Keeps all that an adjustment hands to its engine, so that several engines get the same system.
class SystemTape : public NormalSystem {
 public:
  struct Observation {
    std::vector<DesignRow> rows;
    std::vector<double> weights;
    std::vector<double> misclosures;
  };
  struct Stored {
    std::uint32_t row;
    std::uint32_t column;
    double value;
  };

  SystemLayout layout;
  std::vector<Observation> observations;
  std::vector<Stored> elements;
  std::vector<std::pair<std::uint32_t, double>> rhs;

  void SetLayout(const SystemLayout& told) override { layout = told; }
  void Reset(std::uint32_t unknowns, std::uint32_t multipliers) override {
    fUnknowns = unknowns;
    fSize = unknowns + multipliers;
    observations.clear();
    elements.clear();
    rhs.clear();
  }
  [[nodiscard]] std::uint32_t Unknowns() const override { return fUnknowns; }
  [[nodiscard]] std::uint32_t Size() const override { return fSize; }
  void AddEquation(const DesignRow& row, double weight, double misclosure) override {
    observations.push_back({{row}, {weight}, {misclosure}});
  }
  void AddEquations(std::span<DesignRow> rows,
                    const double* weights,
                    const double* misclosures) override {
    observations.push_back({{rows.begin(), rows.end()},
                            {weights, weights + rows.size()},
                            {misclosures, misclosures + rows.size()}});
  }
  void WidenRow(std::uint32_t /*row*/, std::uint32_t /*first*/) override {}
  void StoreElement(std::uint32_t row, std::uint32_t column, double value) override {
    elements.push_back({row, column, value});
  }
  void SetRhs(std::uint32_t row, double value) override { rhs.emplace_back(row, value); }

  // Plays the system to an engine until it is sealed, the layout told before.
  void Assemble(NormalSystem& engine) const { Assemble(engine, layout); }
  void Assemble(NormalSystem& engine, const SystemLayout& told) const {
    engine.SetLayout(told);
    for (int pass = 0;; ++pass) {
      if (pass == 20) throw std::runtime_error("an assembly without an end");
      engine.Reset(fUnknowns, fSize - fUnknowns);
      for (const Observation& o : observations) {
        std::vector<DesignRow> rows = o.rows;
        engine.AddEquations(rows, o.weights.data(), o.misclosures.data());
      }
      for (const Stored& e : elements) {
        engine.WidenRow(e.row, e.column);
        engine.StoreElement(e.row, e.column, e.value);
      }
      for (const auto& [row, value] : rhs) engine.SetRhs(row, value);
      if (engine.Seal()) return;
    }
  }

  // What a tape cannot answer.
  [[nodiscard]] double Element(std::uint32_t /*row*/, std::uint32_t /*column*/) const override {
    throw std::logic_error("a tape has no elements");
  }
  void FactorizeAndSolve(bool /*pivotSearch*/) override {
    throw std::logic_error("a tape solves nothing");
  }
  [[nodiscard]] std::span<const double> Rhs() const override { return {}; }
  [[nodiscard]] std::span<const double> Solution() const override { return {}; }
  [[nodiscard]] std::span<const double> DiagonalCofactors() override { return {}; }
  void InvertCofactors() override {}
  [[nodiscard]] double Cofactor(std::uint32_t /*row*/, std::uint32_t /*column*/) const override {
    return 0.0;
  }
  [[nodiscard]] double CofactorForm(const DesignRow& /*row*/) const override { return 0.0; }
  void CofactorBlock(ostra_bundle::Matrix& /*target*/,
                     std::uint32_t /*firstRow*/,
                     std::uint32_t /*rows*/,
                     std::uint32_t /*firstColumn*/,
                     std::uint32_t /*columns*/) const override {}

 private:
  std::uint32_t fUnknowns = 0;
  std::uint32_t fSize = 0;
};

}  // namespace vermo::test
