#include "ClientComm/platform/process_table.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <future>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "ClientComm/TQHPProcessList.h"
#include "tests/support/child_process.h"
#include "tests/support/mounts.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::kinfo_proc;
using support::ChildProcess;
using Table = std::vector<kinfo_proc>;

constexpr int kWholeTable[] = {clientcomm::kCtlKern, clientcomm::kKernProc,
                               clientcomm::kKernProcAll};

int readInto(Table& table) {
  std::size_t length = table.size() * sizeof(kinfo_proc);
  const int result = clientcomm::sysctl(kWholeTable, 3, table.data(), &length, nullptr, 0);
  table.resize(length / sizeof(kinfo_proc));
  return result;
}

Table readTable() {
  Table table(100'000);
  EXPECT_EQ(readInto(table), 0);
  return table;
}

std::size_t sizeOf() {
  std::size_t length = 0;
  EXPECT_EQ(clientcomm::sysctl(kWholeTable, 3, nullptr, &length, nullptr, 0), 0);
  EXPECT_EQ(length % sizeof(kinfo_proc), 0U);
  return length / sizeof(kinfo_proc);
}

std::optional<kinfo_proc> recordOf(pid_t pid) {
  const Table table = readTable();
  const auto record = std::ranges::find_if(
      table, [pid](const kinfo_proc& process) { return process.kp_proc.p_pid == pid; });
  return record != table.end() ? std::optional(*record) : std::nullopt;
}

// A child that gets itself ready and then waits for its end.
ChildProcess childThat(const std::function<void()>& getReady) {
  int ready[2];
  EXPECT_EQ(pipe(ready), 0);
  ChildProcess child = ChildProcess::fork([&] {
    getReady();
    EXPECT_EQ(write(ready[1], "", 1), 1);
    pause();
    return 0;
  });
  close(ready[1]);  // so that the end of the child ends the wait
  char byte = 1;
  EXPECT_EQ(read(ready[0], &byte, 1), 1);
  close(ready[0]);
  return child;
}

std::string nameOfChildCalled(const char* name) {
  const ChildProcess child = childThat([name] { prctl(PR_SET_NAME, name); });
  const auto record = recordOf(child.pid());
  return record ? record->kp_proc.p_comm : "(no record)";
}

TEST(ProcessTable, ListsThisProcessWithItsNameAndUser) {
  const auto record = recordOf(getpid());
  ASSERT_TRUE(record);
  EXPECT_STREQ(record->kp_proc.p_comm, "TestHost");
  EXPECT_EQ(record->kp_eproc.e_ucred.cr_uid, geteuid());
}

TEST(ProcessTable, KeepsTheCommandNameAsTheKernelCutsIt) {
  EXPECT_EQ(nameOfChildCalled("AVeryLongProgramName"), "AVeryLongProgra");
  EXPECT_EQ(nameOfChildCalled("x"), "x");
}

TEST(ProcessTable, TakesCommandNamesThatLookLikeSyntax) {
  EXPECT_EQ(nameOfChildCalled(") R 1 (a b"), ") R 1 (a b");
  EXPECT_EQ(nameOfChildCalled("two\nlines\n"), "two\nlines\n");
  EXPECT_EQ(nameOfChildCalled(""), "");
}

TEST(ProcessTable, GivesTheEffectiveUserAlsoOfAProcessThatMayNotBeTraced) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can become another user";
  const ChildProcess child = childThat([] {
    ASSERT_EQ(setresuid(4711, 12345, 4711), 0);
    ASSERT_EQ(prctl(PR_SET_DUMPABLE, 0), 0);
  });
  const auto record = recordOf(child.pid());
  ASSERT_TRUE(record);
  EXPECT_EQ(record->kp_eproc.e_ucred.cr_uid, 12345U);
}

TEST(ProcessTable, IsInTheOrderOfTheProcessIDs) {
  const Table table = readTable();
  EXPECT_TRUE(std::ranges::is_sorted(table, std::ranges::less_equal(),
                                     [](const kinfo_proc& p) { return p.kp_proc.p_pid; }));
}

TEST(ProcessTable, DoesNotListAProcessThatHasEnded) {
  ChildProcess child = childThat([] {});
  EXPECT_TRUE(recordOf(child.pid()));
  child.signal(SIGKILL);
  child.wait();
  EXPECT_FALSE(recordOf(child.pid()));
}

// @return 0 when all is well.
int readTableWithout(pid_t gone) {
  Table table(100'000);
  if (readInto(table) != 0) return 1;
  const auto lists = [&table](pid_t pid) {
    return std::ranges::find(table, pid, [](const kinfo_proc& process) {
             return process.kp_proc.p_pid;
           }) != table.end();
  };
  if (lists(gone)) return 2;
  return lists(getpid()) ? 0 : 3;
}

TEST(ProcessTable, LeavesOutAProcessThatEndsBeforeItIsLookedAtAndListsTheOthers) {
  constexpr int kNotAllowed = 77;
  const ChildProcess ended = childThat([] {});
  ChildProcess reader = ChildProcess::fork([&ended] {
    // An empty folder has as little in it as that of a process that ended after it was listed.
    if (!support::ownMounts()) return kNotAllowed;
    const support::MountedFileSystem empty("tmpfs", "/proc/" + std::to_string(ended.pid()));
    return empty.problem().empty() ? readTableWithout(ended.pid()) : kNotAllowed;
  });
  const int outcome = reader.wait();
  if (outcome == kNotAllowed) GTEST_SKIP() << "no mounts of its own";
  EXPECT_EQ(outcome, 0);
}

TEST(ProcessTable, TheProcessIDsAreThoseOfTheTableInItsOrder) {
  const ChildProcess child = childThat([] {});
  const std::vector<std::int32_t> pids = clientcomm::processIDs(&GetBSDProcessList);
  EXPECT_TRUE(std::ranges::is_sorted(pids));
  for (const pid_t pid : {pid_t{1}, getpid(), child.pid()}) {
    EXPECT_EQ(std::ranges::count(pids, pid), 1) << pid;
  }
}

TEST(ProcessTable, ATableThatIsReadAfterTheProcessIDsHasNamesAndUsers) {
  clientcomm::processIDs(&GetBSDProcessList);
  const auto record = recordOf(getpid());
  ASSERT_TRUE(record);
  EXPECT_STREQ(record->kp_proc.p_comm, "TestHost");
  EXPECT_EQ(record->kp_eproc.e_ucred.cr_uid, geteuid());
}

TEST(ProcessTable, NoneOfTheWantedProcessesIsAThread) {
  std::promise<pid_t> id;
  std::promise<void> end;
  std::thread thread([&] {
    id.set_value(gettid());
    end.get_future().wait();
  });
  const pid_t tid = id.get_future().get();
  EXPECT_EQ(clientcomm::processIDs(&GetBSDProcessList, {tid, getpid()}),
            std::vector<std::int32_t>{getpid()});
  end.set_value();
  thread.join();
}

TEST(ProcessTable, OfAnotherReaderOnlyTheWantedProcessesAreGiven) {
  const auto twoProcesses = [](kinfo_proc** table, std::size_t* count) {
    *count = 2;
    *table = static_cast<kinfo_proc*>(std::calloc(2, sizeof(kinfo_proc)));
    (*table)[0].kp_proc.p_pid = 7;
    (*table)[1].kp_proc.p_pid = 8;
    return 0;
  };
  EXPECT_EQ(clientcomm::processIDs(twoProcesses, {8, 9}), std::vector<std::int32_t>{8});
}

TEST(ProcessTable, WithoutATableThereAreNoProcessIDs) {
  EXPECT_TRUE(clientcomm::processIDs([](kinfo_proc** table, std::size_t* count) {
                *table = nullptr;
                *count = 0;
                return EIO;
              }).empty());
}

TEST(ProcessTable, TheSizeGivenHasRoomForAFewProcessesMore) {
  const std::size_t before = readTable().size();
  EXPECT_GE(sizeOf(), before + 8);
}

TEST(ProcessTable, OneThatOutgrewItsSizeIsReportedAndSizedAnewWithEnoughRoom) {
  Table table(sizeOf());
  std::vector<ChildProcess> children;
  while (children.size() < table.size()) {
    children.push_back(ChildProcess::fork([] { return pause(); }));
  }
  EXPECT_EQ(readInto(table), -1);
  EXPECT_EQ(errno, ENOMEM);
  table.resize(sizeOf());
  ASSERT_EQ(readInto(table), 0);
  for (const ChildProcess& child : children) {
    EXPECT_TRUE(std::ranges::any_of(
        table, [&](const kinfo_proc& p) { return p.kp_proc.p_pid == child.pid(); }));
  }
}

TEST(ProcessTable, FillsABufferThatIsJustLargeEnough) {
  // Other processes come and go; between two of them the sizes agree.
  EXPECT_TRUE(support::waitUntil([] {
    const std::size_t count = readTable().size();
    Table table(count);
    return readInto(table) == 0 && table.size() == count;
  }));
}

TEST(ProcessTable, WritesNothingBehindABufferThatIsTooSmall) {
  Table table(3);
  std::memset(static_cast<void*>(table.data()), 0x55, 3 * sizeof(kinfo_proc));
  std::size_t length = 2 * sizeof(kinfo_proc) + 1;
  EXPECT_EQ(clientcomm::sysctl(kWholeTable, 3, table.data(), &length, nullptr, 0), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(table[2].kp_proc.p_pid, 0x55555555);
}

TEST(ProcessTable, NamesThatAreNotKnownAreRefused) {
  std::size_t length = 0;
  const int wrong[][3] = {{clientcomm::kCtlKern, clientcomm::kKernProc, 1},
                          {clientcomm::kCtlKern, clientcomm::kKernProc, 1000},
                          {clientcomm::kCtlKern, 15, clientcomm::kKernProcAll},
                          {2, clientcomm::kKernProc, clientcomm::kKernProcAll}};
  for (const auto& name : wrong) {
    EXPECT_EQ(clientcomm::sysctl(name, 3, nullptr, &length, nullptr, 0), -1);
    EXPECT_EQ(errno, ENOENT);
  }
  EXPECT_EQ(clientcomm::sysctl(kWholeTable, 2, nullptr, &length, nullptr, 0), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(ProcessTable, CannotBeWrittenTo) {
  std::size_t length = 0;
  const int value = 0;
  EXPECT_EQ(clientcomm::sysctl(kWholeTable, 3, nullptr, &length, &value, sizeof value), -1);
  EXPECT_EQ(errno, EPERM);
}

TEST(ProcessTable, MissingPlacesAreRefused) {
  std::size_t length = 0;
  EXPECT_EQ(clientcomm::sysctl(nullptr, 3, nullptr, &length, nullptr, 0), -1);
  EXPECT_EQ(errno, EFAULT);
  EXPECT_EQ(clientcomm::sysctl(kWholeTable, 3, nullptr, nullptr, nullptr, 0), -1);
  EXPECT_EQ(errno, EFAULT);
}

// Reads the table with room for `count` more descriptors.
int errorWithDescriptorsLeft(int count) {
  const int next = dup(0);
  close(next);
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit less = {static_cast<rlim_t>(next + count), limit.rlim_max};
  Table table(100'000);
  setrlimit(RLIMIT_NOFILE, &less);
  const int error = readInto(table) == 0 ? 0 : errno;
  setrlimit(RLIMIT_NOFILE, &limit);
  return error;
}

TEST(ProcessTable, OneThatCannotBeReadIsAnErrorNotAShortTable) {
  EXPECT_EQ(errorWithDescriptorsLeft(0), EMFILE);
  EXPECT_EQ(errorWithDescriptorsLeft(1), EMFILE);
  EXPECT_EQ(errorWithDescriptorsLeft(2), 0);
}

TEST(ProcessTable, ReadingLeavesNoDescriptorOpen) {
  const int before = support::openDescriptorCount();
  readTable();
  clientcomm::processIDs(&GetBSDProcessList);
  EXPECT_EQ(support::openDescriptorCount(), before);
}

TEST(ProcessTable, AnotherReaderCanBePutInItsPlaceAndTakenOutAgain) {
  const auto failing = [](const int*, unsigned, void*, std::size_t*, const void*,
                          std::size_t) noexcept {
    errno = EIO;
    return -1;
  };
  const clientcomm::SysctlFunction system = clientcomm::replaceSysctl(failing);
  std::size_t length = 0;
  EXPECT_EQ(clientcomm::sysctl(kWholeTable, 3, nullptr, &length, nullptr, 0), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(system(kWholeTable, 3, nullptr, &length, nullptr, 0), 0);
  EXPECT_EQ(clientcomm::replaceSysctl(nullptr), static_cast<clientcomm::SysctlFunction>(failing));
  EXPECT_EQ(clientcomm::sysctl(kWholeTable, 3, nullptr, &length, nullptr, 0), 0);
}

}  // namespace
