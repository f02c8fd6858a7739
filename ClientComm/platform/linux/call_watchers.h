#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/call_record.h"
#include "ClientComm/platform/posix/scoped_fd.h"
#include "ClientComm/platform/process_manager.h"
#include "ClientComm/platform/types.h"
#include "ClientComm/platform/wire_format.h"

namespace clientcomm {

/// The programs that watch the calls of this application. Each has a connection, on which it gets a
/// record of every call. The receiver never waits for one: a watcher that does not read misses
/// calls, and one that is gone is forgotten with the next call.
class CallWatchers {
 public:
  bool isEmpty() const noexcept { return count_ == 0; }

  /// Takes the connection of a watcher over, in the place of the oldest where there are
  /// `kMaximumWatchers`.
  /// @param version of the packet that asked for it.
  void add(ScopedFd socket, WireVersion version) noexcept;

  /// Tells all watchers.
  void tell(const CallRecord& record);

  /// Drops all watchers for the sake of their descriptors. @return whether there was one.
  bool dropAll() noexcept;

 private:
  /// Unused where the socket is not valid.
  struct Watcher {
    ScopedFd socket;
    WireVersion version = kLowestWireVersion;
    std::uint32_t missed = 0;
  };

  void drop(Watcher& watcher) noexcept;

  std::array<Watcher, kMaximumWatchers> watchers_;
  std::size_t count_ = 0;
  std::size_t next_ = 0;  ///< The place of the next watcher.
};

/// Who made a call, as its receiver knows it.
struct CallOrigin {
  pid_t process;                      ///< 0 when it is not seen from here.
  const ProcessSerialNumber* sender;  ///< Null for a caller without identity.
  bool wantsReply;
};

/// A call that is being handled, for the watchers there are. Costs two comparisons without any.
class WatchedCall {
 public:
  /// @param event the null descriptor when the call is refused unread.
  WatchedCall(const CallWatchers& watchers, const AppleEventDescriptor& event,
              const CallOrigin& origin) {
    if (!watchers.isEmpty()) begin(event, origin);
  }

  /// Tells the watchers how the call ended.
  void finish(CallWatchers& watchers, OSErr status, const AppleEventDescriptor& reply) {
    if (record_) tell(watchers, status, reply);
  }

 private:
  // Out of line, so that a call that is not watched saves no registers for them.
  [[gnu::noinline]] void begin(const AppleEventDescriptor& event, const CallOrigin& origin);
  [[gnu::noinline]] void tell(CallWatchers& watchers, OSErr status,
                              const AppleEventDescriptor& reply);

  std::optional<CallRecord> record_;
};

}  // namespace clientcomm
