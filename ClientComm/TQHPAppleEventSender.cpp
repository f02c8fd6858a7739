#include "ClientComm/TQHPAppleEventSender.h"

#include <cstdint>
#include <utility>

#include "ClientComm/internal/guard.h"
#include "ClientComm/internal/query.h"
#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/characters.h"
#include "ClientComm/platform/shared_object.h"
#include "ClientComm/platform/text.h"
#include "ClientComm/platform/wire_format.h"

using clientcomm::OptionalString;

namespace {

clientcomm::AppleEventDescriptor textDescriptor(std::string_view text) {
  return clientcomm::AppleEventDescriptor::descriptorWithString(std::string(text));
}

// The identifier's first bytes, as many as it has UTF-16 units: the length of an address is counted
// in characters. The two agree for every identifier in ASCII, which is what identifiers are made
// of.
clientcomm::AppleEventDescriptor targetDescriptor(const OptionalString& bundleID) {
  const std::string identifier = bundleID.value_or(std::string());
  return {clientcomm::typeApplicationBundleID,
          identifier.substr(0, clientcomm::utf16Length(identifier))};
}

clientcomm::AppleEventDescriptor createEvnet(const OptionalString& bundleID,
                                             std::string_view className,
                                             std::string_view selectName,
                                             std::span<const std::string> args) {
  using clientcomm::AppleEventDescriptor;
  AppleEventDescriptor event = AppleEventDescriptor::appleEvent(
      clientcomm::kCallEventClass, clientcomm::kCallEventID, targetDescriptor(bundleID),
      clientcomm::kAutoGenerateReturnID, clientcomm::kAnyTransactionID);
  AppleEventDescriptor argumentList = AppleEventDescriptor::listDescriptor();
  argumentList.reserveItems(args.size());
  for (std::size_t i = 0; i < args.size(); ++i) {
    argumentList.insertDescriptor(textDescriptor(args[i]), i + 1);
  }
  AppleEventDescriptor call = AppleEventDescriptor::listDescriptor();
  call.reserveItems(3);
  call.insertDescriptor(textDescriptor(className), 1);
  call.insertDescriptor(textDescriptor(selectName), 2);
  call.insertDescriptor(std::move(argumentList), 3);
  event.setParamDescriptor(std::move(call), clientcomm::keyDirectObject);
  return event;
}

// The text of the answer; nil without one.
OptionalString takeAnswer(clientcomm::AppleEventDescriptor& reply) {
  clientcomm::AppleEventDescriptor* const answer =
      reply.paramDescriptorForKeyword(clientcomm::keyDirectObject);
  return answer == nullptr ? std::nullopt : std::move(*answer).stringValue();
}

}  // namespace

TQHPAppleEventSender& TQHPAppleEventSender::share() {
  static clientcomm::SharedObject<TQHPAppleEventSender> sender;
  return sender.get([] { return new TQHPAppleEventSender; });
}

TQHPAppleEventSender::TQHPAppleEventSender()
    : helperBundleID_(clientcomm::Bundle::mainBundle().infoString(kHelperBundleId)) {}

OSErr TQHPAppleEventSender::sendEvnet(std::string_view className, std::string_view selectName,
                                      std::span<const std::string> args) noexcept {
  return sendEvnet(helperBundleID_, className, selectName, args);
}

OSErr TQHPAppleEventSender::sendEvnet(std::string_view className, std::string_view selectName,
                                      std::span<const std::string> args,
                                      OptionalString* result) noexcept {
  return sendEvnet(helperBundleID_, className, selectName, args, result);
}

OSErr TQHPAppleEventSender::sendEvnet(const OptionalString& bundleID, std::string_view className,
                                      std::string_view selectName,
                                      std::span<const std::string> args) noexcept {
  return clientcomm::guarded(clientcomm::memFullErr, [&] {
    clientcomm::AppleEventDescriptor reply;
    return clientcomm::AESendMessage(createEvnet(bundleID, className, selectName, args), reply,
                                     clientcomm::kAENoReply, clientcomm::kAEDefaultTimeout);
  });
}

OSErr TQHPAppleEventSender::sendEvnet(const OptionalString& bundleID, std::string_view className,
                                      std::string_view selectName,
                                      std::span<const std::string> args,
                                      OptionalString* result) noexcept {
  if (result != nullptr) result->reset();
  return clientcomm::guarded(clientcomm::memFullErr, [&] {
    clientcomm::AppleEventDescriptor reply;
    const OSErr status =
        clientcomm::AESendMessage(createEvnet(bundleID, className, selectName, args), reply,
                                  clientcomm::kAEWaitReply, clientcomm::kNoTimeOut);
    if (result != nullptr) *result = takeAnswer(reply);
    return status;
  });
}

clientcomm::PendingQuery TQHPAppleEventSender::sendEvnetAsync(
    std::string_view className, std::string_view selectName, std::span<const std::string> args,
    clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit) noexcept {
  return sendEvnetAsync(helperBundleID_, className, selectName, args, std::move(callback), limit);
}

clientcomm::PendingQuery TQHPAppleEventSender::sendEvnetAsync(
    const OptionalString& bundleID, std::string_view className, std::string_view selectName,
    std::span<const std::string> args, clientcomm::QueryCallback<std::string> callback,
    clientcomm::TimeLimit limit) noexcept {
  return clientcomm::guarded(clientcomm::PendingQuery(), [&] {
    const auto handler = [callback = std::move(callback)](OSErr status,
                                                          clientcomm::AppleEventDescriptor reply) {
      if (callback) callback(status, takeAnswer(reply));
    };
    return clientcomm::PendingQuery(clientcomm::Query::start(
        createEvnet(bundleID, className, selectName, args), handler, limit));
  });
}
