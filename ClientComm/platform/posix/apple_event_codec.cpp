#include "ClientComm/platform/posix/apple_event_codec.h"

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "ClientComm/platform/native_memory.h"
#include "ClientComm/platform/wire_format.h"

namespace clientcomm {
namespace {

template <std::integral Value>
Value littleEndian(Value value) {
  if constexpr (std::endian::native == std::endian::big) {
    auto bytes = std::bit_cast<std::array<char, sizeof(Value)>>(value);
    std::reverse(bytes.begin(), bytes.end());
    return std::bit_cast<Value>(bytes);
  }
  return value;
}

/// Adds up a flattened descriptor, as far as the first limit that it exceeds.
class Measure {
 public:
  /// @return false beyond a limit.
  bool add(const AppleEventDescriptor& descriptor, int depth) noexcept {
    if (depth > kMaximumNesting || count_ == kMaximumDescriptors) return false;
    ++count_;
    if (!add(kDescriptorHeaderSize)) return false;
    if (descriptor.descriptorType() == typeAEList) return addList(descriptor, depth);
    if (descriptor.descriptorType() == typeAppleEvent) return addEvent(descriptor, depth);
    return add(descriptor.data().size());
  }

  std::size_t size() const noexcept { return size_; }

 private:
  bool add(std::size_t bytes) noexcept {
    if (bytes > kMaximumFlattenedSize - size_) return false;
    size_ += bytes;
    return true;
  }

  bool addList(const AppleEventDescriptor& list, int depth) noexcept {
    if (!add(kCountSize)) return false;
    const std::size_t count = list.numberOfItems();
    for (std::size_t i = 1; i <= count; ++i) {
      if (!add(*list.descriptorAtIndex(i), depth + 1)) return false;
    }
    return true;
  }

  bool addEvent(const AppleEventDescriptor& event, int depth) noexcept {
    return add(kEventHeaderSize) && add(event.target(), depth + 1) &&
           addKeyed(event.attributes(), depth) && addKeyed(event.parameters(), depth);
  }

  bool addKeyed(const AppleEventDescriptor::KeyedDescriptors& descriptors, int depth) noexcept {
    if (descriptors.size() > kMaximumKeywords) return false;
    if (!add(kCountSize + descriptors.size() * kKeywordSize)) return false;
    return std::ranges::all_of(descriptors,
                               [&](const auto& keyed) { return add(keyed.second, depth + 1); });
  }

  std::size_t size_ = 0;
  std::size_t count_ = 0;
};

// From this size on, data is not copied where it can stay where it is.
constexpr std::size_t kLongData = std::size_t{16} << 10;

// How much of the flattened form is long data.
std::size_t longDataSize(const AppleEventDescriptor& descriptor) noexcept {
  std::size_t size = descriptor.data().size() >= kLongData ? descriptor.data().size() : 0;
  const std::size_t count = descriptor.numberOfItems();
  for (std::size_t i = 1; i <= count; ++i) {
    size += longDataSize(*descriptor.descriptorAtIndex(i));
  }
  if (descriptor.descriptorType() != typeAppleEvent) return size;
  size += longDataSize(descriptor.target());
  for (const auto& [keyword, value] : descriptor.attributes()) size += longDataSize(value);
  for (const auto& [keyword, value] : descriptor.parameters()) size += longDataSize(value);
  return size;
}

/// Writes the flattened form, all of it in one place, or with the long data left where it is.
class Writer {
 public:
  /// @param pieces receives the pieces of the output; null for one without pieces.
  /// @param room bytes to leave free at the beginning.
  Writer(char* out, std::size_t room, std::vector<iovec>* pieces)
      : out_(out + room), piece_(out), pieces_(pieces) {}

  char* out() const { return out_; }

  void put(const AppleEventDescriptor& descriptor) {
    put(descriptor.descriptorType());
    char* const length = out_;
    out_ += sizeof(std::uint32_t);
    const std::size_t elsewhere = elsewhere_;
    putPayload(descriptor);
    const std::size_t written = static_cast<std::size_t>(out_ - length) - sizeof(std::uint32_t);
    const auto size = littleEndian(static_cast<std::uint32_t>(written + elsewhere_ - elsewhere));
    std::memcpy(length, &size, sizeof size);
  }

  /// Makes a piece of what was written since the last.
  void endPiece() {
    if (out_ != piece_) pieces_->push_back({piece_, static_cast<std::size_t>(out_ - piece_)});
    piece_ = out_;
  }

 private:
  template <std::integral Value>
  void put(Value value) {
    value = littleEndian(value);
    std::memcpy(out_, &value, sizeof value);
    out_ += sizeof value;
  }

  void putKeyed(const AppleEventDescriptor::KeyedDescriptors& descriptors) {
    put(static_cast<std::uint32_t>(descriptors.size()));
    for (const auto& [keyword, descriptor] : descriptors) {
      put(keyword);
      put(descriptor);
    }
  }

  void putPayload(const AppleEventDescriptor& descriptor) {
    if (descriptor.descriptorType() == typeAEList) {
      const std::size_t count = descriptor.numberOfItems();
      put(static_cast<std::uint32_t>(count));
      for (std::size_t i = 1; i <= count; ++i) {
        put(*descriptor.descriptorAtIndex(i));
      }
    } else if (descriptor.descriptorType() == typeAppleEvent) {
      put(descriptor.eventClass());
      put(descriptor.eventID());
      put(descriptor.returnID());
      put(descriptor.transactionID());
      put(descriptor.target());
      putKeyed(descriptor.attributes());
      putKeyed(descriptor.parameters());
    } else {
      putData(descriptor.data());
    }
  }

  void putData(const std::string& data) {
    if (pieces_ == nullptr || data.size() < kLongData) {
      std::memcpy(out_, data.data(), data.size());
      out_ += data.size();
      return;
    }
    endPiece();
    pieces_->push_back({const_cast<char*>(data.data()), data.size()});
    elsewhere_ += data.size();
  }

  char* out_;
  char* piece_;
  std::vector<iovec>* pieces_;
  std::size_t elsewhere_ = 0;  ///< Bytes of the output that were left where they are.
};

// From this size on, a copy is made in large pages of 2 MiB.
constexpr std::size_t kLongText = std::size_t{4} << 20;

// From this size on, a list of descriptors takes more than 1 KiB.
constexpr std::size_t kLongList = 16;

// A copy of `bytes` in large pages, where the system has them: most of the time of a very large
// copy goes into the making of its pages.
std::string copyInLargePages(std::string_view bytes) {
  std::string copy;
  copy.reserve(bytes.size());
  preferLargePages(copy.data(), copy.capacity());
  return copy.append(bytes);
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
    std::string_view payload;
    return takeParts(type, payload, depth) && read(type, payload, depth, descriptor);
  }

 private:
  // Reject a count larger than the remaining bytes, or the event's remaining descriptors, before
  // reserving.
  bool takeCount(std::uint32_t& count, std::size_t smallestItem) {
    return take(count) && count <= rest_.size() / smallestItem && count <= budget_;
  }

  bool takeParts(DescType& type, std::string_view& payload, int depth) {
    std::uint32_t length = 0;
    if (budget_ == 0 || depth > kMaximumNesting || !take(type) || !take(length) ||
        length > rest_.size()) {
      return false;
    }
    --budget_;
    payload = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return true;
  }

  bool read(DescType type, std::string_view payload, int depth, AppleEventDescriptor& descriptor) {
    if (type == typeAEList) return readList(payload, depth, descriptor);
    if (type == typeAppleEvent) return readEvent(payload, depth, descriptor);
    if (type == typeNull && !payload.empty()) return false;
    if (payload.size() < kLongText) {
      descriptor.assign(type, payload);
    } else {
      descriptor = AppleEventDescriptor(type, copyInLargePages(payload));
    }
    return true;
  }

  // Takes the `count` items of a list where all are texts, and nothing where one is not.
  bool takeTexts(std::uint32_t count, int depth, AppleEventDescriptor& list) {
    std::size_t budget = budget_;
    Reader reader(rest_, budget);
    DescType type = 0;
    std::string_view payload;
    TextTable texts(count);
    for (OptionalString& text : texts) {
      if (!reader.takeParts(type, payload, depth) || type != typeUnicodeText ||
          payload.size() >= kLongText) {
        return false;
      }
      text.emplace(payload);
    }
    budget_ = budget;
    rest_ = reader.rest_;
    list = AppleEventDescriptor::listOfTexts(std::move(texts));
    return true;
  }

  bool readList(std::string_view payload, int depth, AppleEventDescriptor& descriptor) {
    Reader reader(payload, budget_);
    std::uint32_t count = 0;
    if (!reader.takeCount(count, kDescriptorHeaderSize)) return false;
    if (count < kLongList || !reader.takeTexts(count, depth + 1, descriptor)) {
      descriptor = AppleEventDescriptor::listDescriptor();
      descriptor.reserveItems(count);
      for (std::uint32_t i = 0; i < count; ++i) {
        if (!reader.take(descriptor.addItem(), depth + 1)) return false;
      }
    }
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

  std::string_view rest_;
  std::size_t& budget_;
};

}  // namespace

std::optional<std::size_t> flattenedSize(const AppleEventDescriptor& descriptor) noexcept {
  Measure measure;
  return measure.add(descriptor, 1) ? std::optional(measure.size()) : std::nullopt;
}

char* flattenTo(const AppleEventDescriptor& descriptor, char* out) noexcept {
  Writer writer(out, 0, nullptr);
  writer.put(descriptor);
  return writer.out();
}

FlattenedPieces::FlattenedPieces(const AppleEventDescriptor& descriptor, std::size_t size,
                                 std::size_t room) {
  const std::size_t longData = size < kLongData ? 0 : longDataSize(descriptor);
  char* buffer = usual_.data();
  if (const std::size_t needed = room + size - longData; needed > usual_.size()) {
    large_ = std::make_unique_for_overwrite<char[]>(needed);
    buffer = large_.get();
  }
  Writer writer(buffer, room, &pieces_);
  writer.put(descriptor);
  writer.endPiece();
}

std::optional<AppleEventDescriptor> unflatten(std::string_view bytes) {
  if (bytes.size() > kMaximumFlattenedSize) return std::nullopt;
  std::size_t budget = kMaximumDescriptors;
  Reader reader(bytes, budget);
  AppleEventDescriptor descriptor;
  if (!reader.take(descriptor, 1) || !reader.isAtEnd()) return std::nullopt;
  return descriptor;
}

}  // namespace clientcomm
