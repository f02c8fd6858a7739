#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "ClientComm/TQHPTypes.h"
#include "ClientComm/internal/helper_installation.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/background_task.h"
#include "ClientComm/platform/reporter.h"
#include "ClientComm/platform/timer.h"

namespace clientcomm {

/// Installs, launches and starts the helper without blocking: step by step on the run loop, with
/// the file work on a thread of its own. While one exists, no command waits for the helper.
class BackgroundStart {
 public:
  using Callback = std::function<void(OSErr status)>;

  /// @param productID, productVersion the arguments of the exit command.
  /// @param reach checks whether the helper runs, and starts it where that is still owed.
  BackgroundStart(OptionalString productID, OptionalString productVersion,
                  std::function<OSErr()> reach);

  /// Begins the start-up.
  void begin();
  /// Calls `callback` from the run loop when the start-up is over, also where it is over already.
  void whenOver(Callback callback);
  /// The restart step. @return whether the helper runs and has been started: noErr, or
  ///         kHelperNotLaunched while that is under way.
  OSErr restart();

 private:
  enum class Stage { kInstall, kInstalling, kOpen, kReach, kOver };

  /// The file work, and its reports: its thread must not call the host.
  struct Installing {
    explicit Installing(InstallationWork&& begun) noexcept : work(std::move(begun)) {}
    InstallationWork work;
    KeptReports reports;
  };

  void step();
  Stage nextStage();
  Stage install();
  Stage reach();
  OSErr tryToReach(KeptReports& reports) const;
  bool hasTaken(std::chrono::milliseconds limit) const;
  void finish();
  void schedule();

  OptionalString productID_;
  OptionalString productVersion_;
  std::function<OSErr()> reach_;
  AEHandOverLimit handOverLimit_{std::chrono::milliseconds(0)};
  Stage stage_ = Stage::kOver;
  std::chrono::steady_clock::time_point stageBegan_;
  OSErr outcome_ = noErr;
  /// Whether the installation must be repeated.
  bool isPending_ = false;
  std::optional<BackgroundTask> work_;
  std::shared_ptr<Installing> installing_;  ///< What `work_` is about.
  std::unique_ptr<Timer> timer_;
  std::vector<Callback> callbacks_;
};

}  // namespace clientcomm
