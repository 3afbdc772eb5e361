#pragma once

#include "golden/golden_run.h"

#include <span>
#include <string>

namespace golden {

// A run with a status that is known beforehand. Its name is that of its golden file.
struct Scene {
  const char* name;
  int status;
  void (*build)(void* job);
};

// Each has a golden file of its own.
std::span<const Scene> Scenes();

// Runs that fail: one for each failure that the interface can bring about. Their protocols stand
// one behind the other in one golden file. No run brings about the other codes: an id is refused
// when it is set twice (-12008), the limits of the outlier test are sorted (-12003), groups are
// numbered before they are checked (-12007), lines and planes are checked when they are set
// (-42001); a negative variance (-13001) hangs on rounding; memory and shapes of matrices (-1001 to
// -2007, -39004) on nothing that a caller gives; -12002 and -12001 are raised by nothing.
std::span<const Scene> FailingScenes();

Outcome RunScene(Language language, const Scene& scene);

// The protocol of the second run of a job; the first has raised warnings that stay. The texts are
// those of both runs.
Outcome RunTwice(Language language);

// The tables of exterior orientations for every rotation and unit, of the images and of the job.
std::string RotationTables(Language language);

}  // namespace golden
