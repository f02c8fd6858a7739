#include <glib.h>
#include <locale.h>
#include <plist/plist.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <utility>

#include "platform/linux/atomic_file.h"
#include "platform/linux/text_property_list.h"
#include "platform/property_list.h"
#include "platform/text.h"

namespace platform {
namespace {

namespace chrono = std::chrono;
using namespace std::literals;  // of texts and dates

constexpr std::string_view kUidKey = "CF$UID";

struct FreePlist {
  void operator()(void* node) const { plist_free(node); }
};
using ScopedPlist = std::unique_ptr<void, FreePlist>;

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};
template <typename T>
using ScopedMemory = std::unique_ptr<T, FreeMemory>;

// libplist reads reals with the C library's functions, which follow the host's locale: in one with
// a decimal comma, 1.5 would be read as 1.
class ScopedCLocale {
 public:
  ScopedCLocale() : previous_(uselocale(cLocale())) {}
  ~ScopedCLocale() { uselocale(previous_); }
  ScopedCLocale(const ScopedCLocale&) = delete;
  ScopedCLocale& operator=(const ScopedCLocale&) = delete;

 private:
  static locale_t cLocale() {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return locale;
  }

  locale_t previous_;
};

// --- Guards. libplist follows nested containers by recursion and copies a shared object of a
// binary list wherever it is referred to; both are bounded before it sees the bytes. ---

// Cuts the markup at the front of `text` off when it is one in which a "<" begins no element.
// @return false when the markup is not closed, or its end could be taken for another.
bool skipNonElement(std::string_view& text, bool& wasSkipped) {
  struct Form {
    std::string_view opening;
    std::string_view closing;
  };
  static constexpr Form kForms[] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};
  wasSkipped = false;
  for (const Form& form : kForms) {
    if (!text.starts_with(form.opening)) continue;
    // "<!-->" and "<?>" are read by some as closed and by others as open.
    const std::size_t end = text.find(form.closing, form.opening.size());
    const std::size_t earliestEnd = text.find(form.closing, 1);
    if (end == std::string_view::npos || end != earliestEnd) return false;
    text.remove_prefix(end + form.closing.size());
    wasSkipped = true;
    return true;
  }
  return true;
}

// The tag at the front of `text`, from "<" to ">"; empty when its end is missing or in doubt.
std::string_view frontTag(std::string_view text) {
  const std::string_view tag = text.substr(0, text.find('>') + 1);
  if (tag.find('<', 1) != std::string_view::npos || tag.find('[') != std::string_view::npos) {
    return {};
  }
  const bool isQuoteOpen =
      std::count(tag.begin(), tag.end(), '"') % 2 != 0 || tag.find('\'') != std::string_view::npos;
  return isQuoteOpen ? std::string_view() : tag;
}

bool isXmlNestedWithinLimit(std::string_view text) {
  // The plist element, a leaf's, and the dictionary by which a keyed-archive reference is written.
  constexpr int kMaximumDepth = kMaximumPropertyListNesting + 3;
  int depth = 0;
  for (;;) {
    text.remove_prefix(std::min(text.find('<'), text.size()));
    if (text.empty()) return true;
    bool wasSkipped = false;
    if (!skipNonElement(text, wasSkipped)) return false;
    if (wasSkipped) continue;
    const std::string_view tag = frontTag(text);
    if (tag.size() < 3) return false;
    if (tag[1] == '/') {
      if (--depth < 0) return false;
    } else if (tag[1] != '!' && tag[tag.size() - 2] != '/') {
      if (++depth > kMaximumDepth) return false;
    }
    text.remove_prefix(tag.size());
  }
}

bool isNestedWithinLimit(const PropertyListValue& value, int depth = 0) {
  if (depth > kMaximumPropertyListNesting) return false;
  if (const auto* array = value.array()) {
    return std::all_of(array->begin(), array->end(), [depth](const PropertyListValue& item) {
      return isNestedWithinLimit(item, depth + 1);
    });
  }
  const auto* dictionary = value.dictionary();
  return dictionary == nullptr ||
         std::all_of(dictionary->begin(), dictionary->end(), [depth](const auto& entry) {
           return isNestedWithinLimit(entry.second, depth + 1);
         });
}

std::optional<PropertyListValue> valueOf(plist_t node);

PropertyListValue integer(std::uint64_t value) {
  const bool fitsSigned =
      value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  return fitsSigned ? PropertyListValue(static_cast<std::int64_t>(value))
                    : PropertyListValue(value);
}

// libplist keeps a negative integer as its two's complement, and tells it from a large unsigned one
// only by an inner length, which comparing with a node made here brings to light.
PropertyListValue integerOf(plist_t node) {
  std::uint64_t value = 0;
  plist_get_uint_val(node, &value);
  const ScopedPlist eightBytes(plist_new_uint(value));
  const bool isSigned = plist_compare_node_value(node, eightBytes.get()) != 0;
  return isSigned ? PropertyListValue(static_cast<std::int64_t>(value)) : integer(value);
}

constexpr chrono::sys_days kReferenceDay = 2001y / chrono::January / 1;

double secondsSinceReferenceDate(int year, unsigned month, unsigned day, int secondsOfDay) {
  const chrono::sys_days date = chrono::year(year) / chrono::month(month) / chrono::day(day);
  const auto days = (date - kReferenceDay).count();
  return static_cast<double>(days) * 86400.0 + secondsOfDay;
}

// libplist hands a date out in 32 bits, which hold some 68 years either side of 2001. Others, such
// as "the distant future", are taken from the text that it gives.
std::optional<PropertyListValue> dateOf(plist_t node) {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;  // always 0: the XML form has none
  plist_get_date_val(node, &seconds, &microseconds);
  using Limits = std::numeric_limits<std::int32_t>;
  if (seconds > Limits::min() && seconds < Limits::max()) return PropertyListDate{1.0 * seconds};
  char* xml = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(node, &xml, &length);
  const ScopedMemory<char> owner(xml);
  const std::string text(xml == nullptr ? "" : xml);
  const std::size_t start = text.find("<date>");
  int year = 0;
  unsigned month = 0;
  unsigned day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  if (start == std::string::npos ||
      std::sscanf(text.c_str() + start, "<date>%d-%2u-%2uT%2d:%2d:%2dZ", &year, &month, &day, &hour,
                  &minute, &second) != 6 ||
      year < -30000 || year > 30000) {
    return std::nullopt;
  }
  return PropertyListDate{
      secondsSinceReferenceDate(year, month, day, (hour * 60 + minute) * 60 + second)};
}

// By pointer and length: the call that copies a string ends the process over one that holds a NUL.
std::optional<PropertyListValue> stringOf(plist_t node) {
  std::uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  if (text == nullptr) return std::nullopt;
  return PropertyListValue(std::string(text, static_cast<std::size_t>(length)));
}

PropertyListValue dataOf(plist_t node) {
  std::uint64_t length = 0;
  const auto* bytes = reinterpret_cast<const std::byte*>(plist_get_data_ptr(node, &length));
  if (bytes == nullptr) return PropertyListValue::Data();
  return PropertyListValue::Data(bytes, bytes + length);
}

std::optional<PropertyListValue> arrayOf(plist_t node) {
  PropertyListValue::Array array;
  array.reserve(plist_array_get_size(node));
  plist_array_iter iterator = nullptr;
  plist_array_new_iter(node, &iterator);
  const ScopedMemory<void> owner(iterator);
  for (;;) {
    plist_t item = nullptr;
    plist_array_next_item(node, iterator, &item);
    if (item == nullptr) return PropertyListValue(std::move(array));
    auto value = valueOf(item);
    if (!value) return std::nullopt;
    array.push_back(std::move(*value));
  }
}

// XML has no element for a keyed-archive reference: it is written as a dictionary of one key.
std::optional<PropertyListUID> uidWrittenAs(const PropertyListDictionary& dictionary) {
  if (dictionary.size() != 1 || dictionary.begin()->first != kUidKey) return std::nullopt;
  const PropertyListValue::Variant& value = dictionary.begin()->second.variant();
  if (const auto* large = std::get_if<std::uint64_t>(&value)) return PropertyListUID{*large};
  const auto* number = std::get_if<std::int64_t>(&value);
  if (number == nullptr || *number < 0) return std::nullopt;
  return PropertyListUID{static_cast<std::uint64_t>(*number)};
}

std::optional<PropertyListDictionary> entriesOf(plist_t node) {
  PropertyListDictionary dictionary;
  plist_dict_iter iterator = nullptr;
  plist_dict_new_iter(node, &iterator);
  const ScopedMemory<void> owner(iterator);
  for (;;) {
    char* key = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(node, iterator, &key, &item);
    const ScopedMemory<char> keyOwner(key);
    if (key == nullptr || item == nullptr) break;
    auto value = valueOf(item);
    if (!value) return std::nullopt;
    dictionary.insert_or_assign(key, std::move(*value));
  }
  return dictionary;
}

std::optional<PropertyListValue> dictionaryOf(plist_t node) {
  auto dictionary = entriesOf(node);
  if (!dictionary) return std::nullopt;
  if (const auto uid = uidWrittenAs(*dictionary)) return PropertyListValue(*uid);
  return PropertyListValue(std::move(*dictionary));
}

// A list's top value is no reference, whatever its only key is called: a settings file stays one.
std::optional<PropertyListValue> topValueOf(plist_t node) {
  if (plist_get_node_type(node) != PLIST_DICT) return valueOf(node);
  auto dictionary = entriesOf(node);
  if (!dictionary) return std::nullopt;
  return PropertyListValue(std::move(*dictionary));
}

std::optional<PropertyListValue> valueOf(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      std::uint8_t value = 0;
      plist_get_bool_val(node, &value);
      return PropertyListValue(value != 0);
    }
    case PLIST_UINT:
      return integerOf(node);
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(node, &value);
      return PropertyListValue(value);
    }
    case PLIST_DATE:
      return dateOf(node);
    case PLIST_STRING:
      return stringOf(node);
    case PLIST_DATA:
      return dataOf(node);
    case PLIST_ARRAY:
      return arrayOf(node);
    case PLIST_DICT:
      return dictionaryOf(node);
    case PLIST_UID:
    case PLIST_KEY:
    case PLIST_NONE:
      break;
  }
  return std::nullopt;
}

std::optional<PropertyListValue> propertyListFromXml(std::string_view text) {
  if (text.find('\0') != std::string_view::npos || !isXmlNestedWithinLimit(text)) {
    return std::nullopt;
  }
  const ScopedCLocale cLocale;
  plist_t node = nullptr;
  plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &node);
  const ScopedPlist owner(node);
  if (node == nullptr) return std::nullopt;
  auto value = topValueOf(node);
  return value && isNestedWithinLimit(*value) ? value : std::nullopt;
}

// --- Reading the binary form. Our own, since libplist's reader ends the process over a key that
// holds a NUL, runs out of stack or memory over nested and shared objects, and cuts strings at a
// NUL. ---

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
        return PropertyListValue(std::string(bytes_.substr(object.content, object.length)));
      case kUtf16: {
        auto text = utf8FromUtf16(bytes_.substr(object.content, object.length), true);
        if (!text) return std::nullopt;
        return PropertyListValue(std::move(*text));
      }
      default:
        return scalar(object);
    }
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
    if (high == 0) return integer(low);
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

std::optional<PropertyListValue> propertyListFromUtf8(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  const std::string_view body = start == std::string_view::npos ? ""sv : text.substr(start);
  if (body.starts_with("<?") || body.starts_with("<!") || body.starts_with("<plist")) {
    return propertyListFromXml(body);
  }
  return propertyListFromText(text);
}

// --- Writing. Our own, since libplist writes reals with few digits and dates through 32 bits. ---

class XmlWriter {
 public:
  std::string write(const PropertyListDictionary& dictionary) {
    out_ =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        "<plist version=\"1.0\">\n";
    append(dictionary);
    out_ += "</plist>\n";
    return std::move(out_);
  }

 private:
  void append(bool value) { line(value ? "<true/>" : "<false/>"); }
  void append(std::int64_t value) { element("integer", std::to_string(value)); }
  void append(std::uint64_t value) { element("integer", std::to_string(value)); }
  void append(double value) {
    std::array<char, 40> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    element("real", {digits.data(), static_cast<std::size_t>(end - digits.data())});
  }
  void append(const std::string& value) { element("string", value); }
  void append(const PropertyListValue::Data& value) {
    const std::unique_ptr<char, decltype(&g_free)> text(
        g_base64_encode(reinterpret_cast<const guchar*>(value.data()), value.size()), &g_free);
    element("data", text.get());
  }
  void append(PropertyListDate value);
  void append(PropertyListUID value) {
    append(PropertyListDictionary{{std::string(kUidKey), value.value}});
  }
  void append(const PropertyListValue::Array& array) {
    if (array.empty()) return line("<array/>");
    line("<array>");
    ++depth_;
    for (const PropertyListValue& value : array) appendValue(value);
    --depth_;
    line("</array>");
  }
  void append(const PropertyListDictionary& dictionary) {
    if (dictionary.empty()) return line("<dict/>");
    line("<dict>");
    ++depth_;
    for (const auto& [key, value] : dictionary) {
      element("key", key);
      appendValue(value);
    }
    --depth_;
    line("</dict>");
  }
  void appendValue(const PropertyListValue& value) {
    std::visit([this](const auto& held) { append(held); }, value.variant());
  }

  void line(std::string_view text) { out_.append(depth_, '\t').append(text).push_back('\n'); }
  void element(std::string_view name, std::string_view content) {
    out_.append(depth_, '\t').append("<").append(name).append(">");
    appendEscaped(content);
    out_.append("</").append(name).append(">\n");
  }
  // A string is bytes: those that are not UTF-8 (a path may hold them) go out as they stand. A NUL
  // has no form in XML.
  void appendEscaped(std::string_view text) {
    for (const char c : text) {
      switch (c) {
        case '<':
          out_ += "&lt;";
          break;
        case '>':
          out_ += "&gt;";
          break;
        case '&':
          out_ += "&amp;";
          break;
        case '\r':
          out_ += "&#13;";
          break;
        case '\0':
          out_ += "\xEF\xBF\xBD";
          break;
        default:
          out_ += c;
      }
    }
  }

  std::string out_;
  std::size_t depth_ = 0;
};

// The XML form has whole seconds and four digits of the year.
void XmlWriter::append(PropertyListDate value) {
  constexpr chrono::seconds kFirst = chrono::sys_days(1y / chrono::January / 1) - kReferenceDay;
  constexpr chrono::seconds kEnd = chrono::sys_days(10000y / chrono::January / 1) - kReferenceDay;
  double total = std::floor(value.secondsSinceReferenceDate);
  if (std::isnan(total)) total = 0;
  total =
      std::clamp(total, static_cast<double>(kFirst.count()), static_cast<double>(kEnd.count() - 1));
  const auto time = kReferenceDay + chrono::seconds(static_cast<std::int64_t>(total));
  const auto day = chrono::floor<chrono::days>(time);
  const chrono::year_month_day date(day);
  const chrono::hh_mm_ss clock(time - day);
  std::array<char, 40> text;
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ",
                static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  element("date", text.data());
}

}  // namespace

OptionalString PropertyListValue::stringValue() const {
  const auto* text = std::get_if<std::string>(&value_);
  return text == nullptr ? std::nullopt : OptionalString(*text);
}

bool PropertyListValue::boolValue() const noexcept {
  if (const auto* truth = std::get_if<bool>(&value_)) return *truth;
  if (const auto* number = std::get_if<std::int64_t>(&value_)) return *number != 0;
  if (const auto* number = std::get_if<std::uint64_t>(&value_)) return *number != 0;
  if (const auto* number = std::get_if<double>(&value_)) return *number != 0;
  if (const auto* text = std::get_if<std::string>(&value_)) return platform::boolValue(*text);
  return false;
}

std::optional<PropertyListValue> propertyListFromBytes(std::string_view bytes) {
  if (bytes.size() > kMaximumSettingsFileSize) return std::nullopt;
  if (bytes.starts_with("bplist0")) return BinaryReader(bytes).read();
  if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF")) {
    const auto text = utf8FromUtf16(bytes.substr(2), bytes.starts_with("\xFE"));
    return text ? propertyListFromUtf8(*text) : std::nullopt;
  }
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  return propertyListFromUtf8(bytes);
}

std::optional<PropertyListDictionary> dictionaryWithContentsOfFile(const std::string& path) {
  std::string bytes;
  if (readSettingsFile(path, bytes) != 0) return std::nullopt;
  auto value = propertyListFromBytes(bytes);
  if (!value || value->dictionary() == nullptr) return std::nullopt;
  return std::move(*value->dictionary());
}

std::string xmlPropertyList(const PropertyListDictionary& dictionary) {
  return XmlWriter().write(dictionary);
}

bool writeDictionaryToFile(const PropertyListDictionary& dictionary, const std::string& path,
                           mode_t modeOfNew) {
  // A file that cannot be read again would be lost.
  const bool isReadable = std::all_of(dictionary.begin(), dictionary.end(), [](const auto& entry) {
    return isNestedWithinLimit(entry.second, 1);
  });
  if (!isReadable) return false;
  const std::string xml = xmlPropertyList(dictionary);
  return xml.size() <= kMaximumSettingsFileSize && replaceFile(path, xml, modeOfNew) == 0;
}

bool writeDictionaryToFile(const PropertyListDictionary& dictionary, const std::string& path) {
  return writeDictionaryToFile(dictionary, path, 0666);
}

}  // namespace platform
