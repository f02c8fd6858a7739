#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/platform/linux/process_record_writer.h"
#include "ClientComm/platform/process_table.h"
#include "tests/support/child_process.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using clientcomm::kinfo_proc;
using clientcomm::OptionalString;
using support::ChildProcess;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kHasSanitizer = true;
#else
constexpr bool kHasSanitizer = false;
#endif

int runUntilEndOfInput(const std::vector<std::string>& /*arguments*/) {
  clientcomm::recordOwnProcess().ignore();
  std::puts("ready");
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  return 0;
}
const support::Role listed("listed", runUntilEndOfInput);

ChildProcess start(const std::string& application) {
  ChildProcess process = support::runApplication(application);
  EXPECT_EQ(process.readLine(), "ready");
  return process;
}

std::string makeListed(const std::string& folder = "apps") {
  return support::makeApplication("Listed", "com.example.listed", "listed", {}, folder);
}

ChildProcess startTool() {
  ChildProcess process = ChildProcess::spawn({"/bin/cat"});
  process.write("ready\n");
  EXPECT_EQ(process.readLine(), "ready");
  return process;
}

bool isRunning(const OptionalString& identifier, const OptionalString& path) {
  return TQHPProcessList::share().applicationIsRunning(identifier, path);
}

/// The outcome of GetBSDProcessList, with the table freed.
struct Outcome {
  int status = -1;
  bool hasTable = false;
  std::vector<kinfo_proc> table;
  std::size_t count = 99;
};

Outcome readList() {
  Outcome outcome;
  // What stands in the place before is no table and must not be touched.
  auto* list = reinterpret_cast<kinfo_proc*>(std::uintptr_t{8});
  outcome.status = GetBSDProcessList(&list, &outcome.count);
  outcome.hasTable = list != nullptr;
  if (list != nullptr) outcome.table.assign(list, list + outcome.count);
  std::free(list);
  return outcome;
}

/// A process table in the place of the system's, as a test lays it out.
class FakeTable {
 public:
  FakeTable() {
    current_ = this;
    clientcomm::replaceSysctl(&FakeTable::answer);
  }
  ~FakeTable() {
    clientcomm::replaceSysctl(nullptr);
    current_ = nullptr;
  }
  FakeTable(const FakeTable&) = delete;
  FakeTable& operator=(const FakeTable&) = delete;

  void add(std::int32_t pid, const char* command, std::uint32_t user) {
    kinfo_proc record = {};
    record.kp_proc.p_pid = pid;
    std::string_view(command).copy(record.kp_proc.p_comm, clientcomm::kMaximumCommandLength);
    record.kp_eproc.e_ucred.cr_uid = user;
    records.push_back(record);
  }

  std::vector<kinfo_proc> records;
  int errorOfSizing = 0;
  int errorOfReading = 0;
  int growths = 0;  ///< How often the table grows by one record after it was sized.
  int sizings = 0;
  int readings = 0;
  std::vector<int> lastName;

 private:
  static int answer(const int* name, unsigned namelen, void* oldp, std::size_t* oldlenp,
                    const void* newp, std::size_t newlen) noexcept {
    EXPECT_EQ(newp, nullptr);
    EXPECT_EQ(newlen, 0U);
    current_->lastName.assign(name, name + namelen);
    return oldp == nullptr ? current_->size(oldlenp) : current_->read(oldp, oldlenp);
  }

  int size(std::size_t* length) {
    ++sizings;
    EXPECT_EQ(*length, 0U);
    *length = records.size() * sizeof(kinfo_proc);
    return failWith(errorOfSizing);
  }

  int read(void* buffer, std::size_t* length) {
    ++readings;
    if (errorOfReading != 0) return failWith(errorOfReading);
    if (growths > 0) {
      --growths;
      add(kUnusedPid, "late", 0);
    }
    const std::size_t needed = records.size() * sizeof(kinfo_proc);
    if (*length < needed) return failWith(ENOMEM);
    std::copy(records.begin(), records.end(), static_cast<kinfo_proc*>(buffer));
    *length = needed;
    return 0;
  }

  static int failWith(int error) {
    errno = error;
    return error == 0 ? 0 : -1;
  }

  static constexpr std::int32_t kUnusedPid = 99'999'999;
  static inline FakeTable* current_ = nullptr;
};

// --- The table. ---

TEST(GetBSDProcessList, GivesTheWholeTableToItsCaller) {
  const Outcome outcome = readList();
  EXPECT_EQ(outcome.status, 0);
  ASSERT_TRUE(outcome.hasTable);
  const auto own = std::ranges::find_if(
      outcome.table, [](const kinfo_proc& p) { return p.kp_proc.p_pid == getpid(); });
  ASSERT_NE(own, outcome.table.end());
  EXPECT_STREQ(own->kp_proc.p_comm, "TestHost");
  EXPECT_EQ(own->kp_eproc.e_ucred.cr_uid, geteuid());
}

TEST(GetBSDProcessList, AsksForTheWholeProcessTableByItsName) {
  FakeTable table;
  table.add(1, "init", 0);
  EXPECT_EQ(readList().count, 1U);
  EXPECT_EQ(table.lastName, (std::vector<int>{1, 14, 0}));
  EXPECT_EQ(table.sizings, 1);
  EXPECT_EQ(table.readings, 1);
}

TEST(GetBSDProcessList, ReadsAgainUntilATableThatGrowsFits) {
  FakeTable table;
  table.growths = 500;
  const Outcome outcome = readList();
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.count, 500U);
  EXPECT_EQ(table.sizings, 501);
}

TEST(GetBSDProcessList, ReadsAgainWhenManyProcessesStartInBetween) {
  static std::vector<ChildProcess> children;
  static clientcomm::SysctlFunction system = nullptr;
  static int readings = 0;
  system = clientcomm::replaceSysctl([](const int* name, unsigned namelen, void* oldp,
                                        std::size_t* oldlenp, const void* newp,
                                        std::size_t newlen) noexcept {
    if (oldp != nullptr && ++readings == 1) {
      const std::size_t room = *oldlenp / sizeof(kinfo_proc);
      while (children.size() < room) {
        children.push_back(ChildProcess::fork([] { return pause(); }));
      }
    }
    return system(name, namelen, oldp, oldlenp, newp, newlen);
  });
  const Outcome outcome = readList();
  clientcomm::replaceSysctl(nullptr);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_GE(readings, 2);
  for (const ChildProcess& child : children) {
    EXPECT_TRUE(std::ranges::any_of(
        outcome.table, [&](const kinfo_proc& p) { return p.kp_proc.p_pid == child.pid(); }));
  }
  children.clear();
}

TEST(GetBSDProcessList, AnErrorOfTheSizingGivesItsNumberAndNoTable) {
  FakeTable table;
  table.errorOfSizing = EPERM;
  const Outcome outcome = readList();
  EXPECT_EQ(outcome.status, EPERM);
  EXPECT_FALSE(outcome.hasTable);
  EXPECT_EQ(outcome.count, 0U);
  EXPECT_EQ(table.readings, 0);
}

TEST(GetBSDProcessList, AnErrorOfTheReadingGivesItsNumberAndNoTable) {
  FakeTable table;
  table.add(1, "init", 0);
  table.errorOfReading = EIO;
  const Outcome outcome = readList();
  EXPECT_EQ(outcome.status, EIO);
  EXPECT_FALSE(outcome.hasTable);
  EXPECT_EQ(outcome.count, 0U);
  EXPECT_EQ(table.readings, 1);
}

TEST(GetBSDProcessList, ATableTooLargeToAllocateIsAnErrorAndNotTriedAgain) {
  if (kHasSanitizer) GTEST_SKIP() << "a sanitizer ends the process when an allocation fails";
  static int calls = 0;
  clientcomm::replaceSysctl(
      [](const int*, unsigned, void*, std::size_t* length, const void*, std::size_t) noexcept {
        ++calls;
        *length = SIZE_MAX / 2 + 1;  // more than any address space holds
        return 0;
      });
  const Outcome outcome = readList();
  clientcomm::replaceSysctl(nullptr);
  EXPECT_EQ(outcome.status, ENOMEM);
  EXPECT_FALSE(outcome.hasTable);
  EXPECT_EQ(outcome.count, 0U);
  EXPECT_EQ(calls, 1);
}

TEST(GetBSDProcessList, AnEmptyTableIsATable) {
  FakeTable table;
  const Outcome outcome = readList();
  EXPECT_EQ(outcome.status, 0);
  EXPECT_TRUE(outcome.hasTable);
  EXPECT_EQ(outcome.count, 0U);
}

TEST(GetBSDProcessListDeathTest, WithoutAPlaceForTheTableItAborts) {
  std::size_t count = 0;
  EXPECT_EXIT(GetBSDProcessList(nullptr, &count), testing::KilledBySignal(SIGABRT),
              "procList != NULL.*function GetBSDProcessList, file ClientComm/TQHPProcessList");
}

TEST(GetBSDProcessListDeathTest, WithoutAPlaceForTheCountItAborts) {
  kinfo_proc* list = nullptr;
  EXPECT_EXIT(GetBSDProcessList(&list, nullptr), testing::KilledBySignal(SIGABRT),
              "procCount != NULL.*function GetBSDProcessList, file ClientComm/TQHPProcessList");
}

// --- Whether an application runs. ---

TEST(ApplicationIsRunning, TrueForTheIdentifierAndThePathThatItRunsFrom) {
  const std::string application = makeListed();
  EXPECT_FALSE(isRunning("com.example.listed", application));
  {
    const ChildProcess process = start(application);
    EXPECT_TRUE(isRunning("com.example.listed", application));
  }
  EXPECT_FALSE(isRunning("com.example.listed", application));
}

TEST(ApplicationIsRunning, FalseForAnyOtherIdentifierOrPath) {
  const std::string application = makeListed();
  const ChildProcess process = start(application);
  for (const char* identifier :
       {"com.example.Listed", "com.example.listed ", "com.example", "com.example.listed2", ""}) {
    EXPECT_FALSE(isRunning(identifier, application)) << identifier;
  }
  const std::string folder = support::sandbox() + "/apps/";
  for (const std::string& path :
       {application + "/", folder + "listed.app", folder + "./Listed.app", folder + "/Listed.app",
        folder + "Listed.app/Contents", folder + "Listed", std::string()}) {
    EXPECT_FALSE(isRunning("com.example.listed", path)) << path;
  }
}

TEST(ApplicationIsRunning, FalseForACopyElsewhereAndForALink) {
  const std::string application = makeListed();
  const std::string copy = makeListed("elsewhere");
  const std::string link = support::sandbox() + "/Link.app";
  fs::create_directory_symlink(application, link);
  const ChildProcess process = start(application);
  EXPECT_TRUE(isRunning("com.example.listed", application));
  EXPECT_FALSE(isRunning("com.example.listed", copy));
  EXPECT_FALSE(isRunning("com.example.listed", link));
}

TEST(ApplicationIsRunning, FindsTheRightOneOfTwoCopies) {
  const std::string first = makeListed("first");
  const std::string second = makeListed("second");
  const ChildProcess firstProcess = start(first);
  {
    const ChildProcess secondProcess = start(second);
    EXPECT_TRUE(isRunning("com.example.listed", first));
    EXPECT_TRUE(isRunning("com.example.listed", second));
  }
  EXPECT_TRUE(isRunning("com.example.listed", first));
  EXPECT_FALSE(isRunning("com.example.listed", second));
}

TEST(ApplicationIsRunning, TrueForOneWhoseBundleHasJustBeenRemovedOrReplaced) {
  const std::string application = makeListed();
  const ChildProcess process = start(application);
  fs::remove_all(application);
  EXPECT_TRUE(isRunning("com.example.listed", application));
  support::makeApplication("Listed", "com.example.other", "listed");
  EXPECT_TRUE(isRunning("com.example.listed", application));
  EXPECT_FALSE(isRunning("com.example.other", application));
}

TEST(ApplicationIsRunning, AnAbsentIdentifierOrPathIsAnsweredWithoutReadingAnything) {
  FakeTable table;
  EXPECT_FALSE(isRunning(std::nullopt, support::hostBundlePath()));
  EXPECT_FALSE(isRunning("com.example.testhost", std::nullopt));
  EXPECT_FALSE(isRunning(std::nullopt, std::nullopt));
  EXPECT_EQ(table.sizings, 0);
}

TEST(ApplicationIsRunning, FalseWhenTheTableCannotBeRead) {
  ASSERT_TRUE(isRunning("com.example.testhost", support::hostBundlePath()));
  FakeTable table;
  table.add(getpid(), "TestHost", 0);
  ASSERT_TRUE(isRunning("com.example.testhost", support::hostBundlePath()));
  table.errorOfReading = EIO;
  EXPECT_FALSE(isRunning("com.example.testhost", support::hostBundlePath()));
}

TEST(ApplicationIsRunning, ReadsTheWholeProcessTableByItsName) {
  FakeTable table;
  table.add(getpid(), "TestHost", 0);
  EXPECT_TRUE(isRunning("com.example.testhost", support::hostBundlePath()));
  EXPECT_EQ(table.lastName, (std::vector<int>{1, 14, 0}));
  EXPECT_EQ(table.readings, 1);
}

TEST(ApplicationIsRunning, ReadsATableThatGrowsUntilItFits) {
  FakeTable table;
  table.add(getpid(), "TestHost", 0);
  table.growths = 3;
  EXPECT_TRUE(isRunning("com.example.testhost", support::hostBundlePath()));
  EXPECT_EQ(table.readings, 4);
}

TEST(ApplicationIsRunning, SkipsProcessesThatEndedSinceTheTableWasRead) {
  FakeTable table;
  table.add(99'999'999, "gone", 0);
  EXPECT_FALSE(isRunning("com.example.testhost", support::hostBundlePath()));
  table.add(getpid(), "TestHost", 0);
  EXPECT_TRUE(isRunning("com.example.testhost", support::hostBundlePath()));
}

TEST(ApplicationIsRunning, LeavesNoDescriptorOpen) {
  const int before = support::openDescriptorCount();
  EXPECT_TRUE(isRunning("com.example.testhost", support::hostBundlePath()));
  EXPECT_FALSE(isRunning("com.example.none", support::hostBundlePath()));
  EXPECT_EQ(support::openDescriptorCount(), before);
}

// --- Information on one process. ---

TEST(InfoForPID, GivesIdentifierPathAndNameOfAnApplication) {
  const std::string application = makeListed();
  const ChildProcess process = start(application);
  const auto information = TQHPProcessList::share().infoForPID(process.pid());
  const clientcomm::PropertyListDictionary expected = {{"CFBundleIdentifier", "com.example.listed"},
                                                       {"BundlePath", application},
                                                       {"CFBundleName", "Listed"}};
  EXPECT_EQ(information, expected);
}

TEST(InfoForPID, IsNothingForProcessesThatAreNoApplications) {
  const ChildProcess tool = startTool();
  for (const std::int32_t pid : {tool.pid(), 0, -1, 99'999'999}) {
    EXPECT_FALSE(TQHPProcessList::share().infoForPID(pid)) << pid;
  }
}

// --- The list. ---

using Record = TQHPProcessList::ProcessRecord;

std::optional<Record> recordOf(pid_t pid) {
  const auto records = TQHPProcessList::share().getBSDProcessList();
  const auto found = std::ranges::find_if(
      records, [pid](const Record& record) { return record.at("pid") == std::to_string(pid); });
  return found != records.end() ? std::optional(*found) : std::nullopt;
}

TEST(ProcessRecords, NameAnApplicationByItsBundleWithDecimalStringsForTheNumbers) {
  const ChildProcess process = start(makeListed());
  const Record expected = {{"pname", "Listed"},
                           {"pid", std::to_string(process.pid())},
                           {"uid", std::to_string(geteuid())}};
  EXPECT_EQ(recordOf(process.pid()), expected);
}

TEST(ProcessRecords, NameAProcessWithoutABundleAsTheKernelDoesCutShort) {
  const std::string program = support::sandbox() + "/AProgramWithALongName";
  fs::copy_file("/bin/cat", program);
  ChildProcess process = ChildProcess::spawn({program});
  process.write("ready\n");
  EXPECT_EQ(process.readLine(), "ready");
  const auto record = recordOf(process.pid());
  ASSERT_TRUE(record);
  EXPECT_EQ(record->at("pname"), "AProgramWithALo");
}

TEST(ProcessRecords, NameAnApplicationWithoutABundleNameAsTheKernelDoes) {
  const std::string application =
      support::makeApplication("AnApplicationWithALongName", "com.example.listed", "listed");
  support::writeFile(application + "/Contents/Info.plist",
                     clientcomm::xmlPropertyList(
                         {{"CFBundleIdentifier", "com.example.listed"}, {"TestRole", "listed"}}));
  const ChildProcess process = start(application);
  const auto record = recordOf(process.pid());
  ASSERT_TRUE(record);
  EXPECT_EQ(record->at("pname"), "AnApplicationWi");
  fs::remove_all(application);
  EXPECT_EQ(recordOf(process.pid())->at("pname"), "AnApplicationWi");
}

TEST(ProcessRecords, GiveTheEffectiveUser) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become another user";
  EXPECT_EQ(recordOf(getpid())->at("uid"), "0");
  ChildProcess child = ChildProcess::fork([] {
    if (setresuid(0, 12345, 0) != 0) return 2;
    const auto record = recordOf(getpid());
    return record && record->at("uid") == "12345" ? 0 : 1;
  });
  EXPECT_EQ(child.wait(), 0);
}

TEST(ProcessRecords, AreInTheOrderOfTheTableWithEveryProcessInIt) {
  FakeTable table;
  table.add(99'999'999, "gone", 0);
  table.add(getpid(), "TestHost", 4711);
  table.add(99'999'998, "sixteen letters!", 4'294'967'294U);
  const std::vector<Record> expected = {
      {{"pname", "gone"}, {"pid", "99999999"}, {"uid", "0"}},
      {{"pname", "Test Host"}, {"pid", std::to_string(getpid())}, {"uid", "4711"}},
      {{"pname", "sixteen letters!"}, {"pid", "99999998"}, {"uid", "-2"}}};
  EXPECT_EQ(TQHPProcessList::share().getBSDProcessList(), expected);
}

TEST(ProcessRecords, AreNoneWhenTheTableCannotBeRead) {
  FakeTable table;
  table.add(getpid(), "TestHost", 0);
  table.errorOfSizing = EIO;
  EXPECT_TRUE(TQHPProcessList::share().getBSDProcessList().empty());
}

TEST(ProcessList, IsOneObject) { EXPECT_EQ(&TQHPProcessList::share(), &TQHPProcessList::share()); }

}  // namespace
