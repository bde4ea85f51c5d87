#include <iostream>

#include "station/command_line.h"
#include "tools/program.h"

int main(int argc, char** argv) {
  tools::PrepareProgram();
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return tools::FinishProgram("station", station::Run(arguments, std::cout, std::cerr));
}
