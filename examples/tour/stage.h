#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "examples/tour/host_process.h"

namespace tour {

/// Raised by a step that failed.
class StepFailed : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Raised when the user ends the tour.
class Interrupted : public std::exception {};

/// A user's machine of the tour's own: a private folder with home, settings and runtime folders,
/// the hosts that run there, and whatever they start. All of it ends with this object.
class Stage {
 public:
  /// Told again and again what a long wait is for, and how long it has lasted.
  using OnWait = std::function<void(const std::string& awaited, std::chrono::milliseconds elapsed)>;

  explicit Stage(OnWait onWait);
  ~Stage();
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  const std::string& folder() const { return folder_; }
  std::string home() const { return folder_ + "/home"; }

  /// Copies the bundle at `builtBundle` into the private folder and starts it as a host.
  HostProcess& startHost(const std::string& builtBundle);
  /// Ends a host as its user would, and waits for its end.
  void quitHost(HostProcess& host);

  /// Gives the host a command and waits for what comes of it.
  HostEvent command(HostProcess& host, const std::string& line);
  /// Waits for the next event of the host for which `isIt` holds.
  HostEvent waitForEvent(HostProcess& host, const std::string& awaited,
                         const std::function<bool(const HostEvent&)>& isIt);
  /// Waits until `condition` holds; `awaited` names it in the failure.
  void waitUntil(const std::string& awaited, const std::function<bool()>& condition,
                 std::chrono::milliseconds limit = kLimit);

  /// What the helper knows, asked for through the host; nothing when it cannot be asked.
  std::optional<nlohmann::json> helperState(HostProcess& host);
  /// Waits until what the helper knows fulfils `condition`, and gives it.
  nlohmann::json waitForState(HostProcess& host, const std::string& awaited,
                              const std::function<bool(const nlohmann::json&)>& condition);

  /// The exit status of a process that the hosts had started; 128 + the signal where one ended it.
  /// Waits for its end.
  int exitStatusOf(pid_t pid);

  /// Shows events as they come, until the user has had enough.
  void watch(const std::function<void(const HostProcess&, const HostEvent&)>& show);

  static constexpr std::chrono::milliseconds kLimit{12000};

 private:
  void pump();
  void reap();
  void endProcesses();

  OnWait onWait_;
  std::string folder_;
  std::vector<std::unique_ptr<HostProcess>> hosts_;
  std::map<pid_t, int> ended_;
};

}  // namespace tour
