#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/apple_event_transport.h"
#include "ClientComm/platform/timer.h"

namespace clientcomm {

/// A query that is under way: what its handle and the run loop share.
class Query : public std::enable_shared_from_this<Query> {
 public:
  /// Takes the outcome, and the null descriptor where the status is not noErr.
  using Handler = std::function<void(OSErr status, AppleEventDescriptor reply)>;

  /// Sends `event`. `handler` may throw; it is called from the run loop.
  /// @param limit after which the outcome is errAETimeout.
  [[nodiscard]] static std::shared_ptr<Query> start(AppleEventDescriptor event, Handler handler,
                                                    std::optional<std::chrono::milliseconds> limit);

  explicit Query(Handler handler);

  bool isPending() const noexcept { return isPending_; }
  void cancel() noexcept;
  void keepItself() noexcept;

 private:
  void send(AppleEventDescriptor event);
  void finishLater(OSErr status, std::chrono::milliseconds delay);
  void finish(OSErr status, AppleEventDescriptor reply);
  Handler stop() noexcept;

  Handler handler_;
  bool isPending_ = true;
  std::string target_;  ///< Known while failures are reported.
  std::unique_ptr<PendingReply> reply_;
  std::unique_ptr<Timer> timer_;
  std::shared_ptr<Query> self_;  ///< Where there is no handle.
};

}  // namespace clientcomm
