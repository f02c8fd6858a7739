#include "tests/support/mounts.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "ClientComm/platform/posix/scoped_fd.h"
#include "tests/support/child_process.h"
#include "tests/support/test_sandbox.h"

namespace support {
namespace {

using clientcomm::ScopedFd;

std::string failureOf(const std::string& what) { return what + ": " + std::strerror(errno); }

/// Makes a file system of `type` in a file of its own. @return why not; empty on success.
std::string makeDisk(const std::string& type, const std::string& image) {
  constexpr std::uintmax_t kSize = std::uintmax_t{128} << 20U;  // btrfs takes no less
  std::ofstream(image).flush();
  std::filesystem::resize_file(image, kSize);
  for (const char* folder : {"/usr/sbin/", "/sbin/"}) {
    const std::string program = folder + ("mkfs." + type);
    if (access(program.c_str(), X_OK) != 0) continue;
    return ChildProcess::spawn({program, "-q", image}).wait() == 0 ? "" : program + " failed";
  }
  return "there is no mkfs." + type;
}

/// Attaches `image` to a free loop device that the kernel detaches after its last use.
ScopedFd attachLoopDevice(const std::string& image, std::string& device) {
  const ScopedFd control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
  const ScopedFd file(open(image.c_str(), O_RDWR | O_CLOEXEC));
  if (!control.isValid() || !file.isValid()) return {};
  constexpr int kMostTries = 20;  // another process may take the free one first
  for (int i = 0; i < kMostTries; ++i) {
    const int number = ioctl(control.get(), LOOP_CTL_GET_FREE);
    if (number < 0) return {};
    device = "/dev/loop" + std::to_string(number);
    ScopedFd loop(open(device.c_str(), O_RDWR | O_CLOEXEC));
    if (!loop.isValid()) return {};
    loop_config config = {};
    config.fd = static_cast<__u32>(file.get());
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    if (ioctl(loop.get(), LOOP_CONFIGURE, &config) == 0) return loop;
    if (errno != EBUSY) return {};
  }
  return {};
}

}  // namespace

bool ownMounts() {
  const uid_t user = geteuid();
  if (user != 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    std::ofstream("/proc/self/uid_map") << user << ' ' << user << " 1";
  } else if (unshare(CLONE_NEWNS) != 0) {
    return false;
  }
  return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

MountedFileSystem::MountedFileSystem(const std::string& type, const std::string& path)
    : path_(path) {
  std::filesystem::create_directories(path_);
  problem_ = type == "tmpfs" ? mountTmpfs() : type == "overlay" ? mountOverlay() : mountDisk(type);
}

MountedFileSystem::~MountedFileSystem() {
  if (problem_.empty()) umount2(path_.c_str(), MNT_DETACH);
}

std::string MountedFileSystem::mountTmpfs() const {
  const int result = mount("tmpfs", path_.c_str(), "tmpfs", 0, "size=4m,mode=0700");
  return result == 0 ? "" : failureOf("mounting a tmpfs");
}

// Numbers of the lower layer tell it from the upper one by their highest bits, since the two are
// file systems of their own.
std::string MountedFileSystem::mountOverlay() const {
  const std::string layers = sandbox() + "/overlay-layers";
  std::filesystem::create_directories(layers);
  if (mount("tmpfs", layers.c_str(), "tmpfs", 0, "mode=0700") != 0) {
    return failureOf("mounting a tmpfs");
  }
  for (const char* layer : {"/upper", "/work"}) std::filesystem::create_directory(layers + layer);
  const std::string options =
      "xino=on,lowerdir=" + path_ + ",upperdir=" + layers + "/upper,workdir=" + layers + "/work";
  const int result = mount("overlay", path_.c_str(), "overlay", 0, options.c_str());
  return result == 0 ? "" : failureOf("mounting an overlay");
}

std::string MountedFileSystem::mountDisk(const std::string& type) const {
  if (geteuid() != 0) return "a disk file can be mounted by root only";
  const std::string image = sandbox() + "/" + type + ".image";
  if (std::string problem = makeDisk(type, image); !problem.empty()) return problem;
  std::string device;
  const ScopedFd loop = attachLoopDevice(image, device);
  if (!loop.isValid()) return failureOf("attaching a loop device");
  const int result = mount(device.c_str(), path_.c_str(), type.c_str(), 0, nullptr);
  return result == 0 ? "" : failureOf("mounting " + type);
}

}  // namespace support
