#include "ClientComm/platform/linux/call_watchers.h"

#include <utility>

#include "ClientComm/platform/linux/event_packet.h"

namespace clientcomm {
namespace {

constexpr std::uint32_t kNoToken = 0;

}  // namespace

void CallWatchers::add(ScopedFd socket, WireVersion version) noexcept {
  Watcher& place = watchers_[next_++ % watchers_.size()];
  if (place.socket.isValid()) drop(place);
  place = {std::move(socket), version};
  ++count_;
}

void CallWatchers::tell(const CallRecord& record) {
  for (Watcher& watcher : watchers_) {
    if (!watcher.socket.isValid()) continue;
    const OSErr sent = sendPacket(watcher.socket.get(), PacketKind::kReply, noErr,
                                  record.eventFor(watcher.missed), -1, kNoToken, watcher.version);
    watcher.missed = sent == noErr ? 0 : watcher.missed + 1;
    if (sent == connectionInvalid) drop(watcher);
  }
}

bool CallWatchers::dropAll() noexcept {
  if (isEmpty()) return false;
  for (Watcher& watcher : watchers_) watcher.socket.reset();
  count_ = 0;
  return true;
}

void CallWatchers::drop(Watcher& watcher) noexcept {
  watcher.socket.reset();
  --count_;
}

void WatchedCall::begin(const AppleEventDescriptor& event, const CallOrigin& origin) {
  CallRecord::Caller caller{origin.process, {}, origin.wantsReply};
  if (origin.sender != nullptr) caller.identifier = bundleIdentifierOfProcess(*origin.sender);
  record_.emplace(event, caller);
}

void WatchedCall::tell(CallWatchers& watchers, OSErr status, const AppleEventDescriptor& reply) {
  record_->finish(status, reply);
  watchers.tell(*record_);
}

}  // namespace clientcomm
