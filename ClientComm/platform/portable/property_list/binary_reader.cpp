#include "ClientComm/platform/portable/property_list/binary_reader.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "ClientComm/platform/portable/property_list/unicode.h"
#include "ClientComm/platform/portable/property_list/value.h"

namespace clientcomm {
namespace {

class BinaryReader {
 public:
  explicit BinaryReader(std::string_view bytes) : bytes_(bytes) {}

  std::optional<PropertyListValue> read() {
    constexpr std::size_t kTrailerSize = 32;
    if (bytes_.size() <= kHeaderSize + kTrailerSize) return std::nullopt;
    const std::size_t trailer = bytes_.size() - kTrailerSize;
    offsetSize_ = static_cast<unsigned char>(bytes_[trailer + 6]);
    referenceSize_ = static_cast<unsigned char>(bytes_[trailer + 7]);
    count_ = number(trailer + 8, 8);
    const std::uint64_t table = number(trailer + 24, 8);
    if (!isWordSize(offsetSize_) || !isWordSize(referenceSize_) || table >= trailer ||
        count_ > (trailer - table) / offsetSize_) {
      return std::nullopt;
    }
    table_ = static_cast<std::size_t>(table);
    isOpen_.resize(static_cast<std::size_t>(count_));
    return value(number(trailer + 16, 8), 0);
  }

 private:
  // Kinds of objects: the upper half of their marker.
  static constexpr unsigned kSimple = 0x0;
  static constexpr unsigned kInteger = 0x1;
  static constexpr unsigned kReal = 0x2;
  static constexpr unsigned kDate = 0x3;
  static constexpr unsigned kData = 0x4;
  static constexpr unsigned kAscii = 0x5;
  static constexpr unsigned kUtf16 = 0x6;
  static constexpr unsigned kUid = 0x8;
  static constexpr unsigned kArray = 0xA;
  static constexpr unsigned kDictionary = 0xD;

  static constexpr std::size_t kHeaderSize = 8;

  struct Object {
    unsigned kind;
    std::size_t content;
    std::size_t length;  // in bytes
  };

  static bool isWordSize(std::size_t size) { return size >= 1 && size <= 8; }

  std::uint64_t number(std::size_t at, std::size_t size) const {
    std::uint64_t result = 0;
    for (std::size_t i = 0; i < size; ++i) {
      result = (result << 8U) | static_cast<unsigned char>(bytes_[at + i]);
    }
    return result;
  }

  std::optional<Object> objectAt(std::size_t at) const {
    const unsigned marker = static_cast<unsigned char>(bytes_[at]);
    const unsigned kind = marker >> 4U;
    const unsigned low = marker & 0x0FU;
    if (kind == kSimple) return Object{kind, at, 1};
    if (kind >= kInteger && kind <= kDate) return bounded(kind, at + 1, std::uint64_t{1} << low, 1);
    if (kind == kUid) return bounded(kind, at + 1, low + 1, 1);
    std::uint64_t count = low;
    std::size_t content = at + 1;
    if (low == 0x0F && !readCount(content, count)) return std::nullopt;
    switch (kind) {
      case kData:
      case kAscii:
        return bounded(kind, content, count, 1);
      case kUtf16:
        return bounded(kind, content, count, 2);
      case kArray:
        return bounded(kind, content, count, referenceSize_);
      case kDictionary:
        return bounded(kind, content, count, 2 * referenceSize_);
      default:
        return std::nullopt;
    }
  }

  // Reads the integer object that holds a count too large for the marker.
  bool readCount(std::size_t& at, std::uint64_t& count) const {
    if (at >= table_) return false;
    const unsigned marker = static_cast<unsigned char>(bytes_[at]);
    const std::size_t size = std::size_t{1} << (marker & 0x0FU);
    if (marker >> 4U != kInteger || size > 8 || size > table_ - at - 1) return false;
    count = number(at + 1, size);
    at += 1 + size;
    return true;
  }

  std::optional<Object> bounded(unsigned kind, std::size_t content, std::uint64_t count,
                                std::size_t unit) const {
    if (content > table_ || count > (table_ - content) / unit) return std::nullopt;
    return Object{kind, content, static_cast<std::size_t>(count) * unit};
  }

  // An object that is referred to often costs as often: a small file can unfold beyond measure.
  bool spend(std::size_t length) {
    constexpr std::size_t kObjectOverhead =
        128;  // so that references to nothing cost something too
    if (length + kObjectOverhead > budget_) return false;
    budget_ -= length + kObjectOverhead;
    return true;
  }

  std::optional<PropertyListValue> value(std::uint64_t reference, int depth) {
    if (reference >= count_ || depth > kMaximumPropertyListNesting) return std::nullopt;
    const auto index = static_cast<std::size_t>(reference);
    const std::uint64_t at = number(table_ + index * offsetSize_, offsetSize_);
    if (at < kHeaderSize || at >= table_ || isOpen_[index]) return std::nullopt;
    const auto object = objectAt(static_cast<std::size_t>(at));
    if (!object || !spend(object->length)) return std::nullopt;
    isOpen_[index] = true;
    auto result = valueOf(*object, depth);
    isOpen_[index] = false;
    return result;
  }

  std::optional<PropertyListValue> valueOf(const Object& object, int depth) {
    switch (object.kind) {
      case kArray:
        return array(object, depth + 1);
      case kDictionary:
        return dictionary(object, depth + 1);
      case kData: {
        const auto* data = reinterpret_cast<const std::byte*>(bytes_.data()) + object.content;
        return PropertyListValue::Data(data, data + object.length);
      }
      case kAscii:
        return ascii(bytes_.substr(object.content, object.length));
      case kUtf16: {
        auto text =
            utf8FromUtf16(bytes_.substr(object.content, object.length), ByteOrder::kBigEndian);
        if (!text) return std::nullopt;
        return PropertyListValue(std::move(*text));
      }
      default:
        return scalar(object);
    }
  }

  static std::optional<PropertyListValue> ascii(std::string_view text) {
    const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    if (!std::ranges::all_of(text, isAscii)) return std::nullopt;
    return PropertyListValue(std::string(text));
  }

  std::optional<PropertyListValue> scalar(const Object& object) const {
    if (object.kind == kInteger && object.length == 16) return longInteger(object.content);
    if (object.length > 8) return std::nullopt;
    const std::uint64_t bits = number(object.content, object.length);
    switch (object.kind) {
      case kSimple:
        if (bits != 8 && bits != 9) return std::nullopt;
        return PropertyListValue(bits == 9);
      case kInteger:  // signed only in the longest form
        return PropertyListValue(static_cast<std::int64_t>(bits));
      case kReal:
        if (object.length == 8) return PropertyListValue(std::bit_cast<double>(bits));
        if (object.length != 4) return std::nullopt;
        return PropertyListValue(double{std::bit_cast<float>(static_cast<std::uint32_t>(bits))});
      case kDate:
        if (object.length != 8) return std::nullopt;
        return PropertyListValue(PropertyListDate{std::bit_cast<double>(bits)});
      default:
        return PropertyListValue(PropertyListUID{bits});
    }
  }

  // Sixteen bytes carry what is too large for a signed integer of eight.
  std::optional<PropertyListValue> longInteger(std::size_t at) const {
    const std::uint64_t high = number(at, 8);
    const std::uint64_t low = number(at + 8, 8);
    if (high == 0) return integerValue(low);
    const auto negative = static_cast<std::int64_t>(low);
    if (high != std::numeric_limits<std::uint64_t>::max() || negative >= 0) return std::nullopt;
    return PropertyListValue(negative);
  }

  std::optional<PropertyListValue> array(const Object& object, int depth) {
    PropertyListValue::Array items;
    for (std::size_t i = 0; i < object.length; i += referenceSize_) {
      auto item = value(number(object.content + i, referenceSize_), depth);
      if (!item) return std::nullopt;
      items.push_back(std::move(*item));
    }
    return PropertyListValue(std::move(items));
  }

  // The references to the keys come first, then those to the values.
  std::optional<PropertyListValue> dictionary(const Object& object, int depth) {
    PropertyListDictionary entries;
    const std::size_t half = object.length / 2;
    for (std::size_t i = 0; i < half; i += referenceSize_) {
      const auto key = value(number(object.content + i, referenceSize_), depth);
      auto held = value(number(object.content + half + i, referenceSize_), depth);
      auto name = key ? key->stringValue() : std::nullopt;
      if (!name || !held) return std::nullopt;
      entries.insert_or_assign(std::move(*name), std::move(*held));
    }
    return PropertyListValue(std::move(entries));
  }

  std::string_view bytes_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::size_t table_ = 0;
  std::uint64_t count_ = 0;
  std::vector<bool> isOpen_;  // the objects on the way to the present one
  std::size_t budget_ = 4 * kMaximumSettingsFileSize;
};

}  // namespace

std::optional<PropertyListValue> propertyListFromBinary(std::string_view bytes) {
  return BinaryReader(bytes).read();
}

}  // namespace clientcomm
