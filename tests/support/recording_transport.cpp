#include "tests/support/recording_transport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/process_manager.h"
#include "ClientComm/platform/timer.h"

namespace support {
namespace {

using clientcomm::AppleEventDescriptor;

// 'aevt', 'call', 'ansr', 'psn ', 'addr' and '----'.
constexpr clientcomm::AEEventClass kEventClass = 0x61657674;
constexpr clientcomm::AEEventID kCall = 0x63616c6c;
constexpr clientcomm::AEEventID kAnswer = 0x616e7372;
constexpr clientcomm::DescType kSerialNumber = 0x70736e20;
constexpr clientcomm::AEKeyword kAddress = 0x61646472;
constexpr clientcomm::AEKeyword kDirectParameter = 0x2D2D2D2D;

AppleEventDescriptor textDescriptor(const std::string& text) {
  return AppleEventDescriptor::descriptorWithString(text);
}

std::string textAt(const AppleEventDescriptor& list, std::size_t index) {
  const AppleEventDescriptor* const item = list.descriptorAtIndex(index);
  const auto text = item == nullptr ? std::nullopt : item->stringValue();
  EXPECT_TRUE(text.has_value()) << "item " << index << " of a call is no text";
  return text.value_or(std::string());
}

RecordedCall recordOf(const AppleEventDescriptor& event) {
  RecordedCall call;
  call.event = event;
  call.target = event.target().data();
  const AppleEventDescriptor* const list = event.paramDescriptorForKeyword(kDirectParameter);
  if (list == nullptr) {
    ADD_FAILURE() << "an event without a direct parameter was sent";
    return call;
  }
  call.className = textAt(*list, 1);
  call.selector = textAt(*list, 2);
  const AppleEventDescriptor* const arguments = list->descriptorAtIndex(3);
  if (arguments == nullptr) {
    ADD_FAILURE() << "a call without a list of arguments was sent";
    return call;
  }
  for (std::size_t k = 1; k <= arguments->numberOfItems(); ++k) {
    call.arguments.push_back(textAt(*arguments, k));
  }
  return call;
}

}  // namespace

AppleEventDescriptor addressOfProcess(pid_t pid) {
  clientcomm::ProcessSerialNumber psn;
  if (clientcomm::GetProcessForPID(pid, psn) != clientcomm::noErr) return {};
  return {kSerialNumber, std::string(reinterpret_cast<const char*>(&psn), sizeof psn)};
}

AppleEventDescriptor callEvent(const std::string& className, const std::string& selector,
                               const std::vector<std::string>& arguments) {
  AppleEventDescriptor list = AppleEventDescriptor::listDescriptor();
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    list.insertDescriptor(textDescriptor(arguments[i]), i + 1);
  }
  AppleEventDescriptor call = AppleEventDescriptor::listDescriptor();
  call.insertDescriptor(textDescriptor(className), 1);
  call.insertDescriptor(textDescriptor(selector), 2);
  call.insertDescriptor(std::move(list), 3);
  AppleEventDescriptor event = AppleEventDescriptor::appleEvent(kEventClass, kCall, {}, -1, 0);
  event.setParamDescriptor(std::move(call), kDirectParameter);
  return event;
}

RecordingTransport& RecordingTransport::install() {
  auto transport = std::make_unique<RecordingTransport>();
  RecordingTransport& installed = *transport;
  clientcomm::AppleEventManager::sharedAppleEventManager().setTransport(std::move(transport));
  return installed;
}

std::vector<std::string> RecordingTransport::selectors() const {
  std::vector<std::string> selectors;
  for (const RecordedCall& call : calls_) selectors.push_back(call.selector);
  return selectors;
}

int RecordingTransport::countOf(std::string_view selector) const {
  return static_cast<int>(
      std::count_if(calls_.begin(), calls_.end(),
                    [&](const RecordedCall& call) { return call.selector == selector; }));
}

RecordedCall RecordingTransport::last() const {
  if (!calls_.empty()) return calls_.back();
  ADD_FAILURE() << "nothing was sent";
  return {};
}

Answer RecordingTransport::deliver(const AppleEventDescriptor& event) {
  Answer answer;
  if (!receiver_) {
    answer.status = clientcomm::procNotFound;
    return answer;
  }
  answer.reply = AppleEventDescriptor::appleEvent(kEventClass, kAnswer, {}, -1, 0);
  answer.status = receiver_(event, answer.reply);
  if (const auto* const text = answer.reply.paramDescriptorForKeyword(kDirectParameter)) {
    answer.text = text->stringValue();
  }
  return answer;
}

Answer RecordingTransport::call(const std::string& className, const std::string& selector,
                                const std::vector<std::string>& arguments, pid_t caller) {
  AppleEventDescriptor event = callEvent(className, selector, arguments);
  event.setAttributeDescriptor(addressOfProcess(caller), kAddress);
  return deliver(event);
}

void RecordingTransport::record(const AppleEventDescriptor& event, clientcomm::AESendMode sendMode,
                                std::int32_t timeOutInTicks) {
  RecordedCall call = recordOf(event);
  call.sendMode = sendMode;
  call.timeOut = timeOutInTicks;
  calls_.push_back(call);
  if (whenSending_) whenSending_(call);
}

clientcomm::OSErr RecordingTransport::statusOf(const std::string& selector) const {
  const auto scripted = statuses_.find(selector);
  return scripted == statuses_.end() ? status_ : scripted->second;
}

AppleEventDescriptor RecordingTransport::replyTo(const std::string& selector) const {
  AppleEventDescriptor reply = AppleEventDescriptor::appleEvent(kEventClass, kAnswer, {}, -1, 0);
  if (const auto text = replies_.find(selector); text != replies_.end()) {
    reply.setParamDescriptor(textDescriptor(text->second), kDirectParameter);
  }
  return reply;
}

clientcomm::OSErr RecordingTransport::send(const AppleEventDescriptor& event,
                                           AppleEventDescriptor& reply,
                                           clientcomm::AESendMode sendMode,
                                           std::int32_t timeOutInTicks) {
  record(event, sendMode, timeOutInTicks);
  const std::string selector = calls_.back().selector;
  const clientcomm::OSErr status = statusOf(selector);
  if (status != clientcomm::noErr || sendMode != clientcomm::kAEWaitReply) return status;
  reply = replyTo(selector);
  return status;
}

/// Looks every millisecond whether it is to be answered.
class RecordingTransport::Query final : public clientcomm::PendingReply {
 public:
  Query(const RecordingTransport& recorder, std::string selector, ReplyHandler handler)
      : recorder_(recorder),
        selector_(std::move(selector)),
        handler_(std::move(handler)),
        timer_(clientcomm::Timer::scheduledTimer(std::chrono::milliseconds(1),
                                                 [this](clientcomm::Timer&) { look(); })) {}

 private:
  void look() {
    if (recorder_.held_.contains(selector_)) return;
    timer_->invalidate();
    const clientcomm::OSErr status = recorder_.statusOf(selector_);
    const auto handler = std::move(handler_);
    handler(status,
            status == clientcomm::noErr ? recorder_.replyTo(selector_) : AppleEventDescriptor());
  }

  const RecordingTransport& recorder_;
  std::string selector_;
  ReplyHandler handler_;
  std::unique_ptr<clientcomm::Timer> timer_;
};

std::unique_ptr<clientcomm::PendingReply> RecordingTransport::query(AppleEventDescriptor event,
                                                                    ReplyHandler handler) {
  record(event, clientcomm::kAEWaitReply, clientcomm::kNoTimeOut);
  return std::make_unique<Query>(*this, calls_.back().selector, std::move(handler));
}

clientcomm::OSErr RecordingTransport::startReceiving(Receiver receiver) {
  receiver_ = std::move(receiver);
  return clientcomm::noErr;
}

std::ostream& operator<<(std::ostream& stream, const RecordedCall& call) {
  stream << call.className << " " << call.selector << " (";
  for (const std::string& argument : call.arguments) stream << '"' << argument << "\" ";
  return stream << ") to " << call.target;
}

}  // namespace support
