// The files that several processes use, as version 1 writes them: docs/files.md.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <limits>
#include <optional>
#include <string>

#include "ClientComm/internal/settings_keys.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/linux/endpoint_record.h"
#include "ClientComm/platform/linux/launch_record.h"
#include "ClientComm/platform/linux/process_record.h"
#include "ClientComm/platform/linux/process_record_writer.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/posix/partial_name.h"
#include "ClientComm/platform/posix/recovery_copy.h"
#include "ClientComm/platform/posix/removed_name.h"
#include "ClientComm/platform/posix/settings_file.h"
#include "ClientComm/platform/strings_file.h"
#include "ClientComm/platform/user_defaults.h"
#include "tests/compatibility/committed_files.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using clientcomm::Bundle;
using clientcomm::openRuntimeFolder;
using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;
using clientcomm::ScopedFd;
using support::committed;
using support::runtimePath;

constexpr char kPeerPath[] = "/opt/Peer.app";
constexpr char kState[] = "2049:12:345:1700000000:5: 2049:13:678:1700000001:0:";
constexpr std::uint64_t kFirstNamespace = 4026531836;

std::string ownRecordPath() { return runtimePath(clientcomm::processRecordName(getpid())); }

// The committed process record as it has to be written of this process.
std::string recordOfThisProcess(const std::string& name) {
  return committed(
      name, {{"com.example.peer", "com.example.testhost"},
             {kPeerPath, support::hostBundlePath()},
             {"<string>Peer<", "<string>Test Host<"},
             {"123456", std::to_string(clientcomm::processStartTime(getpid()).value())},
             {std::to_string(kFirstNamespace), std::to_string(clientcomm::ownPIDNamespace())}});
}

// The same as this process has to write its own: with the version of its library, which records of
// before that key lack.
std::string ownRecord(const std::string& name) {
  std::string record = recordOfThisProcess(name);
  const auto next = record.find("\t<key>PIDNamespace</key>");
  return record.insert(next,
                       "\t<key>LibraryVersion</key>\n\t<string>" CLIENTCOMM_VERSION "</string>\n");
}

// --- The runtime folder. ---

TEST(FilesOfVersion1, NamesInTheRuntimeFolderAreTheCommittedOnes) {
  EXPECT_EQ(clientcomm::runtimeFolderPath(), support::sandbox() + "/runtime/ClientComm");
  EXPECT_EQ(clientcomm::fileNameForIdentifier("com.example.peer"),
            "177d041c311ee7deed5022fb0832ded1");
  EXPECT_EQ(clientcomm::processRecordName(4711), "process.4711");
  EXPECT_EQ(clientcomm::processRecordName(4711, kFirstNamespace), "process.4711.4026531836");
  EXPECT_EQ(clientcomm::endpointRecordName("0123"), "endpoint.0123");
  EXPECT_EQ(clientcomm::launchRecordName("com.example.peer"),
            "launch." + clientcomm::fileNameForIdentifier("com.example.peer"));
  EXPECT_EQ(clientcomm::draftName("process.1"), "process.1." + std::to_string(getpid()) + ".new");
}

TEST(FilesOfVersion1, EveryListIsRewrittenAsItWas) {
  for (const std::string& name : support::committedLists()) {
    EXPECT_EQ(clientcomm::xmlPropertyList(support::committedDictionary(name)), committed(name));
  }
}

TEST(FilesOfVersion1, ProcessRecordIsRead) {
  const auto record = clientcomm::processRecordFromBytes(committed("process.4711"));
  ASSERT_TRUE(record);
  EXPECT_EQ(record->startTime, 123456U);
  EXPECT_EQ(record->bundleIdentifier, "com.example.peer");
  EXPECT_EQ(record->bundlePath, kPeerPath);
  EXPECT_EQ(record->bundleName, "Peer");
  EXPECT_EQ(record->pidNamespace, kFirstNamespace);
  EXPECT_TRUE(record->isOpen);
  EXPECT_FALSE(record->isTool);
}

TEST(FilesOfVersion1, ProcessRecordsOfOtherKindsAreRead) {
  const auto launching = clientcomm::processRecordFromBytes(committed("process.4711-launching"));
  ASSERT_TRUE(launching);
  EXPECT_FALSE(launching->isOpen);
  EXPECT_FALSE(launching->isTool);
  const auto tool = clientcomm::processRecordFromBytes(committed("process.4711-tool"));
  ASSERT_TRUE(tool);
  EXPECT_TRUE(tool->isTool);
  const auto bytes = clientcomm::processRecordFromBytes(committed("process.4711-bytes"));
  ASSERT_TRUE(bytes);
  EXPECT_EQ(bytes->bundlePath, "/opt/Peer \xFF.app");
}

TEST(FilesOfVersion1, ProcessRecordIsWritten) {
  clientcomm::recordOwnProcess().ignore();
  EXPECT_EQ(support::readFile(ownRecordPath()), ownRecord("process.4711"));
}

TEST(FilesOfVersion1, ProcessRecordOfAToolIsWritten) {
  auto info = support::defaultHostInfo();
  info.insert_or_assign("CFBundleExecutable", "Another");
  support::writeHostInfo(info);
  clientcomm::recordOwnProcess().ignore();
  EXPECT_EQ(support::readFile(ownRecordPath()), ownRecord("process.4711-tool"));
}

TEST(FilesOfVersion1, ProcessRecordOfTheLauncherIsWritten) {
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  clientcomm::recordLaunchedProcess(getpid(), Bundle(support::hostBundlePath())).ignore();
  EXPECT_EQ(support::readFile(ownRecordPath()), recordOfThisProcess("process.4711-launching"));
}

TEST(FilesOfVersion1, EndpointRecordIsReadAndWritten) {
  const auto record = clientcomm::endpointRecordFromBytes(committed("endpoint"));
  ASSERT_TRUE(record);
  EXPECT_EQ(record->bundlePath, kPeerPath);
  EXPECT_EQ(record->device, 2049U);
  EXPECT_EQ(record->inode, std::numeric_limits<std::uint64_t>::max());
  struct stat socket = {};
  socket.st_dev = 2049;
  socket.st_ino = std::numeric_limits<ino_t>::max();
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  clientcomm::writeEndpointRecord(folder.get(), "0123", socket);
  EXPECT_EQ(support::readFile(runtimePath("endpoint.0123")),
            committed("endpoint", {{kPeerPath, support::hostBundlePath()}}));
}

TEST(FilesOfVersion1, LaunchRecordIsReadAndWritten) {
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  const std::string path = runtimePath(clientcomm::launchRecordName(kPeerPath));
  support::writeFile(path, committed("launch"));
  const auto record = clientcomm::lastLaunchOf(folder.get(), kPeerPath);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->bundlePath, kPeerPath);
  EXPECT_EQ(record->bundleState, kState);
  EXPECT_EQ(record->pid, 4711);
  EXPECT_EQ(record->startTime, 123456U);
  EXPECT_EQ(record->time.count(), 1234560);
  EXPECT_EQ(record->failures, 2);
  EXPECT_EQ(record->pidNamespace, kFirstNamespace);
  fs::remove(path);
  clientcomm::noteLaunch(folder.get(), "com.example.peer", *record).ignore();
  EXPECT_EQ(support::readFile(path), committed("launch"));
}

// --- Beside a destination. ---

TEST(FilesOfVersion1, NamesBesideADestinationAreTheCommittedOnes) {
  const std::string numbers = std::to_string(getpid()) + "-1";
  EXPECT_EQ(clientcomm::nextPartialName("Helper.app"), ".Helper.app.partial-" + numbers);
  EXPECT_EQ(clientcomm::nextRemovedName("Helper.app"), ".Helper.app.removed-" + numbers);
  EXPECT_EQ(clientcomm::pathBeforeRemoval("/install/.Helper.app.removed-4711-1/Helper.app"),
            "/install/Helper.app");
}

TEST(FilesOfVersion1, RecoveryCopyIsReadAndWritten) {
  const std::string file = support::sandbox() + "/folder/Info.plist";
  const std::string copyPath =
      support::sandbox() + "/folder/.Info.plist.recovery-" + std::to_string(geteuid());
  support::writeFile(file, "<?xml");
  support::writeFile(copyPath, committed("recovery"));
  std::string content;
  ASSERT_TRUE(clientcomm::readSettingsFile(file, content).isOk());
  EXPECT_NE(content.find("<false/>"), std::string::npos);
  EXPECT_FALSE(fs::exists(copyPath));
  std::string before = content;
  before.replace(before.find("<false/>"), 8, "<true/>");
  std::optional<clientcomm::RecoveryCopy> copy;
  ASSERT_TRUE(clientcomm::RecoveryCopy::make(file, before, content, copy).isOk());
  EXPECT_EQ(support::readFile(copyPath), committed("recovery"));
}

// --- Preferences and switches. ---

const std::string& preferencesPath() {
  static const std::string path = support::sandbox() + "/config/Preferences/com.example.peer.plist";
  return path;
}

TEST(FilesOfVersion1, PreferencesAreReadAndWritten) {
  const auto committedValues = support::committedDictionary("preferences.plist");
  {
    clientcomm::UserDefaults defaults("com.example.peer");
    for (const auto& [key, value] : committedValues) defaults.setObject(value, key);
    ASSERT_TRUE(defaults.synchronize());
  }
  EXPECT_EQ(support::readFile(preferencesPath()), committed("preferences.plist"));
  clientcomm::UserDefaults defaults("com.example.peer");
  EXPECT_EQ(defaults.stringForKey(clientcomm::kPIDKey), "1234");
  EXPECT_EQ(defaults.stringForKey(clientcomm::kExecutableFileKey), "/opt/Host.app");
  EXPECT_EQ(defaults.persistentDomainForName("com.example.peer"), committedValues);
}

TEST(FilesOfVersion1, SwitchesAreReadAndWritten) {
  const std::string list = support::sandbox() + "/Info.plist";
  const std::string table = support::sandbox() + "/InfoPlist.strings";
  const PropertyListDictionary switches = {{clientcomm::kEnableADKey, false},
                                           {clientcomm::kTipsEnableKey, true}};
  EXPECT_EQ(support::committedDictionary("Info.plist"), switches);
  ASSERT_TRUE(clientcomm::writeDictionaryToFile(switches, list));
  EXPECT_EQ(support::readFile(list), committed("Info.plist"));
  const auto values = clientcomm::propertyListFromBytes(committed("InfoPlist.strings"));
  const PropertyListDictionary expected = {{clientcomm::kEnableADKey, "0"},
                                           {clientcomm::kTipsEnableKey, "1"}};
  ASSERT_TRUE(values);
  EXPECT_EQ(*values, PropertyListValue(expected));
  const std::string text = clientcomm::descriptionInStringsFileFormat(expected);
  ASSERT_TRUE(clientcomm::writeTextToFileAsUTF16(text, table).isOk());
  EXPECT_EQ(support::readFile(table), committed("InfoPlist.strings"));
}

}  // namespace
