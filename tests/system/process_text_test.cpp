#include "ClientComm/platform/linux/process_text.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <limits>
#include <string>
#include <string_view>

#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/process_stat.h"

namespace {

using clientcomm::bundleOfExecutable;
using clientcomm::mayHaveInnerPID;
using clientcomm::startTimeInStat;

std::string statOf(std::string_view command) {
  return "4711 (" + std::string(command) +
         ") S 1 4711 4711 0 -1 4194560 300 0 0 0 5 6 0 0 20 0 1 0 987654 10000 200\n";
}

std::string commandIn(std::string_view comm) {
  char name[clientcomm::kMaximumCommandLength + 1];
  clientcomm::copyCommandName(comm, name);
  return name;
}

TEST(ProcessText, FindsTheStartTimeBehindAnyCommandName) {
  for (const char* command : {"host", "", ") S 1 2 3", "((", "))))", "a b c", "x\ny"}) {
    EXPECT_EQ(startTimeInStat(statOf(command)), 987654U) << command;
  }
}

TEST(ProcessText, HasNoStartTimeWhenCutShort) {
  const std::string stat = statOf("host");
  EXPECT_FALSE(startTimeInStat(""));
  EXPECT_FALSE(startTimeInStat("4711"));
  EXPECT_FALSE(startTimeInStat(stat.substr(0, stat.find("987654"))));
  EXPECT_FALSE(startTimeInStat(stat.substr(0, stat.find(')') + 1)));
}

TEST(ProcessText, FindsWhetherAProcessHasAnotherIDInAnInnerNamespace) {
  const std::string before = "Name:\tNSpid:\\n\nGroups:\t0 4 \nNStgid:\t4711\t1\n";
  EXPECT_FALSE(mayHaveInnerPID(before + "NSpid:\t4711\nNSpgid:\t4711\t1\n"));
  EXPECT_TRUE(mayHaveInnerPID(before + "NSpid:\t4711\t1\nNSpgid:\t1\n"));
  EXPECT_TRUE(mayHaveInnerPID(before)) << "it does not say";
  EXPECT_FALSE(clientcomm::mayHaveInnerPID(getpid()));
}

TEST(ProcessText, CutsACommandNameToItsRoomAndItsLineEnd) {
  EXPECT_EQ(commandIn("host\n"), "host");
  EXPECT_EQ(commandIn("two\nlines\n"), "two\nlines");
  EXPECT_EQ(commandIn("0123456789abcdefghi\n"), "0123456789abcdef");
  EXPECT_EQ(commandIn("\n"), "");
  EXPECT_EQ(commandIn(""), "");
}

TEST(ProcessText, FindsTheApplicationThatEnclosesAnExecutable) {
  EXPECT_EQ(bundleOfExecutable("/opt/Host.app/Contents/Linux/host"), "/opt/Host.app");
  EXPECT_EQ(bundleOfExecutable("/opt/Host.app/Contents/MacOS/host"), "/opt/Host.app");
  EXPECT_EQ(bundleOfExecutable("/a.app/Contents/Linux/b.app/Contents/Linux/c"),
            "/a.app/Contents/Linux/b.app");
}

TEST(ProcessText, FindsNoApplicationWhereThereIsNone) {
  for (const char* path :
       {"", "/", "host", "/usr/bin/host", "/Contents/Linux/host", "/.app/Contents/Linux/host",
        "/opt/Host.app/Contents/Linux/", "/opt/Host.app/Linux/host",
        "/opt/Host/Contents/Linux/host", "Host.app/Contents/Linux/host",
        "/opt/Host.app/Contents/Linux/more/host"}) {
    EXPECT_EQ(bundleOfExecutable(path), "") << path;
  }
}

TEST(ProcPath, NamesTheFilesOfProcessesAndDescriptors) {
  using clientcomm::ProcPath;
  EXPECT_EQ(ProcPath::ofProcess(4711).view(), "/proc/4711");
  EXPECT_EQ(ProcPath::ofProcess(4711, "/exe").view(), "/proc/4711/exe");
  EXPECT_STREQ(ProcPath::ofProcess(4711, "/exe").belowProcFolder(), "4711/exe");
  EXPECT_EQ(ProcPath::ofThisProcess("/mountinfo").view(), "/proc/self/mountinfo");
  EXPECT_EQ(ProcPath::ofDescriptor(7).view(), "/proc/self/fd/7");
  constexpr int kHighest = std::numeric_limits<int>::max();
  EXPECT_EQ(ProcPath::ofDescriptorInfo(kHighest).view(), "/proc/self/fdinfo/2147483647");
}

TEST(ProcPath, CutsANameThatIsTooLong) {
  const std::string name = "/" + std::string(200, 'x');
  const auto path = clientcomm::ProcPath::ofProcess(1, name);
  EXPECT_LT(path.view().size(), 200U);
  EXPECT_TRUE(("/proc/1" + name).starts_with(path.view()));
}

}  // namespace
