// Whole protocols byte for byte. Every golden file was read by hand before it was taken over.

#include "api/bundel_tavri_lib.h"
#include "golden/golden_run.h"
#include "golden/networks.h"

#include <gtest/gtest.h>
#include <vector>

namespace golden {
namespace {

// The hook is protected; a pointer to it is not.
struct Hooks : vermo::KLBundel {
  using vermo::KLBundel::OnGroupsEnabled;
};

// The observations of a point that the ray rule has taken out go with it, so that no run brings one
// back. Its report is written through the hook, in the second iteration.
int ReportEnabledPoint(void* job, sXYZ_CBProgressInfo* info, void* /*userData*/) {
  if (info->Iteration != 2) return 0;
  BundelTavriLib& bundle = JobOf(job);
  const std::vector<vermo::Data*> groups = {bundle.fObkos.Find(5), bundle.fEors.Find(4)};
  (bundle.*&Hooks::OnGroupsEnabled)(groups);
  return 0;
}

class Golden : public testing::TestWithParam<Language> {
 protected:
  template <typename Build>
  void Check(const std::string& name, int status, Build build) {
    const Outcome outcome = RunGolden(GetParam(), build);
    EXPECT_EQ(outcome.status, status);
    EXPECT_EQ(outcome.texts, outcome.file);
    ExpectGolden(name, GetParam(), outcome.file);
  }
};

INSTANTIATE_TEST_SUITE_P(Protocols,
                         Golden,
                         testing::Values(Language::German, Language::English),
                         [](const auto& instance) {
                           return instance.param == Language::German ? "German" : "English";
                         });

TEST_P(Golden, Everything) {
  Check("everything", eXYZ_Ok, [](void* job) {
    BuildEverything(job);
    XYZ_SetParam(job, eXYZ_ParamDamping, 0.0);
    XYZ_SetProgressCallback(job, ReportEnabledPoint, nullptr);
  });
}

}  // namespace
}  // namespace golden
