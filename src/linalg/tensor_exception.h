#pragma once

namespace ostra_bundle {

// Failures of tensor arithmetic, told apart by type.
class TensorException {};
class TensorExceptDimension : public TensorException {};
class TensorExceptDivisionByZero : public TensorException {};
class TensorExceptSquareRootOfNegative : public TensorException {};

}  // namespace ostra_bundle
