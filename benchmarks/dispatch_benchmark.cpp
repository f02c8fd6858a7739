#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/linux/peer_identity.h"
#include "ClientComm/platform/posix/apple_event_codec.h"
#include "ClientComm/platform/runtime.h"
#include "benchmarks/benchmarks.h"
#include "benchmarks/support/measurement.h"
#include "benchmarks/support/peers.h"
#include "tests/support/recording_transport.h"

// The receiving side without input or output: from the bytes of a call to the bytes of its reply.

namespace bench {
namespace {

using clientcomm::AppleEventDescriptor;
using clientcomm::OptionalString;

constexpr int kCounts[] = {0, 2, 6, 100, 1000};

constexpr const char kClassName[] = "BenchmarkCounter";

// Long enough that every string is allocated.
std::vector<std::string> texts(int count) {
  std::vector<std::string> all;
  for (int i = 0; i < count; ++i) all.push_back("an argument of usual length " + std::to_string(i));
  return all;
}

/// Takes any number of arguments, through methods that are listed one for each number.
class Counter : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    static const auto* const cls =
        new clientcomm::Class(kClassName, clientcomm::makeShared<Counter>, methods());
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  OptionalString count(std::span<const OptionalString> arguments) {
    total_ += arguments.size();
    return std::nullopt;
  }

 private:
  static std::vector<clientcomm::Method> methods() {
    std::vector<clientcomm::Method> all;
    for (const int number : kCounts) {
      static auto* const names = new std::vector<std::unique_ptr<std::string>>;
      names->push_back(std::make_unique<std::string>("count" + std::to_string(number)));
      all.push_back({*names->back(), static_cast<std::size_t>(number),
                     [](clientcomm::Object& receiver, std::span<const OptionalString> arguments) {
                       return static_cast<Counter&>(receiver).count(arguments);
                     }});
    }
    return all;
  }

  std::size_t total_ = 0;
};

std::string flattened(const AppleEventDescriptor& descriptor) {
  std::string bytes(clientcomm::flattenedSize(descriptor).value(), '\0');
  clientcomm::flattenTo(descriptor, bytes.data());
  return bytes;
}

AppleEventDescriptor ownAddress() {
  const auto psn = clientcomm::serialNumberForPeer(getpid(), -1);
  if (!psn) {
    std::fputs("the benchmark's own identity cannot be told\n", stderr);
    std::exit(1);
  }
  return {clientcomm::typeProcessSerialNumber,
          std::string(reinterpret_cast<const char*>(&*psn), sizeof *psn)};
}

/// What the endpoint does with a packet between its receiving and its sending.
std::size_t decodeAndReply(const std::string& bytes, const AppleEventDescriptor& address,
                           std::string& out) {
  auto event = clientcomm::unflatten(bytes);
  event->setAttributeDescriptor(address, clientcomm::keyAddressAttr);
  AppleEventDescriptor reply = AppleEventDescriptor::appleEvent(
      clientcomm::fourCharCode("aevt"), clientcomm::fourCharCode("ansr"), {}, event->returnID(),
      event->transactionID());
  clientcomm::AppleEventManager::sharedAppleEventManager().dispatchRawAppleEvent(*std::move(event),
                                                                                 reply);
  out.resize(clientcomm::flattenedSize(reply).value());
  clientcomm::flattenTo(reply, out.data());
  return out.size();
}

std::function<void()> dispatchByLibrary(int count) {
  clientcomm::registerClass(Counter::staticClass());
  TQHPAppleEventProcesser::share();
  const std::string bytes =
      flattened(support::callEvent(kClassName, "count" + std::to_string(count), texts(count)));
  return [bytes, address = ownAddress(), out = std::string()]() mutable {
    benchmark::DoNotOptimize(decodeAndReply(bytes, address, out));
  };
}

std::function<void()> callDirectly(int count) {
  const auto counter = std::make_shared<Counter>();
  const std::vector<std::string> arguments = texts(count);
  return [counter, arguments, copies = std::vector<OptionalString>(arguments.size())]() mutable {
    for (std::size_t i = 0; i < arguments.size(); ++i) copies[i].emplace(arguments[i]);
    benchmark::DoNotOptimize(counter->count(copies));
    for (auto& copy : copies) copy.reset();
  };
}

/// Two ends of a connection without a bus between them.
class DirectBuses {
 public:
  DirectBuses() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
      std::perror("socketpair");
      std::exit(1);
    }
    server_ = start(ends[0], true);
    client_ = start(ends[1], false);
    sd_bus_add_object_vtable(server_.get(), nullptr, kServicePath, kServiceInterface,
                             kServiceMethods, nullptr);
    for (int i = 0; i < 20; ++i) {
      sd_bus_process(server_.get(), nullptr);
      sd_bus_process(client_.get(), nullptr);
    }
  }

  void call(const std::vector<std::string>& arguments) {
    sd_bus_message* message = nullptr;
    sd_bus_message_new_method_call(client_.get(), &message, nullptr, kServicePath,
                                   kServiceInterface, "Many");
    sd_bus_message_open_container(message, SD_BUS_TYPE_ARRAY, "s");
    for (const auto& text : arguments) sd_bus_message_append(message, "s", text.c_str());
    sd_bus_message_close_container(message);
    sd_bus_call_async(client_.get(), nullptr, message, nullptr, nullptr, 0);
    sd_bus_message_unref(message);
    sd_bus_flush(client_.get());
  }

  /// @return whether a call was handled.
  bool handleOne() { return sd_bus_process(server_.get(), nullptr) > 0; }

  void takeReplies() {
    while (sd_bus_process(client_.get(), nullptr) > 0) {
    }
  }

 private:
  static ScopedBus start(int fd, bool isServer) {
    sd_bus* bus = nullptr;
    sd_bus_new(&bus);
    sd_bus_set_fd(bus, fd, fd);
    sd_bus_set_anonymous(bus, 1);
    if (isServer) {
      sd_id128_t id{};
      sd_id128_randomize(&id);
      sd_bus_set_server(bus, 1, id);
    }
    sd_bus_start(bus);
    return ScopedBus(bus);
  }

  ScopedBus server_;
  ScopedBus client_;
};

/// sd-bus takes a message from nowhere but a connection; its reading, parsing and dispatching of
/// one that has arrived already is what is timed.
Sample dispatchByBus(int count) {
  auto buses = std::make_shared<DirectBuses>();
  return [buses, arguments = texts(count)] {
    buses->call(arguments);
    const auto start = Clock::now();
    bool isHandled = buses->handleOne();
    const double seconds = secondsSince(start);
    while (!isHandled) isHandled = buses->handleOne();
    buses->takeReplies();
    return seconds;
  };
}

}  // namespace

void registerDispatchBenchmarks(const Plan& plan) {
  for (const int count : kCounts) {
    const std::string row = "dispatch/" + std::to_string(count);
    const int calls = count < 100 ? 100 : 5;
    registerShort(plan, row + "/clientcomm", calls, [count] { return dispatchByLibrary(count); });
    registerShort(plan, row + "/floor", calls, [count] { return callDirectly(count); });
    registerSampled(plan, row + "/alternative", 2000, [count] { return dispatchByBus(count); });
  }
}

}  // namespace bench
