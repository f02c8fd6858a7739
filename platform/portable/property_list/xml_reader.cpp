#include "platform/portable/property_list/xml_reader.h"

#include <locale.h>
#include <plist/plist.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "platform/portable/property_list/value.h"

namespace platform {
namespace {

namespace chrono = std::chrono;
using namespace std::literals;  // of texts and dates

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

std::optional<PropertyListValue> valueOf(plist_t node);

// libplist keeps a negative integer as its two's complement, and tells it from a large unsigned one
// only by an inner length, which comparing with a node made here brings to light.
PropertyListValue integerOf(plist_t node) {
  std::uint64_t value = 0;
  plist_get_uint_val(node, &value);
  const ScopedPlist eightBytes(plist_new_uint(value));
  const bool isSigned = plist_compare_node_value(node, eightBytes.get()) != 0;
  return isSigned ? PropertyListValue(static_cast<std::int64_t>(value)) : integerValue(value);
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

}  // namespace

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

}  // namespace platform
