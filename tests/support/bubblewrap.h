#pragma once

#include <string>
#include <vector>

#include "tests/support/child_process.h"

namespace support {

/// A sandbox made by bubblewrap, as portable packages are run: a user namespace without privileges,
/// which shows the same files at the same paths, but for what is made different.
class Bubblewrap {
 public:
  /// Why no sandbox can be made on this machine; empty when one can.
  static std::string problem();

  /// Processes of its own: a process-ID namespace, and its /proc.
  Bubblewrap& withOwnProcesses();
  /// Another folder in the place of `path`: empty at first, writable, of this user only.
  Bubblewrap& withOwnFolder(const std::string& path);
  /// The files below `source`, read-only at `path`, and nothing else there.
  Bubblewrap& withReadOnly(const std::string& source, const std::string& path);
  /// The sandbox ends together with its first process.
  Bubblewrap& endingWithFirstProcess();

  /// Runs the program `command[0]` as the first process of a sandbox. The output is the program's.
  ChildProcess run(const std::vector<std::string>& command) const;

 private:
  Bubblewrap& add(const std::vector<std::string>& options);

  std::vector<std::string> options_;
};

}  // namespace support
