#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/TQHPTypes.h"
#include "ClientComm/platform/object_observer.h"
#include "ClientComm/platform/runtime.h"

namespace clientcomm {
class AppleEventDescriptor;
}

/// Receives remote calls: finds the one instance that stands for the named class, makes it where
/// the class is registered and has none yet, invokes the named selector, and answers with the text
/// that comes back. Calls are carried out only for callers with a bundle identifier.
class CLIENTCOMM_EXPORT TQHPAppleEventProcesser {
 public:
  /// The processor; its creation installs the handler and so opens the process to calls.
  static TQHPAppleEventProcesser& share();

  TQHPAppleEventProcesser();
  ~TQHPAppleEventProcesser();
  TQHPAppleEventProcesser(const TQHPAppleEventProcesser&) = delete;
  TQHPAppleEventProcesser& operator=(const TQHPAppleEventProcesser&) = delete;

  /// Installs this object as the handler of call events, in place of any other.
  void regist();
  /// Removes the handler of call events.
  void unRegist();

  /// Makes `object` the one that receives the calls for the class `className`, in place of an
  /// earlier one. The object is not kept alive: its destruction removes its entries.
  void setObjectforKeyToMapTable(clientcomm::Object& object, const std::string& className);
  /// Removes the entry of the class `className`, whichever object it holds.
  void removeObjectforKeyToMapTable(const std::string& className);
  /// The object that receives the calls for `className`; null when there is none yet.
  clientcomm::Object* objectForKey(std::string_view className) const;

 private:
  void process(clientcomm::AppleEventDescriptor event, clientcomm::AppleEventDescriptor& reply);
  clientcomm::OptionalString reflection(const clientcomm::OptionalString& className,
                                        const clientcomm::OptionalString& method,
                                        std::span<const clientcomm::OptionalString> parameter,
                                        const clientcomm::OptionalString& bundleID);
  clientcomm::Object* instanceForClass(const clientcomm::OptionalString& className);

  std::map<std::string, clientcomm::Object*, std::less<>> mapTable_;
  /// Instances that the processor made itself; kept even when another takes over their entry.
  std::vector<std::shared_ptr<clientcomm::Object>> madeInstances_;
  std::recursive_mutex monitor_;
  /// The last member, so that it is the first to go: the others are still whole when it acts.
  clientcomm::ObjectObserver observer_;
};

/// The processor that `TQHPAppleEventProcesser::share` gives; null before its first use.
extern CLIENTCOMM_EXPORT TQHPAppleEventProcesser* processer;
