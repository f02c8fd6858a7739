#include "ClientComm/platform/linux/idle_connections.h"

#include <poll.h>

#include <algorithm>
#include <utility>

namespace clientcomm {
namespace {

bool isReadable(int socket) noexcept {
  pollfd entry{socket, POLLIN, 0};
  return ::poll(&entry, 1, 0) > 0;
}

}  // namespace

void IdleConnections::add(PeerConnection connection) {
  void* const tag = g_source_add_unix_fd(source_.get(), connection.socket.get(), G_IO_IN);
  entries_.push_back({std::move(connection), Clock::now() + kIdleLimit, tag});
}

std::optional<PeerConnection> IdleConnections::takeDue(Clock::time_point now) {
  const auto due = std::ranges::find_if(entries_, [&](const Entry& entry) {
    return now >= entry.deadline || g_source_query_unix_fd(source_.get(), entry.tag) != 0;
  });
  return due != entries_.end() ? std::optional(take(due)) : std::nullopt;
}

std::optional<PeerConnection> IdleConnections::takeReadableOf(pid_t pid) {
  const auto found = std::ranges::find_if(entries_, [&](const Entry& entry) {
    return entry.connection.pid == pid && isReadable(entry.connection.socket.get());
  });
  return found != entries_.end() ? std::optional(take(found)) : std::nullopt;
}

void IdleConnections::poll(GIOCondition condition) {
  for (const Entry& entry : entries_) {
    g_source_modify_unix_fd(source_.get(), entry.tag, condition);
  }
}

PeerConnection IdleConnections::take(Entries::iterator entry) {
  g_source_remove_unix_fd(source_.get(), entry->tag);
  PeerConnection connection = std::move(entry->connection);
  entries_.erase(entry);
  return connection;
}

}  // namespace clientcomm
