#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/linux/access_proof.h"
#include "ClientComm/platform/linux/call_watchers.h"
#include "ClientComm/platform/linux/peer_identity.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/posix/apple_event_codec.h"
#include "ClientComm/platform/runtime.h"
#include "ClientComm/platform/wire_format.h"
#include "benchmarks/benchmarks.h"
#include "benchmarks/support/measurement.h"
#include "benchmarks/support/peers.h"
#include "tests/support/raw_packets.h"
#include "tests/support/recording_transport.h"

// What it costs a call that it can be watched, and that it is.

namespace bench {
namespace {

using clientcomm::AppleEventDescriptor;
using clientcomm::OptionalString;

constexpr const char kClassName[] = "BenchmarkWatched";

class Watched : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    static const auto* const cls = new clientcomm::Class(
        kClassName, clientcomm::makeShared<Watched>, {clientcomm::method<&Watched::note>(kNote)});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  void note(const OptionalString& /*name*/, const OptionalString& /*text*/) { ++count_; }

 private:
  std::size_t count_ = 0;
};

/// What the endpoint does with a call between its receiving and its sending.
class Dispatch {
 public:
  Dispatch() : sender_(clientcomm::serialNumberForPeer(getpid(), -1).value()) {
    clientcomm::registerClass(Watched::staticClass());
    TQHPAppleEventProcesser::share();
    const AppleEventDescriptor event = support::callEvent(
        kClassName, kNote, {"com.example.product.P100", "a value of usual length"});
    bytes_.resize(clientcomm::flattenedSize(event).value());
    clientcomm::flattenTo(event, bytes_.data());
  }

  /// As if there were no watching.
  [[gnu::noinline]] void bypassingTheWatch() {
    AppleEventDescriptor event = decoded();
    AppleEventDescriptor reply = answer();
    benchmark::DoNotOptimize(carryOut(std::move(event), reply));
    flatten(reply);
  }

  /// As it is, without a watcher.
  [[gnu::noinline]] void unwatched() {
    AppleEventDescriptor event = decoded();
    AppleEventDescriptor reply = answer();
    clientcomm::WatchedCall call(watchers_, event, {process_, &sender_, true});
    const OSErr status = carryOut(std::move(event), reply);
    benchmark::DoNotOptimize(status);
    flatten(reply);
    call.finish(watchers_, status, reply);
  }

 private:
  AppleEventDescriptor decoded() const {
    AppleEventDescriptor event = *clientcomm::unflatten(bytes_);
    event.setAttributeDescriptor(
        {clientcomm::typeProcessSerialNumber,
         std::string(reinterpret_cast<const char*>(&sender_), sizeof sender_)},
        clientcomm::keyAddressAttr);
    return event;
  }

  static AppleEventDescriptor answer() {
    return AppleEventDescriptor::appleEvent(clientcomm::kCallEventClass, clientcomm::kAnswerEventID,
                                            {}, -1, 0);
  }

  static OSErr carryOut(AppleEventDescriptor event, AppleEventDescriptor& reply) {
    return clientcomm::AppleEventManager::sharedAppleEventManager().dispatchRawAppleEvent(
        std::move(event), reply);
  }

  void flatten(const AppleEventDescriptor& reply) {
    out_.resize(clientcomm::flattenedSize(reply).value());
    clientcomm::flattenTo(reply, out_.data());
  }

  clientcomm::ProcessSerialNumber sender_;
  pid_t process_ = getpid();
  std::string bytes_;
  std::string out_;
  clientcomm::CallWatchers watchers_;
};

/// Seconds of a call.
struct Times {
  double unwatched = 0;
  double bypassed = 0;
};

/// Both, timed in turn: the machine is as fast for one as for the other.
Times dispatchInTurn(Dispatch& dispatch) {
  constexpr int kTurns = 50;
  constexpr int kCallsInATurn = 20;
  Times sum;
  for (int turn = 0; turn < kTurns; ++turn) {
    const auto start = Clock::now();
    for (int i = 0; i < kCallsInATurn; ++i) dispatch.unwatched();
    sum.unwatched += secondsSince(start);
    const auto middle = Clock::now();
    for (int i = 0; i < kCallsInATurn; ++i) dispatch.bypassingTheWatch();
    sum.bypassed += secondsSince(middle);
  }
  constexpr double kCalls = kTurns * kCallsInATurn;
  return {sum.unwatched / kCalls, sum.bypassed / kCalls};
}

/// The samples of the floor are those that were taken in turn with ours.
std::deque<double>& bypassedTimes() {
  static std::deque<double> times;
  return times;
}

Sample unwatchedCall() {
  auto dispatch = std::make_shared<Dispatch>();
  return [dispatch] {
    const Times times = dispatchInTurn(*dispatch);
    bypassedTimes().push_back(times.bypassed);
    return times.unwatched;
  };
}

Sample bypassedCall() {
  auto dispatch = std::make_shared<Dispatch>();
  return [dispatch] {
    if (bypassedTimes().empty()) return dispatchInTurn(*dispatch).bypassed;
    const double time = bypassedTimes().front();
    bypassedTimes().pop_front();
    return time;
  };
}

/// A connection on which the receiver tells its calls.
class Watcher {
 public:
  Watcher() : socket_(support::raw::connectTo(kReceiverIdentifier)) {
    using clientcomm::ProcPath;
    support::raw::Header header;
    header.kind = static_cast<std::uint8_t>(clientcomm::PacketKind::kWatch);
    const std::string proof = clientcomm::accessProof(
        ProcPath::ofProcess(receiver().process.pid(), clientcomm::kAccessProofFile));
    support::raw::send(socket_.get(), support::raw::packet(header, proof));
    if (support::raw::receive(socket_.get()).empty()) {
      std::fputs("the receiver cannot be watched\n", stderr);
      std::exit(1);
    }
  }

  void read() { support::raw::receive(socket_.get()); }

 private:
  clientcomm::ScopedFd socket_;
};

double timeOfQuery() {
  const auto start = Clock::now();
  const bool isAnswered = ask("a value of usual length").has_value();
  const double seconds = secondsSince(start);
  if (isAnswered) return seconds;
  std::fputs("a query failed\n", stderr);
  std::exit(1);
}

Sample watchedQuery() {
  receiver();
  auto watcher = std::make_shared<Watcher>();
  return [watcher] {
    const double seconds = timeOfQuery();
    watcher->read();
    return seconds;
  };
}

}  // namespace

void registerWatchBenchmarks(const Plan& plan) {
  registerSampled(plan, "watch/clientcomm", 500, unwatchedCall);
  registerSampled(plan, "watch/floor", 500, bypassedCall);
  registerSampled(plan, "watched/clientcomm", 3000, watchedQuery);
  registerSampled(plan, "watched/floor", 3000, [] {
    receiver();
    return timeOfQuery;
  });
}

}  // namespace bench
