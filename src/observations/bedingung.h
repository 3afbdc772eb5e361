#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vermo {

class NormalSystem;

// A hard constraint of the adjustment. It does not act through weights: it has Lagrange
// multipliers, numbered behind the unknowns, and stores its rows in the border of the system.
class Bedingung {
 public:
  static constexpr std::uint32_t kNoRow = 0xFFFFFFFF;

  virtual ~Bedingung() = default;

  [[nodiscard]] virtual bool IsActive() const { return fActive; }
  // Keeps the constraint's part of a solution when active.
  virtual void StoreMultipliers(std::span<const double> /*solution*/) {}
  // Number of multipliers when active, else 0.
  [[nodiscard]] virtual std::uint32_t ConstraintCount() const = 0;
  // Whether it is of the datum: all constraints of the datum look at the same points.
  [[nodiscard]] virtual bool IsDatum() const noexcept { return false; }
  // Stores, and does not add, the rows and their right-hand side at the present values.
  virtual void AddConstraintRows(NormalSystem& system) const = 0;
  // The kept multipliers.
  [[nodiscard]] virtual std::vector<double> CollectMultipliers() const { return {}; }
  // A label in the language of the moment, ISO 8859-1.
  [[nodiscard]] virtual std::string GetDescription() const = 0;

  // Takes the rows from next on when active, otherwise none. Returns the next free row.
  std::uint32_t AssignConstraintIndex(std::uint32_t next);
  void SetActive(bool on) noexcept { fActive = on; }

  // Row of the first multiplier.
  [[nodiscard]] std::uint32_t FirstRow() const noexcept { return fFirstUnknown; }

 protected:
  Bedingung() = default;
  Bedingung(const Bedingung&) = default;
  Bedingung& operator=(const Bedingung&) = default;

 private:
  std::uint32_t fFirstUnknown = kNoRow;
  bool fActive = false;
};

}  // namespace vermo
