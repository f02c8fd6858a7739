#include "ClientComm/TQHPAppleEventProcesser.h"

#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/object_observer.h"
#include "ClientComm/platform/owner_thread.h"
#include "ClientComm/platform/process_manager.h"
#include "ClientComm/platform/reporter.h"
#include "ClientComm/platform/shared_object.h"
#include "ClientComm/platform/wire_format.h"

namespace {

using clientcomm::AppleEventDescriptor;
using clientcomm::DiagnosticCause;
using clientcomm::OptionalString;

// Takes the text out of the list, as a call is read only once and its texts may be large.
OptionalString takeTextAtIndex(AppleEventDescriptor* list, std::size_t index) {
  AppleEventDescriptor* const item = list == nullptr ? nullptr : list->descriptorAtIndex(index);
  return item == nullptr ? std::nullopt : std::move(*item).stringValue();
}

clientcomm::TextTable takeArgumentsOfCall(AppleEventDescriptor* call) {
  AppleEventDescriptor* const list = call == nullptr ? nullptr : call->descriptorAtIndex(3);
  return list == nullptr ? clientcomm::TextTable() : list->takeTexts();
}

OptionalString bundleIDOfCaller(const AppleEventDescriptor& event) {
  const AppleEventDescriptor* const address =
      event.attributeDescriptorForKeyword(clientcomm::keyAddressAttr);
  // No other type can be coerced to a serial number.
  if (address == nullptr || address->descriptorType() != clientcomm::typeProcessSerialNumber) {
    return std::nullopt;
  }
  clientcomm::ProcessSerialNumber psn;
  if (address->data().size() != sizeof psn) return std::nullopt;
  std::memcpy(&psn, address->data().data(), sizeof psn);
  return clientcomm::bundleIdentifierOfProcess(psn);
}

}  // namespace

struct CLIENTCOMM_LOCAL TQHPAppleEventProcesser::State {
  void process(AppleEventDescriptor event, AppleEventDescriptor& reply);
  OptionalString reflection(const OptionalString& className, const OptionalString& method,
                            std::span<const OptionalString> parameter,
                            const OptionalString& bundleID);
  /// Without the strings that the receiver is called with.
  struct Call {
    const OptionalString& className;
    const OptionalString& method;
    const OptionalString& bundleID;
  };
  /// @param failure receives why the call is not carried out.
  OptionalString perform(const Call& call, std::span<const OptionalString> parameter,
                         std::optional<DiagnosticCause>& failure);
  clientcomm::Object* objectForKey(std::string_view className) const;
  clientcomm::Object* instanceForClass(const std::string& className);

  std::map<std::string, clientcomm::Object*, std::less<>> mapTable;
  /// Instances that the processor made itself; kept even when another takes over their entry.
  std::vector<std::shared_ptr<clientcomm::Object>> madeInstances;
  std::recursive_mutex monitor;
  /// The last member, so that it is the first to go: the others are still whole when it acts.
  clientcomm::ObjectObserver observer{[this](const clientcomm::Object& object) {
    std::erase_if(mapTable, [&](const auto& entry) { return entry.second == &object; });
  }};
};

TQHPAppleEventProcesser* processer = nullptr;

TQHPAppleEventProcesser& TQHPAppleEventProcesser::share() {
  clientcomm::requireOwnerThread();
  if (processer == nullptr) {
    processer = new TQHPAppleEventProcesser;
    clientcomm::SharedObjects::add([] { delete processer; });
  }
  return *processer;
}

TQHPAppleEventProcesser::TQHPAppleEventProcesser() : state_(new State) { regist(); }

TQHPAppleEventProcesser::~TQHPAppleEventProcesser() {
  state_->mapTable.clear();
  unRegist();
  if (processer == this) processer = nullptr;
}

void TQHPAppleEventProcesser::regist() {
  clientcomm::AppleEventManager::sharedAppleEventManager().setEventHandler(
      [state = state_.get()](AppleEventDescriptor event, AppleEventDescriptor& reply) {
        state->process(std::move(event), reply);
        return clientcomm::noErr;
      },
      clientcomm::kCallEventClass, clientcomm::kCallEventID);
}

void TQHPAppleEventProcesser::unRegist() {
  clientcomm::AppleEventManager::sharedAppleEventManager().removeEventHandler(
      clientcomm::kCallEventClass, clientcomm::kCallEventID);
}

void TQHPAppleEventProcesser::setObjectforKeyToMapTable(clientcomm::Object& object,
                                                        const std::string& className) {
  state_->mapTable.insert_or_assign(className, &object);
}

void TQHPAppleEventProcesser::removeObjectforKeyToMapTable(const std::string& className) {
  state_->mapTable.erase(className);
}

clientcomm::Object* TQHPAppleEventProcesser::objectForKey(std::string_view className) const {
  return state_->objectForKey(className);
}

clientcomm::Object* TQHPAppleEventProcesser::State::objectForKey(std::string_view className) const {
  const auto found = mapTable.find(className);
  return found == mapTable.end() ? nullptr : found->second;
}

void TQHPAppleEventProcesser::State::process(AppleEventDescriptor event,
                                             AppleEventDescriptor& reply) {
  AppleEventDescriptor* const call = event.paramDescriptorForKeyword(clientcomm::keyDirectObject);
  OptionalString result = reflection(takeTextAtIndex(call, 1), takeTextAtIndex(call, 2),
                                     takeArgumentsOfCall(call), bundleIDOfCaller(event));
  // A nil result is a reply without a direct parameter.
  if (result) {
    reply.setParamDescriptor(AppleEventDescriptor::descriptorWithString(*std::move(result)),
                             clientcomm::keyDirectObject);
  }
}

OptionalString TQHPAppleEventProcesser::State::reflection(const OptionalString& className,
                                                          const OptionalString& method,
                                                          std::span<const OptionalString> parameter,
                                                          const OptionalString& bundleID) {
  std::optional<DiagnosticCause> failure;
  OptionalString result = perform({className, method, bundleID}, parameter, failure);
  if (failure) {
    clientcomm::report(*failure, className ? *className : std::string_view(),
                       method ? *method : std::string_view());
  }
  return result;
}

OptionalString TQHPAppleEventProcesser::State::perform(const Call& call,
                                                       std::span<const OptionalString> parameter,
                                                       std::optional<DiagnosticCause>& failure) {
  failure = DiagnosticCause::kCallIncomplete;
  if (!call.className) return std::nullopt;
  clientcomm::Object* const instance = instanceForClass(*call.className);
  failure = DiagnosticCause::kClassUnknown;
  if (instance == nullptr) return std::nullopt;
  try {
    // The system's first platform dispatched calls on any thread; here it is never contended.
    const std::lock_guard lock(monitor);
    // Other objects can be registered, but do not take calls.
    failure = DiagnosticCause::kClassTakesNoCalls;
    if (!instance->takesCalls()) return std::nullopt;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast): takesCalls() tells the type
    auto* const receiver = static_cast<TQHPAppEventBase*>(instance);
    receiver->setBundleID(call.bundleID);
    failure = DiagnosticCause::kCallIncomplete;
    if (!call.method) return std::nullopt;
    failure.reset();
    return receiver->performSelector(*call.method, parameter);
  } catch (...) {
    failure = DiagnosticCause::kCallThrew;
    return std::nullopt;
  }
}

clientcomm::Object* TQHPAppleEventProcesser::State::instanceForClass(const std::string& className) {
  if (clientcomm::Object* const registered = objectForKey(className)) return registered;
  const clientcomm::Class* const cls = clientcomm::classNamed(className);
  std::shared_ptr<clientcomm::Object> made = cls == nullptr ? nullptr : cls->makeInstance();
  if (made == nullptr) return nullptr;
  mapTable.insert_or_assign(className, made.get());
  return madeInstances.emplace_back(std::move(made)).get();
}
