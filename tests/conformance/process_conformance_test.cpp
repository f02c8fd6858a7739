// own_process.h, process_table.h and process_manager.h, as they tell of this process.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/platform/dictionary.h"
#include "ClientComm/platform/own_process.h"
#include "ClientComm/platform/process_manager.h"
#include "ClientComm/platform/process_table.h"
#include "ClientComm/platform/removed_bundle.h"
#include "ClientComm/platform/workspace.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::kProcessDictionaryIncludeAllInformationMask;
using clientcomm::ProcessSerialNumber;

constexpr int kWholeTable[] = {clientcomm::kCtlKern, clientcomm::kKernProc,
                               clientcomm::kKernProcAll};

TEST(ProcessConformance, RunsTheExecutableOfTheHostsBundle) {
  EXPECT_EQ(clientcomm::ownExecutablePath(),
            support::hostBundlePath() + "/Contents/Linux/TestHost");
  EXPECT_EQ(clientcomm::Bundle::mainBundle().bundlePath(), support::hostBundlePath());
}

TEST(ProcessConformance, HasASerialNumberThatLeadsToItsBundle) {
  ProcessSerialNumber psn;
  ASSERT_EQ(clientcomm::GetProcessForPID(getpid(), psn), clientcomm::noErr);
  const auto info = clientcomm::ProcessInformationCopyDictionary(
      psn, kProcessDictionaryIncludeAllInformationMask);
  ASSERT_TRUE(info);
  EXPECT_EQ(clientcomm::stringFor(*info, clientcomm::kBundlePathKey), support::hostBundlePath());
  EXPECT_EQ(clientcomm::stringFor(*info, clientcomm::kCFBundleNameKey), "Test Host");
}

TEST(ProcessConformance, OfAnotherSerialNumberIsUnknown) {
  ProcessSerialNumber psn;
  ASSERT_EQ(clientcomm::GetProcessForPID(getpid(), psn), clientcomm::noErr);
  psn.highLongOfPSN ^= 1U;
  EXPECT_EQ(clientcomm::ProcessInformationCopyDictionary(
                psn, kProcessDictionaryIncludeAllInformationMask),
            std::nullopt);
  EXPECT_EQ(clientcomm::bundleIdentifierOfProcess(psn), std::nullopt);
  EXPECT_EQ(clientcomm::GetProcessForPID(0, psn), clientcomm::procNotFound);
}

TEST(ProcessConformance, IsInTheProcessTable) {
  const auto pids = clientcomm::processIDs(&GetBSDProcessList);
  EXPECT_EQ(std::count(pids.begin(), pids.end(), getpid()), 1);
}

TEST(ProcessConformance, ATableThatIsTooSmallIsNotFilled) {
  clientcomm::kinfo_proc none = {};
  std::size_t length = 0;
  EXPECT_EQ(clientcomm::sysctl(kWholeTable, 3, &none, &length, nullptr, 0), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(clientcomm::sysctl(kWholeTable, 2, nullptr, &length, nullptr, 0), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(ProcessConformance, MayRunItsOwnBundleAndNoOther) {
  EXPECT_TRUE(clientcomm::mayRunBundleAt(support::hostBundlePath())(getpid()));
  EXPECT_FALSE(clientcomm::mayRunBundleAt(support::sandbox() + "/Other.app")(getpid()));
}

TEST(ProcessConformance, OfTheWantedProcessesTheTableHasThoseThatRun) {
  constexpr std::int32_t kNoProcess = 99'999'999;
  EXPECT_EQ(clientcomm::processIDs(&GetBSDProcessList, {kNoProcess, getpid()}),
            std::vector<std::int32_t>{getpid()});
  EXPECT_EQ(clientcomm::processIDs(&GetBSDProcessList, {}), std::vector<std::int32_t>());
}

TEST(ProcessConformance, OpenApplicationsHaveEachProcessOnce) {
  auto pids = clientcomm::openApplications();
  std::ranges::sort(pids);
  EXPECT_EQ(std::ranges::adjacent_find(pids), pids.end());
}

TEST(RemovedBundleConformance, IsMovedAsideInOneStepAndFound) {
  const std::string path = support::sandbox() + "/install/Some.app";
  support::writeFile(path + "/Contents/Info.plist", "info");
  std::string place;
  ASSERT_TRUE(clientcomm::moveAside(path, place).isOk());
  EXPECT_FALSE(support::isFolder(path));
  std::vector<std::string> places;
  EXPECT_TRUE(clientcomm::placesMovedAsideFrom(path, places).isOk());
  EXPECT_EQ(places, std::vector<std::string>{place});
  std::vector<std::int32_t> processes;
  EXPECT_TRUE(clientcomm::processesRunningBelow(place, processes).isOk());
  EXPECT_EQ(processes, std::vector<std::int32_t>());
  EXPECT_FALSE(clientcomm::moveAside(path, place).isOk()) << "nothing is there now";
}

TEST(WorkspaceConformance, OpensNothingThatIsNoBundleWithAnExecutable) {
  support::writeFile(support::sandbox() + "/Empty.app/Contents/Info.plist", "");
  for (const char* name : {"/Empty.app", "/missing.app", "/config"}) {
    const auto status =
        clientcomm::Workspace::sharedWorkspace().openFile(support::sandbox() + name);
    EXPECT_EQ(status.code(), ENOENT) << name;
  }
}

TEST(WorkspaceConformance, FindsAnApplicationByItsName) {
  auto& workspace = clientcomm::Workspace::sharedWorkspace();
  support::writeFile(support::sandbox() + "/home/Applications/Some Name.app/file", "");
  const std::string path = support::sandbox() + "/home/Applications/Some Name.app";
  EXPECT_EQ(workspace.fullPathForApplication("Some Name"), path);
  EXPECT_EQ(workspace.fullPathForApplication("Some Name.app"), path);
  EXPECT_EQ(workspace.fullPathForApplication("Other Name"), std::nullopt);
  EXPECT_EQ(workspace.fullPathForApplication(""), std::nullopt);
}

}  // namespace
