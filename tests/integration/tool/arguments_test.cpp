#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/integration/tool/tool_fixture.h"
#include "tests/support/test_sandbox.h"
#include "tools/clientcomm/command.h"

// The command line of the tool.

namespace {

using clientcomm::tool::commands;
using tool_test::run;

TEST(CommandLine, HelpNamesEachCommand) {
  const auto help = run({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(run({"help"}).output, help.output);
  for (const auto* command : commands()) {
    EXPECT_NE(help.output.find(std::string("\n  ") + command->name + " "), std::string::npos)
        << command->name;
    EXPECT_NE(help.output.find(command->summary), std::string::npos) << command->name;
  }
}

TEST(CommandLine, HelpOfACommandNamesItsOptions) {
  for (const auto* command : commands()) {
    const auto help = run({command->name, "--help"});
    EXPECT_EQ(help.status, 0) << command->name;
    EXPECT_NE(help.output.find(std::string("Usage: clientcomm ") + command->name),
              std::string::npos);
    for (const auto& option : command->options) {
      EXPECT_NE(help.output.find(std::string("  --") + option.name), std::string::npos)
          << command->name << " --" << option.name;
    }
  }
}

TEST(CommandLine, PagesNameEachCommandAndOption) {
  const std::string sources = CLIENTCOMM_SOURCE_DIR;
  const std::string manual = support::readFile(sources + "/tools/clientcomm/clientcomm.1.in");
  const std::string page = support::readFile(sources + "/docs/clientcomm-tool.md");
  for (const auto* command : commands()) {
    const std::string name = command->name;
    EXPECT_NE(manual.find("\n.SS " + name + "\n"), std::string::npos) << name;
    EXPECT_NE(page.find("clientcomm " + name), std::string::npos) << name;
    for (const auto& option : command->options) {
      EXPECT_NE(manual.find(std::string("\\-\\-") + option.name), std::string::npos)
          << name << " --" << option.name;
      EXPECT_NE(page.find(std::string("--") + option.name), std::string::npos)
          << name << " --" << option.name;
    }
  }
}

TEST(CommandLine, VersionIsPrinted) {
  EXPECT_EQ(run({"--version"}).output, "clientcomm " CLIENTCOMM_VERSION "\n");
  EXPECT_EQ(run({"call", "--version"}).output, "clientcomm " CLIENTCOMM_VERSION "\n");
}

TEST(CommandLine, WrongOnesEndWithStatusTwo) {
  const std::vector<std::string> lines[] = {{},
                                            {"chekc"},
                                            {"call"},
                                            {"call", "a", "B", "c", "--no-such-option"},
                                            {"call", "a", "B", "c", "--wait=1"},
                                            {"call", "a", "B", "c", "--timeout"},
                                            {"call", "a", "B", "c", "--color=often"}};
  for (const auto& line : lines) {
    const auto outcome = run(line);
    EXPECT_EQ(outcome.status, 2) << outcome.output;
    EXPECT_EQ(outcome.output, "");
    EXPECT_NE(outcome.errors.find("--help"), std::string::npos) << outcome.errors;
  }
}

}  // namespace
