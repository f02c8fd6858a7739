#include "ClientComm/platform/portable/apple_event_record.h"

#include <utility>

// What is not done for each call, or is large: compiled for size.
namespace clientcomm {

AppleEventDescriptor::Record::~Record() = default;

std::unique_ptr<AppleEventDescriptor::Record> AppleEventDescriptor::copyOf(const Record* record) {
  return record == nullptr ? nullptr : std::make_unique<Record>(*record);
}

AppleEventDescriptor AppleEventDescriptor::listOfTexts(TextTable texts) {
  AppleEventDescriptor list = listDescriptor();
  list.record_ = std::make_unique<Record>();
  list.record_->texts = std::move(texts);
  return list;
}

std::size_t AppleEventDescriptor::numberOfItems() const noexcept {
  return record_ == nullptr ? items_.size() : record_->texts.size();
}

void AppleEventDescriptor::makeItems() const {
  if (type_ != typeAEList) return;
  TextTable& texts = record_->texts;
  std::vector<AppleEventDescriptor> items(texts.size());
  for (std::size_t i = 0; i < texts.size(); ++i) {
    items[i] = descriptorWithString(*std::move(texts[i]));
  }
  items_ = std::move(items);
  record_.reset();
}

}  // namespace clientcomm
