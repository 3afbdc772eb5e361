#pragma once

namespace golden {

// A network with every kind of element in every state, gross errors of several sizes, tags,
// protected and rejected observations, and more warnings of one number than are told.
void BuildEverything(void* job);

// Four free images of a plate with three control points, without errors but noise.
void BuildPlate(void* job);

}  // namespace golden
