#include "ClientComm/platform/linux/poll_set.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace clientcomm {
namespace {

constexpr std::uint64_t kTimerSerial = 0;

// When a descriptor that could not be watched is looked at again, in milliseconds.
constexpr int kRetryInterval = 100;

int control(const ScopedFd& set, int operation, int fd, std::uint32_t events,
            std::uint64_t serial) noexcept {
  epoll_event event{};
  event.events = events;
  event.data.u64 = serial;
  return epoll_ctl(set.get(), operation, fd, &event);
}

}  // namespace

bool PollSet::open() {
  outer_.reset(epoll_create1(EPOLL_CLOEXEC));
  timer_.reset(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  return outer_.isValid() && timer_.isValid() && openInner() &&
         control(outer_, EPOLL_CTL_ADD, inner_.get(), EPOLLIN, 0) == 0;
}

bool PollSet::openInner() {
  ScopedFd inner(epoll_create1(EPOLL_CLOEXEC));
  if (!inner.isValid() || control(inner, EPOLL_CTL_ADD, timer_.get(), EPOLLIN, kTimerSerial) != 0) {
    return false;
  }
  inner_ = std::move(inner);
  return true;
}

bool PollSet::isReady() {
  epoll_event events[16];
  const int count = epoll_wait(inner_.get(), events, static_cast<int>(std::size(events)), 0);
  if (count <= 0) return false;
  const auto isLeftOver = [this](const epoll_event& event) { return !isCurrent(event.data.u64); };
  if (std::any_of(events, events + count, isLeftOver)) rebuild();
  return true;
}

bool PollSet::isCurrent(std::uint64_t serial) const {
  return serial == kTimerSerial || std::ranges::any_of(watched_, [serial](const Watched& entry) {
           return entry.serial == serial;
         });
}

// A closed descriptor stays in the set as long as a forked process has a copy of it, and can then
// be removed neither by its number nor in another way. The host keeps its descriptor, the outer
// one. It may have closed it, and have another file under the same number.
void PollSet::rebuild() {
  ScopedFd former = std::move(inner_);
  if (!openInner()) {
    inner_ = std::move(former);
    return;
  }
  watched_.clear();
  if (control(outer_, EPOLL_CTL_DEL, former.get(), 0, 0) == 0) {
    control(outer_, EPOLL_CTL_ADD, inner_.get(), EPOLLIN, 0);
  }
}

void PollSet::watch(std::span<const pollfd> entries, int timeout) {
  std::vector<Watched> watched;
  bool isComplete = true;
  for (const pollfd& entry : entries) {
    if (entry.events != 0) isComplete = add(entry, watched) && isComplete;
  }
  for (const Watched& entry : watched_) {
    const auto isSame = [&entry](const Watched& other) { return other.fd == entry.fd; };
    if (std::ranges::any_of(watched, isSame)) continue;
    control(inner_, EPOLL_CTL_DEL, entry.fd, 0, 0);
  }
  watched_ = std::move(watched);
  const bool isSoon = timeout >= 0 && timeout < kRetryInterval;
  setTimer(isComplete || isSoon ? timeout : kRetryInterval);
}

/// @return false when the system watches no more descriptors.
bool PollSet::add(const pollfd& entry, std::vector<Watched>& watched) {
  const auto events = static_cast<std::uint32_t>(entry.events);
  const auto known = std::ranges::find_if(
      watched_, [&entry](const Watched& other) { return other.fd == entry.fd; });
  // It may be another file by now, under the number of one that was closed.
  if (known != watched_.end() &&
      control(inner_, EPOLL_CTL_MOD, entry.fd, events, known->serial) == 0) {
    watched.push_back(*known);
    return true;
  }
  const std::uint64_t serial = ++lastSerial_;
  if (control(inner_, EPOLL_CTL_ADD, entry.fd, events, serial) != 0) return false;
  watched.push_back({entry.fd, serial});
  return true;
}

void PollSet::setTimer(int timeout) const {
  itimerspec time{};  // zero for never
  if (timeout >= 0) {
    time.it_value.tv_sec = timeout / 1000;
    time.it_value.tv_nsec = timeout > 0 ? timeout % 1000 * 1'000'000L : 1;
  }
  timerfd_settime(timer_.get(), 0, &time, nullptr);
}

}  // namespace clientcomm
