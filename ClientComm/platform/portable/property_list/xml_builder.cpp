#include "ClientComm/platform/portable/property_list/xml_builder.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <variant>

#include "ClientComm/platform/fixed_text.h"
#include "ClientComm/platform/portable/property_list/base64.h"
#include "ClientComm/platform/portable/property_list/value.h"
#include "ClientComm/platform/portable/property_list/xml_scalars.h"
#include "ClientComm/platform/portable/property_list/xml_text.h"

namespace clientcomm {
namespace {

bool isBlank(std::string_view text) { return std::ranges::all_of(text, isXmlBlank); }

// XML has no element for a keyed-archive reference: it is written as a dictionary of one key.
std::optional<PropertyListUID> uidWrittenAs(const PropertyListDictionary& dictionary) {
  if (dictionary.size() != 1 || dictionary.begin()->first != kUidKey) return std::nullopt;
  const PropertyListValue::Variant& value = dictionary.begin()->second.variant();
  if (const auto* large = std::get_if<std::uint64_t>(&value)) return PropertyListUID{*large};
  const auto* number = std::get_if<std::int64_t>(&value);
  if (number == nullptr || *number < 0) return std::nullopt;
  return PropertyListUID{static_cast<std::uint64_t>(*number)};
}

std::optional<PropertyListValue> dataValue(std::string_view text) {
  auto data = dataFromBase64(text);
  return data ? std::optional(PropertyListValue(std::move(*data))) : std::nullopt;
}

std::optional<PropertyListValue> stringInData(std::string_view text) {
  const auto data = dataFromBase64(text);
  if (!data) return std::nullopt;
  return PropertyListValue(std::string(reinterpret_cast<const char*>(data->data()), data->size()));
}

}  // namespace

std::optional<XmlListBuilder::Element> XmlListBuilder::elementNamed(std::string_view name) {
  struct Name {
    FixedText<7> name;
    Element element;
  };
  static constexpr Name kNames[] = {
      {"plist", Element::kPlist}, {"dict", Element::kDictionary}, {"array", Element::kArray},
      {"key", Element::kKey},     {"string", Element::kString},   {"data", Element::kData},
      {"date", Element::kDate},   {"integer", Element::kInteger}, {"real", Element::kReal},
      {"true", Element::kTrue},   {"false", Element::kFalse}};
  for (const Name& known : kNames) {
    if (known.name == name) return known.element;
  }
  return std::nullopt;
}

bool XmlListBuilder::isAllowedHere(Element element) const {
  if (leaf_) return false;
  if (containers_.empty()) return element != Element::kKey;
  if (element == Element::kPlist) return false;
  const Container& parent = containers_.back();
  switch (parent.element) {
    case Element::kDictionary:
      return parent.key.has_value() != (element == Element::kKey);
    case Element::kPlist:
      return parent.items.empty() && element != Element::kKey;
    default:
      return element != Element::kKey;
  }
}

bool XmlListBuilder::beginElement(std::string_view name, std::string_view note) {
  // The plist element, the containers around the deepest value, and a dictionary that stands for a
  // keyed-archive reference there.
  constexpr std::size_t kMostContainers = kMaximumPropertyListNesting + 2;
  const auto element = elementNamed(name);
  if (!element || !isAllowedHere(*element)) return false;
  if (*element > Element::kArray) {
    leaf_ = Leaf{*element, std::string(note), {}};
    return true;
  }
  if (containers_.size() == kMostContainers) return false;
  containers_.push_back({*element, {}, {}, std::nullopt});
  return true;
}

bool XmlListBuilder::addText(std::string_view text) {
  if (!leaf_) return isBlank(text);
  leaf_->text += text;
  return true;
}

bool XmlListBuilder::endElement() { return leaf_ ? endLeaf() : endContainer(); }

bool XmlListBuilder::endLeaf() {
  Leaf leaf = std::move(*leaf_);
  leaf_.reset();
  if (leaf.element == Element::kKey) return setKey(std::move(leaf));
  auto value = valueOf(leaf);
  return value && addValue(std::move(*value));
}

std::optional<PropertyListValue> XmlListBuilder::valueOf(const Leaf& leaf) const {
  switch (leaf.element) {
    case Element::kString:
      return PropertyListValue(leaf.text);
    case Element::kData:
      return leaf.note == kStringNote ? stringInData(leaf.text) : dataValue(leaf.text);
    case Element::kDate:
      return dateFromText(leaf.text);
    case Element::kInteger:
      return integerFromText(leaf.text);
    case Element::kReal:
      return realFromText(leaf.text);
    case Element::kTrue:
    case Element::kFalse:
      if (!isBlank(leaf.text)) return std::nullopt;
      return PropertyListValue(leaf.element == Element::kTrue);
    default:
      return std::nullopt;
  }
}

bool XmlListBuilder::setKey(Leaf leaf) {
  std::optional<std::string>& key = containers_.back().key;
  if (leaf.note == kPercentEncodedNote) key = percentDecoded(leaf.text);
  if (!key) key = std::move(leaf.text);
  return true;
}

bool XmlListBuilder::endContainer() {
  Container ended = std::move(containers_.back());
  containers_.pop_back();
  switch (ended.element) {
    case Element::kPlist:
      if (ended.items.empty()) return false;
      return addValue(std::move(ended.items.front()));
    case Element::kArray:
      return addValue(std::move(ended.items));
    default:
      break;
  }
  if (ended.key) return false;
  // A list's top value is no reference, whatever its only key is called: a settings file stays one.
  const bool isTop = containers_.empty() || containers_.back().element == Element::kPlist;
  const auto uid = isTop ? std::nullopt : uidWrittenAs(ended.entries);
  return addValue(uid ? PropertyListValue(*uid) : PropertyListValue(std::move(ended.entries)));
}

bool XmlListBuilder::addValue(PropertyListValue value) {
  if (containers_.empty()) {
    list_ = std::move(value);
    return true;
  }
  Container& parent = containers_.back();
  if (parent.element != Element::kDictionary) {
    parent.items.push_back(std::move(value));
    return true;
  }
  parent.entries.insert_or_assign(std::move(*parent.key), std::move(value));
  parent.key.reset();
  return true;
}

std::optional<PropertyListValue> XmlListBuilder::takeList() {
  if (!list_ || !isNestedWithinLimit(*list_)) return std::nullopt;
  return std::move(list_);
}

}  // namespace clientcomm
