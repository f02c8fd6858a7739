#include <glib.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "platform/portable/property_list/value.h"
#include "platform/property_list.h"

namespace platform {
namespace {

namespace chrono = std::chrono;
using namespace std::literals;  // of dates

constexpr chrono::sys_days kReferenceDay = 2001y / chrono::January / 1;

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

std::string xmlPropertyList(const PropertyListDictionary& dictionary) {
  return XmlWriter().write(dictionary);
}

}  // namespace platform
