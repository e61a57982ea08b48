#include <iostream>

#include "tools/RightsLauncher.h"

int main(int argc, char** argv) {
  return tw::tools::RunRightsLauncher(std::vector<std::string>(argv + 1, argv + argc), std::cout, std::cerr);
}
