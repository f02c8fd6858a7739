#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace stress {

/// The frames that a window has drawn.
class Frames {
 public:
  void note();
  void restart();

  int count() const { return count_; }
  double perSecond() const;
  /// The longest time without a frame, in milliseconds.
  double longestGap() const { return longestGap_; }

 private:
  using Clock = std::chrono::steady_clock;

  int count_ = 0;
  double longestGap_ = 0;
  Clock::time_point first_;
  Clock::time_point last_;
};

/// What a window draws while its host uses the forms of the library that do not block.
struct StoppedHelperReport {
  double framesPerSecond = 0;
  double longestGap = 0;  ///< In milliseconds.
  /// Frames for each frame that a thread which does nothing else would have drawn meanwhile.
  double share = 0;
  std::string text() const;
};

/// This process is a host with a window that already draws and tells `frames` so. A helper that
/// another host has started is stopped by SIGSTOP; the host starts up, which replaces the helper's
/// copy by a newer one of `megabytes`, asks a query with a time limit, and goes through `ticks`.
/// @return nothing when a step has not gone as it has to.
std::optional<StoppedHelperReport> runBesideStoppedHelper(Frames& frames, int megabytes, int ticks);

}  // namespace stress
