#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "benchmarks/support/measurement.h"
#include "benchmarks/support/peers.h"
#include "tests/support/test_sandbox.h"

// What an engineer would use instead: a session bus, here one of the run's own, and sd-bus.

namespace bench {
namespace {

constexpr const char kBusProgram[] = "/usr/bin/dbus-daemon";

const SharedCounter* handledCalls = nullptr;

std::string busAddress() { return "unix:path=" + support::sandbox() + "/bus"; }

[[noreturn]] void fail(const char* what, int error) {
  std::fprintf(stderr, "sd-bus, %s: %s\n", what, std::strerror(-error));
  std::exit(1);
}

int check(const char* what, int result) {
  if (result < 0) fail(what, result);
  return result;
}

int handleNote(sd_bus_message* message, void* /*data*/, sd_bus_error* /*error*/) {
  const char* name = nullptr;
  const char* text = nullptr;
  const int result = sd_bus_message_read(message, "ss", &name, &text);
  if (result < 0) return result;
  if (handledCalls != nullptr) handledCalls->increment();
  return sd_bus_reply_method_return(message, "");
}

int handleSay(sd_bus_message* message, void* /*data*/, sd_bus_error* /*error*/) {
  const char* text = nullptr;
  const int result = sd_bus_message_read(message, "s", &text);
  if (result < 0) return result;
  if (handledCalls != nullptr) handledCalls->increment();
  return sd_bus_reply_method_return(message, "s", text);
}

int handleMany(sd_bus_message* message, void* /*data*/, sd_bus_error* /*error*/) {
  int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "s");
  const char* text = nullptr;
  while (result >= 0 && (result = sd_bus_message_read(message, "s", &text)) > 0) {
    benchmark::DoNotOptimize(text);
  }
  return result < 0 ? result : sd_bus_reply_method_return(message, "");
}

ScopedBus tryToConnect() {
  sd_bus* made = nullptr;
  check("new", sd_bus_new(&made));
  ScopedBus bus(made);
  check("address", sd_bus_set_address(bus.get(), busAddress().c_str()));
  check("client", sd_bus_set_bus_client(bus.get(), 1));
  if (sd_bus_start(bus.get()) < 0) return nullptr;
  return bus;
}

void startDaemon() {
  static auto* const daemon = new support::ChildProcess(support::ChildProcess::spawn(
      {kBusProgram, "--session", "--nofork", "--nopidfile", "--address=" + busAddress()}));
  if (!support::waitUntil([] { return tryToConnect() != nullptr; })) {
    std::fprintf(stderr, "the bus %d does not come up\n", daemon->pid());
    std::exit(1);
  }
}

int runService(const SharedCounter& handled) {
  pinTo(kReceiverProcessor);
  handledCalls = &handled;
  const ScopedBus bus = connectToBus();
  check("vtable", sd_bus_add_object_vtable(bus.get(), nullptr, kServicePath, kServiceInterface,
                                           kServiceMethods, nullptr));
  check("name", sd_bus_request_name(bus.get(), kServiceName, 0));
  for (;;) {
    const int result = check("process", sd_bus_process(bus.get(), nullptr));
    if (result == 0) check("wait", sd_bus_wait(bus.get(), UINT64_MAX));
  }
}

}  // namespace

const sd_bus_vtable kServiceMethods[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_METHOD("Note", "ss", "", handleNote, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Say", "s", "s", handleSay, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Many", "as", "", handleMany, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};

Peer& busService() {
  static Peer* const peer = [] {
    unpin();  // the bus runs where the scheduler finds it best
    startDaemon();
    const std::string path = support::sandbox() + "/service-calls";
    auto* const made = new Peer{support::ChildProcess::fork([&] {
                                  const SharedCounter handled(path);
                                  return runService(handled);
                                }),
                                SharedCounter(path)};
    const ScopedBus bus = connectToBus();
    if (!support::waitUntil([&] { return hasOwner(*bus, kServiceName); })) {
      fail("service", -ETIMEDOUT);
    }
    pinTo(kSenderProcessor);
    return made;
  }();
  return *peer;
}

ScopedBus connectToBus() {
  ScopedBus bus = tryToConnect();
  if (!bus) fail("connect", -ECONNREFUSED);
  return bus;
}

sd_bus& busConnection() {
  busService();
  static const auto* const bus = new ScopedBus(connectToBus());
  return **bus;
}

bool hasOwner(sd_bus& bus, const std::string& name, std::string* owner) {
  sd_bus_message* reply = nullptr;
  const int result = sd_bus_call_method(&bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                        "org.freedesktop.DBus", "GetNameOwner", nullptr, &reply,
                                        "s", name.c_str());
  const char* text = nullptr;
  const bool isOwned = result >= 0 && sd_bus_message_read(reply, "s", &text) >= 0;
  if (isOwned && owner != nullptr) *owner = text;
  sd_bus_message_unref(reply);
  return isOwned;
}

bool sendNoteOverBus(sd_bus& bus, const std::string& name, const std::vector<std::string>& texts) {
  std::string owner;
  if (!hasOwner(bus, name, &owner)) return false;
  sd_bus_message* message = nullptr;
  bool isSent = sd_bus_message_new_method_call(&bus, &message, owner.c_str(), kServicePath,
                                               kServiceInterface, "Note") >= 0 &&
                sd_bus_message_set_expect_reply(message, 0) >= 0;
  for (const std::string& text : texts) {
    isSent = isSent && sd_bus_message_append(message, "s", text.c_str()) >= 0;
  }
  isSent = isSent && sd_bus_send(&bus, message, nullptr) >= 0 && sd_bus_flush(&bus) >= 0;
  sd_bus_message_unref(message);
  return isSent;
}

bool askOverBus(sd_bus& bus, const std::string& text) {
  sd_bus_message* reply = nullptr;
  const char* answer = nullptr;
  const bool isAnswered = sd_bus_call_method(&bus, kServiceName, kServicePath, kServiceInterface,
                                             "Say", nullptr, &reply, "s", text.c_str()) >= 0 &&
                          sd_bus_message_read(reply, "s", &answer) >= 0 && text == answer;
  sd_bus_message_unref(reply);
  return isAnswered;
}

}  // namespace bench
