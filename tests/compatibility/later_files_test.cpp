// Files that a later version wrote, or that are not whole: the rules for all files in
// docs/files.md.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/linux/endpoint_record.h"
#include "ClientComm/platform/linux/launch_record.h"
#include "ClientComm/platform/linux/launch_record_format.h"
#include "ClientComm/platform/linux/process_record.h"
#include "ClientComm/platform/linux/process_record_format.h"
#include "ClientComm/platform/linux/process_record_writer.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/stale_files.h"
#include "ClientComm/platform/posix/removed_name.h"
#include "ClientComm/platform/user_defaults.h"
#include "tests/compatibility/committed_files.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using clientcomm::Bundle;
using clientcomm::LaunchRecord;
using clientcomm::openRuntimeFolder;
using clientcomm::processRecordFromBytes;
using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;
using clientcomm::ScopedFd;
using support::committed;
using support::committedDictionary;
using support::runtimePath;

constexpr char kPeerPath[] = "/opt/Peer.app";
constexpr char kLaterKey[] = "AKeyOfALaterVersion";
constexpr pid_t kNoProcess = 99'999'999;

PropertyListValue laterValue() {
  return PropertyListDictionary{{"A", PropertyListValue::Array{1, "two", true}}};
}

// The dictionary in the file at `path`; an empty one without it.
PropertyListDictionary dictionaryAt(const std::string& path) {
  return clientcomm::dictionaryWithContentsOfFile(path).value_or(PropertyListDictionary());
}

void addLaterKey(const std::string& path) {
  auto dictionary = dictionaryAt(path);
  dictionary.insert_or_assign(kLaterKey, laterValue());
  support::writeFile(path, clientcomm::xmlPropertyList(dictionary));
}

bool hasLaterKey(const std::string& path) {
  const auto dictionary = dictionaryAt(path);
  const auto entry = dictionary.find(kLaterKey);
  return entry != dictionary.end() && entry->second == laterValue();
}

std::string ownRecordPath() { return runtimePath(clientcomm::processRecordName(getpid())); }

LaunchRecord launchOf(const std::string& state) {
  return {kPeerPath, state, kNoProcess, 1, std::chrono::milliseconds(5)};
}

std::string launchPath() { return runtimePath(clientcomm::launchRecordName(kPeerPath)); }

// --- A later version. ---

TEST(FilesOfALaterVersion, RecordsAreReadByTheKeysThatAreKnown) {
  auto process = committedDictionary("process.4711");
  process.insert_or_assign(kLaterKey, laterValue());
  const auto record = processRecordFromBytes(clientcomm::xmlPropertyList(process));
  ASSERT_TRUE(record);
  EXPECT_EQ(record->bundlePath, kPeerPath);
  EXPECT_TRUE(record->isOpen);
  auto endpoint = committedDictionary("endpoint");
  endpoint.insert_or_assign(kLaterKey, laterValue());
  EXPECT_TRUE(clientcomm::endpointRecordFromBytes(clientcomm::xmlPropertyList(endpoint)));
}

TEST(FilesOfALaterVersion, ProcessKeepsWhatItsLauncherWroteOfIt) {
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  clientcomm::recordLaunchedProcess(getpid(), Bundle(support::hostBundlePath())).ignore();
  addLaterKey(ownRecordPath());
  clientcomm::recordOwnProcess().ignore();
  EXPECT_TRUE(hasLaterKey(ownRecordPath()));
  EXPECT_FALSE(dictionaryAt(ownRecordPath()).contains(clientcomm::kIsLaunchingKey));
}

TEST(FilesOfALaterVersion, ProcessDropsWhatIsOfAnEarlierProcessOfItsID) {
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  clientcomm::recordLaunchedProcess(getpid(), Bundle(support::hostBundlePath())).ignore();
  auto record = dictionaryAt(ownRecordPath());
  record.insert_or_assign(clientcomm::kStartTimeKey, 1);
  support::writeFile(ownRecordPath(), clientcomm::xmlPropertyList(record));
  addLaterKey(ownRecordPath());
  clientcomm::recordOwnProcess().ignore();
  EXPECT_FALSE(hasLaterKey(ownRecordPath()));
}

TEST(FilesOfALaterVersion, ProcessDropsWhatIsNotSaidOfItAndItsBundle) {
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  clientcomm::recordLaunchedProcess(getpid(), Bundle(support::hostBundlePath())).ignore();
  const auto launched = dictionaryAt(ownRecordPath());
  auto another = launched;
  another.insert_or_assign(clientcomm::kBundlePathKey, kPeerPath);
  auto without = launched;
  without.erase(clientcomm::kStartTimeKey);
  for (const auto& record : {another, without}) {
    fs::remove(ownRecordPath());
    support::writeFile(ownRecordPath(), clientcomm::xmlPropertyList(record));
    addLaterKey(ownRecordPath());
    clientcomm::recordOwnProcess().ignore();
    EXPECT_FALSE(hasLaterKey(ownRecordPath()));
    const auto own = clientcomm::processRecordForPID(getpid());
    ASSERT_TRUE(own);
    EXPECT_EQ(own->bundlePath, support::hostBundlePath());
  }
}

TEST(FilesOfALaterVersion, LaunchRecordKeepsItsKeysAsLongAsTheBundleIsTheSame) {
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  clientcomm::noteLaunch(folder.get(), "", launchOf("state")).ignore();
  addLaterKey(launchPath());
  EXPECT_TRUE(clientcomm::lastLaunchOf(folder.get(), kPeerPath));
  clientcomm::noteLaunch(folder.get(), "", launchOf("state")).ignore();
  EXPECT_TRUE(hasLaterKey(launchPath()));
  clientcomm::noteLaunch(folder.get(), "", launchOf("another state")).ignore();
  EXPECT_FALSE(hasLaterKey(launchPath()));
}

TEST(FilesOfALaterVersion, EndpointRecordIsOfOneSocketAndKeepsNothing) {
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  clientcomm::writeEndpointRecord(folder.get(), "0123", {});
  addLaterKey(runtimePath("endpoint.0123"));
  clientcomm::writeEndpointRecord(folder.get(), "0123", {});
  EXPECT_FALSE(hasLaterKey(runtimePath("endpoint.0123")));
}

TEST(FilesOfALaterVersion, PreferencesAndSwitchesKeepTheirKeys) {
  const std::string path = support::sandbox() + "/config/Preferences/com.example.peer.plist";
  support::writeFile(path, committed("preferences.plist"));
  addLaterKey(path);
  clientcomm::UserDefaults defaults("com.example.peer");
  defaults.setObject(PropertyListValue("5678"), "PID");
  ASSERT_TRUE(defaults.synchronize());
  EXPECT_TRUE(hasLaterKey(path));
  auto info = support::defaultHostInfo();
  info.insert_or_assign(kLaterKey, laterValue());
  support::writeHostInfo(info);
  TQHPHelperCommunicate::share().setEnableAD(true);
  const std::string infoPath = support::hostBundlePath() + "/Contents/Info.plist";
  EXPECT_TRUE(dictionaryAt(infoPath).contains("EnableAD"));
  EXPECT_TRUE(hasLaterKey(infoPath));
}

TEST(FilesOfALaterVersion, FilesUnderOtherNamesAreLeftAlone) {
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  const std::string gone = std::to_string(kNoProcess);
  const std::string digest = clientcomm::fileNameForIdentifier("com.example.peer");
  const std::vector<std::string> names = {"process2." + gone,         "process." + gone + ".x",
                                          "process." + gone + ".1.2", "process.0" + gone,
                                          "launch2." + digest,        "endpoint." + digest + ".2",
                                          digest + "." + gone + ".x", digest + "." + gone + ".1.2"};
  for (const std::string& name : names) {
    support::writeFile(runtimePath(name), committed("process.4711"));
    // Old enough for everything that is cleared by age.
    fs::last_write_time(runtimePath(name),
                        fs::file_time_type::clock::now() - std::chrono::hours(1));
  }
  clientcomm::clearStaleFiles(folder.get());
  for (const std::string& name : names) EXPECT_TRUE(fs::exists(runtimePath(name))) << name;
}

TEST(FilesOfALaterVersion, MarkOfRemovalOfAnotherFormIsNoMark) {
  const std::string name = ".Helper.app.removed-1-2-3";
  EXPECT_FALSE(clientcomm::isRemovedName(name, "Helper.app"));
  EXPECT_EQ(clientcomm::pathBeforeRemoval("/install/" + name), "/install/" + name);
}

// --- Files that are not whole. ---

TEST(HalfWrittenFiles, AreNoRecords) {
  for (const std::string name : {"process.4711", "process.4711-bytes", "endpoint"}) {
    const std::string whole = committed(name);
    // Without the line feed at its end the list is whole.
    for (std::size_t size = 0; size + 1 < whole.size(); ++size) {
      const std::string_view half = std::string_view(whole).substr(0, size);
      EXPECT_FALSE(processRecordFromBytes(half)) << half;
      EXPECT_FALSE(clientcomm::endpointRecordFromBytes(half)) << half;
    }
  }
}

TEST(HalfWrittenFiles, LaunchRecordIsNoneAndIsReplaced) {
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  const std::string whole = committed("launch");
  support::writeFile(launchPath(), whole.substr(0, whole.size() / 2));
  EXPECT_FALSE(clientcomm::lastLaunchOf(folder.get(), kPeerPath));
  EXPECT_TRUE(clientcomm::noteLaunch(folder.get(), "", launchOf("state")).isOk());
  EXPECT_TRUE(clientcomm::lastLaunchOf(folder.get(), kPeerPath));
}

TEST(HalfWrittenFiles, ProcessRecordOfALiveProcessIsLeftToItAndReplacedByIt) {
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  const std::string half = committed("process.4711").substr(0, 200);
  const std::string parents = runtimePath(clientcomm::processRecordName(getppid()));
  const std::string killed = runtimePath(clientcomm::processRecordName(kNoProcess));
  for (const std::string& path : {parents, killed, ownRecordPath()}) {
    support::writeFile(path, half);
  }
  EXPECT_FALSE(clientcomm::processRecordForPID(getppid()));
  clientcomm::recordOwnProcess().ignore();
  EXPECT_EQ(support::readFile(parents), half);
  EXPECT_FALSE(fs::exists(killed));
  EXPECT_TRUE(clientcomm::processRecordForPID(getpid()));
}

TEST(HalfWrittenFiles, PreferencesAreKeptAsideByAWriter) {
  const std::string path = support::sandbox() + "/config/Preferences/com.example.peer.plist";
  const std::string half = committed("preferences.plist").substr(0, 300);
  support::writeFile(path, half);
  clientcomm::UserDefaults defaults("com.example.peer");
  EXPECT_FALSE(defaults.objectForKey("PID"));
  defaults.setObject(PropertyListValue("5678"), "PID");
  ASSERT_TRUE(defaults.synchronize());
  EXPECT_EQ(defaults.stringForKey("PID"), "5678");
  EXPECT_EQ(support::readFile(path + ".corrupt-1"), half);
}

// --- Values of a wrong type. ---

// The records that are made of the committed file `name`, each with one value of another type.
template <typename Check>
void forEachWrongType(const std::string& name, const Check& check) {
  const auto whole = committedDictionary(name);
  for (const auto& [key, value] : whole) {
    for (const PropertyListValue& other : support::valuesOfOtherTypes(value)) {
      auto record = whole;
      record.insert_or_assign(key, other);
      SCOPED_TRACE(clientcomm::xmlPropertyList({{key, other}}));
      check(key, clientcomm::xmlPropertyList(record));
    }
  }
}

TEST(KeysOfAWrongType, AreMissingInAProcessRecord) {
  forEachWrongType("process.4711", [](const std::string& key, const std::string& bytes) {
    const auto record = processRecordFromBytes(bytes);
    ASSERT_EQ(record.has_value(), key != clientcomm::kStartTimeKey);
    if (!record) return;
    EXPECT_EQ(record->isOpen, key != clientcomm::kBundlePathKey);
    EXPECT_EQ(record->bundlePath.empty(), key == clientcomm::kBundlePathKey);
    EXPECT_EQ(record->bundleName.empty(), key == clientcomm::kCFBundleNameKey);
    EXPECT_EQ(record->bundleIdentifier.empty(), key == clientcomm::kCFBundleIdentifierKey);
    EXPECT_EQ(record->pidNamespace == 0, key == clientcomm::kPIDNamespaceKey);
  });
}

TEST(KeysOfAWrongType, AreMissingInAnEndpointRecord) {
  forEachWrongType("endpoint", [](const std::string& /*key*/, const std::string& bytes) {
    const auto record = clientcomm::endpointRecordFromBytes(bytes);
    EXPECT_FALSE(record && record->inode == std::numeric_limits<std::uint64_t>::max() &&
                 record->device == 2049);
  });
}

TEST(KeysOfAWrongType, AreMissingInALaunchRecord) {
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  forEachWrongType("launch", [&](const std::string& key, const std::string& bytes) {
    support::writeFile(launchPath(), bytes);
    const auto record = clientcomm::lastLaunchOf(folder.get(), kPeerPath);
    ASSERT_EQ(record.has_value(), key != clientcomm::kProcessIDKey);
    if (!record) return;
    EXPECT_EQ(record->bundleState.empty(), key == clientcomm::kBundleStateKey);
    EXPECT_EQ(record->startTime == 0, key == clientcomm::kStartTimeKey);
    EXPECT_EQ(record->time.count() == 0, key == clientcomm::kTimeKey);
    EXPECT_EQ(record->failures == 0, key == clientcomm::kFailuresKey);
    EXPECT_EQ(record->pidNamespace == 0, key == clientcomm::kPIDNamespaceKey);
  });
}

TEST(KeysOfAWrongType, NumbersThatAreTooLargeDoNotWrap) {
  const ScopedFd folder = openRuntimeFolder(clientcomm::IfMissing::kCreate);
  auto content = committedDictionary("launch");
  content.insert_or_assign(clientcomm::kFailuresKey, std::numeric_limits<std::uint64_t>::max());
  content.insert_or_assign(clientcomm::kTimeKey, std::numeric_limits<std::uint64_t>::max());
  support::writeFile(launchPath(), clientcomm::xmlPropertyList(content));
  const auto record = clientcomm::lastLaunchOf(folder.get(), kPeerPath);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->failures, 1'000'000);
  EXPECT_GT(record->time.count(), 0);
  content.insert_or_assign(clientcomm::kProcessIDKey, (std::int64_t{1} << 32) + 4711);
  support::writeFile(launchPath(), clientcomm::xmlPropertyList(content));
  EXPECT_FALSE(clientcomm::lastLaunchOf(folder.get(), kPeerPath));
}

TEST(KeysOfAWrongType, InPreferencesAreNotTheStringThatWasAskedFor) {
  const std::string path = support::sandbox() + "/config/Preferences/com.example.peer.plist";
  for (const PropertyListValue& other : support::valuesOfOtherTypes("1234")) {
    support::writeFile(path, clientcomm::xmlPropertyList({{"PID", other}}));
    clientcomm::UserDefaults defaults("com.example.peer");
    EXPECT_FALSE(defaults.stringForKey("PID"));
    EXPECT_EQ(defaults.objectForKey("PID"), other);
  }
}

}  // namespace
