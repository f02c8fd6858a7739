#include "ClientComm/platform/linux/peer_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <optional>
#include <string_view>

#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/posix/io.h"

namespace clientcomm {
namespace {

// The socket option of Linux 6.5, which the headers of earlier systems lack.
#ifdef SO_PEERPIDFD
constexpr int kPeerPidfdOption = SO_PEERPIDFD;
#else
constexpr int kPeerPidfdOption = 77;
#endif

std::optional<pid_t> numberAtStart(std::string_view text) noexcept {
  pid_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return result.ec == std::errc() ? std::optional(number) : std::nullopt;
}

// The ID of the process behind a pidfd, in the namespace that /proc belongs to: 0 when it is not
// seen there, -1 once it is reaped.
std::optional<pid_t> idInFdInfo(int pidfd) noexcept {
  const ScopedFd file(open(ProcPath::ofDescriptorInfo(pidfd).c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, 512> bytes;
  const ssize_t length = file.isValid() ? readSome(file.get(), bytes.data(), bytes.size()) : -1;
  if (length <= 0) return std::nullopt;
  const std::string_view text(bytes.data(), static_cast<std::size_t>(length));
  constexpr std::string_view kField = "\nPid:\t";
  const auto field = text.find(kField);
  if (field == std::string_view::npos) return std::nullopt;
  return numberAtStart(text.substr(field + kField.size()));
}

// Whether /proc names processes by the IDs that this process knows them by.
bool isProcOfThisNamespace() noexcept {
  std::array<char, 16> target;
  const ssize_t length = readlink(ProcPath::ofThisProcess().c_str(), target.data(), target.size());
  if (length <= 0) return false;
  return numberAtStart({target.data(), static_cast<std::size_t>(length)}) == getpid();
}

}  // namespace

PeerProcess::PeerProcess(pid_t pid, int socket) noexcept : pid_(pid) {
  if (socket < 0) return;
  int descriptor = -1;
  socklen_t size = sizeof descriptor;
  if (getsockopt(socket, SOL_SOCKET, kPeerPidfdOption, &descriptor, &size) == 0) {
    pidfd_.reset(descriptor);
  } else {
    // Later kernels hand out a pidfd of a reaped process too; earlier ones report one of these.
    isReaped_ = errno == ESRCH || errno == EINVAL;
  }
}

pid_t PeerProcess::idInProc() const noexcept {
  if (isReaped_) return 0;
  if (pidfd_.isValid()) {
    if (const auto id = idInFdInfo(pidfd_.get())) return *id > 0 ? *id : 0;
  }
  return pid_ > 0 && isProcOfThisNamespace() ? pid_ : 0;
}

bool PeerProcess::hasExited() const noexcept {
  if (isReaped_ || !pidfd_.isValid()) return isReaped_;
  pollfd entry{pidfd_.get(), POLLIN, 0};
  return poll(&entry, 1, 0) > 0;
}

}  // namespace clientcomm
