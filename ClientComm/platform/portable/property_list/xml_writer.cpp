#include "ClientComm/platform/portable/property_list/xml_writer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "ClientComm/platform/portable/property_list/base64.h"
#include "ClientComm/platform/portable/property_list/value.h"
#include "ClientComm/platform/portable/property_list/xml_text.h"

namespace clientcomm {
namespace {

namespace chrono = std::chrono;
using namespace std::literals;  // of dates

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
    if (std::isnan(value)) return element("real", "nan");
    std::array<char, 40> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    element("real", {digits.data(), static_cast<std::size_t>(end - digits.data())});
  }
  void append(const std::string& value) {
    if (isXmlText(value)) return element("string", value);
    note(kStringNote);
    const auto* const bytes = reinterpret_cast<const std::byte*>(value.data());
    append(PropertyListValue::Data(bytes, bytes + value.size()));
  }
  void append(const PropertyListValue::Data& value) { element("data", base64FromData(value)); }
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
      appendKey(key);
      appendValue(value);
    }
    --depth_;
    line("</dict>");
  }
  void appendKey(const std::string& key) {
    if (isXmlText(key)) return element("key", key);
    note(kPercentEncodedNote);
    element("key", percentEncoded(key));
  }
  void appendValue(const PropertyListValue& value) {
    std::visit([this](const auto& held) { append(held); }, value.variant());
  }

  // Says how to read the next element.
  void note(std::string_view text) {
    line(std::string("<?").append(kXmlNoteTarget).append(" ").append(text).append("?>"));
  }
  void line(std::string_view text) { out_.append(depth_, '\t').append(text).push_back('\n'); }
  void element(std::string_view name, std::string_view content) {
    out_.append(depth_, '\t').append("<").append(name).append(">");
    appendEscaped(content);
    out_.append("</").append(name).append(">\n");
  }
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

std::string propertyListToXml(const PropertyListDictionary& dictionary) {
  return XmlWriter().write(dictionary);
}

}  // namespace clientcomm
