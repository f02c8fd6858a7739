#include "ClientComm/platform/linux/socket_query.h"

#include <new>
#include <utility>

#include "ClientComm/platform/glib/main_context.h"
#include "ClientComm/platform/linux/launch_record.h"
#include "ClientComm/platform/linux/source_priority.h"
#include "ClientComm/platform/reporter.h"

namespace clientcomm {
namespace {

using std::chrono::milliseconds;

// Between tries while the target's queue is full, or while it is starting: longer than that of a
// sender that does nothing but wait.
constexpr milliseconds kQueryTryInterval{10};

struct QuerySource {
  GSource base;
  SocketQuery* query;
};

}  // namespace

SocketQuery::SocketQuery(std::shared_ptr<EventDelivery> delivery, AppleEventDescriptor event,
                         AppleEventTransport::ReplyHandler handler)
    : delivery_(std::move(delivery)), event_(std::move(event)), handler_(std::move(handler)) {
  static GSourceFuncs functions = {nullptr, nullptr, &SocketQuery::dispatch,
                                   nullptr, nullptr, nullptr};
  source_.reset(g_source_new(&functions, sizeof(QuerySource)));
  reinterpret_cast<QuerySource*>(source_.get())->query = this;
  g_source_set_name(source_.get(), "ClientComm query");
  g_source_set_priority(source_.get(), kCallPriority);
  attachToMainContext(source_.get());
  refusal_ = handOver();
  if (refusal_) wakeUpIn(milliseconds(0));
}

/// One try. @return why the event will not be sent.
std::optional<OSErr> SocketQuery::handOver() {
  std::size_t size = 0;
  if (const OSErr refusal = checkEvent(event_, size); refusal != noErr) return refusal;
  target_ = event_.target().data();
  OSErr status = delivery_->connect(target_, Deadline::now(), connection_);
  if (status == noErr) {
    noteReached(target_);
    status = delivery_->handOver(connection_, PacketKind::kEventWantingReply, event_, size);
  }
  if (status == noErr) {
    isHandedOver_ = true;
    event_ = {};
    g_source_add_unix_fd(source_.get(), connection_.socket.get(), G_IO_IN);
    wakeUpIn(kLivenessInterval);
    return std::nullopt;
  }
  const bool isStarting = status == procNotFound && isStillLaunching(target_);
  if (status != errAETimeout && !isStarting) {
    delivery_->reportFailure(target_, status);
    return status;
  }
  connection_ = {};
  wakeUpIn(kQueryTryInterval);
  return std::nullopt;
}

std::optional<OSErr> SocketQuery::checkForReply() {
  auto status = takeReply(connection_, target_, delivery_->highestVersion(), reply_);
  if (!status && !connection_.peerExists()) status = reportLost(target_, "kill");
  if (!status) wakeUpIn(kLivenessInterval);
  return status;
}

std::optional<OSErr> SocketQuery::proceed() noexcept {
  try {
    if (refusal_) return refusal_;
    return isHandedOver_ ? checkForReply() : handOver();
  } catch (const std::bad_alloc&) {
    reportException();
    return memFullErr;
  } catch (...) {
    reportException();
    return connectionInvalid;
  }
}

int SocketQuery::dispatch(GSource* source, GSourceFunc /*callback*/, void* /*data*/) noexcept {
  SocketQuery* const query = reinterpret_cast<QuerySource*>(source)->query;
  if (const auto status = query->proceed()) query->finish(*status);
  return G_SOURCE_CONTINUE;  // a query that has finished has destroyed its source
}

void SocketQuery::wakeUpIn(milliseconds time) {
  // GLib's monotonic time is the steady clock's.
  const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
  g_source_set_ready_time(source_.get(), g_get_monotonic_time() + microseconds);
}

// The handler may destroy this object.
void SocketQuery::finish(OSErr status) {
  source_.reset();
  connection_ = {};
  const auto handler = std::move(handler_);
  handler(status, std::move(reply_));
}

}  // namespace clientcomm
