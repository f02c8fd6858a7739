#include <glib.h>
#include <locale.h>
#include <plist/plist.h>

#include <algorithm>
#include <array>
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

using namespace std::string_view_literals;

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
  if (tag.find('<', 1) != std::string_view::npos || tag.find('[') != std::string_view::npos)
    return {};
  const bool isQuoteOpen =
      std::count(tag.begin(), tag.end(), '"') % 2 != 0 || tag.find('\'') != std::string_view::npos;
  return isQuoteOpen ? std::string_view() : tag;
}

bool isXmlNestedWithinLimit(std::string_view text) {
  constexpr int kMaximumDepth = kMaximumPropertyListNesting + 2;  // the plist element and a leaf's
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

// Measures what a binary property list comes to when every reference is followed.
class BinaryGuard {
 public:
  explicit BinaryGuard(std::string_view bytes) : bytes_(bytes) {}

  bool isWithinLimits() {
    constexpr std::size_t kTrailerSize = 32;
    if (bytes_.size() < kTrailerSize + 9) return false;
    const std::size_t trailer = bytes_.size() - kTrailerSize;
    offsetSize_ = static_cast<unsigned char>(bytes_[trailer + 6]);
    referenceSize_ = static_cast<unsigned char>(bytes_[trailer + 7]);
    const std::uint64_t count = number(trailer + 8, 8);
    const std::uint64_t top = number(trailer + 16, 8);
    const std::uint64_t table = number(trailer + 24, 8);
    if (!isWordSize(offsetSize_) || !isWordSize(referenceSize_) || top >= count ||
        table >= trailer || count > (trailer - table) / offsetSize_) {
      return false;
    }
    table_ = static_cast<std::size_t>(table);
    measures_.resize(static_cast<std::size_t>(count));
    return measure(static_cast<std::size_t>(top), 0);
  }

 private:
  static constexpr std::uint64_t kMaximumExpandedSize = 4 * std::uint64_t{kMaximumSettingsFileSize};
  // What an object costs beyond its bytes, so that a million references to nothing count too.
  static constexpr std::uint64_t kObjectOverhead = 32;

  struct Measure {
    int height = 0;  // 0 while not yet known
    std::uint64_t expandedSize = 0;
  };
  struct Extent {
    std::size_t content = 0;
    std::size_t length = 0;  // in bytes
    bool isContainer = false;
  };

  static bool isWordSize(std::size_t size) { return size >= 1 && size <= 8; }

  std::uint64_t number(std::size_t at, std::size_t size) const {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
      value = (value << 8U) | static_cast<unsigned char>(bytes_[at + i]);
    }
    return value;
  }

  // Reads the marker at `at`, and the count behind it where there is one.
  std::optional<Extent> extentOf(std::size_t at) const {
    const unsigned marker = static_cast<unsigned char>(bytes_[at]);
    const unsigned kind = marker >> 4U;
    const unsigned low = marker & 0x0FU;
    if (kind == 0) return Extent{at + 1, 0, false};
    if (kind == 1 || kind == 2 || kind == 3)
      return bounded(at + 1, std::uint64_t{1} << low, 1, false);
    if (kind == 8) return bounded(at + 1, low + 1, 1, false);
    std::uint64_t count = low;
    std::size_t content = at + 1;
    if (low == 0x0F) {
      if (content >= table_ || (bytes_[content] & 0x70) != 0x10) return std::nullopt;
      const std::size_t size = std::size_t{1} << (static_cast<unsigned>(bytes_[content]) & 0x0FU);
      if (size > 8 || size > table_ - content - 1) return std::nullopt;
      count = number(content + 1, size);
      content += 1 + size;
    }
    if (kind == 4 || kind == 5) return bounded(content, count, 1, false);
    if (kind == 6) return bounded(content, count, 2, false);
    if (kind == 0xA) return bounded(content, count, referenceSize_, true);
    if (kind == 0xD) return bounded(content, count, 2 * referenceSize_, true);
    return std::nullopt;
  }

  std::optional<Extent> bounded(std::size_t content, std::uint64_t count, std::size_t unit,
                                bool isContainer) const {
    if (content > table_ || count > (table_ - content) / unit) return std::nullopt;
    return Extent{content, static_cast<std::size_t>(count) * unit, isContainer};
  }

  // Fails at once where the nesting is too deep, and so in a cycle too.
  bool measure(std::size_t index, int depth) {
    if (index >= measures_.size() || depth > kMaximumPropertyListNesting) return false;
    if (measures_[index].height > 0) {
      return depth + measures_[index].height <= kMaximumPropertyListNesting + 1;
    }
    const std::uint64_t at = number(table_ + index * offsetSize_, offsetSize_);
    if (at < 8 || at >= table_) return false;
    const auto extent = extentOf(static_cast<std::size_t>(at));
    if (!extent) return false;
    Measure result{1, kObjectOverhead + extent->length};
    for (std::size_t i = 0; extent->isContainer && i < extent->length; i += referenceSize_) {
      const std::uint64_t child = number(extent->content + i, referenceSize_);
      if (child >= measures_.size() || !measure(static_cast<std::size_t>(child), depth + 1)) {
        return false;
      }
      const Measure& childMeasure = measures_[static_cast<std::size_t>(child)];
      result.height = std::max(result.height, childMeasure.height + 1);
      result.expandedSize += childMeasure.expandedSize;
      if (result.expandedSize > kMaximumExpandedSize) return false;
    }
    measures_[index] = result;
    return true;
  }

  std::string_view bytes_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::size_t table_ = 0;
  std::vector<Measure> measures_;
};

// --- From libplist's nodes to values. ---

std::optional<PropertyListValue> valueOf(plist_t node);

// libplist keeps a negative integer as its two's complement, and tells it from a large unsigned one
// only by an inner length, which comparing with a node made here brings to light.
PropertyListValue integerOf(plist_t node) {
  std::uint64_t value = 0;
  plist_get_uint_val(node, &value);
  if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    const ScopedPlist eightBytes(plist_new_uint(value));
    if (plist_compare_node_value(node, eightBytes.get()) == 0) return value;
  }
  return static_cast<std::int64_t>(value);
}

double secondsSinceReferenceDate(int year, unsigned month, unsigned day, int secondsOfDay) {
  using namespace std::chrono;
  const sys_days date = std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day);
  const auto days = (date - sys_days(2001y / January / 1)).count();
  return static_cast<double>(days) * 86400.0 + secondsOfDay;
}

// libplist hands a date out in 32 bits, which hold some 68 years either side of 2001. Others, such
// as "the distant future", are taken from the text that it gives.
std::optional<PropertyListValue> dateOf(plist_t node) {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  plist_get_date_val(node, &seconds, &microseconds);
  using Limits = std::numeric_limits<std::int32_t>;
  if (seconds > Limits::min() && seconds < Limits::max()) {
    return PropertyListDate{seconds + microseconds / 1e6};
  }
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

std::optional<PropertyListValue> stringOf(plist_t node) {
  char* text = nullptr;
  if (plist_get_node_type(node) == PLIST_KEY) {
    plist_get_key_val(node, &text);
  } else {
    plist_get_string_val(node, &text);
  }
  const ScopedMemory<char> owner(text);
  if (text == nullptr) return std::nullopt;
  return PropertyListValue(text);
}

std::optional<PropertyListValue> dataOf(plist_t node) {
  char* bytes = nullptr;
  std::uint64_t length = 0;
  plist_get_data_val(node, &bytes, &length);
  const ScopedMemory<char> owner(bytes);
  PropertyListValue::Data data(bytes == nullptr ? 0 : static_cast<std::size_t>(length));
  std::transform(bytes, bytes + data.size(), data.begin(),
                 [](char c) { return static_cast<std::byte>(c); });
  return PropertyListValue(std::move(data));
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
  const auto* value = std::get_if<std::int64_t>(&dictionary.begin()->second.variant());
  if (value == nullptr || *value < 0) return std::nullopt;
  return PropertyListUID{static_cast<std::uint64_t>(*value)};
}

std::optional<PropertyListValue> dictionaryOf(plist_t node) {
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
  if (const auto uid = uidWrittenAs(dictionary)) return PropertyListValue(*uid);
  return PropertyListValue(std::move(dictionary));
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
    case PLIST_UID: {
      std::uint64_t value = 0;
      plist_get_uid_val(node, &value);
      return PropertyListValue(PropertyListUID{value});
    }
    case PLIST_DATE:
      return dateOf(node);
    case PLIST_STRING:
    case PLIST_KEY:
      return stringOf(node);
    case PLIST_DATA:
      return dataOf(node);
    case PLIST_ARRAY:
      return arrayOf(node);
    case PLIST_DICT:
      return dictionaryOf(node);
    case PLIST_NONE:
      break;
  }
  return std::nullopt;
}

std::optional<PropertyListValue> parsed(void (*parse)(const char*, std::uint32_t, plist_t*),
                                        std::string_view bytes) {
  const ScopedCLocale cLocale;
  plist_t node = nullptr;
  parse(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &node);
  const ScopedPlist owner(node);
  if (node == nullptr) return std::nullopt;
  return valueOf(node);
}

std::optional<PropertyListValue> propertyListFromUtf8(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  const std::string_view body = start == std::string_view::npos ? ""sv : text.substr(start);
  if (body.starts_with("<?") || body.starts_with("<!") || body.starts_with("<plist")) {
    if (body.find('\0') != std::string_view::npos || !isXmlNestedWithinLimit(body)) {
      return std::nullopt;
    }
    return parsed(plist_from_xml, body);
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
  using namespace std::chrono;
  constexpr sys_days kReference = 2001y / January / 1;
  constexpr auto kFirst = duration_cast<seconds>(sys_days(1y / January / 1) - kReference).count();
  constexpr auto kEnd = duration_cast<seconds>(sys_days(10000y / January / 1) - kReference).count();
  double total = std::floor(value.secondsSinceReferenceDate);
  if (std::isnan(total)) total = 0;
  total = std::clamp(total, static_cast<double>(kFirst), static_cast<double>(kEnd - 1));
  const auto time = kReference + seconds(static_cast<std::int64_t>(total));
  const auto day = floor<days>(time);
  const year_month_day date(day);
  const hh_mm_ss clock(time - day);
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
  if (bytes.starts_with("bplist0")) {
    if (!BinaryGuard(bytes).isWithinLimits()) return std::nullopt;
    return parsed(plist_from_bin, bytes);
  }
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

bool writeDictionaryToFile(const PropertyListDictionary& dictionary, const std::string& path) {
  return replaceFile(path, xmlPropertyList(dictionary)) == 0;
}

}  // namespace platform
