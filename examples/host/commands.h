#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/platform/types.h"

namespace sample {

class Session;

/// What came of a command: the library's status, or for a question the answer.
struct Outcome {
  std::optional<clientcomm::OSErr> status;
  std::string detail;
  bool isAnswered = true;

  /// Whether all went well.
  bool holds() const {
    return isAnswered && status.value_or(clientcomm::noErr) == clientcomm::noErr;
  }
};

using Arguments = std::vector<std::string>;

/// One thing that the host can be told to do, on the command line or while it runs.
struct Command {
  std::string_view name;
  std::string_view parameters;
  std::string_view purpose;
  std::size_t minimumCount;
  std::size_t maximumCount;
  Outcome (*run)(Session& session, const Arguments& arguments);
};

std::span<const Command> commands();

/// The command called `name`; null when there is none.
const Command* commandNamed(std::string_view name);

}  // namespace sample
