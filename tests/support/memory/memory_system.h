#pragma once

#include <string>

#include "tests/support/memory/memory_clock.h"
#include "tests/support/memory/memory_files.h"
#include "tests/support/memory/memory_processes.h"

namespace support {

/// The system that the services in memory work on: files, processes, and a clock that stands still
/// until the test moves it. Each test has one of its own.
struct MemorySystem {
  static MemorySystem& current();
  /// Begins anew, with the folders and the bundle of test_sandbox.h. The shared objects of the
  /// library are destroyed before.
  static void reset();

  MemoryFiles files;
  MemoryProcesses processes;
  MemoryClock clock;
};

}  // namespace support
