#include "ClientComm/platform/linux/file_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstdint>

#include "ClientComm/platform/linux/local_file.h"
#include "ClientComm/platform/linux/runtime_folder.h"
#include "ClientComm/platform/path.h"

namespace clientcomm {
namespace {

// IN_ATTRIB tells of a changed link count, by a removal for instance, and of a changed mode. For
// the folders above it would tell about all files in them.
constexpr std::uint32_t kOfFile = IN_ATTRIB | IN_MODIFY | IN_MOVE_SELF | IN_DONT_FOLLOW;
constexpr std::uint32_t kOfFolder = IN_ATTRIB | IN_MOVE_SELF;
constexpr std::uint32_t kOfFolderAbove = IN_MOVE_SELF;

// Those of an earlier watch.
void discardEvents(int watch) noexcept {
  std::array<char, 4096> events;
  while (read(watch, events.data(), events.size()) > 0) {
  }
}

}  // namespace

bool FileWatch::start(const std::string& first, const std::string& second) {
  if (!descriptor_.isValid()) descriptor_.reset(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  const int watch = descriptor_.get();
  discardEvents(watch);
  const std::string& folder = runtimeFolderPath();
  std::string path = stringByAppendingPathComponent(folder, second);
  if (openLocalFile(folder).access != LocalAccess::kOpen ||
      inotify_add_watch(watch, path.c_str(), kOfFile) < 0) {
    return false;
  }
  path = stringByAppendingPathComponent(folder, first);
  for (std::uint32_t events = kOfFile; !path.empty(); path.resize(path.rfind('/'))) {
    if (path.size() == folder.size()) events = kOfFolder;
    if (path.size() < folder.size()) events = kOfFolderAbove;
    if (inotify_add_watch(watch, path.c_str(), events) < 0) return false;
  }
  tag_ = g_source_add_unix_fd(source_.get(), watch, G_IO_IN);
  return true;
}

void FileWatch::stop() {
  if (isOn()) g_source_remove_unix_fd(source_.get(), tag_);
  tag_ = nullptr;
}

bool FileWatch::hasFired() const {
  return isOn() && g_source_query_unix_fd(source_.get(), tag_) != 0;
}

void FileWatch::poll(GIOCondition condition) {
  if (isOn()) g_source_modify_unix_fd(source_.get(), tag_, condition);
}

}  // namespace clientcomm
