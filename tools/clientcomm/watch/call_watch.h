#pragma once

#include <optional>
#include <string>

#include "ClientComm/platform/linux/event_delivery.h"
#include "tools/clientcomm/watch/watched_call.h"

namespace clientcomm::tool {

/// A connection on which an application tells the calls that it takes.
class CallWatch {
 public:
  /// Asks the application `identifier`, and waits for its answer. Throws a std::runtime_error that
  /// says why it does not tell.
  explicit CallWatch(const std::string& identifier);

  pid_t process() const { return connection_.peer; }

  /// Waits for the next call.
  /// @return nothing when the application has ended. Throws a std::runtime_error when it tells no
  ///         more, or something else than calls.
  std::optional<WatchedCall> next();

 private:
  void ask();

  Connection connection_;
};

}  // namespace clientcomm::tool
