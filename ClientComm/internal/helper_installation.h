#pragma once

#include <string>
#include <utility>

#include "ClientComm/TQHPTypes.h"
#include "ClientComm/internal/wait_budget.h"

namespace clientcomm {

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
  /// Makes sure that the installed helper exists and runs. @return whether it does.
  bool launch();

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

  void extractLocked(const Target& target);
  void settleEarlierRemovals(const Target& target);
  void settleMark(const Target& target);
  void replace(const Target& target);
  bool isRunning(const Target& target) const;
  OldHelper tellToExit(const Target& target) const;
  bool tellProcessesToExit(const std::string& place) const;

  OptionalString productID_;
  OptionalString productVersion_;
  WaitBudget waits_;
  bool isPending_ = false;
};

}  // namespace clientcomm
