#include "platform/linux/apple_event_wire.h"

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

namespace platform {
namespace {

constexpr std::size_t kDescriptorHeaderSize = 8;
constexpr std::size_t kEventHeaderSize = 14;
constexpr std::size_t kCountSize = 4;
constexpr std::size_t kKeywordSize = 4;

template <std::integral Value>
Value littleEndian(Value value) {
  if constexpr (std::endian::native == std::endian::big) {
    auto bytes = std::bit_cast<std::array<char, sizeof(Value)>>(value);
    std::reverse(bytes.begin(), bytes.end());
    return std::bit_cast<Value>(bytes);
  }
  return value;
}

template <std::integral Value>
char* put(Value value, char* out) {
  value = littleEndian(value);
  std::memcpy(out, &value, sizeof value);
  return out + sizeof value;
}

std::size_t keyedSize(const AppleEventDescriptor::KeyedDescriptors& descriptors) noexcept {
  std::size_t size = kCountSize;
  for (const auto& [keyword, descriptor] : descriptors) {
    size += kKeywordSize + flattenedSize(descriptor);
  }
  return size;
}

std::size_t payloadSize(const AppleEventDescriptor& descriptor) noexcept {
  if (descriptor.descriptorType() == typeAEList) {
    std::size_t size = kCountSize;
    for (std::size_t i = 1; i <= descriptor.numberOfItems(); ++i) {
      size += flattenedSize(*descriptor.descriptorAtIndex(i));
    }
    return size;
  }
  if (descriptor.descriptorType() == typeAppleEvent) {
    return kEventHeaderSize + flattenedSize(descriptor.target()) +
           keyedSize(descriptor.attributes()) + keyedSize(descriptor.parameters());
  }
  return descriptor.data().size();
}

char* putKeyed(const AppleEventDescriptor::KeyedDescriptors& descriptors, char* out) noexcept {
  out = put(static_cast<std::uint32_t>(descriptors.size()), out);
  for (const auto& [keyword, descriptor] : descriptors) {
    out = flattenTo(descriptor, put(keyword, out));
  }
  return out;
}

char* putPayload(const AppleEventDescriptor& descriptor, char* out) noexcept {
  if (descriptor.descriptorType() == typeAEList) {
    out = put(static_cast<std::uint32_t>(descriptor.numberOfItems()), out);
    for (std::size_t i = 1; i <= descriptor.numberOfItems(); ++i) {
      out = flattenTo(*descriptor.descriptorAtIndex(i), out);
    }
    return out;
  }
  if (descriptor.descriptorType() == typeAppleEvent) {
    out = put(descriptor.eventClass(), out);
    out = put(descriptor.eventID(), out);
    out = put(descriptor.returnID(), out);
    out = put(descriptor.transactionID(), out);
    out = flattenTo(descriptor.target(), out);
    return putKeyed(descriptor.parameters(), putKeyed(descriptor.attributes(), out));
  }
  const std::string& data = descriptor.data();
  std::memcpy(out, data.data(), data.size());
  return out + data.size();
}

/// Takes values off the front of a flattened descriptor; once something did not fit, everything
/// after it fails too.
class Reader {
 public:
  /// @param budget how many descriptors may still be read; shared by all readers of one event.
  Reader(std::string_view bytes, std::size_t& budget) : rest_(bytes), budget_(budget) {}

  bool isAtEnd() const { return rest_.empty(); }

  template <std::integral Value>
  bool take(Value& value) {
    if (rest_.size() < sizeof value) return false;
    std::memcpy(&value, rest_.data(), sizeof value);
    value = littleEndian(value);
    rest_.remove_prefix(sizeof value);
    return true;
  }

  bool take(AppleEventDescriptor& descriptor, int depth) {
    DescType type = 0;
    std::uint32_t length = 0;
    if (budget_ == 0 || depth > kMaximumNesting || !take(type) || !take(length) ||
        length > rest_.size()) {
      return false;
    }
    --budget_;
    const std::string_view payload = rest_.substr(0, length);
    rest_.remove_prefix(length);
    if (type == typeAEList) return readList(payload, depth, descriptor);
    if (type == typeAppleEvent) return readEvent(payload, depth, descriptor);
    if (type == typeNull && length != 0) return false;
    descriptor = AppleEventDescriptor(type, std::string(payload));
    return true;
  }

 private:
  // A count that the remaining bytes, or the rest of the event's descriptors, cannot make up must
  // not make anybody reserve room for it.
  bool takeCount(std::uint32_t& count, std::size_t smallestItem) {
    return take(count) && count <= rest_.size() / smallestItem && count <= budget_;
  }

  bool readList(std::string_view payload, int depth, AppleEventDescriptor& descriptor) {
    Reader reader(payload, budget_);
    std::uint32_t count = 0;
    if (!reader.takeCount(count, kDescriptorHeaderSize)) return false;
    AppleEventDescriptor list = AppleEventDescriptor::listDescriptor();
    list.reserveItems(count);
    for (std::uint32_t i = 0; i < count; ++i) {
      AppleEventDescriptor item;
      if (!reader.take(item, depth + 1)) return false;
      list.insertDescriptor(std::move(item), 0);
    }
    descriptor = std::move(list);
    return reader.isAtEnd();
  }

  template <typename Set>
  bool takeKeyed(int depth, Set set) {
    std::uint32_t count = 0;
    if (!takeCount(count, kKeywordSize + kDescriptorHeaderSize) || count > kMaximumKeywords) {
      return false;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
      AEKeyword keyword = 0;
      AppleEventDescriptor value;
      if (!take(keyword) || !take(value, depth + 1)) return false;
      set(std::move(value), keyword);
    }
    return true;
  }

  bool readEvent(std::string_view payload, int depth, AppleEventDescriptor& descriptor) {
    Reader reader(payload, budget_);
    AEEventClass eventClass = 0;
    AEEventID eventID = 0;
    AEReturnID returnID = 0;
    AETransactionID transactionID = 0;
    AppleEventDescriptor target;
    if (!reader.take(eventClass) || !reader.take(eventID) || !reader.take(returnID) ||
        !reader.take(transactionID) || !reader.take(target, depth + 1)) {
      return false;
    }
    descriptor = AppleEventDescriptor::appleEvent(eventClass, eventID, std::move(target), returnID,
                                                  transactionID);
    const auto setAttribute = [&](AppleEventDescriptor value, AEKeyword keyword) {
      descriptor.setAttributeDescriptor(std::move(value), keyword);
    };
    const auto setParam = [&](AppleEventDescriptor value, AEKeyword keyword) {
      descriptor.setParamDescriptor(std::move(value), keyword);
    };
    return reader.takeKeyed(depth, setAttribute) && reader.takeKeyed(depth, setParam) &&
           reader.isAtEnd();
  }

  // Setting by keyword looks through those set before, so their number is bounded.
  static constexpr std::uint32_t kMaximumKeywords = 64;

  std::string_view rest_;
  std::size_t& budget_;
};

}  // namespace

std::size_t flattenedSize(const AppleEventDescriptor& descriptor) noexcept {
  return kDescriptorHeaderSize + payloadSize(descriptor);
}

char* flattenTo(const AppleEventDescriptor& descriptor, char* out) noexcept {
  char* const payload = out + kDescriptorHeaderSize;
  char* const end = putPayload(descriptor, payload);
  out = put(descriptor.descriptorType(), out);
  put(static_cast<std::uint32_t>(end - payload), out);
  return end;
}

std::optional<AppleEventDescriptor> unflatten(std::string_view bytes) {
  if (bytes.size() > kMaximumFlattenedSize) return std::nullopt;
  std::size_t budget = kMaximumDescriptors;
  Reader reader(bytes, budget);
  AppleEventDescriptor descriptor;
  if (!reader.take(descriptor, 1) || !reader.isAtEnd()) return std::nullopt;
  return descriptor;
}

}  // namespace platform
