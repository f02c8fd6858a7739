#pragma once

#include <glib.h>

#include <string>

#include "ClientComm/platform/glib/scoped_source.h"
#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {

/// Watches two files of the runtime folder, so that an idle application need not look at them. Its
/// source is dispatched once one of them, or the folder, has been removed, moved, replaced or
/// changed, and not for other files in the folder. What is mounted over the folder is not noticed.
class FileWatch {
 public:
  /// @param source outlives this object, or is destroyed without its descriptors being used again.
  explicit FileWatch(const ScopedSource& source) : source_(source) {}

  /// Begins to watch the files of these names.
  /// @return false where the kernel would not tell of every change: the user has too many watches
  ///         (/proc/sys/fs/inotify), a file is missing, the folder is on a file system that other
  ///         machines change, or a symbolic link leads to it.
  bool start(const std::string& first, const std::string& second);

  /// Ends the watch. The descriptor stays open: closing it can block for 12 ms.
  void stop();

  bool isOn() const noexcept { return tag_ != nullptr; }

  /// Whether there was a change by the time at which the source was polled last.
  bool hasFired() const;

  /// Has the source poll for `condition`.
  void poll(GIOCondition condition);

 private:
  const ScopedSource& source_;
  ScopedFd descriptor_;
  void* tag_ = nullptr;  ///< Of the source's poll entry.
};

}  // namespace clientcomm
