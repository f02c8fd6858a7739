#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

#include "benchmarks/benchmarks.h"
#include "benchmarks/support/measurement.h"
#include "benchmarks/support/peers.h"
#include "tests/support/test_sandbox.h"

// Several senders at once, as fast as each can, until the receiver has handled everything.

namespace bench {
namespace {

struct Load {
  int senders;
  int events;  ///< Of each sender.
};

constexpr Load kLoads[] = {{1, 2000}, {2, 2000}, {4, 2000}, {8, 10000}, {16, 1000}};

// sd-bus is slow enough for its figure, which is given for one event, to need fewer.
constexpr int kEventsOverBus = 500;

const std::vector<std::string>& twoArguments() {
  static const auto* const texts =
      new std::vector<std::string>{"com.example.product.P100", "a value of usual length"};
  return *texts;
}

/// What one sender does; run in a process of its own.
using Sender = std::function<bool(int events)>;

/// Starts the senders, lets them all go at once, and measures until the last event was handled.
/// @return seconds for one event.
double measure(const Peer& peer, int senders, int events, const Sender& sender) {
  static SharedCounter starts(support::sandbox() + "/starts");
  static SharedCounter ready(support::sandbox() + "/ready");
  const std::uint64_t go = starts.value() + 1;
  const std::uint64_t allReady = ready.value() + static_cast<std::uint64_t>(senders);
  const std::uint64_t before = peer.handled.value();
  std::vector<support::ChildProcess> processes;
  for (int i = 0; i < senders; ++i) {
    processes.push_back(support::ChildProcess::fork([&] {
      ready.increment();
      while (starts.value() < go) usleep(100);
      return sender(events) ? 0 : 1;
    }));
  }
  while (ready.value() < allReady) usleep(100);
  const auto start = Clock::now();
  starts.increment();
  const auto count = static_cast<std::uint64_t>(senders) * static_cast<std::uint64_t>(events);
  while (peer.handled.value() < before + count && secondsSince(start) < 60) usleep(100);
  const double seconds = secondsSince(start) / static_cast<double>(count);
  for (auto& process : processes) {
    if (process.wait() == 0) continue;
    std::fputs("a sender failed\n", stderr);
    std::exit(1);
  }
  peer.waitForCalls(before, count);
  return seconds;
}

bool sendByLibrary(int events) {
  for (int i = 0; i < events; ++i) {
    if (sendNote(twoArguments()) != clientcomm::noErr) return false;
  }
  return true;
}

bool sendBySocket(int events) {
  const std::size_t size = callPacketSize(kNote, twoArguments());
  for (int i = 0; i < events; ++i) {
    if (!sendPacketToServer(size)) return false;
  }
  return true;
}

bool sendByBus(int events) {
  const ScopedBus bus = connectToBus();
  for (int i = 0; i < events; ++i) {
    if (!sendNoteOverBus(*bus, kServiceName, twoArguments())) return false;
  }
  return true;
}

}  // namespace

void registerManySendersBenchmarks(const Plan& plan) {
  for (const Load& load : kLoads) {
    const std::string row = "many-senders/" + std::to_string(load.senders);
    const int senders = load.senders;
    const int events = plan.atMost(load.events);
    const int eventsOverBus = plan.atMost(kEventsOverBus);
    registerSampled(plan, row + "/clientcomm", 1, [=] {
      return [=, &peer = receiver()] { return measure(peer, senders, events, sendByLibrary); };
    });
    registerSampled(plan, row + "/floor", 1, [=] {
      return [=, &peer = socketServer()] { return measure(peer, senders, events, sendBySocket); };
    });
    registerSampled(plan, row + "/alternative", 1, [=] {
      return [=, &peer = busService()] { return measure(peer, senders, eventsOverBus, sendByBus); };
    });
  }
}

}  // namespace bench
