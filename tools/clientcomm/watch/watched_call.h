#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/types.h"

namespace clientcomm::tool {

/// A text, or its beginning.
struct WatchedText {
  OptionalString text;
  std::int64_t size = 0;  ///< Of the whole text in bytes.

  bool isWhole() const { return !text || static_cast<std::int64_t>(text->size()) == size; }
};

/// What a receiver tells of a call; see docs/wire-format.md.
struct WatchedCall {
  std::chrono::microseconds time{};  ///< Since 1970-01-01 00:00 UTC.
  std::int64_t process = 0;
  WatchedText caller;
  bool wantsReply = false;
  WatchedText className;
  WatchedText selector;
  std::int64_t argumentCount = 0;
  std::vector<WatchedText> arguments;
  std::int64_t status = 0;
  WatchedText answer;
  std::chrono::microseconds duration{};
  std::int64_t missed = 0;
};

/// The call that a packet's event tells of; nothing when it is cut short or malformed.
std::optional<WatchedCall> watchedCallIn(const AppleEventDescriptor& event);

}  // namespace clientcomm::tool
