#include "ClientComm/TQHPAppleEventProcesser.h"

#include <cstring>
#include <utility>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/process_manager.h"
#include "ClientComm/platform/wire_format.h"

namespace {

using clientcomm::AppleEventDescriptor;
using clientcomm::OptionalString;

// Takes the text out of the list, as a call is read only once and its texts may be large.
OptionalString takeTextAtIndex(AppleEventDescriptor* list, std::size_t index) {
  AppleEventDescriptor* const item = list == nullptr ? nullptr : list->descriptorAtIndex(index);
  return item == nullptr ? std::nullopt : std::move(*item).stringValue();
}

std::vector<OptionalString> takeArgumentsOfCall(AppleEventDescriptor* call) {
  std::vector<OptionalString> arguments;
  AppleEventDescriptor* const list = call == nullptr ? nullptr : call->descriptorAtIndex(3);
  if (list == nullptr) return arguments;
  arguments.reserve(list->numberOfItems());
  for (std::size_t k = 1; k <= list->numberOfItems(); ++k) {
    arguments.push_back(takeTextAtIndex(list, k));
  }
  return arguments;
}

OptionalString bundleIDOfCaller(const AppleEventDescriptor& event) {
  const AppleEventDescriptor* const address =
      event.attributeDescriptorForKeyword(clientcomm::keyAddressAttr);
  if (address == nullptr) return std::nullopt;
  const auto serialNumber = address->coerceToDescriptorType(clientcomm::typeProcessSerialNumber);
  clientcomm::ProcessSerialNumber psn;
  if (!serialNumber || serialNumber->data().size() != sizeof psn) return std::nullopt;
  std::memcpy(&psn, serialNumber->data().data(), sizeof psn);
  return clientcomm::bundleIdentifierOfProcess(psn);
}

}  // namespace

TQHPAppleEventProcesser* processer = nullptr;

TQHPAppleEventProcesser& TQHPAppleEventProcesser::share() {
  if (processer == nullptr) processer = new TQHPAppleEventProcesser;
  return *processer;
}

TQHPAppleEventProcesser::TQHPAppleEventProcesser()
    : observer_([this](const clientcomm::Object& object) {
        std::erase_if(mapTable_, [&](const auto& entry) { return entry.second == &object; });
      }) {
  regist();
}

TQHPAppleEventProcesser::~TQHPAppleEventProcesser() {
  mapTable_.clear();
  unRegist();
  if (processer == this) processer = nullptr;
}

void TQHPAppleEventProcesser::regist() {
  clientcomm::AppleEventManager::sharedAppleEventManager().setEventHandler(
      [this](AppleEventDescriptor event, AppleEventDescriptor& reply) {
        process(std::move(event), reply);
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
  mapTable_.insert_or_assign(className, &object);
}

void TQHPAppleEventProcesser::removeObjectforKeyToMapTable(const std::string& className) {
  mapTable_.erase(className);
}

clientcomm::Object* TQHPAppleEventProcesser::objectForKey(std::string_view className) const {
  const auto found = mapTable_.find(className);
  return found == mapTable_.end() ? nullptr : found->second;
}

void TQHPAppleEventProcesser::process(AppleEventDescriptor event, AppleEventDescriptor& reply) {
  AppleEventDescriptor* const call = event.paramDescriptorForKeyword(clientcomm::keyDirectObject);
  OptionalString result = reflection(takeTextAtIndex(call, 1), takeTextAtIndex(call, 2),
                                     takeArgumentsOfCall(call), bundleIDOfCaller(event));
  // A nil result is a reply without a direct parameter.
  if (result) {
    reply.setParamDescriptor(AppleEventDescriptor::descriptorWithString(*std::move(result)),
                             clientcomm::keyDirectObject);
  }
}

OptionalString TQHPAppleEventProcesser::reflection(const OptionalString& className,
                                                   const OptionalString& method,
                                                   std::span<const OptionalString> parameter,
                                                   const OptionalString& bundleID) {
  clientcomm::Object* const instance = instanceForClass(className);
  if (instance == nullptr) return std::nullopt;
  try {
    const std::lock_guard lock(monitor_);
    auto* const receiver = dynamic_cast<TQHPAppEventBase*>(instance);
    // Other objects can be registered, but do not take calls.
    if (receiver == nullptr) return std::nullopt;
    receiver->setBundleID(bundleID);
    if (!method) return std::nullopt;
    return receiver->performSelector(*method, parameter);
  } catch (...) {
    return std::nullopt;
  }
}

clientcomm::Object* TQHPAppleEventProcesser::instanceForClass(const OptionalString& className) {
  if (!className) return nullptr;
  if (clientcomm::Object* const registered = objectForKey(*className)) return registered;
  const clientcomm::Class* const cls = clientcomm::classNamed(*className);
  std::shared_ptr<clientcomm::Object> made = cls == nullptr ? nullptr : cls->makeInstance();
  if (made == nullptr) return nullptr;
  mapTable_.insert_or_assign(*className, made.get());
  return madeInstances_.emplace_back(std::move(made)).get();
}
