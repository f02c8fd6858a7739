#pragma once

#include <glib.h>

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "ClientComm/platform/types.h"

namespace sample {

/// A call that the helper makes into a host.
struct CallBack {
  std::string bundleID;
  std::string className;
  std::string selector;
  std::vector<std::string> arguments;
  /// Told the send's status; may be empty. Must not throw.
  std::function<void(clientcomm::OSErr)> sent;
};

/// Calls into hosts, made from the main loop one at a time and in order, so that no call is made
/// while a host's own call is still being carried out.
class CallBacks {
 public:
  CallBacks() = default;
  ~CallBacks();
  CallBacks(const CallBacks&) = delete;
  CallBacks& operator=(const CallBacks&) = delete;

  void add(CallBack callBack);

  /// Makes every call that is still owed, at once.
  void flush();

  /// Makes one call at once. @return the send's own status.
  static clientcomm::OSErr send(const CallBack& callBack);

 private:
  /// @return whether there is more to send.
  bool sendNext();

  std::deque<CallBack> queue_;
  guint source_ = 0;
};

}  // namespace sample
