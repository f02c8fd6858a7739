#include "tests/support/supervisor.h"

#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/peer_build.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

// The supervisor. It lays the private folder out, runs the test program again as the executable of
// a bundle in it, and clears up behind it. As a subreaper it inherits the applications that the
// test launched, which are nobody's children, and so knows them all.

namespace fs = std::filesystem;

namespace support {
namespace {

constexpr std::string_view kEnvironmentToDrop[] = {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"};

std::string makeSandbox() {
  std::string path = (fs::temp_directory_path() / "clientcomm-test-XXXXXX").string();
  if (mkdtemp(path.data()) == nullptr) {
    std::perror("mkdtemp");
    std::exit(2);
  }
  for (const char* name : {"home", "config", "data", "cache", "runtime"}) {
    const fs::path folder = fs::path(path) / name;
    fs::create_directory(folder);
    chmod(folder.c_str(), 0700);
  }
  return path;
}

std::string layOutBundle(const std::string& sandbox) {
  const fs::path executable = fs::path(sandbox) / "TestHost.app/Contents/Linux/TestHost";
  fs::create_directories(executable.parent_path());
  std::error_code error;
  fs::create_hard_link(fs::read_symlink("/proc/self/exe"), executable, error);
  if (error) fs::copy_file("/proc/self/exe", executable);
  return executable.string();
}

void setEnvironment(const std::string& sandbox) {
  setenv("CLIENTCOMM_TEST_SANDBOX", sandbox.c_str(), 1);
  setenv("HOME", (sandbox + "/home").c_str(), 1);
  setenv("XDG_CONFIG_HOME", (sandbox + "/config").c_str(), 1);
  setenv("XDG_DATA_HOME", (sandbox + "/data").c_str(), 1);
  setenv("XDG_CACHE_HOME", (sandbox + "/cache").c_str(), 1);
  setenv("XDG_RUNTIME_DIR", (sandbox + "/runtime").c_str(), 1);
  for (const std::string_view name : kEnvironmentToDrop) unsetenv(std::string(name).c_str());
}

/// Runs the test program at `executable`; under a program such as valgrind, where the environment
/// names one with its arguments.
[[noreturn]] void runTestProgram(std::string executable, char** argv) {
  const char* const wrapper = std::getenv("CLIENTCOMM_TEST_WRAPPER");
  std::istringstream words(wrapper != nullptr ? wrapper : "");
  std::vector<std::string> command(std::istream_iterator<std::string>(words), {});
  command.push_back(std::move(executable));
  std::vector<char*> arguments;
  for (std::string& word : command) arguments.push_back(word.data());
  for (++argv; *argv != nullptr; ++argv) arguments.push_back(*argv);
  arguments.push_back(nullptr);
  execvp(arguments.front(), arguments.data());
  std::perror("execvp");
  _exit(127);
}

std::set<pid_t> childrenOf(pid_t pid) {
  std::set<pid_t> children;
  for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    std::ifstream list(task.path() / "children");
    for (pid_t child = 0; list >> child;) children.insert(child);
  }
  return children;
}

// Ends what the test left running: all of it is this process's by now, or a child of such, which
// becomes this process's when its parent has ended.
void endLeftovers() {
  for (auto left = childrenOf(getpid()); !left.empty(); left = childrenOf(getpid())) {
    for (const pid_t pid : left) kill(pid, SIGKILL);
    waitpid(-1, nullptr, 0);
  }
}

int supervise(char** argv) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const std::string sandbox = makeSandbox();
  const std::string executable = layOutBundle(sandbox);
  const pid_t test = fork();
  if (test == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setEnvironment(sandbox);
    setTestProgram(fs::read_symlink("/proc/self/exe"));
    writeHostInfo(defaultHostInfo());
    runTestProgram(executable, argv);
  }
  int result = 2;
  for (int status = 0;;) {
    const pid_t ended = waitpid(-1, &status, 0);
    if (ended < 0) break;
    if (ended != test) continue;
    result = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    break;
  }
  endLeftovers();
  std::error_code ignored;
  fs::permissions(sandbox, fs::perms::owner_all, ignored);
  fs::remove_all(sandbox, ignored);
  return result;
}

}  // namespace

int runSupervised(int argc, char** argv, int (*body)(int argc, char** argv)) {
  if (std::getenv("CLIENTCOMM_TEST_SANDBOX") == nullptr) return supervise(argv);
  int exitStatus = 0;
  if (runRole({argv + 1, argv + argc}, exitStatus)) return exitStatus;
  return body(argc, argv);
}

}  // namespace support
