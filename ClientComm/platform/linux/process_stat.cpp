#include "ClientComm/platform/linux/process_stat.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <ctime>
#include <string_view>

#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/process_text.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {
namespace {

using std::chrono::milliseconds;

/// What a file of a process says, as far as there is room, read without an allocation.
class ProcText {
 public:
  ProcText(pid_t pid, const char* name) noexcept {
    const ScopedFd file(open(ProcPath::ofProcess(pid, name).c_str(), O_RDONLY | O_CLOEXEC));
    const ssize_t length = file.isValid() ? readSome(file.get(), text_.data(), text_.size()) : -1;
    if (length > 0) length_ = static_cast<std::size_t>(length);
  }
  std::string_view view() const noexcept { return {text_.data(), length_}; }

 private:
  std::array<char, 4096> text_;
  std::size_t length_ = 0;
};

}  // namespace

std::optional<std::uint64_t> processStartTime(pid_t pid) noexcept {
  return startTimeInStat(ProcText(pid, "/stat").view());
}

pid_t parentOfProcess(pid_t pid) noexcept { return parentInStat(ProcText(pid, "/stat").view()); }

bool mayHaveInnerPID(pid_t pid) noexcept {
  return mayHaveInnerPID(ProcText(pid, "/status").view());
}

std::uint64_t ownPIDNamespace() noexcept {
  struct stat status = {};
  return stat(ProcPath::ofThisProcess("/ns/pid").c_str(), &status) == 0 ? status.st_ino : 0;
}

milliseconds timeSinceBoot() noexcept {
  timespec now = {};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return std::chrono::duration_cast<milliseconds>(std::chrono::seconds(now.tv_sec) +
                                                  std::chrono::nanoseconds(now.tv_nsec));
}

milliseconds ageByStartTime(std::uint64_t startTime) noexcept {
  static const auto ticksPerSecond = static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
  return timeSinceBoot() - milliseconds(startTime * 1000 / ticksPerSecond);
}

}  // namespace clientcomm
