#pragma once

#include <optional>
#include <string_view>

#include "ClientComm/platform/types.h"

namespace sample {

/// Prints one event as one line, in columns: time, who, what, status, and what else there is to
/// say. An event without a status has "-" there.
void logEvent(std::string_view who, std::string_view what,
              std::optional<clientcomm::OSErr> status = std::nullopt, std::string_view detail = "");

}  // namespace sample
