#include "tools/clientcomm/output.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

// What a command prints, and what it does not let through to a terminal.

namespace {

using clientcomm::tool::ColorUse;
using clientcomm::tool::Output;
using clientcomm::tool::OutputFormat;
using clientcomm::tool::printable;
using clientcomm::tool::Style;

TEST(Printable, KeepsTextAsItIs) {
  EXPECT_EQ(printable("Grüße, 世界 \\ \"x\""), "Grüße, 世界 \\ \"x\"");
}

TEST(Printable, EscapesWhatDrivesATerminal) {
  EXPECT_EQ(printable("\x1b[2J\r\n\t"), "\\x1b[2J\\x0d\\x0a\\x09");
  EXPECT_EQ(printable("\xc2\x9b"), "\\xc2\\x9b") << "a control character in two bytes";
  EXPECT_EQ(printable("a\xe2\x80\xae"
                      "b"),
            "a\\xe2\\x80\\xae"
            "b")
      << "turns the direction";
  EXPECT_EQ(printable(std::string("a\0b", 3)), "a\\x00b");
}

TEST(Printable, EscapesBytesThatAreNoText) {
  EXPECT_EQ(printable("a\xff\xe4\xb8"), "a\\xff\\xe4\\xb8");
}

TEST(Color, IsOffWhereOutputIsNoTerminal) {
  setenv("TERM", "xterm", 1);
  EXPECT_EQ(Output(OutputFormat::kText, ColorUse::kAuto).styled(Style::kRed, "x"), "x");
}

TEST(Color, CanBeForcedAndIsNeverInJson) {
  setenv("NO_COLOR", "1", 1);
  EXPECT_EQ(Output(OutputFormat::kText, ColorUse::kAlways).styled(Style::kRed, "x"),
            "\x1b[1;31mx\x1b[0m");
  EXPECT_EQ(Output(OutputFormat::kJson, ColorUse::kAlways).styled(Style::kRed, "x"), "x");
}

}  // namespace
