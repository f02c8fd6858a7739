#include "ClientComm/platform/linux/endpoint_name.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "ClientComm/platform/linux/bound_name.h"
#include "ClientComm/platform/linux/runtime_file.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::EndpointName;
using clientcomm::noErr;
using clientcomm::ScopedFd;

using IfTaken = EndpointName::IfTaken;

constexpr char kIdentifier[] = "com.example.named";

std::string pathOf(const std::string& name) {
  return support::sandbox() + "/runtime/ClientComm/" + name;
}

mode_t modeOf(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode : 0;
}

TEST(EndpointName, LeadsToASocketOfThisUserAloneUnderAnyUmask) {
  for (const mode_t mask : {0U, 022U, 0277U, 0777U}) {
    const mode_t previous = umask(mask);
    EndpointName name(kIdentifier, clientcomm::kHighestWireVersion);
    ScopedFd listener;
    EXPECT_EQ(name.take(listener, IfTaken::kReplace), noErr);
    umask(previous);
    EXPECT_EQ(modeOf(pathOf(clientcomm::fileNameForIdentifier(kIdentifier))), S_IFSOCK | 0600U);
  }
}

TEST(EndpointName, IsTakenWhereAnEarlierProcessOfTheSameIDLeftItsSocket) {
  const std::string fileName = clientcomm::fileNameForIdentifier(kIdentifier);
  support::writeFile(
      pathOf(clientcomm::boundName({fileName, getpid(), clientcomm::kHighestWireVersion})), "left");
  chmod(pathOf("").c_str(), 0700);
  EndpointName name(kIdentifier, clientcomm::kHighestWireVersion);
  ScopedFd listener;
  EXPECT_EQ(name.take(listener, IfTaken::kReplace), noErr);
  EXPECT_EQ(modeOf(pathOf(fileName)), S_IFSOCK | 0600U);
}

/// The record of the endpoint, which names the inode of its socket.
std::string record() {
  return support::readFile(
      pathOf(clientcomm::endpointRecordName(clientcomm::fileNameForIdentifier(kIdentifier))));
}

TEST(EndpointName, IsLeftToOneThatListensUnderItWithItsRecord) {
  EndpointName first(kIdentifier, clientcomm::kHighestWireVersion);
  EndpointName second(kIdentifier, clientcomm::kHighestWireVersion);
  ScopedFd listener;
  ScopedFd other;
  ASSERT_EQ(first.take(listener, IfTaken::kLeave), noErr);
  const std::string whole = record();
  EXPECT_FALSE(whole.empty());
  EXPECT_EQ(second.take(other, IfTaken::kLeave), clientcomm::errAEEventNotPermitted);
  EXPECT_TRUE(first.leadsHere());
  EXPECT_EQ(record(), whole);
  EXPECT_EQ(second.take(other, IfTaken::kReplace), noErr);
  EXPECT_FALSE(first.leadsHere());
  EXPECT_NE(record(), whole);
}

TEST(EndpointName, IsTakenFromOneThatListensNoMoreAlsoByOneThatLeavesIt) {
  EndpointName first(kIdentifier, clientcomm::kHighestWireVersion);
  EndpointName second(kIdentifier, clientcomm::kHighestWireVersion);
  ScopedFd listener;
  ASSERT_EQ(first.take(listener, IfTaken::kReplace), noErr);
  const std::string whole = record();
  listener.reset();
  EXPECT_EQ(second.take(listener, IfTaken::kLeave), noErr);
  EXPECT_TRUE(second.leadsHere());
  EXPECT_NE(record(), whole);
}

TEST(RuntimeFile, IsReplacedWhereAnEarlierProcessOfTheSameIDLeftItsDraft) {
  const ScopedFd folder = clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate);
  support::writeFile(pathOf(clientcomm::draftName("record")), "left by an earlier process");
  EXPECT_TRUE(clientcomm::replaceRuntimeFile(folder.get(), "record", "whole").isOk());
  EXPECT_EQ(support::readFile(pathOf("record")), "whole");
}

}  // namespace
