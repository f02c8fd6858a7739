#include "ClientComm/platform/linux/runtime_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder_format.h"
#include "ClientComm/platform/native_file.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {
namespace {

// Writes the file `draft` of this process whole.
bool writeDraft(int folder, const std::string& draft, std::string_view bytes) {
  unlinkat(folder, draft.c_str(), 0);  // left by an earlier process that had this one's ID
  const ScopedFd file(
      openat(folder, draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  return file.isValid() && writeAll(file.get(), bytes.data(), bytes.size()) == 0;
}

}  // namespace

std::optional<std::string> readRuntimeFile(int folder, const std::string& name) {
  const ScopedFd file(openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status = {};
  if (!file.isValid() || fstat(file.get(), &status) != 0) return std::nullopt;
  if (!S_ISREG(status.st_mode) || status.st_uid != geteuid()) return std::nullopt;
  std::string bytes;
  const bool isRead = readAll(file.get(), kLongestRecord, bytes) == 0;
  return isRead ? std::optional(std::move(bytes)) : std::nullopt;
}

bool replaceRuntimeFile(int folder, const std::string& name, std::string_view bytes) {
  const std::string draft = draftName(name);
  const bool isInPlace = writeDraft(folder, draft, bytes) &&
                         renameat(folder, draft.c_str(), folder, name.c_str()) == 0;
  if (!isInPlace) unlinkat(folder, draft.c_str(), 0);
  return isInPlace;
}

bool createRuntimeFile(int folder, const std::string& name, std::string_view bytes) {
  const std::string draft = draftName(name);
  const bool isInPlace = writeDraft(folder, draft, bytes) &&
                         renameWithoutReplacing(folder, draft.c_str(), name.c_str()) == 0;
  if (!isInPlace) unlinkat(folder, draft.c_str(), 0);
  return isInPlace;
}

}  // namespace clientcomm
