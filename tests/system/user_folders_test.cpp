#include "ClientComm/platform/posix/user_folders.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/own_process.h"
#include "ClientComm/platform/posix/settings_file.h"
#include "ClientComm/platform/user_defaults.h"
#include "tests/support/child_process.h"
#include "tests/support/product_applications.h"
#include "tests/support/test_application.h"
#include "tests/support/test_helper.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using clientcomm::configDirectory;
using clientcomm::runtimeDirectory;
using support::ChildProcess;

constexpr uid_t kAnotherUser = 12345;
constexpr int kSkipped = 77;

std::string passwordHome() { return getpwuid(geteuid())->pw_dir; }

void give(const std::string& path, uid_t user) {
  EXPECT_EQ(lchown(path.c_str(), user, user), 0) << path;
}

bool writeText(const char* path, const std::string& text) {
  const clientcomm::ScopedFd file(open(path, O_WRONLY | O_CLOEXEC));
  return write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// Gives this process mounts of its own, for an ordinary user in a user namespace of its own.
bool enterMountNamespace() {
  const std::string user = std::to_string(geteuid());
  const bool isRoot = geteuid() == 0;
  if (unshare(isRoot ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0) return false;
  if (!isRoot && !writeText("/proc/self/uid_map", user + " " + user + " 1")) return false;
  return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool mountEmpty(const char* path) { return mount("none", path, "tmpfs", 0, nullptr) == 0; }

// Runs `body` in a process that sees an empty /run and an empty home of the password database.
void runBesideTheSystem(const std::function<bool()>& body) {
  ChildProcess child = ChildProcess::fork([&] {
    if (!enterMountNamespace() || !mountEmpty("/run")) return kSkipped;
    if (geteuid() == 0 && !mountEmpty(passwordHome().c_str())) return kSkipped;
    return body() ? 0 : 1;
  });
  const int status = child.wait();
  if (status == kSkipped) GTEST_SKIP() << "this process may not mount anything";
  EXPECT_EQ(status, 0);
}

std::string sessionDirectory() { return "/run/user/" + std::to_string(geteuid()); }

TEST(UserFolders, RuntimeDirectoryIsTheSessionsWithoutTheVariable) {
  runBesideTheSystem([] {
    fs::create_directories(sessionDirectory());
    unsetenv("XDG_RUNTIME_DIR");
    return runtimeDirectory() == sessionDirectory() &&
           clientcomm::runtimeFolderPath() == sessionDirectory() + "/ClientComm" &&
           clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid();
  });
}

TEST(UserFolders, RuntimeDirectoryIsTheCacheWithoutTheVariableAndASession) {
  runBesideTheSystem([] {
    unsetenv("XDG_RUNTIME_DIR");
    if (runtimeDirectory() != support::sandbox() + "/cache") return false;
    unsetenv("XDG_CACHE_HOME");
    return runtimeDirectory() == support::sandbox() + "/home/.cache";
  });
}

TEST(UserFolders, PasswordDatabaseIsNotReadWhereTheEnvironmentNamesOwnDirectories) {
  const std::string copy = support::sandbox() + "/passwd";
  fs::copy_file("/etc/passwd", copy);
  runBesideTheSystem([&] {
    if (mount(copy.c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr) != 0) return false;
    const clientcomm::ScopedFd watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (inotify_add_watch(watch.get(), copy.c_str(), IN_OPEN) < 0) return false;
    alignas(inotify_event) char event[4096];
    const bool isRead = runtimeDirectory().empty() || configDirectory().empty() ||
                        read(watch.get(), event, sizeof event) > 0;
    // Which would have been seen.
    return !isRead && !passwordHome().empty() && read(watch.get(), event, sizeof event) > 0;
  });
}

TEST(UserFolders, SessionsDirectoryOfAnotherUserIsNotUsed) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can give a folder away";
  runBesideTheSystem([] {
    fs::create_directories(sessionDirectory());
    give(sessionDirectory(), kAnotherUser);
    unsetenv("XDG_RUNTIME_DIR");
    return runtimeDirectory() == support::sandbox() + "/cache";
  });
}

TEST(UserFolders, RelativePathsInTheEnvironmentAreIgnored) {
  runBesideTheSystem([] {
    if (chdir(support::sandbox().c_str()) != 0) return false;
    for (const char* name : {"XDG_RUNTIME_DIR", "XDG_CACHE_HOME", "XDG_CONFIG_HOME"}) {
      setenv(name, "runtime", 1);
    }
    const std::string home = support::sandbox() + "/home";
    if (runtimeDirectory() != home + "/.cache" || configDirectory() != home + "/.config") {
      return false;
    }
    setenv("HOME", "home", 1);
    return clientcomm::homeDirectory() == passwordHome() &&
           configDirectory() == passwordHome() + "/.config";
  });
}

TEST(UserFolders, DirectoriesOfAnotherUserInTheEnvironmentAreNotUsed) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can give a folder away";
  runBesideTheSystem([] {
    for (const char* name : {"runtime", "cache", "config", "home"}) {
      give(support::sandbox() + "/" + name, kAnotherUser);
    }
    return runtimeDirectory() == passwordHome() + "/.cache" &&
           configDirectory() == passwordHome() + "/.config";
  });
}

TEST(UserFolders, RootMakesNoDirectoryOfAnotherUsersSession) {
  if (geteuid() != 0) GTEST_SKIP() << "about the superuser";
  runBesideTheSystem([] {
    fs::create_directories("/run/user");
    setenv("XDG_RUNTIME_DIR", "/run/user/12345", 1);
    return runtimeDirectory() == support::sandbox() + "/cache" &&
           clientcomm::openRuntimeFolder(clientcomm::IfMissing::kCreate).isValid() &&
           fs::is_empty("/run/user");
  });
}

TEST(UserFolders, RootCreatesNothingUnderADirectoryOfAnotherUser) {
  if (geteuid() != 0) GTEST_SKIP() << "about the superuser";
  const std::string home = support::sandbox() + "/home";
  support::writeFile(support::sandbox() + "/source", "text");
  EXPECT_TRUE(clientcomm::mayCreateItemAtPath(home + "/folder"));
  give(home, kAnotherUser);
  EXPECT_FALSE(clientcomm::mayCreateItemAtPath(home + "/folder"));
  const auto made = clientcomm::createDirectoryAtPath(home + "/folder/below");
  ASSERT_TRUE(made.has_value());
  EXPECT_EQ(made->code, EPERM);
  const auto copied = clientcomm::copyPath(support::sandbox() + "/source", home + "/copy");
  EXPECT_EQ(copied.code(), EPERM);
  EXPECT_TRUE(fs::is_empty(home));
}

// The first file below `folder` that belongs to the superuser; empty when there is none.
std::string fileOfRootIn(const std::string& folder) {
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    struct stat status {};
    if (lstat(entry.path().c_str(), &status) == 0 && status.st_uid == 0) return entry.path();
  }
  return "";
}

TEST(UserFolders, HostThatRootRunsInAUsersEnvironmentLeavesNothingThere) {
  if (geteuid() != 0) GTEST_SKIP() << "about the superuser";
  auto info = support::defaultHostInfo();
  info["Helper loaction path"] = "~/apps";
  support::writeHostInfo(info);
  support::embedHelper("1.0");
  runBesideTheSystem([] {
    for (const char* name : {"runtime", "cache", "config", "data", "home"}) {
      give(support::sandbox() + "/" + name, kAnotherUser);
    }
    TQHPHelper::share();
    clientcomm::UserDefaults& defaults = clientcomm::UserDefaults::standardUserDefaults();
    defaults.setObject(clientcomm::PropertyListValue("value"), "key");
    const bool isWritten = defaults.synchronize();
    for (const char* name : {"runtime", "cache", "config", "data", "home"}) {
      const std::string file = fileOfRootIn(support::sandbox() + "/" + name);
      if (!file.empty()) std::fprintf(stderr, "left: %s\n", file.c_str());
      if (!file.empty()) return false;
    }
    return isWritten && fs::exists(passwordHome() + "/.config/Preferences") &&
           fs::exists(passwordHome() + "/.cache/ClientComm");
  });
}

// --- A program with the setuid bit. ---

// Prints what a setuid process takes its folders to be, and what it does with links.
const support::Role tellFolders(
    "tell-folders", [](const std::vector<std::string>& arguments) -> int {
      std::printf("%d\n%s\n%s\n%s\n", clientcomm::isSetuidProcess() ? 1 : 0,
                  clientcomm::homeDirectory().c_str(), configDirectory().c_str(),
                  runtimeDirectory().c_str());
      const auto write = [&](const std::string& name, const std::string& bytes) {
        return clientcomm::writeSettingsFile(arguments.at(0) + name, bytes,
                                             clientcomm::WriteForm::kInPlace, 0666)
            .code();
      };
      std::printf("%d\n", write("/link", "through the link"));
      std::printf("%d\n", write("/plain", "written"));
      std::printf("%d\n", clientcomm::createDirectoryAtPath(arguments.at(0) + "/folder/x") ? 1 : 0);
      // A leak check at exit attaches to the process, which a setuid one does not allow.
      std::fflush(stdout);
      _exit(0);
    });

TEST(UserFolders, SetuidProcessIgnoresTheEnvironmentAndFollowsNoLink) {
  if (geteuid() != 0) GTEST_SKIP() << "only the superuser can give a program away";
  constexpr uid_t kUnprivileged = 65534;
  ASSERT_EQ(chmod(support::sandbox().c_str(), 0755), 0);
  const std::string application =
      support::makeApplication("Setuid", "com.example.setuid", "tell-folders");
  const std::string executable = support::executableOf(application);
  fs::remove(executable);
  fs::copy_file("/proc/self/exe", executable);
  give(executable, kUnprivileged);
  ASSERT_EQ(chmod(executable.c_str(), 04755), 0);
  const std::string folder = support::sandbox() + "/written";
  const std::string elsewhere = support::sandbox() + "/elsewhere";
  for (const std::string& path : {folder, elsewhere}) {
    fs::create_directory(path);
    give(path, kUnprivileged);
  }
  for (const std::string& path : {folder + "/plain", elsewhere + "/file"}) {
    support::writeFile(path, "before");
    give(path, kUnprivileged);
  }
  fs::create_symlink(elsewhere + "/file", folder + "/link");
  fs::create_directory_symlink(elsewhere, folder + "/folder");
  ChildProcess child = ChildProcess::spawn({executable, folder});
  if (child.readLine() != "1") GTEST_SKIP() << "the file system knows no setuid programs";
  const std::string home = getpwuid(kUnprivileged)->pw_dir;
  EXPECT_EQ(child.readLine(), home);
  EXPECT_EQ(child.readLine(), home + "/.config");
  EXPECT_EQ(child.readLine(), home + "/.cache");
  EXPECT_EQ(child.readLine(), std::to_string(ELOOP));
  EXPECT_EQ(child.readLine(), "0");
  EXPECT_EQ(child.readLine(), "1");
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(support::readFile(elsewhere + "/file"), "before");
  EXPECT_EQ(support::readFile(folder + "/plain"), "written");
  EXPECT_EQ(std::distance(fs::directory_iterator(elsewhere), {}), 1);
}

}  // namespace
