#include "command_line.h"
#include "interrupt.h"

#include <iostream>
#include <unistd.h>

int main(int argc, char** argv) {
  cardo::CatchInterrupts();
  const cardo::Console console{
      std::cout, std::cerr, isatty(STDOUT_FILENO) != 0, &cardo::InterruptFlag()};
  return cardo::RunCommandLine(argc, argv, console);
}
