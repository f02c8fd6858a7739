#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "ClientComm/TQHPAppleEventSender.h"
#include "benchmarks/benchmarks.h"
#include "benchmarks/support/measurement.h"
#include "benchmarks/support/peers.h"

using clientcomm::OptionalString;

// A call without a reply: what the sender pays until it has its status.

namespace bench {
namespace {

using std::chrono::microseconds;

// Long enough for any receiver to be asleep in its main loop again.
constexpr microseconds kRest(60);

constexpr int kSamples = 3000;

// As many as fit into every receiver's queue.
constexpr int kHeldStill = 1000;

const std::vector<std::string>& twoArguments() {
  static const auto* const texts =
      new std::vector<std::string>{"com.example.product.P100", "a value of usual length"};
  return *texts;
}

template <typename Send>
double timed(const Send& send) {
  const auto start = Clock::now();
  const bool isSent = send();
  const double seconds = secondsSince(start);
  if (isSent) return seconds;
  std::fputs("a send failed\n", stderr);
  std::exit(1);
}

/// The receiver sleeps, and is woken by the call; the ordinary case.
template <typename Send>
Sample toSleeping(Peer& peer, Send send) {
  return [&peer, send] {
    const std::uint64_t before = peer.handled.value();
    const double seconds = timed(send);
    peer.waitForCalls(before, 1);
    spinFor(kRest);
    return seconds;
  };
}

/// The receiver is held still meanwhile, so that nothing but the sender's own work counts.
template <typename Send>
Sample toHeldStill(Peer& peer, int count, Send send) {
  return [&peer, count, send] {
    const std::uint64_t before = peer.handled.value();
    peer.process.signal(SIGSTOP);
    spinFor(microseconds(1000));
    std::vector<double> seconds;
    for (int i = 0; i < count; ++i) seconds.push_back(timed(send));
    peer.process.signal(SIGCONT);
    peer.waitForCalls(before, static_cast<std::uint64_t>(count));
    return median(seconds);
  };
}

bool sendByLibrary() { return sendNote(twoArguments()) == clientcomm::noErr; }

bool sendBySocket() {
  static const std::size_t size = callPacketSize(kNote, twoArguments());
  return sendPacketToServer(size);
}

bool sendByBus() { return sendNoteOverBus(busConnection(), kServiceName, twoArguments()); }

bool sendToNobody() {
  static const OptionalString nobody = "com.example.nobody";
  return TQHPAppleEventSender::share().sendEvnet(nobody, kReceiverClass, kNote, twoArguments()) ==
         clientcomm::procNotFound;
}

}  // namespace

void registerSendBenchmarks(const Plan& plan) {
  registerSampled(plan, "send/clientcomm", kSamples,
                  [] { return toSleeping(receiver(), sendByLibrary); });
  registerSampled(plan, "send/floor", kSamples,
                  [] { return toSleeping(socketServer(), sendBySocket); });
  registerSampled(plan, "send/alternative", kSamples,
                  [] { return toSleeping(busService(), sendByBus); });

  const int heldStill = plan.atMost(kHeldStill);
  registerSampled(plan, "send-alone/clientcomm", 10,
                  [=] { return toHeldStill(receiver(), heldStill, sendByLibrary); });
  registerSampled(plan, "send-alone/floor", 10,
                  [=] { return toHeldStill(socketServer(), heldStill, sendBySocket); });

  registerSampled(plan, "send-to-nobody/clientcomm", kSamples,
                  [] { return [] { return timed(sendToNobody); }; });
  registerSampled(plan, "send-to-nobody/floor", kSamples,
                  [] { return [] { return timed(connectToNobody); }; });
  registerSampled(plan, "send-to-nobody/alternative", kSamples, [] {
    sd_bus& bus = busConnection();
    return [&bus] { return timed([&bus] { return !hasOwner(bus, "com.example.Nobody"); }); };
  });
}

}  // namespace bench
