#pragma once
// Command lines as one string, split into arguments the way the product's quoting (EscapeArgument)
// prepares values for: blanks and tabs separate arguments; double quotes group; a backslash before
// a backslash or a double quote stands for that character, any other backslash for itself; "" inside
// quotes is a literal quote. Before a quote this is the Windows C runtime's rule; unlike that rule,
// a doubled backslash anywhere reads as one, so every value EscapeArgument wrote arrives exactly.
#include <string>
#include <string_view>
#include <vector>

namespace tw {

std::vector<std::string> SplitCommandLine(std::string_view commandLine);

}  // namespace tw
