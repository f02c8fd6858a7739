#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ClientComm/platform/property_list.h"
#include "examples/tour/host_process.h"

// Hosts and their helper over a long time: every service, and random kills. One host is never
// killed, and the helper is left alone in the second half, so that what they hold can be compared
// from early on to the end. Growth fails the run.

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kHosts = 5;
constexpr std::size_t kCommandsUnderWay = 4;
constexpr seconds kAnswerLimit{60};
constexpr seconds kWarmUp{45};
constexpr long kAllowedGrowthInKiB = 1024;
constexpr int kAllowedMoreDescriptors = 2;  // connections that are just being served

constexpr const char* kCommands[] = {"start",
                                     "stop",
                                     "show",
                                     "hide",
                                     "is-alive",
                                     "restart",
                                     "status",
                                     "client-id",
                                     "upload-log FILE a@example.com title text",
                                     "upload-user-file FILE",
                                     "upload-product-file FILE",
                                     "customer-service a@example.com FILE",
                                     "check-messages",
                                     "count button pressed",
                                     "auto-count menu opened",
                                     "record search words",
                                     "direct-upload",
                                     "collect-status",
                                     "collect-status on",
                                     "suite-info",
                                     "unreg-suite-info",
                                     "error-page",
                                     "tips on",
                                     "tips off",
                                     "ads on",
                                     "ads off",
                                     "upgrade --ready",
                                     "upgrade --not-ready",
                                     "ready",
                                     "not-ready"};

/// What a process holds at one moment.
struct Sample {
  pid_t pid = 0;
  long anonymousKiB = 0;  ///< Its own memory, no files' pages in it.
  long pssKiB = 0;
  long rssKiB = 0;
  int descriptors = 0;
  int threads = 0;
  double cpuSeconds = 0;
};

std::string procPath(pid_t pid, const char* name) {
  return "/proc/" + std::to_string(pid) + "/" + name;
}

long fieldOf(const std::string& path, const std::string& field) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(field + ":")) return std::stol(line.substr(field.size() + 1));
  }
  throw std::runtime_error("cannot read " + field + " of " + path);
}

int entryCount(const std::string& folder) {
  const fs::directory_iterator entries(folder);
  return static_cast<int>(std::distance(begin(entries), end(entries)));
}

double cpuSecondsOf(pid_t pid) {
  std::ifstream file(procPath(pid, "stat"));
  std::string text(std::istreambuf_iterator<char>(file), {});
  std::istringstream fields(text.substr(text.rfind(')') + 2));
  std::string skipped;
  for (int i = 0; i < 11; ++i) fields >> skipped;
  long user = 0;
  long system = 0;
  fields >> user >> system;
  return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

Sample sampleOf(pid_t pid) {
  const std::string memory = procPath(pid, "smaps_rollup");
  return {pid,
          fieldOf(memory, "Pss_Anon"),
          fieldOf(memory, "Pss"),
          fieldOf(memory, "Rss"),
          entryCount(procPath(pid, "fd")),
          entryCount(procPath(pid, "task")),
          cpuSecondsOf(pid)};
}

void print(const char* who, const char* when, const Sample& sample, long events) {
  std::printf(
      "%-7s %-6s pid %-7d own %5ld KiB  PSS %6ld KiB  RSS %6ld KiB  descriptors %3d  "
      "threads %d  CPU %7.2f s  events so far %ld\n",
      who, when, sample.pid, sample.anonymousKiB, sample.pssKiB, sample.rssKiB, sample.descriptors,
      sample.threads, sample.cpuSeconds, events);
  std::fflush(stdout);
}

/// A host at work, with the commands that it has not answered yet.
struct Host {
  std::unique_ptr<tour::HostProcess> process;
  std::size_t underWay = 0;
  bool isReady = false;
  Clock::time_point lastAnswer = Clock::now();
};

class Soak {
 public:
  explicit Soak(seconds length) : begin_(Clock::now()), length_(length) {
    makeFolder();
    for (int i = 0; i < kHosts; ++i) {
      makeHost("Host" + std::to_string(i));
      hosts_.emplace_back();
      startHost(i);
    }
  }

  ~Soak() {
    hosts_.clear();
    if (const pid_t helper = helperPid()) {
      kill(helper, SIGKILL);
      waitpid(helper, nullptr, 0);
    }
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }

  /// @return whether nothing grew.
  bool run() {
    nextKill_ = begin_ + seconds(5);
    while (Clock::now() - begin_ < length_) {
      for (int i = 0; i < kHosts; ++i) serve(i);
      watchHelper();
      killSomebody();
      takeFirstSamples();
      std::this_thread::sleep_for(milliseconds(10));
    }
    return judge();
  }

 private:
  void makeFolder() {
    folder_ = (fs::temp_directory_path() / "clientcomm-soak-XXXXXX").string();
    if (mkdtemp(folder_.data()) == nullptr) throw std::runtime_error("no private folder");
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
    std::ofstream(folder_ + "/file") << std::string(20'000, 'f');
  }

  std::string bundle(const std::string& name) const {
    return folder_ + "/Applications/" + name + ".app";
  }

  // One product of the family each: an application of its own identifier.
  void makeHost(const std::string& name) {
    const std::string path = bundle(name);
    fs::create_directories(fs::path(path).parent_path());
    fs::copy(SAMPLE_HOST_BUNDLE, path,
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    fs::rename(path + "/Contents/Linux/SampleHost", path + "/Contents/Linux/" + name);
    const std::string infoPath = path + "/Contents/Info.plist";
    auto info = clientcomm::dictionaryWithContentsOfFile(infoPath);
    if (!info) throw std::runtime_error("no Info.plist in " + path);
    info->insert_or_assign("CFBundleIdentifier", "com.example.soak." + name);
    info->insert_or_assign("CFBundleExecutable", name);
    info->insert_or_assign("PID", name);
    clientcomm::writeDictionaryToFile(*info, infoPath);
  }

  void startHost(int index) {
    Host& host = hosts_[static_cast<std::size_t>(index)];
    host = Host();
    host.process = std::make_unique<tour::HostProcess>(bundle("Host" + std::to_string(index)));
  }

  pid_t steadyHost() const { return hosts_.front().process->pid(); }

  std::string randomCommand() {
    std::string command = kCommands[pick(std::size(kCommands))];
    if (const auto at = command.find("FILE"); at != std::string::npos) {
      command.replace(at, 4, folder_ + "/file");
    }
    return command;
  }

  std::size_t pick(std::size_t count) {
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
  }

  void serve(int index) {
    Host& host = hosts_[static_cast<std::size_t>(index)];
    int status = 0;
    if (waitpid(host.process->pid(), &status, WNOHANG) > 0) {
      host.process->markEnded();
      throw std::runtime_error("a host has ended by itself, status " + std::to_string(status));
    }
    host.process->readOutput();
    while (const auto event = host.process->nextEvent()) take(host, *event);
    if (Clock::now() - host.lastAnswer > kAnswerLimit) {
      throw std::runtime_error("a host does not answer any more");
    }
    while (host.isReady && host.underWay < kCommandsUnderWay) {
      host.process->write(randomCommand());
      ++host.underWay;
    }
  }

  void take(Host& host, const tour::HostEvent& event) {
    if (event.who != "host") return;
    host.lastAnswer = Clock::now();
    if (event.what == "begin") {
      host.isReady = true;
      return;
    }
    if (event.what == "error") throw std::runtime_error("a host says: " + event.detail);
    if (host.underWay > 0) --host.underWay;
    ++events_;
    if (event.status.value_or(0) != 0) ++statuses_[*event.status];
  }

  static pid_t helperPid() {
    for (const auto& entry : fs::directory_iterator("/proc")) {
      std::error_code error;
      const std::string name = entry.path().filename();
      if (name.find_first_not_of("0123456789") != std::string::npos) continue;
      const std::string executable = fs::read_symlink(entry.path() / "exe", error);
      if (!error && executable.starts_with(std::string(std::getenv("HOME")) + "/.local/lib/")) {
        return std::stoi(name);
      }
    }
    return 0;
  }

  void watchHelper() {
    const auto now = Clock::now();
    if (now < nextLook_) return;
    nextLook_ = now + milliseconds(200);
    if (helper_ != 0 && waitpid(helper_, nullptr, WNOHANG) != helper_) return;
    if (helper_ != 0) gone_ = now;
    helper_ = helperPid();
    if (helper_ == 0) return;
    ++helpers_;
    if (gone_ != Clock::time_point()) longestAbsence_ = std::max(longestAbsence_, now - gone_);
    gone_ = Clock::time_point();
  }

  bool isSecondHalf() const { return Clock::now() - begin_ > length_ / 2; }

  void killSomebody() {
    if (Clock::now() < nextKill_) return;
    nextKill_ = Clock::now() + milliseconds(2000 + pick(6000));
    if (!isSecondHalf() && pick(2) == 0) {
      if (helper_ != 0) kill(helper_, SIGKILL);
      ++helperKills_;
      return;
    }
    startHost(1 + static_cast<int>(pick(kHosts - 1)));  // which ends the former one by SIGKILL
    ++hostKills_;
  }

  void takeFirstSamples() {
    const auto now = Clock::now();
    if (firstHost_.pid == 0 && now - begin_ > std::min<Clock::duration>(kWarmUp, length_ / 4)) {
      firstHost_ = sampleOf(steadyHost());
      print("host", "start", firstHost_, events_);
    }
    const bool isDue = isSecondHalf() &&
                       now - begin_ > length_ / 2 + std::min<Clock::duration>(kWarmUp, length_ / 8);
    if (firstHelper_.pid == 0 && isDue && helper_ != 0) {
      firstHelper_ = sampleOf(helper_);
      print("helper", "start", firstHelper_, events_);
    }
  }

  static bool hasGrown(const char* who, const Sample& first, const Sample& last) {
    const bool grew = last.anonymousKiB > first.anonymousKiB + kAllowedGrowthInKiB ||
                      last.descriptors > first.descriptors + kAllowedMoreDescriptors ||
                      last.threads > first.threads;
    if (grew) std::printf("the %s has GROWN\n", who);
    return grew;
  }

  bool judge() {
    const Sample host = sampleOf(steadyHost());
    print("host", "end", host, events_);
    if (helper_ == 0 || firstHelper_.pid != helper_) {
      std::printf("the helper has ENDED though nobody killed it\n");
      return false;
    }
    const Sample helper = sampleOf(helper_);
    print("helper", "end", helper, events_);
    std::printf("kills: helper %ld, hosts %ld; helpers started %ld, longest without one %.1f s\n",
                helperKills_, hostKills_, helpers_,
                std::chrono::duration<double>(longestAbsence_).count());
    for (const auto& [status, times] : statuses_) {
      std::printf("answers with status %d: %ld of %ld\n", status, times, events_);
    }
    // Both are looked at, so that both are reported.
    const bool hostHasGrown = hasGrown("host", firstHost_, host);
    const bool helperHasGrown = hasGrown("helper", firstHelper_, helper);
    return !hostHasGrown && !helperHasGrown;
  }

  Clock::time_point begin_;
  seconds length_;
  std::string folder_;
  std::mt19937 random_{std::random_device()()};
  std::vector<Host> hosts_;
  pid_t helper_ = 0;
  Clock::time_point nextKill_;
  Clock::time_point nextLook_;
  Clock::time_point gone_;
  Clock::duration longestAbsence_{};
  Sample firstHost_;
  Sample firstHelper_;
  long events_ = 0;
  long helperKills_ = 0;
  long hostKills_ = 0;
  long helpers_ = 0;
  std::map<int, long> statuses_;
};

}  // namespace

int main(int argc, char** argv) {
  const double minutes = argc > 1 ? std::strtod(argv[1], nullptr) : 10;
  if (!(minutes > 0)) {
    std::fprintf(stderr, "use: soak [MINUTES]\n");
    return 2;
  }
  // The helper is nobody's child; this process inherits it.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  signal(SIGPIPE, SIG_IGN);
  try {
    Soak soak(seconds(static_cast<long>(minutes * 60)));
    const bool isGood = soak.run();
    std::printf(isGood ? "nothing grew\n" : "FAILED\n");
    return isGood ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "FAILED: %s\n", error.what());
    return 1;
  }
}
