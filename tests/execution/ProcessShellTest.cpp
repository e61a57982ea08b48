#include <gtest/gtest.h>

#include "common/CommandLine.h"
#include "execution/clsAdvShell.h"
#include "tests/execution/ExecutionFixture.h"

namespace tw {
namespace {

class ProcessShellTest : public test::ExecutionFixture {
 protected:
  ProcessShellTest() {
    shell_.LoadProg = [this] { events_.push_back("LoadProg"); };
    shell_.ReturnProg = [this](int32_t code) { events_.push_back("ReturnProg " + std::to_string(code)); };
    shell_.ErrorExecuting = [this](int32_t code) { events_.push_back("ErrorExecuting " + std::to_string(code)); };
  }
  clsAdvShell shell_{host_};
  std::vector<std::string> events_;
};

TEST(CommandLineTest, SplitsAsEscapeArgumentQuotes) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
      {"prog a b", {"prog", "a", "b"}},
      {"  prog \t a  ", {"prog", "a"}},
      {"prog \"a b\" c", {"prog", "a b", "c"}},
      {"prog \"\" x", {"prog", "", "x"}},
      {"prog a\\b", {"prog", "a\\b"}},              // a lone backslash stays
      {"prog a\\\\b", {"prog", "a\\b"}},           // a doubled one reads as one
      {"prog \"a\\\\\" b", {"prog", "a\\", "b"}},    // 2n backslashes + quote: n, and the quote groups
      {"prog \"a\\\"b\"", {"prog", "a\"b"}},         // 2n+1: n and a literal quote
      {"prog \"say \"\"hi\"\"\"", {"prog", "say \"hi\""}},
      {"prog a\"b c\"d", {"prog", "ab cd"}},
      {"", {}},
  };
  for (const auto& [line, expected] : cases) EXPECT_EQ(expected, SplitCommandLine(line)) << line;
  // A line that is the start of a longer text ends where it ends: nothing after it is read.
  EXPECT_EQ((std::vector<std::string>{"prog", "a"}), SplitCommandLine(std::string_view("prog ab", 6)));
  EXPECT_EQ((std::vector<std::string>{"prog", "a\\"}), SplitCommandLine(std::string_view("prog a\\\"", 7)));
  EXPECT_EQ((std::vector<std::string>{"prog", "a"}), SplitCommandLine(std::string_view("prog \"a\"\"", 8)));
}

TEST_F(ProcessShellTest, SynchronousRunsReturnTheExitCodeAndOutputAndArgumentsArriveUnescaped) {
  Script("args", "for a in \"$@\"; do printf '[%s]\\n' \"$a\"; done; echo oops >&2; exit 3");
  const std::string tricky = "C:\\Temp\\ \"quoted\" \\";
  const std::string arguments = "\"" + EscapeArgument(tricky) + "\" plain \"\"";
  EXPECT_EQ(3, shell_.AdvShell(dir_ / "args", arguments, "", 0, false, true));
  EXPECT_EQ("[" + tricky + "]\n[plain]\n[]\noops\n", shell_.ConsoleOutput());
  EXPECT_EQ((std::vector<std::string>{"LoadProg", "ReturnProg 3"}), events_);
  EXPECT_FALSE(shell_.Busy());

  events_.clear();
  EXPECT_EQ(-1, shell_.AdvShell(dir_ / "nothing-here", "a", "", 0, false, true));
  EXPECT_EQ((std::vector<std::string>{"ErrorExecuting -1"}), events_);

  // The working folder is used when it exists, the current one otherwise; a relative file is found in it.
  Script("where", "pwd");
  shell_.AdvShell("where", "", dir_.Path(), 0, false, true);
  EXPECT_EQ(dir_.Path() + "\n", shell_.ConsoleOutput());
  shell_.AdvShell(dir_ / "where", "", dir_ / "missing", 0, false, true);
  EXPECT_EQ(std::filesystem::current_path().string() + "\n", shell_.ConsoleOutput());
}

TEST_F(ProcessShellTest, AnAsynchronousRunEndsWhenKilled) {
  shell_.KillProcess();  // idle: nothing happens
  Script("forever", "echo waiting; exec sleep 60");
  shell_.AdvShell(dir_ / "forever", "", "", 0, true, true);
  loop_.Sleep(50);
  EXPECT_TRUE(shell_.Busy());
  shell_.KillProcess();
  ASSERT_TRUE(LoopUntil([&] { return !shell_.Busy(); }, 2000)) << "a kill takes effect at once";
  EXPECT_EQ((std::vector<std::string>{"LoadProg", "ReturnProg -3"}), events_);
}

}  // namespace
}  // namespace tw
