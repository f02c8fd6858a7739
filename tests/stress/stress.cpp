#include "tests/stress/stress.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <thread>

#include "tests/support/test_sandbox.h"

namespace stress {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kOrdinaryUser = 65534;
constexpr rlim_t kUsualDescriptors = 1024;

unsigned chosenSeed() {
  const char* const given = std::getenv("CLIENTCOMM_STRESS_SEED");
  const unsigned seed = given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10))
                                         : std::random_device()();
  report("CLIENTCOMM_STRESS_SEED=" + std::to_string(seed));
  return seed;
}

// Executables are hard links to the test program, which keeps its owner.
void giveAway(const fs::path& path) {
  if (fs::is_regular_file(path) && fs::hard_link_count(path) > 1) return;
  ASSERT_EQ(lchown(path.c_str(), kOrdinaryUser, kOrdinaryUser), 0) << path;
}

}  // namespace

int sizeFor(int shortened, int full) {
  const char* const size = std::getenv("CLIENTCOMM_STRESS");
  return size != nullptr && std::string_view(size) == "full" ? full : shortened;
}

std::mt19937& randomness() {
  static std::mt19937 generator(chosenSeed());
  return generator;
}

std::chrono::microseconds randomTime(std::chrono::microseconds longest) {
  std::uniform_int_distribution<std::chrono::microseconds::rep> times(0, longest.count());
  return std::chrono::microseconds(times(randomness()));
}

void pause(std::chrono::microseconds time) { std::this_thread::sleep_for(time); }

std::chrono::microseconds timeOf(const std::function<void()>& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                               begin);
}

void report(const std::string& figure) {
  std::printf("[  figure  ] %s\n", figure.c_str());
  std::fflush(stdout);
}

void becomeOrdinaryUser() {
  if (geteuid() == 0) {
    giveAway(support::sandbox());
    for (const auto& entry : fs::recursive_directory_iterator(support::sandbox())) {
      giveAway(entry.path());
    }
    ASSERT_EQ(setgroups(0, nullptr), 0);
    ASSERT_EQ(setgid(kOrdinaryUser), 0);
    ASSERT_EQ(setuid(kOrdinaryUser), 0);
    // Another process of the user may look at this one again, as at any that was started as theirs.
    ASSERT_EQ(prctl(PR_SET_DUMPABLE, 1), 0);
    ASSERT_EQ(prctl(PR_SET_PDEATHSIG, SIGKILL), 0);
  }
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = kUsualDescriptors;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

long statusOf(pid_t pid, const std::string& field) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(field + ":")) return std::stol(line.substr(field.size() + 1));
  }
  ADD_FAILURE() << field << " of process " << pid << " cannot be read";
  return 0;
}

int descriptorsOf(pid_t pid) {
  const fs::directory_iterator entries("/proc/" + std::to_string(pid) + "/fd");
  return static_cast<int>(std::distance(begin(entries), end(entries)));
}

}  // namespace stress
