#pragma once

/// @file
/// Receiving calls.

#include <memory>
#include <string>
#include <string_view>

#include "ClientComm/TQHPTypes.h"
#include "ClientComm/platform/runtime.h"

/// Receives remote calls: finds the instance registered for the named class, makes one where the
/// class is registered without an instance, invokes the named selector, and replies with the text
/// of the result. Only callers with a bundle identifier are served.
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
  struct State;
  std::unique_ptr<State> state_;
};

/// The processor that `TQHPAppleEventProcesser::share` gives; null before its first use.
extern CLIENTCOMM_EXPORT TQHPAppleEventProcesser* processer;
