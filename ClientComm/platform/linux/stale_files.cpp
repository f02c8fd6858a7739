#include "ClientComm/platform/linux/stale_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <string>

#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/linux/proc_path.h"
#include "ClientComm/platform/linux/process_record.h"
#include "ClientComm/platform/linux/process_stat.h"
#include "ClientComm/platform/linux/runtime_file_name.h"
#include "ClientComm/platform/linux/runtime_folder_format.h"
#include "ClientComm/platform/posix/io.h"

namespace clientcomm {
namespace {

bool isStaleRecord(int folder, const std::string& name, const RuntimeFileName& parsed) {
  if (parsed.pidNamespace != 0 && parsed.pidNamespace != ownPIDNamespace()) return false;
  const auto startTime = processStartTime(parsed.pid);
  const auto record = readProcessRecord(folder, name);
  // A live process replaces its record itself, or has a later version that reads it.
  if (!record) return !startTime;
  return record->startTime != startTime && mayBeOfNamespace(*record, ownPIDNamespace());
}

// A temporary file stays only when its process is killed before the rename. Another process may
// have the same ID by now, so an old file is stale as well.
bool isStaleTemporary(int folder, const std::string& name, pid_t pid) {
  struct stat status = {};
  if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return false;
  return (pid != 0 && !processStartTime(pid)) ||
         std::time(nullptr) - status.st_mtim.tv_sec > kLongestInTheMaking.count();
}

bool isStale(int folder, const std::string& name) {
  const RuntimeFileName parsed = parseRuntimeFileName(name);
  switch (parsed.kind) {
    case RuntimeFileKind::kProcessRecord:
      return isStaleRecord(folder, name, parsed);
    case RuntimeFileKind::kDraft:
    case RuntimeFileKind::kSocket:
      return isStaleTemporary(folder, name, parsed.pid);
    case RuntimeFileKind::kOther:
      return false;
  }
  return false;
}

}  // namespace

void clearStaleFiles(int folder) {
  for (const std::string& name :
       contentsOfDirectoryAtPath(ProcPath::ofDescriptor(folder).c_str())) {
    if (isStale(folder, name)) discardFile(folder, name.c_str());
  }
}

}  // namespace clientcomm
