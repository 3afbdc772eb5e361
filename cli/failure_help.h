#pragma once

#include "job_file.h"
#include "network_survey.h"
#include "run.h"

#include <string>

namespace cardo {

// What happened and what can be done about it, in lines for the terminal. The first line names
// the status; what the survey found follows where it may be the cause.
[[nodiscard]] std::string DescribeFailure(const RunOutcome& outcome,
                                          const NetworkSurvey& survey,
                                          const JobFile& job);

}  // namespace cardo
