#pragma once

// KlException is part of the public contract, because callers catch it; the contract is a leaf
// that includes nothing of the engine.
#include "api/xyz_api.h"
