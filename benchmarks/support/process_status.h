#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace bench {

/// What a process takes of the machine at this moment.
struct ProcessStatus {
  double proportionalKiB = 0;  ///< Memory, what is shared divided among those who share it (PSS).
  double privateKiB = 0;       ///< Memory that no other process shares.
  double writtenKiB = 0;       ///< Of the private memory, what differs from its file or has none.
  double threads = 0;
  double descriptors = 0;
};
ProcessStatus statusOfProcess(pid_t pid);

/// What a process has used of the processor since it began.
struct ProcessorUse {
  double seconds = 0;
  double wakeUps = 0;  ///< How often it has gone to sleep, and so was woken.
};
ProcessorUse processorUseOf(pid_t pid);

}  // namespace bench
