#include <cstdio>
#include <cstdlib>
#include <thread>

#include "benchmarks/benchmarks.h"
#include "benchmarks/support/measurement.h"
#include "benchmarks/support/peers.h"

// A call with a reply: the whole round trip, between two processors and on one.

namespace bench {
namespace {

constexpr int kSamples = 2000;

// Long enough for the receiver to be asleep in its main loop again.
constexpr std::chrono::microseconds kRest(60);

const std::string kText = "a value of usual length";

template <typename Ask>
Sample roundTrip(const Peer& peer, int processor, Ask ask) {
  pin(peer.process.pid(), processor);
  return [ask, processor] {
    const auto start = Clock::now();
    const bool isAnswered = ask();
    const double seconds = secondsSince(start);
    if (!isAnswered) {
      std::fputs("a query failed\n", stderr);
      std::exit(1);
    }
    if (processor == kSenderProcessor) {
      std::this_thread::sleep_for(kRest);
    } else {
      spinFor(kRest);
    }
    return seconds;
  };
}

void registerRow(const Plan& plan, const std::string& row, int processor) {
  registerSampled(plan, row + "/clientcomm", kSamples, [processor] {
    return roundTrip(receiver(), processor, [] { return ask(kText) == kText; });
  });
  registerSampled(plan, row + "/floor", kSamples, [processor] {
    const std::size_t size = callPacketSize(kSay, {kText});
    const std::size_t replySize = replyPacketSize(kText);
    return roundTrip(socketServer(), processor,
                     [=] { return exchangePacketWithServer(size, replySize); });
  });
  registerSampled(plan, row + "/alternative", kSamples, [processor] {
    sd_bus& bus = busConnection();
    return roundTrip(busService(), processor, [&bus] { return askOverBus(bus, kText); });
  });
}

}  // namespace

void registerQueryBenchmarks(const Plan& plan) {
  registerRow(plan, "query-one-processor", kSenderProcessor);
  // The last one leaves the receivers where they belong.
  registerRow(plan, "query", kReceiverProcessor);
}

}  // namespace bench
