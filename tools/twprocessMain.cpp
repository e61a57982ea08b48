#include <iostream>

#include "tools/ProcessTool.h"

int main(int argc, char** argv) {
  return tw::tools::RunProcessTool(std::vector<std::string>(argv + 1, argv + argc), std::cout, std::cerr);
}
