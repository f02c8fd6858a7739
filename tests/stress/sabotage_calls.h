#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// System calls that fail on purpose. The library stands in front of the C library and fails, of
/// the calls that a process and its forked children make, the Nth that can fail in the given way.
namespace sabotage {

enum class Fault : unsigned {
  kEIO = 1,
  kENOSPC = 2,
  kEMFILE = 4,
  kEINTR = 8,
  kENOMEM = 16,
  kKill = 32,  ///< SIGKILL in the place of the call.
};

/// Which call is to fail, and of which program.
struct Plan {
  std::string program;  ///< Name of the executable; other programs are left alone.
  Fault fault = Fault::kEIO;
  std::uint64_t call = 0;  ///< 1 for the first; 0 counts and fails none.
  std::string
      counterPath;  ///< An existing file of `kCounterSize` bytes: the calls are counted there.
};

inline constexpr std::size_t kCounterSize = 64;

/// Hands the plan to the programs that this process starts.
void announce(const Plan& plan);

/// Takes the plan back.
void withdraw();

/// Starts counting in this process, if the plan in its environment is for its program.
void begin();

/// How many calls were counted in the file at `path`.
std::uint64_t countIn(const std::string& path);

/// The function that failed; empty when none did.
std::string failedIn(const std::string& path);

}  // namespace sabotage
