#include "examples/helper/call_backs.h"

#include <utility>

#include "ClientComm/TQHPAppleEventSender.h"

namespace sample {

CallBacks::~CallBacks() {
  if (source_ != 0) g_source_remove(source_);
}

void CallBacks::add(CallBack callBack) {
  queue_.push_back(std::move(callBack));
  if (source_ != 0) return;
  const GSourceFunc sendOne = [](gpointer data) -> gboolean {
    auto* const self = static_cast<CallBacks*>(data);
    if (self->sendNext()) return G_SOURCE_CONTINUE;
    self->source_ = 0;
    return G_SOURCE_REMOVE;
  };
  source_ = g_idle_add_full(G_PRIORITY_DEFAULT, sendOne, this, nullptr);
}

void CallBacks::flush() {
  while (sendNext()) {
  }
}

clientcomm::OSErr CallBacks::send(const CallBack& callBack) {
  return TQHPAppleEventSender::share().sendEvnet(callBack.bundleID, callBack.className,
                                                 callBack.selector, callBack.arguments);
}

bool CallBacks::sendNext() {
  if (!queue_.empty()) {
    const CallBack next = std::move(queue_.front());
    queue_.pop_front();
    const clientcomm::OSErr status = send(next);
    if (next.sent) next.sent(status);
  }
  return !queue_.empty();
}

}  // namespace sample
