#include "ClientComm/platform/linux/runtime_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder_format.h"
#include "ClientComm/platform/native_file.h"
#include "ClientComm/platform/posix/io.h"
#include "ClientComm/platform/posix/scoped_fd.h"

namespace clientcomm {
namespace {

ScopedFd createDraft(int folder, const std::string& draft) noexcept {
  return ScopedFd(
      openat(folder, draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
}

// Writes the file `draft` of this process whole.
Status writeDraft(int folder, const std::string& draft, std::string_view bytes) {
  ScopedFd file = createDraft(folder, draft);
  if (!file.isValid() && errno == EEXIST) {
    discardFile(folder, draft.c_str());  // left by an earlier process that had this one's ID
    file = createDraft(folder, draft);
  }
  if (!file.isValid()) return Status::ofFile(errno, "openat");
  return writeAll(file.get(), bytes.data(), bytes.size());
}

}  // namespace

Status readRuntimeFile(int folder, const std::string& name, std::string& bytes) {
  const ScopedFd file(openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file.isValid()) return Status::ofFile(errno, "openat", name);
  struct stat status = {};
  if (fstat(file.get(), &status) != 0) return Status::ofFile(errno, "fstat", name);
  if (!S_ISREG(status.st_mode)) return Status::ofFile(EINVAL, "isRegularFile", name);
  if (status.st_uid != geteuid()) return Status::ofFile(EPERM, "isOwnFile", name);
  return readAll(file.get(), kLongestRecord, bytes).at(name);
}

Status replaceRuntimeFile(int folder, const std::string& name, std::string_view bytes) {
  const std::string draft = draftName(name);
  Status status = writeDraft(folder, draft, bytes);
  if (status.isOk()) {
    status = fileStatus(renameat(folder, draft.c_str(), folder, name.c_str()), "renameat");
  }
  if (!status.isOk()) discardFile(folder, draft.c_str());
  return std::move(status).at(name);
}

Status createRuntimeFile(int folder, const std::string& name, std::string_view bytes) {
  const std::string draft = draftName(name);
  Status status = writeDraft(folder, draft, bytes);
  if (status.isOk()) {
    status = renameWithoutReplacing(folder, draft.c_str(), name.c_str());
  }
  if (!status.isOk()) discardFile(folder, draft.c_str());
  return std::move(status).at(name);
}

}  // namespace clientcomm
