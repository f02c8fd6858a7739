#include "examples/tour/stage.h"

#include <glib.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

#include "ClientComm/platform/property_list.h"

namespace tour {
namespace {

namespace fs = std::filesystem;

constexpr int kPollInMilliseconds = 20;
constexpr std::chrono::milliseconds kStatePollInterval{100};
// Shorter waits are not worth showing.
constexpr std::chrono::milliseconds kLongWait{500};

volatile std::sig_atomic_t isInterrupted = 0;

void catchInterrupts() {
  struct sigaction action {};
  action.sa_handler = [](int) { isInterrupted = 1; };
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
}

std::set<pid_t> childrenOf(pid_t pid) {
  std::set<pid_t> children;
  std::error_code error;
  fs::directory_iterator tasks("/proc/" + std::to_string(pid) + "/task", error);
  for (const auto& task : tasks) {
    std::ifstream list(task.path() / "children");
    for (pid_t child = 0; list >> child;) children.insert(child);
  }
  return children;
}

std::string makeFolder() {
  std::string path = (fs::temp_directory_path() / "clientcomm-tour-XXXXXX").string();
  if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("cannot make a private folder");
  return path;
}

void rewriteInfo(const fs::path& bundle, const std::string& key, const std::string& value) {
  const std::string path = (bundle / "Contents/Info.plist").string();
  auto info = clientcomm::dictionaryWithContentsOfFile(path);
  if (!info) throw std::runtime_error("cannot read " + path);
  (*info)[key] = value;
  if (!clientcomm::writeDictionaryToFile(*info, path))
    throw std::runtime_error("cannot write " + path);
}

// One helper of an identifier runs for a user, wherever it was installed. The tour's own has an
// identifier of its own, so that another tour, or the samples themselves, can run beside it.
void makePrivate(const fs::path& host, const std::string& suffix) {
  const std::string identifier = "com.example.samplehelper." + suffix;
  rewriteInfo(host, "Helper Bundle indentifiter", identifier);
  rewriteInfo(host / "Contents/Resources/SampleHelper.app", "CFBundleIdentifier", identifier);
}

int exitStatus(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

Stage::Stage(OnWait onWait) : onWait_(std::move(onWait)), folder_(makeFolder()) {
  // This process becomes the parent of what the hosts start and leave, and learns of its end.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  catchInterrupts();
  const std::pair<const char*, const char*> folders[] = {{"HOME", "home"},
                                                         {"XDG_CONFIG_HOME", "config"},
                                                         {"XDG_DATA_HOME", "data"},
                                                         {"XDG_CACHE_HOME", "cache"},
                                                         {"XDG_RUNTIME_DIR", "runtime"}};
  for (const auto& [variable, name] : folders) {
    const std::string path = folder_ + "/" + name;
    mkdir(path.c_str(), 0700);
    setenv(variable, path.c_str(), 1);
  }
  for (const char* variable : {"LANGUAGE", "LC_ALL", "LC_MESSAGES"}) unsetenv(variable);
  setenv("LANG", "en_US.UTF-8", 1);
}

Stage::~Stage() {
  endProcesses();
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

void Stage::endProcesses() {
  hosts_.clear();
  for (auto left = childrenOf(getpid()); !left.empty(); left = childrenOf(getpid())) {
    for (const pid_t pid : left) kill(pid, SIGKILL);
    while (waitpid(-1, nullptr, 0) > 0) {
    }
  }
}

HostProcess& Stage::startHost(const std::string& builtBundle) {
  const fs::path built(builtBundle);
  const fs::path copy = fs::path(folder_) / "Applications" / built.filename();
  if (!fs::exists(copy)) {
    fs::create_directories(copy.parent_path());
    fs::copy(built, copy, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    makePrivate(copy, fs::path(folder_).filename().string());
  }
  hosts_.push_back(std::make_unique<HostProcess>(copy.string()));
  return *hosts_.back();
}

void Stage::quitHost(HostProcess& host) {
  const pid_t pid = host.pid();
  host.write("quit");
  if (exitStatusOf(pid) != 0) throw StepFailed(host.name() + " did not end cleanly");
  const auto entry = std::find_if(hosts_.begin(), hosts_.end(),
                                  [&](const auto& other) { return other.get() == &host; });
  hosts_.erase(entry);
}

void Stage::pump() {
  if (isInterrupted != 0) throw Interrupted();
  std::vector<pollfd> descriptors;
  for (const auto& host : hosts_) descriptors.push_back({host->output(), POLLIN, 0});
  poll(descriptors.data(), descriptors.size(), kPollInMilliseconds);
  for (const auto& host : hosts_) host->readOutput();
  reap();
}

void Stage::reap() {
  int status = 0;
  for (pid_t pid = waitpid(-1, &status, WNOHANG); pid > 0; pid = waitpid(-1, &status, WNOHANG)) {
    ended_[pid] = exitStatus(status);
    for (const auto& host : hosts_) {
      if (host->pid() == pid) host->markEnded();
    }
  }
}

void Stage::waitUntil(const std::string& awaited, const std::function<bool()>& condition,
                      std::chrono::milliseconds limit) {
  const auto begin = std::chrono::steady_clock::now();
  while (!condition()) {
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - begin);
    if (elapsed >= limit) throw StepFailed("waited in vain for this: " + awaited);
    if (elapsed >= kLongWait) onWait_(awaited, elapsed);
    pump();
  }
}

HostEvent Stage::waitForEvent(HostProcess& host, const std::string& awaited,
                              const std::function<bool(const HostEvent&)>& isIt) {
  std::optional<HostEvent> found;
  waitUntil(awaited, [&] {
    for (auto event = host.nextEvent(); event && !found;) {
      if (isIt(*event)) {
        found = std::move(event);
      } else {
        event = host.nextEvent();
      }
    }
    if (!found && host.pid() < 0) throw StepFailed(host.name() + " has ended");
    return found.has_value();
  });
  return *found;
}

HostEvent Stage::command(HostProcess& host, const std::string& line) {
  const std::string name = line.substr(0, line.find(' '));
  host.write(line);
  HostEvent event =
      waitForEvent(host, "an answer to \"" + line + "\"", [&](const HostEvent& other) {
        return other.who == "host" && (other.what == name || other.what == "error");
      });
  if (event.what == "error") throw StepFailed(line + ": " + event.detail);
  return event;
}

std::optional<nlohmann::json> Stage::helperState(HostProcess& host) {
  const HostEvent event = command(host, "console dumpState");
  if (event.status.value_or(0) != 0 || event.detail.empty()) return std::nullopt;
  return nlohmann::json::parse(event.detail);
}

nlohmann::json Stage::waitForState(HostProcess& host, const std::string& awaited,
                                   const std::function<bool(const nlohmann::json&)>& condition) {
  std::optional<nlohmann::json> state;
  auto nextLook = std::chrono::steady_clock::now();
  waitUntil(awaited, [&] {
    if (std::chrono::steady_clock::now() < nextLook) return false;
    nextLook = std::chrono::steady_clock::now() + kStatePollInterval;
    state = helperState(host);
    return state && condition(*state);
  });
  return *state;
}

int Stage::exitStatusOf(pid_t pid) {
  waitUntil("the end of process " + std::to_string(pid), [&] { return ended_.contains(pid); });
  return ended_[pid];
}

void Stage::watch(const std::function<void(const HostProcess&, const HostEvent&)>& show) {
  for (;;) {
    for (const auto& host : hosts_) {
      while (const auto event = host->nextEvent()) show(*host, *event);
    }
    pump();
  }
}

}  // namespace tour
