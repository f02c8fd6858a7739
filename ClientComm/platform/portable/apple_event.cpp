#include "ClientComm/platform/apple_event.h"

#include <cstring>
#include <new>

#include "ClientComm/platform/portable/apple_event_record.h"
#include "ClientComm/platform/text.h"

namespace clientcomm {

namespace {

const AppleEventDescriptor kNullDescriptor;
const AppleEventDescriptor::KeyedDescriptors kNoDescriptors;

bool isText(DescType type) {
  return type == typeUnicodeText || type == typeUTF8Text || type == typeChar;
}

template <typename Value>
std::optional<Value> valueFromData(const std::string& data) {
  if (data.size() != sizeof(Value)) return std::nullopt;
  Value value;
  std::memcpy(&value, data.data(), sizeof value);
  return value;
}

template <typename Value>
AppleEventDescriptor descriptorWithValue(DescType type, Value value) {
  return {type, std::string(reinterpret_cast<const char*>(&value), sizeof value)};
}

const AppleEventDescriptor* find(const AppleEventDescriptor::KeyedDescriptors& descriptors,
                                 AEKeyword keyword) {
  for (const auto& [key, descriptor] : descriptors) {
    if (key == keyword) return &descriptor;
  }
  return nullptr;
}

void set(AppleEventDescriptor::KeyedDescriptors& descriptors, AppleEventDescriptor value,
         AEKeyword keyword) {
  for (auto& [key, descriptor] : descriptors) {
    if (key == keyword) {
      descriptor = std::move(value);
      return;
    }
  }
  descriptors.emplace_back(keyword, std::move(value));
}

}  // namespace

AppleEventDescriptor::AppleEventDescriptor() noexcept : type_(typeNull) {}

AppleEventDescriptor::AppleEventDescriptor(DescType type, std::string data) noexcept
    : type_(type), data_(std::move(data)) {
  if (type == typeNull || type == typeAEList || type == typeAppleEvent) data_.clear();
}

AppleEventDescriptor::AppleEventDescriptor(const AppleEventDescriptor& other)
    : type_(other.type_),
      data_(other.data_),
      items_(other.items_),
      record_(copyOf(other.record_.get())) {}

AppleEventDescriptor::AppleEventDescriptor(AppleEventDescriptor&& other) noexcept = default;

AppleEventDescriptor& AppleEventDescriptor::operator=(const AppleEventDescriptor& other) {
  if (this != &other) *this = AppleEventDescriptor(other);
  return *this;
}

AppleEventDescriptor& AppleEventDescriptor::operator=(AppleEventDescriptor&& other) noexcept =
    default;

AppleEventDescriptor::~AppleEventDescriptor() = default;

AppleEventDescriptor AppleEventDescriptor::descriptorWithString(std::string text) {
  return {typeUnicodeText, std::move(text)};
}

void AppleEventDescriptor::assign(DescType type, std::string_view data) {
  type_ = type;
  data_.assign(data);
  items_.clear();
  record_.reset();
}

AppleEventDescriptor AppleEventDescriptor::listDescriptor() { return {typeAEList, {}}; }

AppleEventDescriptor AppleEventDescriptor::appleEvent(AEEventClass eventClass, AEEventID eventID,
                                                      AppleEventDescriptor target,
                                                      AEReturnID returnID,
                                                      AETransactionID transactionID) {
  AppleEventDescriptor event(typeAppleEvent, {});
  event.record_ = std::make_unique<Record>();
  Record& record = *event.record_;
  record.eventClass = eventClass;
  record.eventID = eventID;
  record.returnID = returnID;
  record.transactionID = transactionID;
  record.target = std::move(target);
  return event;
}

OptionalString AppleEventDescriptor::stringValue() && {
  if (isText(type_) || type_ == typeApplicationBundleID) return std::move(data_);
  return std::as_const(*this).stringValue();
}

OptionalString AppleEventDescriptor::stringValue() const& {
  if (isText(type_) || type_ == typeApplicationBundleID) return data_;
  if (type_ == typeAEList && numberOfItems() == 1) return descriptorAtIndex(1)->stringValue();
  if (type_ == typeSInt32) {
    if (const auto number = valueFromData<std::int32_t>(data_)) return std::to_string(*number);
  }
  if (type_ == typeBoolean && data_.size() == 1) return data_[0] != 0 ? "true" : "false";
  return std::nullopt;
}

std::optional<AppleEventDescriptor> AppleEventDescriptor::coerceToDescriptorType(
    DescType type) const {
  if (type == type_) return *this;
  if (type == typeAEList && type_ != typeNull) {
    AppleEventDescriptor list = listDescriptor();
    list.insertDescriptor(*this, 1);
    return list;
  }
  const OptionalString text = stringValue();
  if (!text) return std::nullopt;
  if (isText(type) || type == typeApplicationBundleID) return AppleEventDescriptor(type, *text);
  if (type == typeSInt32) return descriptorWithValue(type, intValue(*text));
  if (type == typeBoolean) return descriptorWithValue(type, boolValue(*text));
  return std::nullopt;
}

TextTable AppleEventDescriptor::takeTexts() {
  if (record_ != nullptr) return std::move(record_->texts);
  TextTable texts(items_.size());
  for (std::size_t k = 0; k < texts.size(); ++k) texts[k] = std::move(items_[k]).stringValue();
  return texts;
}

AppleEventDescriptor& AppleEventDescriptor::addItem() {
  if (record_ != nullptr) makeItems();
  return items_.emplace_back();
}

const AppleEventDescriptor* AppleEventDescriptor::descriptorAtIndex(std::size_t index) const {
  if (record_ != nullptr) makeItems();
  return index >= 1 && index <= items_.size() ? &items_[index - 1] : nullptr;
}

AppleEventDescriptor* AppleEventDescriptor::descriptorAtIndex(std::size_t index) {
  return const_cast<AppleEventDescriptor*>(std::as_const(*this).descriptorAtIndex(index));
}

void AppleEventDescriptor::insertDescriptor(AppleEventDescriptor item, std::size_t index) {
  if (type_ == typeNull) type_ = typeAEList;
  if (type_ != typeAEList) return;
  if (record_ != nullptr) makeItems();
  if (index >= 1 && index <= items_.size()) {
    items_[index - 1] = std::move(item);
  } else {
    items_.push_back(std::move(item));
  }
}

AEEventClass AppleEventDescriptor::eventClass() const noexcept {
  return record_ ? record_->eventClass : 0;
}

AEEventID AppleEventDescriptor::eventID() const noexcept { return record_ ? record_->eventID : 0; }

AEReturnID AppleEventDescriptor::returnID() const noexcept {
  return record_ ? record_->returnID : AEReturnID{0};
}

AETransactionID AppleEventDescriptor::transactionID() const noexcept {
  return record_ ? record_->transactionID : 0;
}

const AppleEventDescriptor& AppleEventDescriptor::target() const noexcept {
  return record_ ? record_->target : kNullDescriptor;
}

const AppleEventDescriptor* AppleEventDescriptor::paramDescriptorForKeyword(
    AEKeyword keyword) const noexcept {
  return find(parameters(), keyword);
}

AppleEventDescriptor* AppleEventDescriptor::paramDescriptorForKeyword(AEKeyword keyword) noexcept {
  return const_cast<AppleEventDescriptor*>(std::as_const(*this).paramDescriptorForKeyword(keyword));
}

const AppleEventDescriptor* AppleEventDescriptor::attributeDescriptorForKeyword(
    AEKeyword keyword) const noexcept {
  return find(attributes(), keyword);
}

void AppleEventDescriptor::setParamDescriptor(AppleEventDescriptor value, AEKeyword keyword) {
  if (isEvent()) set(record_->parameters, std::move(value), keyword);
}

void AppleEventDescriptor::setAttributeDescriptor(AppleEventDescriptor value, AEKeyword keyword) {
  if (isEvent()) set(record_->attributes, std::move(value), keyword);
}

const AppleEventDescriptor::KeyedDescriptors& AppleEventDescriptor::parameters() const noexcept {
  return record_ ? record_->parameters : kNoDescriptors;
}

const AppleEventDescriptor::KeyedDescriptors& AppleEventDescriptor::attributes() const noexcept {
  return record_ ? record_->attributes : kNoDescriptors;
}

}  // namespace clientcomm
