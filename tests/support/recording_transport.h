#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/platform/apple_event_transport.h"

namespace support {

/// The sender's address as an event carries it: the serial number of the process `pid`. The null
/// descriptor for a process that runs no application bundle.
clientcomm::AppleEventDescriptor addressOfProcess(pid_t pid);

/// A call event as an application of the family sends it, spelled out code by code.
clientcomm::AppleEventDescriptor callEvent(const std::string& className,
                                           const std::string& selector,
                                           const std::vector<std::string>& arguments);

/// A call that was handed to the transport.
struct RecordedCall {
  std::string target;
  std::string className;
  std::string selector;
  std::vector<std::string> arguments;
  clientcomm::AESendMode sendMode = 0;
  std::int32_t timeOut = 0;
  clientcomm::AppleEventDescriptor event;  ///< As it was sent.
};

/// What came back for an event that was delivered.
struct Answer {
  clientcomm::OSErr status = clientcomm::noErr;
  clientcomm::AppleEventDescriptor reply;
  clientcomm::OptionalString text;  ///< The reply's direct parameter; nil without one.
};

/// Carries nothing: keeps what is sent, answers as it was told to, and delivers events to this
/// process on demand.
class RecordingTransport : public clientcomm::AppleEventTransport {
 public:
  /// Puts a new one in place of the process's transport, which then owns it.
  static RecordingTransport& install();

  const std::vector<RecordedCall>& calls() const { return calls_; }
  /// The selectors of the calls, in the order sent.
  std::vector<std::string> selectors() const;
  int countOf(std::string_view selector) const;
  /// The last call; a failure and an empty one when nothing was sent.
  RecordedCall last() const;
  void forget() { calls_.clear(); }

  /// The status of every send, and of the sends of one selector, which goes before.
  void setStatus(clientcomm::OSErr status) { status_ = status; }
  void setStatus(const std::string& selector, clientcomm::OSErr status) {
    statuses_[selector] = status;
  }
  /// The text with which calls of `selector` are answered; without one the reply is empty.
  void setReply(const std::string& selector, const std::string& text) { replies_[selector] = text; }
  /// The process that takes what is sent from now on; another number is another process.
  void setRecipient(std::uint64_t process) { recipient_ = process; }
  /// Leaves queries of `selector` unanswered until `release`, as a helper that is busy or stopped.
  void hold(const std::string& selector) { held_.insert(selector); }
  void release(const std::string& selector) { held_.erase(selector); }
  /// Runs `action` in the middle of every send, after it was recorded.
  void whenSending(std::function<void(const RecordedCall&)> action) {
    whenSending_ = std::move(action);
  }

  /// Whether this process takes events.
  bool isReceiving() const { return receiver_ != nullptr; }
  /// Hands `event` to this process as it stands.
  Answer deliver(const clientcomm::AppleEventDescriptor& event);
  /// Hands a call to this process, as from the application that runs as `caller`.
  Answer call(const std::string& className, const std::string& selector,
              const std::vector<std::string>& arguments = {}, pid_t caller = getpid());

  clientcomm::OSErr send(const clientcomm::AppleEventDescriptor& event,
                         clientcomm::AppleEventDescriptor& reply, clientcomm::AESendMode sendMode,
                         std::int32_t timeOutInTicks) override;
  /// The answer is that of the moment in which it is given, a millisecond after the query at the
  /// earliest.
  std::unique_ptr<clientcomm::PendingReply> query(clientcomm::AppleEventDescriptor event,
                                                  ReplyHandler handler) override;
  std::uint64_t lastRecipient() const override { return recipient_; }
  clientcomm::OSErr startReceiving(Receiver receiver) override;
  void stopReceiving() override { receiver_ = nullptr; }

 private:
  class Query;

  void record(const clientcomm::AppleEventDescriptor& event, clientcomm::AESendMode sendMode,
              std::int32_t timeOutInTicks);
  clientcomm::OSErr statusOf(const std::string& selector) const;
  clientcomm::AppleEventDescriptor replyTo(const std::string& selector) const;

  std::vector<RecordedCall> calls_;
  std::set<std::string> held_;
  clientcomm::OSErr status_ = clientcomm::noErr;
  std::map<std::string, clientcomm::OSErr> statuses_;
  std::map<std::string, std::string> replies_;
  std::function<void(const RecordedCall&)> whenSending_;
  std::uint64_t recipient_ = 1;
  Receiver receiver_;
};

/// How a failed expectation shows a call.
std::ostream& operator<<(std::ostream& stream, const RecordedCall& call);

}  // namespace support
