#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/platform/property_list.h"

namespace clientcomm {

/// Builds the value of an XML property list from the list's elements as a parser meets them.
///
/// Each function returns whether the list is still well-formed; after a false the value is lost.
/// The list is the content of a "plist" element, or is the outermost element itself.
class XmlListBuilder {
 public:
  /// @param note what the processing instruction in front of the element says of it; see
  /// xml_text.h.
  [[nodiscard]] bool beginElement(std::string_view name, std::string_view note);
  [[nodiscard]] bool addText(std::string_view text);
  [[nodiscard]] bool endElement();

  /// The list; nothing when there was none, or it is nested too deep.
  std::optional<PropertyListValue> takeList();

 private:
  enum class Element {
    kPlist,
    kDictionary,
    kArray,
    kKey,
    kString,
    kData,
    kDate,
    kInteger,
    kReal,
    kTrue,
    kFalse,
  };
  static std::optional<Element> elementNamed(std::string_view name);

  struct Container {
    Element element;
    PropertyListValue::Array items;  // of a plist too: its only value
    PropertyListDictionary entries;
    std::optional<std::string> key;  // the one that awaits its value
  };
  struct Leaf {
    Element element;
    std::string note;
    std::string text;
  };

  bool isAllowedHere(Element element) const;
  bool endLeaf();
  bool endContainer();
  std::optional<PropertyListValue> valueOf(const Leaf& leaf) const;
  bool setKey(Leaf leaf);
  bool addValue(PropertyListValue value);

  std::vector<Container> containers_;
  std::optional<Leaf> leaf_;
  std::optional<PropertyListValue> list_;
};

}  // namespace clientcomm
