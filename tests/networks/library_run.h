#pragma once

#include "reference/dense_adjustment.h"
#include "support/job.h"
#include "xyz_api.h"

#include <string>
#include <vector>

// A network through the exported interface, and what comes back, in the form of the reference.
struct LibraryRun {
  int status = -1;
  int iterations = 0;
  double s0 = 0.0;
  int observations = 0;
  int unknowns = 0;
  int constraints = 0;
  int redundancy = 0;
  double redundancySum = 0.0;
  reference::Network adjusted;
};

using vermo::test::Job;

// A job without an outlier test and with a convergence limit near rounding.
Job MakeJob(const reference::Network& network, double convergenceLimit);
LibraryRun RunThroughLibrary(const reference::Network& network, double convergenceLimit = 1e-9);
