#pragma once

#include <functional>
#include <utility>

#include "ClientComm/TQHPTypes.h"

namespace clientcomm {

/// Installs, replaces and opens the helper that the host brings. May throw.
class HelperInstallation {
 public:
  /// @param productID, productVersion the arguments of the exit command.
  HelperInstallation(OptionalString productID, OptionalString productVersion)
      : productID_(std::move(productID)), productVersion_(std::move(productVersion)) {}

  /// Installs the helper from the host's bundle, or replaces an older installed copy.
  void extract() const;
  /// Makes sure that the installed helper exists and runs. @return whether it does.
  bool launch() const;

 private:
  void tellToExit(const std::function<bool()>& isRunning) const;

  OptionalString productID_;
  OptionalString productVersion_;
};

}  // namespace clientcomm
