#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ClientComm/TQHPTypes.h"
#include "ClientComm/internal/wait_budget.h"
#include "ClientComm/platform/file_lock.h"

namespace clientcomm {

/// The file work of an installation, which takes as long as the copy takes. It may run on any
/// thread: it uses nothing of the library but files.
struct InstallationWork {
  /// Does the work, and releases the lock.
  void run() noexcept;

  std::unique_ptr<DirectoryLock> lock;  ///< Of the install directory; held until the work is done.
  std::vector<std::function<void()>> steps;
};

/// Installs, replaces and opens the helper that the host brings. May throw.
///
/// What is at the installed path is at every instant the old copy, nothing, or the new copy,
/// complete. A host that is killed in between leaves its traces beside it, under names that begin
/// with a dot; the next host goes on from them.
class HelperInstallation {
 public:
  /// @param productID, productVersion the arguments of the exit command.
  /// @param waits bounds the waits for other hosts and for an old helper.
  HelperInstallation(OptionalString productID, OptionalString productVersion,
                     const WaitBudget& waits)
      : productID_(std::move(productID)),
        productVersion_(std::move(productVersion)),
        waits_(waits) {}

  /// Installs the helper from the host's bundle, or replaces an older installed copy.
  void extract();
  /// Does all of the same but the file work. @return that, where there is any.
  std::optional<InstallationWork> prepare();
  /// Makes sure that the installed helper exists and runs. @return whether it does.
  bool launch();
  /// Makes sure that the installed helper runs. @return whether it does.
  bool open() const;
  static bool isInstalled();
  /// Reports what the bundle says about why the installed helper takes no calls.
  static void explainUnreachable();

  /// Whether `extract` must be repeated: another process held the install directory, or an old
  /// helper has not taken the exit command yet.
  bool isPending() const { return isPending_; }

 private:
  struct Target;
  enum class OldHelper {
    kNotFound,
    kTold,
    kNotReached,  ///< The command must be repeated: it runs, but takes no events yet.
  };

  using Steps = std::vector<std::function<void()>>;

  static OptionalString installedPath();
  void addSteps(const Target& target, Steps& steps);
  void refresh(const Target& target, Steps& steps);
  static void addCopy(const Target& target, Steps& steps);
  static void addRemoval(const std::string& place, Steps& steps);
  void settleEarlierRemovals(const Target& target, Steps& steps);
  void settleMark(const Target& target);
  void replace(const Target& target, Steps& steps);
  bool isRunning(const Target& target) const;
  OSErr sendExitCommand() const;
  OldHelper tellToExit(const Target& target) const;
  bool tellProcessesToExit(const std::string& place) const;

  OptionalString productID_;
  OptionalString productVersion_;
  WaitBudget waits_;
  bool isPending_ = false;
};

}  // namespace clientcomm
