#include "ClientComm/platform/removed_bundle.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <string_view>
#include <utility>

#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/process_ids.h"
#include "ClientComm/platform/path.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/removed_name.h"
#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {
namespace {

// Makes a folder of a new name in `parent`. @return 0 or an errno value.
int makePlace(int parent, const std::string& name, std::string& place) {
  int code = EEXIST;
  while (code == EEXIST) {  // left by an earlier process that had this one's ID
    place = nextRemovedName(name);
    code = statusOf(mkdirat(parent, place.c_str(), S_IRWXU));
  }
  return code;
}

bool makeWritable(int parent, const std::string& name) {
  struct stat status;
  return fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISDIR(status.st_mode) &&
         fchmodat(parent, name.c_str(), (status.st_mode & 07777U) | S_IWUSR, 0) == 0;
}

// A directory that moves to another one must be writable itself: its ".." changes.
int moveInto(int parent, const std::string& name, const std::string& place) {
  const std::string target = place + "/" + name;
  int code = statusOf(renameat(parent, name.c_str(), parent, target.c_str()));
  if (code == EACCES && makeWritable(parent, name)) {
    code = statusOf(renameat(parent, name.c_str(), parent, target.c_str()));
  }
  return code;
}

int moveAsideIn(int parent, const std::string& name, std::string& place) {
  if (const int code = makePlace(parent, name, place)) return code;
  const int code = moveInto(parent, name, place);
  if (code == 0) return 0;
  unlinkat(parent, place.c_str(), AT_REMOVEDIR);
  // Another user's bundle in a folder of our own can be renamed but not moved.
  if (code != EACCES && code != EPERM) return code;
  return statusOf(renameat(parent, name.c_str(), parent, place.c_str()));
}

// A process that ended, a thread of the kernel, a process that this one may not look at, or a path
// that is longer than any below a path that can be named.
bool isOfNoProcessBelow(int error) noexcept {
  return error == ENOENT || error == ESRCH || error == EACCES || error == EPERM ||
         error == ENAMETOOLONG;
}

}  // namespace

std::optional<Error> moveAside(const std::string& path, std::string& place) {
  const auto errorOf = [&path](int code) {
    return Error{kFileErrorDomain, code, {{"FilePath", path}}};
  };
  const SplitPath target = splitPath(path);
  const ScopedFd parent(open(target.directory.c_str(), kDirectoryFlags));
  if (!parent.isValid()) return errorOf(errno);
  std::string name;
  if (const int code = moveAsideIn(parent.get(), target.name, name)) return errorOf(code);
  place = stringByAppendingPathComponent(target.directory, name);
  return std::nullopt;
}

std::vector<std::string> placesMovedAsideFrom(const std::string& path) {
  const SplitPath target = splitPath(path);
  std::vector<std::string> places;
  for (const std::string& entry : contentsOfDirectoryAtPath(target.directory)) {
    if (!isRemovedName(entry, target.name)) continue;
    places.push_back(stringByAppendingPathComponent(target.directory, entry));
  }
  return places;
}

std::optional<std::vector<std::int32_t>> processesRunningBelow(const std::string& path) {
  std::vector<std::int32_t> processes;
  // The kernel's paths hold no symbolic links.
  const std::unique_ptr<char, decltype(&free)> real(realpath(path.c_str(), nullptr), &free);
  if (!real) return errno == ENOENT ? std::optional(processes) : std::nullopt;
  const std::string below = std::string(real.get()) + "/";
  std::array<char, PATH_MAX> target;
  ProcessIDReader reader;
  for (pid_t pid = reader.next(); pid != 0; pid = reader.next()) {
    const ProcPath link = ProcPath::ofProcess(pid, "/exe");
    const ssize_t length =
        readlinkat(reader.directory(), link.belowProcFolder(), target.data(), PATH_MAX);
    if (length < 0 && !isOfNoProcessBelow(errno)) return std::nullopt;
    if (length <= 0) continue;
    const std::string_view executable(target.data(), static_cast<std::size_t>(length));
    if (executable.starts_with(below)) processes.push_back(pid);
  }
  return reader.error() == 0 ? std::optional(std::move(processes)) : std::nullopt;
}

}  // namespace clientcomm
