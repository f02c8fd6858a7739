#include "tools/clientcomm/watch/watched_call.h"

#include <algorithm>
#include <string_view>

#include "ClientComm/platform/wire_format.h"

namespace clientcomm::tool {
namespace {

/// Reads the fields of a record. After one that is cut short, all are empty.
class Fields {
 public:
  explicit Fields(std::string_view bytes) : rest_(bytes) {}

  bool isWhole() const { return isWhole_; }

  std::int64_t number() {
    std::uint64_t value = 0;
    unsigned shift = 0;
    for (const char byte : take(sizeof value)) {
      value |= std::uint64_t{static_cast<unsigned char>(byte)} << shift;
      shift += 8;
    }
    return static_cast<std::int64_t>(value);
  }

  WatchedText text() {
    const std::int64_t size = number();
    if (size < 0) return {};
    const auto length =
        std::min<std::uint64_t>(static_cast<std::uint64_t>(size), kLongestWatchedText);
    return {std::string(take(static_cast<std::size_t>(length))), size};
  }

 private:
  std::string_view take(std::size_t size) {
    isWhole_ = isWhole_ && size <= rest_.size();
    if (!isWhole_) return {};
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return taken;
  }

  std::string_view rest_;
  bool isWhole_ = true;
};

}  // namespace

std::optional<WatchedCall> watchedCallIn(const AppleEventDescriptor& event) {
  const AppleEventDescriptor* const record = event.paramDescriptorForKeyword(keyDirectObject);
  if (record == nullptr || record->descriptorType() != kWatchRecordType) return std::nullopt;
  Fields fields(record->data());
  WatchedCall call;
  call.time = std::chrono::microseconds(fields.number());
  call.process = fields.number();
  call.caller = fields.text();
  call.wantsReply = fields.number() != 0;
  call.className = fields.text();
  call.selector = fields.text();
  call.argumentCount = fields.number();
  const auto told = std::min<std::int64_t>(call.argumentCount, kMaximumWatchedArguments);
  for (std::int64_t k = 0; k < told; ++k) call.arguments.push_back(fields.text());
  call.status = fields.number();
  call.answer = fields.text();
  call.duration = std::chrono::microseconds(fields.number());
  call.missed = fields.number();
  return fields.isWhole() ? std::optional(std::move(call)) : std::nullopt;
}

}  // namespace clientcomm::tool
