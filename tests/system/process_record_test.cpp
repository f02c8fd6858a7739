#include "ClientComm/platform/linux/process_record.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/linux/process_record_format.h"
#include "ClientComm/platform/linux/process_record_writer.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/property_list.h"
#include "tests/support/child_process.h"
#include "tests/support/stepped_process.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using clientcomm::processRecordForPID;
using clientcomm::processStartTime;
using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;
using clientcomm::recordOwnProcess;
using support::ChildProcess;

// Records itself, says so, and does what it is told: "exit", "fork" (a child that ends as programs
// do), "child" (a child that records itself and waits), "again".
int runRecorder(const std::vector<std::string>& /*arguments*/) {
  recordOwnProcess().ignore();
  std::puts("ready");
  std::fflush(stdout);
  std::string command;
  for (int c = std::getchar(); c != EOF; c = std::getchar()) {
    if (c != '\n') {
      command += static_cast<char>(c);
      continue;
    }
    if (command == "exit") return 0;
    if (command == "again") recordOwnProcess().ignore();
    if (command == "fork") ChildProcess::fork([]() -> int { std::exit(0); }).wait();
    if (command == "child") {
      ChildProcess::fork([]() -> int {
        recordOwnProcess().ignore();
        std::exit(processRecordForPID(getpid()) ? 0 : 1);
      }).wait();
    }
    std::puts("done");
    std::fflush(stdout);
    command.clear();
  }
  return 0;
}
const support::Role recorder("recorder", runRecorder);

std::string folderPath() { return support::sandbox() + "/runtime/ClientComm"; }
std::string recordPath(pid_t pid) {
  return folderPath() + "/" + clientcomm::processRecordName(pid);
}

// The second name, where another PID namespace has the first.
std::string secondPath(pid_t pid) {
  return folderPath() + "/" + clientcomm::processRecordName(pid, clientcomm::ownPIDNamespace());
}

std::vector<std::string> namesInFolder() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folderPath())) {
    names.push_back(entry.path().filename());
  }
  return names;
}

ChildProcess startRecorder(const std::string& application) {
  ChildProcess process = support::runApplication(application);
  EXPECT_EQ(process.readLine(), "ready");
  return process;
}

void tell(ChildProcess& process, const std::string& command) {
  process.write(command + "\n");
  EXPECT_EQ(process.readLine(), "done");
}

std::string makeRecorder(const std::string& name = "Recorder") {
  return support::makeApplication(name, "com.example.recorder", "recorder");
}

PropertyListDictionary forgedRecord(std::uint64_t startTime) {
  return {{clientcomm::kStartTimeKey, startTime},
          {clientcomm::kCFBundleIdentifierKey, "com.example.forged"},
          {clientcomm::kBundlePathKey, "/forged/Forged.app"},
          {clientcomm::kCFBundleNameKey, "Forged"}};
}

// Writes what a process of that ID that was started at `startTime` would have written.
void forgeRecord(pid_t pid, std::uint64_t startTime) {
  support::writeFile(recordPath(pid), clientcomm::xmlPropertyList(forgedRecord(startTime)));
}

// The same of a process in another PID namespace, which has the same ID there and, so that nothing
// else tells the two apart, was started in the same instant.
void forgeForeignRecord(pid_t pid) {
  auto record = forgedRecord(processStartTime(pid).value());
  record.insert_or_assign(clientcomm::kPIDNamespaceKey, clientcomm::ownPIDNamespace() + 1);
  support::writeFile(recordPath(pid) + ".moved", clientcomm::xmlPropertyList(record));
  fs::rename(recordPath(pid) + ".moved", recordPath(pid));
}

TEST(ProcessRecord, WritesWhatTheProcessIsForItsUserAlone) {
  const std::string application = makeRecorder();
  const ChildProcess process = startRecorder(application);
  const auto record = clientcomm::dictionaryWithContentsOfFile(recordPath(process.pid()));
  ASSERT_TRUE(record);
  EXPECT_EQ(record->at("CFBundleIdentifier"), PropertyListValue("com.example.recorder"));
  EXPECT_EQ(record->at("BundlePath"), PropertyListValue(application));
  EXPECT_EQ(record->at("CFBundleName"), PropertyListValue("Recorder"));
  EXPECT_EQ(record->at("StartTime"),
            PropertyListValue(static_cast<std::int64_t>(processStartTime(process.pid()).value())));
  struct stat status = {};
  ASSERT_EQ(stat(recordPath(process.pid()).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

// --- What a process that is killed on the way leaves. ---

std::string digest() { return clientcomm::fileNameForIdentifier("com.example.killed"); }

// The ID of a process that has been reaped.
pid_t deadProcess() {
  ChildProcess process = ChildProcess::fork([] { return 0; });
  const pid_t pid = process.pid();
  process.wait();
  return pid;
}

TEST(ProcessRecord, SocketsAndDraftsOfKilledProcessesAreCleared) {
  const std::string dead = std::to_string(deadProcess());
  const std::string alive = std::to_string(getpid());
  const std::string kept[] = {digest(),
                              digest() + "." + dead,
                              digest() + "." + alive + ".1",
                              digest() + ".x",
                              digest().substr(1) + "." + dead,
                              "process." + alive + ".new",
                              "process." + dead + "." + alive + ".new",
                              "launch." + digest() + "." + alive + ".new",
                              "launch." + digest() + ".new",
                              "endpoint." + digest() + "." + alive + ".new",
                              "endpoint." + digest() + ".new"};
  const std::string stale[] = {digest() + "." + dead + ".1",
                               digest() + "." + dead + ".2",
                               "process." + dead + ".new",
                               "process." + alive + "." + dead + ".new",
                               "process." + alive + ".12." + dead + ".new",
                               "launch." + digest() + "." + dead + ".new",
                               "endpoint." + digest() + "." + dead + ".new"};
  for (const auto& name : kept) support::writeFile(folderPath() + "/" + name, "");
  for (const auto& name : stale) support::writeFile(folderPath() + "/" + name, "");
  chmod(folderPath().c_str(), 0700);
  const ChildProcess process = startRecorder(makeRecorder());
  for (const auto& name : kept) EXPECT_TRUE(fs::exists(folderPath() + "/" + name)) << name;
  for (const auto& name : stale) EXPECT_FALSE(fs::exists(folderPath() + "/" + name)) << name;
}

// Another process may have got the ID of the one that was killed.
TEST(ProcessRecord, OldSocketsAndDraftsAreClearedWhicheverProcessHasTheirIDNow) {
  const std::string alive = std::to_string(getpid());
  for (const std::string& name :
       {digest() + "." + alive + ".1", "process." + alive + ".new", "launch." + digest() + ".new",
        "endpoint." + digest() + ".new", "endpoint." + digest() + "." + alive + ".new"}) {
    const fs::path path = folderPath() + "/" + name;
    support::writeFile(path, "");
    fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::minutes(2));
  }
  chmod(folderPath().c_str(), 0700);
  const ChildProcess process = startRecorder(makeRecorder());
  const std::string record = "process." + std::to_string(process.pid());
  EXPECT_EQ(namesInFolder(), std::vector<std::string>{record});
}

TEST(ProcessRecord, RecordIsReadBackByOthers) {
  const std::string application = makeRecorder();
  const ChildProcess process = startRecorder(application);
  const auto record = processRecordForPID(process.pid());
  ASSERT_TRUE(record);
  EXPECT_EQ(record->bundleIdentifier, "com.example.recorder");
  EXPECT_EQ(record->bundlePath, application);
  EXPECT_EQ(record->bundleName, "Recorder");
  EXPECT_EQ(record->startTime, processStartTime(process.pid()));
}

TEST(ProcessRecord, PathsOfAnyBytesAreReadBackAsTheyStand) {
  const std::string folder = " a\xFF\xC3(\n\r\t<&>\"'\x01\xE2\x82\xAC ";
  const std::string application =
      support::makeApplication("Recorder", "com.example.recorder", "recorder", {}, folder);
  const ChildProcess process = startRecorder(application);
  const auto record = processRecordForPID(process.pid());
  ASSERT_TRUE(record);
  EXPECT_EQ(record->bundlePath, application);
}

TEST(ProcessRecord, IsMissingUntilItIsWritten) {
  const pid_t other = getppid();
  EXPECT_TRUE(clientcomm::hasNoProcessRecord(getpid()));
  ASSERT_TRUE(recordOwnProcess().isOk());
  EXPECT_FALSE(clientcomm::hasNoProcessRecord(getpid()));
  EXPECT_TRUE(clientcomm::hasNoProcessRecord(other));
}

TEST(ProcessRecord, WorksUnderARuntimePathOf200Characters) {
  setenv("XDG_RUNTIME_DIR", (support::sandbox() + "/" + std::string(200, 'r')).c_str(), 1);
  const ChildProcess process = startRecorder(makeRecorder());
  EXPECT_TRUE(processRecordForPID(process.pid()));
}

TEST(ProcessRecord, RecordGoesWhenTheProcessExits) {
  ChildProcess process = startRecorder(makeRecorder());
  ASSERT_TRUE(fs::exists(recordPath(process.pid())));
  process.write("exit\n");
  EXPECT_EQ(process.wait(), 0);
  EXPECT_TRUE(namesInFolder().empty());
}

TEST(ProcessRecord, RecordOfAKilledProcessIsClearedAwayByTheNext) {
  const std::string application = makeRecorder();
  ChildProcess killed = startRecorder(application);
  killed.signal(SIGKILL);
  killed.wait();
  EXPECT_TRUE(fs::exists(recordPath(killed.pid())));
  EXPECT_FALSE(processRecordForPID(killed.pid()));
  const ChildProcess next = startRecorder(application);
  EXPECT_FALSE(fs::exists(recordPath(killed.pid())));
  EXPECT_TRUE(fs::exists(recordPath(next.pid())));
}

TEST(ProcessRecord, RecordOfAnotherLiveProcessIsKept) {
  const std::string application = makeRecorder();
  const ChildProcess first = startRecorder(application);
  const ChildProcess second = startRecorder(application);
  EXPECT_TRUE(processRecordForPID(first.pid()));
  EXPECT_TRUE(processRecordForPID(second.pid()));
}

TEST(ProcessRecord, RecordOfAnEarlierProcessOfTheSameIDIsNotBelievedAndClearedAway) {
  forgeRecord(getpid(), processStartTime(getpid()).value() - 1);
  EXPECT_FALSE(processRecordForPID(getpid()));
  const ChildProcess process = startRecorder(makeRecorder());
  EXPECT_FALSE(fs::exists(recordPath(getpid())));
}

TEST(ProcessRecord, UnfinishedRecordsOfProcessesThatAreGoneAreClearedAway) {
  support::writeFile(recordPath(99'999'999) + ".new", "<?xml");
  support::writeFile(recordPath(getpid()) + ".new", "<?xml");
  const ChildProcess process = startRecorder(makeRecorder());
  EXPECT_FALSE(fs::exists(recordPath(99'999'999) + ".new"));
  EXPECT_TRUE(fs::exists(recordPath(getpid()) + ".new"));
}

TEST(ProcessRecord, LeavesOtherFilesInTheFolderAlone) {
  const std::vector<std::string> others = {"process.",    "process.12x", "process.-5",
                                           "process.0",   "other",       "process.99999999999999",
                                           "process.new", "xprocess.12"};
  for (const std::string& name : others) support::writeFile(folderPath() + "/" + name, name);
  const ChildProcess process = startRecorder(makeRecorder());
  for (const std::string& name : others) {
    EXPECT_EQ(support::readFile(folderPath() + "/" + name), name);
  }
}

TEST(ProcessRecord, SecondCallInTheSameProcessDoesNothing) {
  ChildProcess process = startRecorder(makeRecorder());
  struct stat first = {};
  struct stat second = {};
  ASSERT_EQ(stat(recordPath(process.pid()).c_str(), &first), 0);
  tell(process, "again");
  ASSERT_EQ(stat(recordPath(process.pid()).c_str(), &second), 0);
  EXPECT_EQ(first.st_ino, second.st_ino);
  EXPECT_EQ(first.st_mtim.tv_nsec, second.st_mtim.tv_nsec);
}

TEST(ProcessRecord, ForkedChildThatExitsLeavesItsParentsRecord) {
  ChildProcess process = startRecorder(makeRecorder());
  tell(process, "fork");
  EXPECT_TRUE(processRecordForPID(process.pid()));
}

TEST(ProcessRecord, ForkedChildHasARecordOfItsOwnAndRemovesOnlyThat) {
  ChildProcess process = startRecorder(makeRecorder());
  tell(process, "child");
  EXPECT_TRUE(processRecordForPID(process.pid()));
  EXPECT_EQ(namesInFolder().size(), 1U);
}

TEST(ProcessRecord, ProcessWithoutABundleIdentifierWritesNothing) {
  const std::string application = makeRecorder();
  support::writeFile(application + "/Contents/Info.plist",
                     clientcomm::xmlPropertyList({{"TestRole", "recorder"}}));
  const ChildProcess process = startRecorder(application);
  EXPECT_FALSE(fs::exists(folderPath()));
}

TEST(ProcessRecord, WithoutAUsableFolderNothingHappens) {
  support::writeFile(folderPath(), "in the way");
  ChildProcess process = startRecorder(makeRecorder());
  EXPECT_FALSE(processRecordForPID(process.pid()));
  process.write("exit\n");
  EXPECT_EQ(process.wait(), 0);
  EXPECT_EQ(support::readFile(folderPath()), "in the way");
}

// --- Processes of the same ID in different PID namespaces. ---

bool isForeign(const std::string& path) {
  const auto record = clientcomm::dictionaryWithContentsOfFile(path);
  return record && record->at(clientcomm::kCFBundleNameKey) == PropertyListValue("Forged");
}

TEST(ProcessRecord, IsWrittenUnderTheSecondNameWhereAnotherNamespaceHasTheFirst) {
  const clientcomm::ScopedFd folder = clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate);
  forgeForeignRecord(getpid());
  recordOwnProcess().ignore();
  EXPECT_TRUE(isForeign(recordPath(getpid())));
  EXPECT_TRUE(fs::exists(secondPath(getpid())));
  const auto record = processRecordForPID(getpid());
  ASSERT_TRUE(record);
  EXPECT_EQ(record->bundleIdentifier, "com.example.testhost");
}

TEST(ProcessRecord, OfTheLauncherIsWrittenUnderTheSecondNameToo) {
  const clientcomm::ScopedFd folder = clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate);
  forgeForeignRecord(getpid());
  clientcomm::recordLaunchedProcess(getpid(), clientcomm::Bundle(support::hostBundlePath()))
      .ignore();
  EXPECT_TRUE(isForeign(recordPath(getpid())));
  const auto record = processRecordForPID(getpid());
  ASSERT_TRUE(record);
  EXPECT_FALSE(record->isOpen);
}

TEST(ProcessRecord, OfTheLauncherIsNeverSeenHalfWritten) {
  const clientcomm::ScopedFd folder = clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate);
  const pid_t pid = getpid();
  const clientcomm::Bundle bundle(support::hostBundlePath());
  support::SteppedProcess launcher(
      [&] { clientcomm::recordLaunchedProcess(pid, bundle).ignore(); });
  if (!launcher.isTraced()) GTEST_SKIP() << "no process can be traced here";
  bool isSeen = false;
  while (launcher.step()) {
    isSeen = isSeen || fs::exists(recordPath(pid));
    EXPECT_EQ(processRecordForPID(pid).has_value(), isSeen);
  }
  EXPECT_TRUE(processRecordForPID(pid));
}

TEST(ProcessRecord, ThatAnotherNamespaceOverwritesIsWrittenAgainAndGoesWithTheProcess) {
  ChildProcess process = startRecorder(makeRecorder());
  forgeForeignRecord(process.pid());
  tell(process, "again");
  EXPECT_TRUE(isForeign(recordPath(process.pid())));
  EXPECT_EQ(processRecordForPID(process.pid())->bundleIdentifier, "com.example.recorder");
  process.write("exit\n");
  EXPECT_EQ(process.wait(), 0);
  EXPECT_TRUE(isForeign(recordPath(process.pid())));
  EXPECT_FALSE(fs::exists(secondPath(process.pid())));
}

// A file system gives the inode of a removed file to the next one.
TEST(ProcessRecord, ThatAnotherFileOfTheSameInodeReplacesIsWrittenAgain) {
  ChildProcess process = startRecorder(makeRecorder());
  struct stat own = {};
  struct stat forged = {};
  ASSERT_EQ(stat(recordPath(process.pid()).c_str(), &own), 0);
  forgeRecord(process.pid(), processStartTime(process.pid()).value());  // written in place
  ASSERT_EQ(stat(recordPath(process.pid()).c_str(), &forged), 0);
  ASSERT_EQ(own.st_ino, forged.st_ino);
  tell(process, "again");
  EXPECT_EQ(processRecordForPID(process.pid())->bundleIdentifier, "com.example.recorder");
}

TEST(ProcessRecord, UnderTheSecondNameIsClearedByItsOwnNamespaceOnly) {
  const std::string dead = "process." + std::to_string(deadProcess()) + ".";
  const std::string own = dead + std::to_string(clientcomm::ownPIDNamespace());
  const std::string foreign = dead + std::to_string(clientcomm::ownPIDNamespace() + 1);
  const std::string record = clientcomm::xmlPropertyList(forgedRecord(1));
  for (const auto& name : {own, foreign}) support::writeFile(folderPath() + "/" + name, record);
  const ChildProcess process = startRecorder(makeRecorder());
  EXPECT_FALSE(fs::exists(folderPath() + "/" + own));
  EXPECT_TRUE(fs::exists(folderPath() + "/" + foreign));
}

// --- What is believed. ---

class RecordOfThisProcess : public testing::Test {
 protected:
  void SetUp() override { forgeRecord(getpid(), processStartTime(getpid()).value()); }
  const std::string path_ = recordPath(getpid());
};

TEST_F(RecordOfThisProcess, IsBelievedWhenItIsWhole) {
  ASSERT_EQ(chmod(folderPath().c_str(), 0700), 0);
  const auto record = processRecordForPID(getpid());
  ASSERT_TRUE(record);
  EXPECT_EQ(record->bundleIdentifier, "com.example.forged");
}

TEST_F(RecordOfThisProcess, IsNotBelievedWhenItIsALink) {
  fs::rename(path_, folderPath() + "/elsewhere");
  fs::create_symlink("elsewhere", path_);
  EXPECT_FALSE(processRecordForPID(getpid()));
}

TEST_F(RecordOfThisProcess, IsNotBelievedWhenAnotherUserWroteIt) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can give a file away";
  ASSERT_EQ(chown(path_.c_str(), 12345, 12345), 0);
  EXPECT_FALSE(processRecordForPID(getpid()));
}

TEST_F(RecordOfThisProcess, IsNotWaitedForWhenItIsAPipe) {
  fs::remove(path_);
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_FALSE(processRecordForPID(getpid()));
}

TEST_F(RecordOfThisProcess, IsNotBelievedWhenItIsRubbish) {
  const std::string whole = support::readFile(path_);
  const std::string broken[] = {"",
                                "rubbish",
                                whole.substr(0, whole.size() / 2),
                                clientcomm::xmlPropertyList({{"CFBundleIdentifier", "x"}}),
                                clientcomm::xmlPropertyList({{"StartTime", "12"}}),
                                "<plist version=\"1.0\"><array/></plist>",
                                std::string(1 << 20, ' ') + whole};
  for (const std::string& text : broken) {
    support::writeFile(path_, text);
    EXPECT_FALSE(processRecordForPID(getpid())) << text.substr(0, 200);
  }
  support::writeFile(path_, whole);
  EXPECT_TRUE(processRecordForPID(getpid()));
}

TEST(ProcessStartTime, TellsWhenAProcessWasStarted) {
  const auto own = processStartTime(getpid());
  ASSERT_TRUE(own);
  timespec now = {};
  clock_gettime(CLOCK_BOOTTIME, &now);
  const auto ticksPerSecond = static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
  const auto ticks = static_cast<std::uint64_t>(now.tv_sec + 1) * ticksPerSecond;
  EXPECT_LE(*own, ticks);
  EXPECT_GT(*own + 120 * ticksPerSecond, ticks);
}

TEST(ProcessStartTime, IsNotConfusedByTheCommandsName) {
  const auto before = processStartTime(getpid());
  ASSERT_EQ(prctl(PR_SET_NAME, ") R 1 2 3 (x"), 0);
  EXPECT_EQ(processStartTime(getpid()), before);
}

TEST(ProcessStartTime, IsNothingForAProcessThatDoesNotExist) {
  EXPECT_FALSE(processStartTime(99'999'999));
  EXPECT_FALSE(processStartTime(-1));
}

}  // namespace
