#include "ClientComm/platform/linux/socket_endpoint.h"

#include <glib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "ClientComm/platform/glib/main_context.h"
#include "ClientComm/platform/linux/launch_record.h"
#include "ClientComm/platform/linux/process_record_writer.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/linux/source_priority.h"
#include "ClientComm/platform/reporter.h"

namespace clientcomm {
namespace {

// How long events are taken in one turn of the main loop before other sources have theirs: a
// quarter of a frame at 60 Hz.
constexpr std::chrono::milliseconds kTurnLimit{4};

// Well below the time for which a process without an endpoint counts as starting: later, a host
// would launch a second helper beside one that opens after all.
static_assert(kOpenRetryInterval * 2 < kLaunchLimit);

// Pause of accepting when the process is out of descriptors: the listening socket stays readable
// meanwhile, and without a pause the main loop would spin.
constexpr std::chrono::milliseconds kAcceptPause{100};

// How long an application that neither sends nor loses its files looks at them before it has the
// kernel watch them, which takes a descriptor. A host sends more often.
constexpr auto kQuietTime = 2 * kIdleVerifyInterval;

// How late a sender may send again, for the main loop not to wake up only to look at the files: a
// host, which ticks as often as the files are looked at.
constexpr std::chrono::milliseconds kSenderDelay{100};

constexpr DiagnosticCause kNotRecorded = DiagnosticCause::kOwnRecordNotWritten;

struct EndpointSource {
  GSource base;
  SocketEndpoint* endpoint;
};

gint64 microseconds(std::chrono::steady_clock::time_point time) {
  // GLib's monotonic time is the steady clock's.
  return std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
}

}  // namespace

SocketEndpoint::SocketEndpoint(const std::string& identifier,
                               AppleEventTransport::Receiver receiver, WireVersion highestVersion)
    : name_(identifier, highestVersion), server_(source_, std::move(receiver), highestVersion) {
  attachSource();
}

SocketEndpoint::~SocketEndpoint() {
  *isAlive_ = false;
  source_.reset();
}

void SocketEndpoint::attachSource() {
  static GSourceFuncs functions = {nullptr, nullptr, &SocketEndpoint::dispatch,
                                   nullptr, nullptr, nullptr};
  source_.reset(g_source_new(&functions, sizeof(EndpointSource)));
  reinterpret_cast<EndpointSource*>(source_.get())->endpoint = this;
  g_source_set_name(source_.get(), "ClientComm endpoint");
  g_source_set_priority(source_.get(), kCallPriority);
  // Otherwise GLib takes the source's descriptors off its poll for each dispatch and puts them back
  // after it, and wakes itself up for both.
  g_source_set_can_recurse(source_.get(), TRUE);
  attachToMainContext(source_.get());
}

OSErr SocketEndpoint::open(EndpointName::IfTaken ifTaken) {
  const OSErr status = takeName(ifTaken);
  lastVerified_ = lastLook_ = quietSince_ = Clock::now();
  scheduleWakeUp();
  return status;
}

OSErr SocketEndpoint::takeName(EndpointName::IfTaken ifTaken) {
  if (const OSErr status = name_.take(listener_, ifTaken); status != noErr) return status;
  listenerTag_ = g_source_add_unix_fd(source_.get(), listener_.get(), G_IO_IN);
  recordOwnProcess().report(kNotRecorded);  // without a record the process is known by its bundle
  return noErr;
}

SocketEndpoint::Clock::time_point SocketEndpoint::nextLook() const noexcept {
  if (files_.isOn()) return Clock::time_point::max();
  if (!listener_.isValid()) return lastLook_ + kOpenRetryInterval;
  const bool wasForSender = lastLook_ == lastVerified_;
  return lastLook_ + kIdleVerifyInterval + (wasForSender ? kSenderDelay : Clock::duration());
}

void SocketEndpoint::verify() {
  quietSince_ = Clock::now();
  if (quietSince_ - lastVerified_ < kVerifyInterval) return;
  lastVerified_ = quietSince_;
  look(lastVerified_);
  if (!isServing_) scheduleWakeUp();
}

/// @return whether the name leads here and the process is recorded.
bool SocketEndpoint::look(Clock::time_point now) {
  lastLook_ = now;
  // Tried again next time.
  const bool isRecorded = listener_.isValid() && recordOwnProcess().report(kNotRecorded);
  if (name_.leadsHere()) return isRecorded;
  if (name_.leadsElsewhere()) {
    report(DiagnosticCause::kEndpointTaken, runtimeFolderPath());
    return false;
  }
  if (listener_.isValid()) report(DiagnosticCause::kEndpointLost, runtimeFolderPath());
  // Deferred to the main loop: drain the old socket first.
  mustReopen_ = true;
  return false;
}

void SocketEndpoint::lookWhenDue(Clock::time_point now) {
  if (files_.hasFired()) {
    files_.stop();
    quietSince_ = now;
    // A second later: where the whole folder is being removed, no file is put into it meanwhile.
    lastLook_ = now + kVerifyInterval - kIdleVerifyInterval;
  }
  if (now < nextLook()) return;
  lastLook_ = now;  // where what follows throws
  // The watch begins before the look, so that no change between the two is missed. Where it cannot,
  // the looks go on.
  if (now - quietSince_ >= kQuietTime) files_.start(name_.fileName(), nameOfOwnRecord());
  if (!look(now)) files_.stop();
}

int SocketEndpoint::dispatch(GSource* source, GSourceFunc /*callback*/, void* /*data*/) noexcept {
  SocketEndpoint* const endpoint = reinterpret_cast<EndpointSource*>(source)->endpoint;
  const auto isAlive = endpoint->isAlive_;
  if (endpoint->isServing_) {
    endpoint->suspend();
    return G_SOURCE_CONTINUE;
  }
  endpoint->isServing_ = true;
  try {
    endpoint->takeEvents();
  } catch (...) {
    reportException();  // the event is dropped, which its sender sees as a closed connection
  }
  if (!*isAlive) return G_SOURCE_REMOVE;
  endpoint->isServing_ = false;
  if (!endpoint->isListening_) endpoint->resume();
  endpoint->scheduleWakeUp();
  return G_SOURCE_CONTINUE;
}

// A handler may run a main loop of its own. Events wait until it returns, each handled whole before
// the next, and that loop must not be woken by them again and again.
void SocketEndpoint::suspend() {
  isListening_ = false;
  watch(static_cast<GIOCondition>(0));
  g_source_set_ready_time(source_.get(), -1);
}

void SocketEndpoint::resume() {
  isListening_ = true;
  watch(G_IO_IN);
}

void SocketEndpoint::watch(GIOCondition condition) {
  if (listenerTag_ != nullptr && !isPaused_) {
    g_source_modify_unix_fd(source_.get(), listenerTag_, condition);
  }
  files_.poll(condition);
  server_.poll(condition);
}

void SocketEndpoint::takeEvents() {
  const auto isAlive = isAlive_;
  if (isPaused_) resumeAccepting();
  auto now = Clock::now();
  lookWhenDue(now);
  for (const auto end = now + kTurnLimit; *isAlive && now < end; now = Clock::now()) {
    if (serveNext(now)) continue;
    if (*isAlive && mustReopen_ && !isPaused_) reopen();
    return;
  }
}

/// @return whether to look for another event at once.
bool SocketEndpoint::serveNext(Clock::time_point now) {
  const auto isAlive = isAlive_;
  return server_.serveDue(now) || (*isAlive && acceptOne()) ||
         (*isAlive && server_.serveFirstPostponed());
}

void SocketEndpoint::reopen() {
  mustReopen_ = false;
  if (listenerTag_ != nullptr) g_source_remove_unix_fd(source_.get(), listenerTag_);
  listenerTag_ = nullptr;
  listener_.reset();
  files_.stop();
  open(EndpointName::IfTaken::kLeave);  // one that has opened since the look is newer
}

/// @return whether another connection may be waiting.
bool SocketEndpoint::acceptOne() {
  if (!listener_.isValid() || isPaused_) return false;
  PeerConnection connection{ScopedFd(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)), 0};
  const int socket = connection.socket.get();
  if (socket < 0) return handleAcceptError(errno);
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return true;
  if (peer.uid != geteuid()) {
    reportProcess(DiagnosticCause::kCallOfAnotherUser, peer.pid);
    return true;
  }
  connection.pid = peer.pid;
  const auto isAlive = isAlive_;
  server_.take(std::move(connection));
  return *isAlive;
}

/// @return whether to try again at once.
bool SocketEndpoint::handleAcceptError(int error) {
  if (error == EINTR || error == ECONNABORTED) return true;
  if (error == EAGAIN || error == EWOULDBLOCK) return false;
  const auto isAlive = isAlive_;
  if (server_.giveUpOne()) return *isAlive;
  pauseAccepting();
  report(DiagnosticCause::kAcceptingPaused, "", "accept4", error);
  return false;
}

void SocketEndpoint::pauseAccepting() {
  isPaused_ = true;
  g_source_modify_unix_fd(source_.get(), listenerTag_, static_cast<GIOCondition>(0));
}

void SocketEndpoint::resumeAccepting() {
  isPaused_ = false;
  if (listenerTag_ != nullptr) g_source_modify_unix_fd(source_.get(), listenerTag_, G_IO_IN);
}

void SocketEndpoint::scheduleWakeUp() {
  auto time = nextLook();
  if (const auto deadline = server_.firstDeadline()) time = std::min(time, *deadline);
  if (isPaused_) time = std::min(time, Clock::now() + kAcceptPause);
  const bool isDue = (mustReopen_ && !isPaused_) || server_.hasPostponed();
  g_source_set_ready_time(source_.get(), isDue ? 0 : microseconds(time));
}

}  // namespace clientcomm
