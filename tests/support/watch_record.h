#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/types.h"

namespace support {

/// A text of a record, and its size as the record says it.
struct WatchedText {
  clientcomm::OptionalString text;
  std::int64_t size = -1;
};

/// What a watcher is told of a call, read by docs/wire-format.md alone.
struct WatchRecord {
  std::int64_t time = 0;
  std::int64_t process = 0;
  WatchedText identifier;
  std::int64_t wantsReply = 0;
  WatchedText className;
  WatchedText selector;
  std::int64_t argumentCount = 0;
  std::vector<WatchedText> arguments;
  std::int64_t status = 0;
  WatchedText answer;
  std::int64_t duration = 0;
  std::int64_t missed = 0;
};

/// The record in `event`. The test fails where it is cut short.
WatchRecord watchRecordIn(const clientcomm::AppleEventDescriptor& event);

}  // namespace support
