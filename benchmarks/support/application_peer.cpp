#include <glib.h>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/posix/apple_event_codec.h"
#include "ClientComm/platform/runtime.h"
#include "ClientComm/platform/wire_format.h"
#include "benchmarks/support/measurement.h"
#include "benchmarks/support/peers.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_application.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;

namespace bench {
namespace {

constexpr std::size_t kPacketHeaderSize = 16;

const SharedCounter* handledCalls = nullptr;

class Receiver : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    using clientcomm::method;
    static const auto* const cls =
        new clientcomm::Class(kReceiverClass, clientcomm::makeShared<Receiver>,
                              {method<&Receiver::note>(kNote), method<&Receiver::say>(kSay)});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  void note(const OptionalString& /*name*/, const OptionalString& /*text*/) {
    handledCalls->increment();
  }
  OptionalString say(const OptionalString& text) {
    handledCalls->increment();
    return text;
  }
};

int runReceiver(const std::vector<std::string>& arguments) {
  pinTo(kReceiverProcessor);
  handledCalls = new SharedCounter(arguments.at(0));
  clientcomm::registerClass(Receiver::staticClass());
  TQHPAppleEventProcesser::share();
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  return 0;
}

const support::Role receiverRole("benchmark-receiver", runReceiver);

}  // namespace

Peer& receiver() {
  static Peer* const peer = [] {
    const std::string counter = support::sandbox() + "/receiver-calls";
    const std::string application =
        support::makeApplication("Receiver", kReceiverIdentifier, "benchmark-receiver");
    auto* const made =
        new Peer{support::runApplication(application, {counter}), SharedCounter(counter)};
    support::waitUntilReachable(kReceiverIdentifier);
    return made;
  }();
  return *peer;
}

clientcomm::OSErr sendNote(std::span<const std::string> arguments) {
  static const OptionalString target = kReceiverIdentifier;
  return TQHPAppleEventSender::share().sendEvnet(target, kReceiverClass, kNote, arguments);
}

clientcomm::OptionalString ask(const std::string& text) {
  static const OptionalString target = kReceiverIdentifier;
  OptionalString answer;
  TQHPAppleEventSender::share().sendEvnet(target, kReceiverClass, kSay, {&text, 1}, &answer);
  return answer;
}

std::size_t callPacketSize(const std::string& selector, const std::vector<std::string>& arguments) {
  using clientcomm::AppleEventDescriptor;
  AppleEventDescriptor event = support::callEvent(kReceiverClass, selector, arguments);
  AppleEventDescriptor addressed =
      AppleEventDescriptor::appleEvent(event.eventClass(), event.eventID(),
                                       {clientcomm::typeApplicationBundleID, kReceiverIdentifier},
                                       event.returnID(), event.transactionID());
  addressed.setParamDescriptor(*event.paramDescriptorForKeyword(clientcomm::keyDirectObject),
                               clientcomm::keyDirectObject);
  return kPacketHeaderSize + clientcomm::flattenedSize(addressed).value();
}

std::size_t replyPacketSize(const std::string& text) {
  using clientcomm::AppleEventDescriptor;
  AppleEventDescriptor reply = AppleEventDescriptor::appleEvent(
      clientcomm::kCallEventClass, clientcomm::kAnswerEventID, {}, -1, 0);
  reply.setParamDescriptor(AppleEventDescriptor::descriptorWithString(text),
                           clientcomm::keyDirectObject);
  return kPacketHeaderSize + clientcomm::flattenedSize(reply).value();
}

}  // namespace bench
