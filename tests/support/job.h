#pragma once

#include "xyz_api.h"

#include <memory>

namespace vermo::test {

struct DestroyJob {
  void operator()(void* job) const { XYZ_DestroyJob(job); }
};
using Job = std::unique_ptr<void, DestroyJob>;

}  // namespace vermo::test
