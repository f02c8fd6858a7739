#include "ClientComm/platform/user_defaults.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/posix/file_signature.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "tests/support/child_process.h"
#include "tests/support/system_calls.h"
#include "tests/support/test_sandbox.h"

namespace fs = std::filesystem;

namespace {

using clientcomm::dictionaryWithContentsOfFile;
using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;
using clientcomm::UserDefaults;
using support::ChildProcess;
using support::readFile;
using support::writeFile;

constexpr const char* kDomain = "com.example.settings";

std::string folder() { return support::sandbox() + "/config/Preferences"; }
std::string pathOf(const std::string& domain) { return folder() + "/" + domain + ".plist"; }

std::optional<PropertyListDictionary> stored(const std::string& domain = kDomain) {
  return dictionaryWithContentsOfFile(pathOf(domain));
}

void store(const PropertyListDictionary& values, const std::string& domain = kDomain) {
  writeFile(pathOf(domain), clientcomm::xmlPropertyList(values));
}

struct stat statusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status;
}

class UserDefaultsTest : public testing::Test {
 protected:
  void SetUp() override { fs::remove_all(support::sandbox() + "/config"); }
};

TEST_F(UserDefaultsTest, GiveWhatWasSetBeforeAndAfterItIsWritten) {
  UserDefaults defaults(kDomain);
  EXPECT_EQ(defaults.objectForKey("PID"), std::nullopt);
  defaults.setObject("P100", "PID");
  defaults.setObject(false, "IsFirstStart");
  EXPECT_EQ(defaults.stringForKey("PID"), "P100");
  EXPECT_FALSE(stored()) << "not written yet";
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), (PropertyListDictionary{{"PID", "P100"}, {"IsFirstStart", false}}));
  EXPECT_EQ(defaults.stringForKey("PID"), "P100");
  EXPECT_EQ(defaults.stringForKey("IsFirstStart"), std::nullopt) << "not a string";
  EXPECT_EQ(UserDefaults(kDomain).objectForKey("IsFirstStart"), PropertyListValue(false));
}

TEST_F(UserDefaultsTest, ClearAwayWhatAKilledProcessLeftThoughThereIsNothingToWrite) {
  store({{"PID", "P100"}});
  ChildProcess killed = ChildProcess::fork([] { return 0; });
  ASSERT_EQ(killed.wait(), 0);
  const auto partial = [](pid_t pid) {
    return folder() + "/." + kDomain + ".plist.partial-" + std::to_string(pid) + "-1";
  };
  writeFile(partial(killed.pid()), "half");
  writeFile(partial(getpid()), "at work");
  UserDefaults defaults(kDomain);
  defaults.setObject("P100", "PID");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_FALSE(fs::exists(partial(killed.pid())));
  EXPECT_TRUE(fs::exists(partial(getpid())));
}

TEST_F(UserDefaultsTest, RemoveAKey) {
  store({{"a", 1}, {"b", 2}});
  UserDefaults defaults(kDomain);
  defaults.setObject(std::nullopt, "a");
  EXPECT_EQ(defaults.objectForKey("a"), std::nullopt) << "at once";
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), (PropertyListDictionary{{"b", 2}}));
}

TEST_F(UserDefaultsTest, KeepWhatAnotherProcessWroteMeanwhile) {
  store({{"mine", "old"}, {"other", 1}});
  UserDefaults defaults(kDomain);
  EXPECT_EQ(defaults.stringForKey("mine"), "old");
  defaults.setObject("new", "mine");
  auto other = ChildProcess::fork([] {
    UserDefaults theirs(kDomain);
    theirs.setObject(PropertyListValue::Array{1, "two"}, "added");
    theirs.setObject(2, "other");
    return theirs.synchronize() ? 0 : 1;
  });
  ASSERT_EQ(other.wait(), 0);
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(),
            (PropertyListDictionary{
                {"mine", "new"}, {"other", 2}, {"added", PropertyListValue::Array{1, "two"}}}));
}

TEST_F(UserDefaultsTest, SeeWhatAnotherProcessWrites) {
  store({{"a", 1}});
  UserDefaults defaults(kDomain);
  EXPECT_EQ(defaults.objectForKey("a"), PropertyListValue(1));
  store({{"a", 2}});
  EXPECT_EQ(defaults.objectForKey("a"), PropertyListValue(2))
      << "though it was written over in place";
  fs::remove(pathOf(kDomain));
  EXPECT_EQ(defaults.objectForKey("a"), std::nullopt);
}

TEST_F(UserDefaultsTest, LoseNoKeyWhenEightProcessesWriteAtOnce) {
  constexpr int kProcesses = 8;
  constexpr int kKeys = 15;
  std::vector<ChildProcess> writers;
  for (int process = 0; process < kProcesses; ++process) {
    writers.push_back(ChildProcess::fork([process] {
      UserDefaults defaults(kDomain);
      for (int i = 0; i < kKeys; ++i) {
        defaults.setObject(i, std::to_string(process) + "-" + std::to_string(i));
        if (!support::waitUntil([&] { return defaults.synchronize(); })) return 1;
      }
      return 0;
    }));
  }
  for (ChildProcess& writer : writers) EXPECT_EQ(writer.wait(), 0);
  const auto values = stored();
  ASSERT_TRUE(values);
  EXPECT_EQ(values->size(), static_cast<std::size_t>(kProcesses * kKeys));
  EXPECT_EQ(clientcomm::contentsOfDirectoryAtPath(folder()).size(), 1U)
      << "and nothing else is left";
}

TEST_F(UserDefaultsTest, WriteNothingWhenNothingChanges) {
  store({{"a", 1}});
  const auto before = statusOf(pathOf(kDomain));
  UserDefaults defaults(kDomain);
  EXPECT_TRUE(defaults.synchronize());
  defaults.setObject(1, "a");
  defaults.setObject(std::nullopt, "missing");
  EXPECT_TRUE(defaults.synchronize());
  const auto after = statusOf(pathOf(kDomain));
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

TEST_F(UserDefaultsTest, MakeTheirFolderOnlyToWriteAndForTheUserAlone) {
  fs::remove_all(support::sandbox() + "/config");
  UserDefaults defaults(kDomain);
  EXPECT_EQ(defaults.objectForKey("a"), std::nullopt);
  EXPECT_EQ(defaults.persistentDomainForName("com.example.other"), std::nullopt);
  EXPECT_TRUE(defaults.synchronize());
  defaults.setObject(std::nullopt, "a");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_FALSE(fs::exists(support::sandbox() + "/config"));
  defaults.setObject(1, "a");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(statusOf(support::sandbox() + "/config").st_mode & 07777U, 0700U);
  EXPECT_EQ(statusOf(folder()).st_mode & 07777U, 0700U);
  EXPECT_EQ(statusOf(pathOf(kDomain)).st_mode & 07777U, 0600U);
}

TEST_F(UserDefaultsTest, KeepEveryOtherValueThroughARewrite) {
  PropertyListDictionary values = {
      {"date", clientcomm::PropertyListDate{1e9}},
      {"data", PropertyListValue::Data{std::byte{7}}},
      {"real", 0.1},
      {"large", std::uint64_t{1} << 63U},
      {"uid", clientcomm::PropertyListUID{4}},
      {"nested", PropertyListDictionary{{"list", PropertyListValue::Array{true, -1}}}}};
  store(values);
  UserDefaults defaults(kDomain);
  defaults.setObject("x", "added");
  EXPECT_TRUE(defaults.synchronize());
  values.emplace("added", "x");
  EXPECT_EQ(stored(), values);
}

TEST_F(UserDefaultsTest, KeepACorruptFileAside) {
  writeFile(pathOf(kDomain), "corrupt <1>");
  UserDefaults defaults(kDomain);
  EXPECT_EQ(defaults.objectForKey("a"), std::nullopt);
  EXPECT_EQ(readFile(pathOf(kDomain)), "corrupt <1>") << "reading moves nothing";
  defaults.setObject(1, "a");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), (PropertyListDictionary{{"a", 1}}));
  EXPECT_EQ(readFile(pathOf(kDomain) + ".corrupt-1"), "corrupt <1>");
  writeFile(pathOf(kDomain), "<plist version=\"1.0\"><array/></plist>");
  defaults.setObject(2, "a");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(readFile(pathOf(kDomain) + ".corrupt-1"), "corrupt <1>");
  EXPECT_TRUE(fs::exists(pathOf(kDomain) + ".corrupt-2"));
}

TEST_F(UserDefaultsTest, KeepACorruptFileAsideInASandboxThatForbidsToRenameWithoutReplacing) {
  writeFile(pathOf(kDomain), "corrupt <1>");
  ChildProcess process = ChildProcess::fork([] {
    support::refuseSystemCall(__NR_renameat2, EPERM);
    UserDefaults defaults(kDomain);
    defaults.setObject(1, "a");
    return defaults.synchronize() ? 0 : 1;
  });
  EXPECT_EQ(process.wait(), 0);
  EXPECT_EQ(stored(), (PropertyListDictionary{{"a", 1}}));
  EXPECT_EQ(readFile(pathOf(kDomain) + ".corrupt-1"), "corrupt <1>");
}

TEST_F(UserDefaultsTest, FillAnEmptyFile) {
  writeFile(pathOf(kDomain), "");
  UserDefaults defaults(kDomain);
  defaults.setObject(1, "a");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), (PropertyListDictionary{{"a", 1}}));
  EXPECT_FALSE(fs::exists(pathOf(kDomain) + ".corrupt-1")) << "there was nothing to keep";
}

TEST_F(UserDefaultsTest, StayPendingWhereTheyCannotBeWritten) {
  writeFile(support::sandbox() + "/config", "a file in the folder's place");
  UserDefaults defaults(kDomain);
  defaults.setObject("P100", "PID");
  EXPECT_FALSE(defaults.synchronize());
  EXPECT_EQ(defaults.stringForKey("PID"), "P100");
  fs::remove(support::sandbox() + "/config");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), (PropertyListDictionary{{"PID", "P100"}}));
}

TEST_F(UserDefaultsTest, AreWholeAfterAFullDisk) {
  store({{"a", 1}});
  auto writer = ChildProcess::fork([] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {128, 128};
    setrlimit(RLIMIT_FSIZE, &limit);
    UserDefaults defaults(kDomain);
    defaults.setObject(std::string(10'000, 'x'), "a");
    return defaults.synchronize() ? 0 : 1;
  });
  EXPECT_EQ(writer.wait(), 1);
  EXPECT_EQ(stored(), (PropertyListDictionary{{"a", 1}}));
  EXPECT_EQ(clientcomm::contentsOfDirectoryAtPath(folder()).size(), 1U);
}

TEST_F(UserDefaultsTest, AreNotHeldUpForEverByAnother) {
  store({{"a", 1}});
  const clientcomm::ScopedFd held(open(folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(flock(held.get(), LOCK_EX), 0);
  UserDefaults defaults(kDomain);
  defaults.setObject(2, "a");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(defaults.synchronize());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1'500));
  EXPECT_EQ(defaults.objectForKey("a"), PropertyListValue(2));
  flock(held.get(), LOCK_UN);
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored(), (PropertyListDictionary{{"a", 2}}));
}

TEST_F(UserDefaultsTest, AreWrittenByTheRunLoopOnceAnotherLetsThemBe) {
  store({{"a", 1}});
  const clientcomm::ScopedFd held(open(folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(flock(held.get(), LOCK_EX), 0);
  UserDefaults defaults(kDomain);
  defaults.setObject(2, "a");
  EXPECT_FALSE(defaults.synchronize());
  flock(held.get(), LOCK_UN);
  EXPECT_TRUE(support::runLoopUntil([] { return stored() == PropertyListDictionary{{"a", 2}}; }));
}

TEST_F(UserDefaultsTest, AreWrittenByTheRunLoopWithinASecond) {
  UserDefaults defaults(kDomain);
  const auto start = std::chrono::steady_clock::now();
  defaults.setObject(1, "a");
  defaults.setObject(2, "b");
  EXPECT_TRUE(support::runLoopUntil([] { return fs::exists(pathOf(kDomain)); }));
  EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100))
      << "not one by one";
  EXPECT_EQ(stored(), (PropertyListDictionary{{"a", 1}, {"b", 2}}));
  defaults.setObject(3, "a");
  EXPECT_TRUE(support::runLoopUntil([] {
    return stored() == PropertyListDictionary{{"a", 3}, {"b", 2}};
  })) << "and again the next time";
}

TEST_F(UserDefaultsTest, AreWrittenOnceWhenSynchronizedEarly) {
  UserDefaults defaults(kDomain);
  defaults.setObject(1, "a");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_FALSE(g_main_context_pending(nullptr));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(700);
  fs::remove(pathOf(kDomain));
  support::runLoopUntil([&] { return std::chrono::steady_clock::now() >= deadline; });
  EXPECT_FALSE(fs::exists(pathOf(kDomain))) << "nothing was left to write";
}

TEST_F(UserDefaultsTest, AreWrittenWhenTheProcessEnds) {
  auto process = ChildProcess::fork([] {
    UserDefaults::standardUserDefaults().setObject("P100", "PID");
    std::exit(0);
    return 1;
  });
  EXPECT_EQ(process.wait(), 0);
  EXPECT_EQ(stored("com.example.testhost"), (PropertyListDictionary{{"PID", "P100"}}));
}

TEST_F(UserDefaultsTest, AreNotWrittenByTheEndOfAForkedProcess) {
  UserDefaults defaults(kDomain);
  defaults.setObject(1, "a");
  auto process = ChildProcess::fork([] {
    std::exit(0);
    return 1;
  });
  EXPECT_EQ(process.wait(), 0);
  EXPECT_FALSE(fs::exists(pathOf(kDomain)));
}

TEST_F(UserDefaultsTest, AreWrittenWhenTheObjectGoes) {
  { UserDefaults(kDomain).setObject(1, "a"); }
  EXPECT_EQ(stored(), (PropertyListDictionary{{"a", 1}}));
}

TEST_F(UserDefaultsTest, OfTheApplicationAreThoseOfItsIdentifier) {
  UserDefaults& defaults = UserDefaults::standardUserDefaults();
  EXPECT_EQ(&defaults, &UserDefaults::standardUserDefaults());
  defaults.setObject(1, "a");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(stored("com.example.testhost"), (PropertyListDictionary{{"a", 1}}));
}

TEST_F(UserDefaultsTest, OfAnApplicationWithoutIdentifierAreThoseOfItsExecutable) {
  auto info = support::defaultHostInfo();
  info.erase("CFBundleIdentifier");
  auto process = ChildProcess::fork([&info] {
    support::writeHostInfo(info);
    UserDefaults::standardUserDefaults().setObject(1, "a");
    return UserDefaults::standardUserDefaults().synchronize() ? 0 : 1;
  });
  EXPECT_EQ(process.wait(), 0);
  EXPECT_EQ(stored("TestHost"), (PropertyListDictionary{{"a", 1}}));
  support::writeHostInfo(support::defaultHostInfo());
}

TEST_F(UserDefaultsTest, OfAnotherApplicationAreReadAsTheyStand) {
  UserDefaults defaults(kDomain);
  constexpr const char* kHelper = "com.example.testhelper";
  EXPECT_EQ(defaults.persistentDomainForName(kHelper), std::nullopt);
  store({{"TQHPServerClosed", true}}, kHelper);
  EXPECT_EQ(defaults.persistentDomainForName(kHelper),
            (PropertyListDictionary{{"TQHPServerClosed", true}}));
  store({{"TQHPServerClosed", false}}, kHelper);
  EXPECT_EQ(defaults.persistentDomainForName(kHelper),
            (PropertyListDictionary{{"TQHPServerClosed", false}}));
  writeFile(pathOf(kHelper), "<plist");
  EXPECT_EQ(defaults.persistentDomainForName(kHelper), std::nullopt);
  fs::remove(pathOf(kHelper));
  EXPECT_EQ(defaults.persistentDomainForName(kHelper), std::nullopt);
}

TEST_F(UserDefaultsTest, OfAnotherApplicationMissNoChangeHoweverQuick) {
  UserDefaults defaults(kDomain);
  constexpr const char* kHelper = "com.example.testhelper";
  for (int i = 0; i < 300; ++i) {
    const PropertyListDictionary values = {{"n", 100 + i}};  // always of the same size
    store(values, kHelper);
    ASSERT_EQ(defaults.persistentDomainForName(kHelper), values);
  }
}

TEST_F(UserDefaultsTest, OfAnotherApplicationAreReadAgainWhenAFileThatHadSettledChanges) {
  constexpr const char* kHelper = "com.example.testhelper";
  store({{"a", 1}}, kHelper);
  ASSERT_TRUE(support::waitUntil(
      [&] { return clientcomm::FileSignature::ofFile(pathOf(kHelper))->isSettled(); }));
  UserDefaults defaults(kDomain);
  EXPECT_EQ(defaults.persistentDomainForName(kHelper), (PropertyListDictionary{{"a", 1}}));
  store({{"a", 2}}, kHelper);
  EXPECT_EQ(defaults.persistentDomainForName(kHelper), (PropertyListDictionary{{"a", 2}}));
}

TEST_F(UserDefaultsTest, OfAnotherApplicationAreNotReadAgainWhileTheFileIsUnchanged) {
  constexpr const char* kHelper = "com.example.testhelper";
  store({{"a", 1}}, kHelper);
  UserDefaults defaults(kDomain);
  ASSERT_TRUE(support::waitUntil(
      [&] { return clientcomm::FileSignature::ofFile(pathOf(kHelper))->isSettled(); }));
  EXPECT_TRUE(defaults.persistentDomainForName(kHelper));
  const clientcomm::ScopedFd watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  ASSERT_GE(inotify_add_watch(watch.get(), pathOf(kHelper).c_str(), IN_OPEN), 0);
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(defaults.persistentDomainForName(kHelper));
  alignas(inotify_event) char event[4096];
  EXPECT_EQ(read(watch.get(), event, sizeof event), -1) << "the file was not opened";
  readFile(pathOf(kHelper));
  EXPECT_GT(read(watch.get(), event, sizeof event), 0) << "which would have been seen";
}

TEST_F(UserDefaultsTest, StayInTheirFolderWhateverTheIdentifier) {
  const std::string identifiers[] = {"../../escape",
                                     "/absolute",
                                     ".hidden",
                                     "..",
                                     ".",
                                     "",
                                     std::string("a\0b", 3),
                                     "a/b",
                                     "a%2Fb",
                                     std::string(5000, 'x'),
                                     std::string(5000, 'x') + "y",
                                     "\xFF"};
  for (const std::string& identifier : identifiers) {
    UserDefaults defaults(identifier);
    defaults.setObject(identifier, "who");
    EXPECT_TRUE(defaults.synchronize()) << identifier;
  }
  for (const std::string& identifier : identifiers) {
    const auto values = UserDefaults(kDomain).persistentDomainForName(identifier);
    ASSERT_TRUE(values) << identifier;
    EXPECT_EQ(values->at("who"), PropertyListValue(identifier)) << "no two share a file";
  }
  const auto names = clientcomm::contentsOfDirectoryAtPath(folder());
  EXPECT_EQ(names.size(), std::size(identifiers));
  for (const std::string& name : names) EXPECT_FALSE(name.starts_with('.')) << name;
  EXPECT_EQ(clientcomm::contentsOfDirectoryAtPath(support::sandbox() + "/config").size(), 1U);
}

TEST_F(UserDefaultsTest, ArePlainXmlUnderTheIdentifiersOwnName) {
  UserDefaults defaults("com.example.app-1_x");
  defaults.setObject("1.2.3", "Version");
  EXPECT_TRUE(defaults.synchronize());
  const std::string text = readFile(folder() + "/com.example.app-1_x.plist");
  EXPECT_TRUE(text.starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"));
  EXPECT_NE(text.find("<key>Version</key>\n\t<string>1.2.3</string>"), std::string::npos) << text;
}

}  // namespace
