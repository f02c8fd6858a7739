#include "ClientComm/platform/call_record.h"

#include <algorithm>
#include <utility>

#include "ClientComm/platform/wire_format.h"

namespace clientcomm {
namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;

void addNumber(std::string& fields, std::int64_t number) {
  for (unsigned shift = 0; shift < 64; shift += 8) {
    fields += static_cast<char>(static_cast<std::uint64_t>(number) >> shift);
  }
}

}  // namespace

CallRecord::CallRecord(const AppleEventDescriptor& event, const Caller& caller) {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  addNumber(fields_, duration_cast<microseconds>(sinceEpoch).count());
  addNumber(fields_, caller.process);
  addText(caller.identifier, caller.identifier ? caller.identifier->size() : 0);
  addNumber(fields_, caller.wantsReply ? 1 : 0);
  const AppleEventDescriptor* const call = event.paramDescriptorForKeyword(keyDirectObject);
  addItem(call, 1);
  addItem(call, 2);
  const auto* const arguments = call == nullptr ? nullptr : call->descriptorAtIndex(3);
  const std::size_t count = arguments == nullptr ? 0 : arguments->numberOfItems();
  addNumber(fields_, static_cast<std::int64_t>(count));
  for (std::size_t k = 1; k <= std::min(count, kMaximumWatchedArguments); ++k) {
    addItem(arguments, k);
  }
}

void CallRecord::finish(OSErr status, const AppleEventDescriptor& reply) {
  const auto duration = std::chrono::steady_clock::now() - start_;
  addNumber(fields_, status);
  addDescriptor(reply.paramDescriptorForKeyword(keyDirectObject));
  addNumber(fields_, duration_cast<microseconds>(duration).count());
}

AppleEventDescriptor CallRecord::eventFor(std::uint32_t missed) const {
  std::string fields = fields_;
  addNumber(fields, missed);
  AppleEventDescriptor event = AppleEventDescriptor::appleEvent(
      kCallEventClass, kAnswerEventID, {}, kAutoGenerateReturnID, kAnyTransactionID);
  event.setParamDescriptor({kWatchRecordType, std::move(fields)}, keyDirectObject);
  return event;
}

/// @param size of the whole text in bytes.
void CallRecord::addText(const OptionalString& text, std::size_t size) {
  addNumber(fields_, text ? static_cast<std::int64_t>(size) : kNilText);
  if (text) fields_.append(*text, 0, kLongestWatchedText);
}

void CallRecord::addItem(const AppleEventDescriptor* list, std::size_t index) {
  addDescriptor(list == nullptr ? nullptr : list->descriptorAtIndex(index));
}

// A large text is cut before it is copied.
void CallRecord::addDescriptor(const AppleEventDescriptor* descriptor) {
  if (descriptor == nullptr) return addText({}, 0);
  const std::string& data = descriptor->data();
  if (data.size() > kLongestWatchedText) {
    const AppleEventDescriptor beginning(descriptor->descriptorType(),
                                         data.substr(0, kLongestWatchedText));
    return addText(beginning.stringValue(), data.size());
  }
  const OptionalString text = descriptor->stringValue();
  addText(text, text ? text->size() : 0);
}

}  // namespace clientcomm
