// Adjusts one of the samples and prints every figure with all of its bits. Linked to libraries that
// use one variant of the kernels each.
#include "determinism/samples.h"

#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
  for (const determinism::Sample& sample : determinism::Samples())
    if (argc == 2 && std::strcmp(argv[1], sample.name) == 0) {
      const determinism::Outcome run = determinism::RunSteps(sample.steps(), "/dev/null");
      std::fputs(determinism::ToText(run.figures).c_str(), stdout);
      return 0;
    }
  std::fputs("usage: print_figures SAMPLE\n", stderr);
  return 2;
}
