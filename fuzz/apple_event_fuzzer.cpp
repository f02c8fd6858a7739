// A flattened event, as a peer of the same user can send it: read, written again, coerced to every
// type, and handed to the handler of calls in a process that has all of a host's classes.

#include <unistd.h>

#include <array>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPHelperControl.h"
#include "ClientComm/TQHPUpgradeByHelper.h"
#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/linux/peer_identity.h"
#include "ClientComm/platform/posix/apple_event_codec.h"
#include "ClientComm/platform/process_manager.h"
#include "ClientComm/platform/runtime.h"
#include "ClientComm/platform/wire_format.h"
#include "fuzz/fuzz.h"

namespace {

using clientcomm::AppleEventDescriptor;
using clientcomm::DescType;
using clientcomm::OptionalString;
using clientcomm::OSErr;
using fuzz::require;

std::string flattened(const AppleEventDescriptor& descriptor) {
  const auto size = clientcomm::flattenedSize(descriptor);
  require(size.has_value(), "what a receiver takes can be sent");
  std::string bytes(*size, '\0');
  require(clientcomm::flattenTo(descriptor, bytes.data()) == bytes.data() + bytes.size(),
          "what is written is as long as it was said to be");
  return bytes;
}

/// Takes what the library sends, checks that the other side could read it, and answers queries.
class Transport final : public clientcomm::AppleEventTransport {
 public:
  OSErr send(const AppleEventDescriptor& event, AppleEventDescriptor& reply,
             clientcomm::AESendMode sendMode, std::int32_t /*timeOutInTicks*/) override {
    const auto received = clientcomm::unflatten(flattened(event));
    require(received.has_value(), "an event that is sent can be read");
    if (sendMode != clientcomm::kAEWaitReply) return clientcomm::noErr;
    reply =
        AppleEventDescriptor::appleEvent(clientcomm::kCallEventClass, clientcomm::kAnswerEventID,
                                         {}, event.returnID(), event.transactionID());
    reply.setParamDescriptor(AppleEventDescriptor::descriptorWithString("answer"),
                             clientcomm::keyDirectObject);
    return clientcomm::noErr;
  }
  std::unique_ptr<clientcomm::PendingReply> query(AppleEventDescriptor event,
                                                  ReplyHandler /*handler*/) override {
    require(clientcomm::unflatten(flattened(event)).has_value(),
            "a query that is sent can be read");
    return nullptr;  // no loop runs that could bring an answer
  }
  OSErr startReceiving(Receiver /*receiver*/) override { return clientcomm::noErr; }
  void stopReceiving() override {}
};

/// A class of the host's own, with a method of each kind.
class Target final : public TQHPAppEventBase {
 public:
  static const clientcomm::Class& staticClass() {
    using clientcomm::method;
    static const auto* const cls = new clientcomm::Class(
        "Target", clientcomm::makeShared<Target>,
        {method<&Target::echo>("echo:"), method<&Target::count>("count"),
         method<&Target::last>("last:of:three:"), method<&Target::fail>("fail")});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  OptionalString echo(const OptionalString& text) { return text; }
  OSErr count() { return ++calls_; }
  OptionalString last(const OptionalString& first, const OptionalString& second,
                      const OptionalString& third) {
    return third ? third : (second ? second : first);
  }
  OptionalString fail() { throw std::runtime_error("a method that fails"); }

 private:
  OSErr calls_ = 0;
};

class UpgradeDelegate final : public TQHPProductUpgradeCallBackDelegate {
 public:
  void productWillUpgrade(const clientcomm::Error* /*error*/) override {
    TQHPUpgradeByHelper::share().productReadyToUpgrade("P100", "1.0", "yes");
  }
};

class ControlDelegate final : public TQHPHelperControlCallBackDelegate {
 public:
  void willHelperExit() override {}
  void didCheckServerOpen(bool /*isOpen*/, const clientcomm::Error* /*error*/) override {}
};

// The form in pieces, joined, is the form in one.
void requireSameInPieces(const AppleEventDescriptor& descriptor) {
  constexpr std::size_t kRoom = 16;
  const auto size = clientcomm::flattenedSize(descriptor);
  require(size.has_value(), "what a receiver takes can be sent");
  clientcomm::FlattenedPieces pieces(descriptor, *size, kRoom);
  std::string joined;
  for (const iovec& piece : pieces.pieces()) {
    joined.append(static_cast<const char*>(piece.iov_base), piece.iov_len);
  }
  require(joined.size() > kRoom && joined.substr(kRoom) == flattened(descriptor),
          "the form in pieces is that in one");
}

// With data in it that is long enough to be a piece of its own, before what follows it.
void requireSameWithLongData(AppleEventDescriptor descriptor) {
  constexpr std::size_t kLong = std::size_t{20} << 10;
  const auto longText = AppleEventDescriptor::descriptorWithString(std::string(kLong, 'x'));
  descriptor.setAttributeDescriptor(longText, clientcomm::fourCharCode("long"));
  descriptor.insertDescriptor(longText, 1);
  descriptor.insertDescriptor(longText, 0);
  // What is there already may be as many attributes as there can be.
  if (!clientcomm::flattenedSize(descriptor)) {
    require(descriptor.attributes().size() > clientcomm::kMaximumKeywords, "only a limit refuses");
    return;
  }
  requireSameInPieces(descriptor);
  const auto again = clientcomm::unflatten(flattened(descriptor));
  require(again && flattened(*again) == flattened(descriptor), "long data is read as it is");
}

void requireStable(const AppleEventDescriptor& descriptor, std::string_view bytes) {
  const std::string written = flattened(descriptor);
  require(written.size() <= bytes.size(), "what was read is written in no more room");
  // A keyword that stands twice in an event is read once; all else is kept.
  if (written.size() == bytes.size()) require(written == bytes, "what was read is written alike");
  const auto again = clientcomm::unflatten(written);
  require(again.has_value(), "what was written can be read");
  require(flattened(*again) == written, "reading and writing again changes nothing");
  requireSameInPieces(*again);
  requireSameWithLongData(*again);
  const AppleEventDescriptor copy = *again;
  require(flattened(copy) == written, "a copy is alike");
}

void coerce(const AppleEventDescriptor& descriptor) {
  static constexpr std::array<DescType, 10> kTypes = {clientcomm::typeNull,
                                                      clientcomm::typeUnicodeText,
                                                      clientcomm::typeUTF8Text,
                                                      clientcomm::typeChar,
                                                      clientcomm::typeSInt32,
                                                      clientcomm::typeBoolean,
                                                      clientcomm::typeAEList,
                                                      clientcomm::typeAppleEvent,
                                                      clientcomm::typeApplicationBundleID,
                                                      clientcomm::typeProcessSerialNumber};
  const OptionalString text = descriptor.stringValue();
  for (const DescType type : kTypes) {
    const auto coerced = descriptor.coerceToDescriptorType(type);
    if (!coerced) continue;
    require(coerced->descriptorType() == type, "a coercion yields the type that was asked for");
    if (type == clientcomm::typeUnicodeText) {
      require(coerced->stringValue() == text, "the text is that of the coercion to text");
    }
    if (type == clientcomm::typeAEList) {
      require(coerced->numberOfItems() == 1 || type == descriptor.descriptorType(),
              "what is no list becomes a list of itself");
    }
  }
}

// Coerces the descriptor and what is in it; at most `budget` in all, for the speed of it.
void coerceAll(const AppleEventDescriptor& descriptor, int& budget) {
  if (budget-- <= 0) return;
  coerce(descriptor);
  for (std::size_t i = 1; i <= descriptor.numberOfItems(); ++i) {
    coerceAll(*descriptor.descriptorAtIndex(i), budget);
  }
  coerceAll(descriptor.target(), budget);
  for (const auto* keyed : {&descriptor.parameters(), &descriptor.attributes()}) {
    for (const auto& [keyword, value] : *keyed) coerceAll(value, budget);
  }
}

OptionalString answerTo(const AppleEventDescriptor& event) {
  AppleEventDescriptor reply =
      AppleEventDescriptor::appleEvent(clientcomm::kCallEventClass, clientcomm::kAnswerEventID, {},
                                       event.returnID(), event.transactionID());
  const OSErr status =
      clientcomm::AppleEventManager::sharedAppleEventManager().dispatchRawAppleEvent(event, reply);
  const bool isCall = event.eventClass() == clientcomm::kCallEventClass &&
                      event.eventID() == clientcomm::kCallEventID;
  require(status == (isCall ? clientcomm::noErr : clientcomm::errAEEventNotHandled),
          "calls are handled, other events are not");
  require(reply.descriptorType() == clientcomm::typeAppleEvent, "a reply is an event");
  require(clientcomm::unflatten(flattened(reply)).has_value(), "a reply can be read");
  const auto* const answer = reply.paramDescriptorForKeyword(clientcomm::keyDirectObject);
  return answer == nullptr ? std::nullopt : answer->stringValue();
}

OptionalString textAt(const AppleEventDescriptor& list, std::size_t index) {
  const auto* const item = list.descriptorAtIndex(index);
  return item == nullptr ? std::nullopt : item->stringValue();
}

// What a call of "echo:" has to be answered with; nothing where `event` is not such a call.
OptionalString expectedEcho(const AppleEventDescriptor& event) {
  if (event.eventClass() != clientcomm::kCallEventClass ||
      event.eventID() != clientcomm::kCallEventID)
    return std::nullopt;
  const auto* const call = event.paramDescriptorForKeyword(clientcomm::keyDirectObject);
  if (call == nullptr || textAt(*call, 1) != "Target" || textAt(*call, 2) != "echo:") {
    return std::nullopt;
  }
  const auto* const arguments = call->descriptorAtIndex(3);
  if (arguments == nullptr || arguments->numberOfItems() != 1) return std::nullopt;
  return textAt(*arguments, 1);
}

void dispatch(AppleEventDescriptor event) {
  const OptionalString expected = expectedEcho(event);
  // Once with whatever address stands in it, and once with the one that the endpoint puts there.
  answerTo(event);
  const auto psn = clientcomm::serialNumberForPeer(getpid(), -1);
  require(psn.has_value(), "the fuzzer is known as an application");
  event.setAttributeDescriptor({clientcomm::typeProcessSerialNumber,
                                std::string(reinterpret_cast<const char*>(&*psn), sizeof *psn)},
                               clientcomm::keyAddressAttr);
  const OptionalString answer = answerTo(event);
  if (expected) require(answer == expected, "a call is carried out with its arguments");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  fuzz::privateFolder();
  clientcomm::AppleEventManager::sharedAppleEventManager().setTransport(
      std::make_unique<Transport>());
  clientcomm::registerClass(Target::staticClass());
  static UpgradeDelegate upgradeDelegate;
  static ControlDelegate controlDelegate;
  TQHPUpgradeByHelper::share().setProductUpgradeDelegate(&upgradeDelegate);
  TQHPHelperControl::share().setHelperCtrlDelegate(&controlDelegate);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto descriptor = clientcomm::unflatten(bytes);
  if (!descriptor) return 0;
  requireStable(*descriptor, bytes);
  int budget = 64;
  coerceAll(*descriptor, budget);
  if (descriptor->descriptorType() == clientcomm::typeAppleEvent) dispatch(*descriptor);
  return 0;
}
