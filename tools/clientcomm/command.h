#pragma once

#include <cstddef>
#include <limits>
#include <span>
#include <string>

namespace clientcomm::tool {

class Arguments;
class Output;

/// How the program ends; clientcomm.1 says so too.
enum class ExitStatus : int {
  kDone = 0,
  kFailed = 1,  ///< `check` has found an error, a call has failed, a file cannot be written.
  kUsage = 2,   ///< The command line is wrong.
};

/// An option of a command, beside those that each command has.
struct Option {
  const char* name;      ///< Without the dashes.
  const char* argument;  ///< As the help calls it; null where the option has none.
  const char* help;
};

inline constexpr std::size_t kAnyNumber = std::numeric_limits<std::size_t>::max();

/// A command of the program. The help, the check of the command line and the completions go by it.
struct Command {
  const char* name;
  const char* arguments;  ///< As the help shows them.
  const char* summary;    ///< One line, without a full stop.
  const char* description;
  std::span<const Option> options;
  std::size_t fewestArguments;
  std::size_t mostArguments;  ///< `kAnyNumber` for no limit.
  /// Carries the command out. May throw: a `UsageError` where the command line is wrong.
  ExitStatus (*run)(const Arguments& arguments, Output& output);
};

/// All commands, in the order of the help.
std::span<const Command* const> commands();

}  // namespace clientcomm::tool
