#include "tests/support/watch_record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>

namespace support {
namespace {

class Fields {
 public:
  explicit Fields(std::string_view bytes) : rest_(bytes) {}

  std::int64_t number() {
    std::uint64_t value = 0;
    const std::string_view bytes = take(8);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      value |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
    }
    return static_cast<std::int64_t>(value);
  }

  WatchedText text() {
    constexpr std::int64_t kLongest = 256;
    const std::int64_t size = number();
    if (size < 0) return {};
    return {std::string(take(static_cast<std::size_t>(std::min(size, kLongest)))), size};
  }

  bool isAtEnd() const { return rest_.empty(); }

 private:
  std::string_view take(std::size_t size) {
    EXPECT_LE(size, rest_.size());
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(taken.size());
    return taken;
  }

  std::string_view rest_;
};

}  // namespace

WatchRecord watchRecordIn(const clientcomm::AppleEventDescriptor& event) {
  const auto* const parameter = event.paramDescriptorForKeyword(clientcomm::keyDirectObject);
  if (parameter == nullptr) {
    ADD_FAILURE() << "no record";
    return {};
  }
  EXPECT_EQ(parameter->descriptorType(), clientcomm::fourCharCode("wtch"));
  Fields fields(parameter->data());
  WatchRecord record;
  record.time = fields.number();
  record.process = fields.number();
  record.identifier = fields.text();
  record.wantsReply = fields.number();
  record.className = fields.text();
  record.selector = fields.text();
  record.argumentCount = fields.number();
  for (std::int64_t i = 0; i < std::min<std::int64_t>(record.argumentCount, 8); ++i) {
    record.arguments.push_back(fields.text());
  }
  record.status = fields.number();
  record.answer = fields.text();
  record.duration = fields.number();
  record.missed = fields.number();
  EXPECT_TRUE(fields.isAtEnd());
  return record;
}

}  // namespace support
