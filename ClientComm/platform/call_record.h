#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/types.h"

namespace clientcomm {

/// One call as its receiver tells it to a watcher: the record of docs/wire-format.md. Texts are cut
/// to `kLongestWatchedText` bytes.
class CallRecord {
 public:
  struct Caller {
    std::int32_t process = 0;   ///< Its process ID; 0 when it is not seen from here.
    OptionalString identifier;  ///< nil when it has none.
    bool wantsReply = false;
  };

  /// Begins the record of `event`, which has just arrived; the null descriptor when it is refused
  /// unread.
  CallRecord(const AppleEventDescriptor& event, const Caller& caller);

  /// Adds how the call ended, and how long it took. Once only.
  /// @param reply holds the answer; without a direct parameter the answer is nil.
  void finish(OSErr status, const AppleEventDescriptor& reply);

  /// The event that a watcher gets.
  /// @param missed calls that this watcher has not been told of before this one.
  AppleEventDescriptor eventFor(std::uint32_t missed) const;

 private:
  void addText(const OptionalString& text, std::size_t size);
  void addItem(const AppleEventDescriptor* list, std::size_t index);
  void addDescriptor(const AppleEventDescriptor* descriptor);

  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  std::string fields_;
};

}  // namespace clientcomm
