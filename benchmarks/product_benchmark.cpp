#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/TQHPGetDataByHelper.h"
#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPHelperControl.h"
#include "ClientComm/TQHPProcessList.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/posix/file_signature.h"
#include "ClientComm/platform/user_defaults.h"
#include "benchmarks/benchmarks.h"
#include "benchmarks/support/measurement.h"
#include "benchmarks/support/peers.h"
#include "benchmarks/support/product.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;

// A product's life with its helper: an idle tick, a start with the helper running, and the first.

namespace bench {
namespace {

constexpr std::chrono::microseconds kRest(60);

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "%s failed\n", what);
  std::exit(1);
}

// --- One tick, with everything in place ---

Sample tick() {
  embedHelper("TestHost");
  TQHPHelper& helper = TQHPHelper::share();
  if (helperProcess() == 0) fail("starting the helper");
  return [&helper] {
    const std::uint64_t before = aliveCalls().value();
    const auto start = Clock::now();
    helper.startHelper();
    const double seconds = secondsSince(start);
    if (!aliveCalls().waitFor(before + 1)) fail("a tick");
    spinFor(kRest);
    return seconds;
  };
}

Sample sendAndStat() {
  Peer& server = socketServer();
  const std::size_t size =
      callPacketSize("isAlive:prodeuctVersion:", std::vector<std::string>{"P100", "1.2.3"});
  const std::string settings =
      support::sandbox() + "/config/Preferences/" + support::helperIdentifier() + ".plist";
  return [&server, size, settings] {
    const std::uint64_t before = server.handled.value();
    const auto start = Clock::now();
    struct stat status {};
    benchmark::DoNotOptimize(stat(settings.c_str(), &status));
    const bool isSent = sendPacketToServer(size);
    const double seconds = secondsSince(start);
    if (!isSent) fail("a send");
    server.waitForCalls(before, 1);
    spinFor(kRest);
    return seconds;
  };
}

// --- A host that starts, in a process of its own, and tells how long it took ---

int runStarter(const std::vector<std::string>& /*arguments*/) {
  pinTo(kSenderProcessor);
  const auto start = Clock::now();
  TQHPHelper::share();
  std::printf("%.9f\n", secondsSince(start));
  return 0;
}

const support::Role starterRole("benchmark-starter", runStarter);

/// What `TQHPHelper::share()` does, step by step, each for the first time in its process.
int runSteps(const std::vector<std::string>& /*arguments*/) {
  pinTo(kSenderProcessor);
  auto last = Clock::now();
  const auto note = [&last](const char* step) {
    std::printf("%s\n%.9f\n", step, secondsSince(last));
    last = Clock::now();
  };
  const clientcomm::Bundle& host = clientcomm::Bundle::mainBundle();
  const OptionalString productID = host.infoString("PID");
  const OptionalString version = host.infoString(clientcomm::kCFBundleVersionKey);
  note("read the host's Info.plist");
  TQHPHelperControl& control = TQHPHelperControl::share();
  note("open to events, write the process record");
  clientcomm::UserDefaults& defaults = clientcomm::UserDefaults::standardUserDefaults();
  defaults.setObject(clientcomm::PropertyListValue(productID.value_or("")), "PID");
  defaults.synchronize();
  note("record the host in its user defaults");
  benchmark::DoNotOptimize(TQHPHelperCommunicate::compareVersion(
      clientcomm::Bundle(*host.pathForResource("Test Helper", "app"))
          .infoString(clientcomm::kCFBundleVersionKey),
      clientcomm::Bundle(installedHelperPath()).infoString(clientcomm::kCFBundleVersionKey)));
  note("compare the versions of the helper's two copies");
  if (!TQHPProcessList::share().applicationIsRunning(OptionalString(support::helperIdentifier()),
                                                     installedHelperPath())) {
    return 1;
  }
  note("look whether the helper runs");
  if (control.start(productID, version) != clientcomm::noErr) return 1;
  note("send the start command");
  if (!TQHPGetDataByHelper::share().clientIDFormHelper()) return 1;
  note("ask for the client ID");
  return 0;
}

const support::Role stepsRole("benchmark-steps", runSteps);

/// What the application prints as its figures, by turns with their names where it has several.
std::vector<std::string> linesOf(const std::string& application) {
  support::ChildProcess process = support::runApplication(application);
  std::vector<std::string> lines;
  while (auto line = process.readLine()) lines.push_back(*std::move(line));
  if (process.wait() != 0 || lines.empty()) fail("a host");
  return lines;
}

const std::string& starter() {
  static const auto* const path = new std::string(makeHost("Starter", "benchmark-starter"));
  return *path;
}

/// A product's files are older than the time within which a change of a file may not show. Those
/// that were just made are read again each time.
void waitUntilSettled() {
  constexpr std::chrono::milliseconds kPause(50);
  const auto isSettled = [](const std::string& bundle) {
    const auto signature = clientcomm::FileSignature::ofFile(bundle + "/Contents/Info.plist");
    return signature && signature->isSettled();
  };
  while (!isSettled(starter()) || !isSettled(installedHelperPath())) {
    std::this_thread::sleep_for(kPause);
  }
}

/// A start with the helper installed and running.
Sample startWithHelper() {
  linesOf(starter());
  waitUntilSettled();
  return [] { return std::stod(linesOf(starter()).front()); };
}

/// The steps of such a start as counters, in microseconds.
void registerSteps(const Plan& plan) {
  const int samples = plan.atMost(10);
  benchmark::RegisterBenchmark("share-steps",
                               [samples](benchmark::State& state) {
                                 linesOf(starter());
                                 waitUntilSettled();
                                 const std::string steps = makeHost("Steps", "benchmark-steps");
                                 std::vector<std::string> names;
                                 std::vector<std::vector<double>> seconds;
                                 for ([[maybe_unused]] auto iteration : state) {
                                   for (int i = 0; i < samples; ++i) {
                                     const auto lines = linesOf(steps);
                                     for (std::size_t k = 0; k + 1 < lines.size(); k += 2) {
                                       if (names.size() <= k / 2) names.push_back(lines[k]);
                                       seconds.resize(names.size());
                                       seconds[k / 2].push_back(std::stod(lines[k + 1]));
                                     }
                                   }
                                 }
                                 for (std::size_t i = 0; i < names.size(); ++i) {
                                   // Counters come out sorted by name.
                                   state.counters[std::to_string(i + 1) + " " + names[i]] =
                                       median(seconds[i]) * 1e6;
                                 }
                               })
      ->Iterations(1)
      ->Repetitions(plan.repetitions);
}

/// The very first start: nothing is installed, nothing runs.
Sample firstStart() {
  starter();
  return [] {
    endHelper();
    std::filesystem::remove_all(support::sandbox() + "/install");
    const double seconds = std::stod(linesOf(starter()).front());
    if (helperProcess() == 0) fail("the first start");
    return seconds;
  };
}

/// The helper is started by hand and asked something as soon as it can be.
Sample spawnHelper() {
  linesOf(starter());
  return [] {
    constexpr std::chrono::microseconds kPause(200);  // leaves the processor to the helper
    endHelper();
    const auto start = Clock::now();
    // In a session of its own, as the library starts it.
    const support::ChildProcess helper = support::ChildProcess::fork([] {
      const std::string executable = support::executableOf(installedHelperPath());
      setsid();
      execl(executable.c_str(), executable.c_str(), nullptr);
      return 1;
    });
    while (helperProcess() != helper.pid()) std::this_thread::sleep_for(kPause);
    return secondsSince(start);
  };
}

}  // namespace

void registerProductBenchmarks(const Plan& plan) {
  registerSampled(plan, "tick/clientcomm", 2000, tick);
  registerSampled(plan, "tick/floor", 2000, sendAndStat);
  registerSampled(plan, "share/clientcomm", 10, startWithHelper);
  registerSteps(plan);
  registerSampled(plan, "first-start/clientcomm", 5, firstStart);
  registerSampled(plan, "first-start/floor", 5, spawnHelper);
}

}  // namespace bench
