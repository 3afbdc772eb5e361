#pragma once

#include "active_groups.h"
#include "job_file.h"
#include "network_survey.h"
#include "run.h"

#include <string>

namespace cardo {

// What the network lacks to determine all its unknowns, a line each, by the user's ids; empty if
// nothing of the usual kind is found.
[[nodiscard]] std::string DescribeSuspects(const NetworkSurvey& survey, const JobFile& job);

// What happened and what can be done about it, in lines for the terminal. The first line names
// the status; what the survey found follows where it may be the cause.
[[nodiscard]] std::string DescribeFailure(const RunOutcome& outcome,
                                          const NetworkSurvey& survey,
                                          const JobFile& job);

// Which groups a run has left out, and how that goes; empty if there are none.
[[nodiscard]] std::string DescribeLostGroups(const GroupIds& lost, const JobFile& job);

}  // namespace cardo
