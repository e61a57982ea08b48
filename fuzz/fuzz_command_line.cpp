// The command-line splitter the service starts its helper programs with, and EscapeArgument,
// which prepares the values (account names, passwords) that go between double quotes on those
// command lines. Besides not failing: every value EscapeArgument prepared arrives exactly.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/CommandLine.h"
#include "common/Strings.h"
#include "fuzz/FuzzSupport.h"
#include "logging/modLogging.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tw;
  const std::string text(reinterpret_cast<const char*>(data), size);

  SplitCommandLine(text);

  // The whole input as one value, then its pieces between line feeds as several values, the way
  // the launcher writes the three account values.
  if (SplitCommandLine("prog \"" + EscapeArgument(text) + "\"") != std::vector<std::string>{"prog", text}) {
    fuzz::PropertyFailed("an escaped value does not arrive as it was");
  }
  const std::vector<std::string> values = Split(text, '\n');
  std::string line = "prog";
  for (const auto& value : values) line += " \"" + EscapeArgument(value) + "\"";
  std::vector<std::string> expected{"prog"};
  expected.insert(expected.end(), values.begin(), values.end());
  if (SplitCommandLine(line) != expected) fuzz::PropertyFailed("escaped values do not arrive as they were");
  return 0;
}
