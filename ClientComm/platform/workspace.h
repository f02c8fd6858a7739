#pragma once

#include <string>

#include "ClientComm/platform/status.h"
#include "ClientComm/platform/types.h"

namespace clientcomm {

/// The user's session as a place where applications are found and started.
class Workspace {
 public:
  static Workspace& sharedWorkspace();

  /// Full path of the application called `name` (with or without ".app") in the user's and the
  /// system's application folders; nil when there is none.
  OptionalString fullPathForApplication(const std::string& name) const;

  /// Opens the application bundle at `path` as a process of its own: its own session, standard
  /// streams on the null device, no descriptor inherited, not a child of the caller. Where an
  /// application with the same bundle identifier runs already, nothing is started and the call
  /// succeeds; this holds however many processes ask at once.
  /// @return ENOENT when there is no such bundle, or its executable is missing; EAGAIN when it was
  ///         launched too often in vain, or hangs; what failed when it cannot be run, or other
  ///         processes cannot be looked at.
  Status openFile(const std::string& path);

 private:
  Workspace() = default;
};

}  // namespace clientcomm
