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

// Makes a folder of a new name in `parent`.
Status makePlace(int parent, const std::string& name, std::string& place) {
  Status made;
  do {  // EEXIST: left by an earlier process that had this one's ID
    place = nextRemovedName(name);
    made = fileStatus(mkdirat(parent, place.c_str(), S_IRWXU), "mkdirat", place);
  } while (made.code() == EEXIST);
  return made;
}

bool makeWritable(int parent, const std::string& name) {
  struct stat status;
  return fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISDIR(status.st_mode) &&
         fchmodat(parent, name.c_str(), (status.st_mode & 07777U) | S_IWUSR, 0) == 0;
}

// A directory that moves to another one must be writable itself: its ".." changes.
Status moveInto(int parent, const std::string& name, const std::string& place) {
  const std::string target = place + "/" + name;
  const auto move = [&] {
    return fileStatus(renameat(parent, name.c_str(), parent, target.c_str()), "renameat", name);
  };
  Status moved = move();
  if (moved.code() == EACCES && makeWritable(parent, name)) moved = move();
  return moved;
}

Status moveAsideIn(int parent, const std::string& name, std::string& place) {
  if (Status made = makePlace(parent, name, place); !made.isOk()) return made;
  Status moved = moveInto(parent, name, place);
  if (moved.isOk()) return moved;
  // It is empty.
  fileStatus(unlinkat(parent, place.c_str(), AT_REMOVEDIR), "unlinkat", place)
      .report(DiagnosticCause::kLeftoverNotRemoved);
  // Another user's bundle in a folder of our own can be renamed but not moved.
  if (moved.code() != EACCES && moved.code() != EPERM) return moved;
  return fileStatus(renameat(parent, name.c_str(), parent, place.c_str()), "renameat", name);
}

// A process that ended, a thread of the kernel, a process that this one may not look at, or a path
// that is longer than any below a path that can be named.
bool isOfNoProcessBelow(int error) noexcept {
  return error == ENOENT || error == ESRCH || error == EACCES || error == EPERM ||
         error == ENAMETOOLONG;
}

}  // namespace

Status moveAside(const std::string& path, std::string& place) {
  const SplitPath target = splitPath(path);
  const ScopedFd parent(open(target.directory.c_str(), kDirectoryFlags));
  if (!parent.isValid()) return Status::ofFile(errno, "open", target.directory);
  std::string name;
  Status moved = moveAsideIn(parent.get(), target.name, name);
  if (moved.isOk()) place = stringByAppendingPathComponent(target.directory, name);
  return std::move(moved).below(target.directory);
}

Status placesMovedAsideFrom(const std::string& path, std::vector<std::string>& places) {
  places.clear();
  const SplitPath target = splitPath(path);
  std::vector<std::string> entries;
  Status listed = listDirectoryAtPath(target.directory, entries);
  for (const std::string& entry : entries) {
    if (!isRemovedName(entry, target.name)) continue;
    places.push_back(stringByAppendingPathComponent(target.directory, entry));
  }
  return listed;
}

Status processesRunningBelow(const std::string& path, std::vector<std::int32_t>& processes) {
  processes.clear();
  // The kernel's paths hold no symbolic links.
  const std::unique_ptr<char, decltype(&free)> real(realpath(path.c_str(), nullptr), &free);
  if (!real && errno == ENOENT) return {};
  if (!real) return {kProcessErrorDomain, errno, "realpath", path};
  const std::string below = std::string(real.get()) + "/";
  std::array<char, PATH_MAX> target;
  ProcessIDReader reader;
  for (pid_t pid = reader.next(); pid != 0; pid = reader.next()) {
    const ProcPath link = ProcPath::ofProcess(pid, "/exe");
    const ssize_t length =
        readlinkat(reader.directory(), link.belowProcFolder(), target.data(), PATH_MAX);
    if (length < 0 && !isOfNoProcessBelow(errno)) {
      return {kProcessErrorDomain, errno, "readlinkat", link.view()};
    }
    if (length <= 0) continue;
    const std::string_view executable(target.data(), static_cast<std::size_t>(length));
    if (executable.starts_with(below)) processes.push_back(pid);
  }
  return {kProcessErrorDomain, reader.error(), "getdents64", kProcFolder};
}

}  // namespace clientcomm
