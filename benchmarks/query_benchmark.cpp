#include <cstdio>
#include <cstdlib>

#include "benchmarks/benchmarks.h"
#include "benchmarks/support/measurement.h"
#include "benchmarks/support/peers.h"

// A call with a reply: the whole round trip.

namespace bench {
namespace {

constexpr int kSamples = 3000;

// Long enough for the receiver to be asleep in its main loop again.
constexpr std::chrono::microseconds kRest(60);

const std::string kText = "a value of usual length";

template <typename Ask>
Sample roundTrip(Ask ask) {
  return [ask] {
    const auto start = Clock::now();
    const bool isAnswered = ask();
    const double seconds = secondsSince(start);
    if (!isAnswered) {
      std::fputs("a query failed\n", stderr);
      std::exit(1);
    }
    spinFor(kRest);
    return seconds;
  };
}

}  // namespace

void registerQueryBenchmarks(const Plan& plan) {
  registerSampled(plan, "query/clientcomm", kSamples, [] {
    receiver();
    return roundTrip([] { return ask(kText) == kText; });
  });
  registerSampled(plan, "query/floor", kSamples, [] {
    socketServer();
    return roundTrip([size = callPacketSize(kSay, {kText}), replySize = replyPacketSize(kText)] {
      return exchangePacketWithServer(size, replySize);
    });
  });
  registerSampled(plan, "query/alternative", kSamples, [] {
    sd_bus& bus = busConnection();
    return roundTrip([&bus] { return askOverBus(bus, kText); });
  });
}

}  // namespace bench
