#include "tests/support/permissions.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

namespace support {
namespace {

void call(long number, std::array<__user_cap_data_struct, 2>& sets) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  EXPECT_EQ(syscall(number, &header, sets.data()), 0);
}

}  // namespace

BoundByPermissions::BoundByPermissions() {
  call(SYS_capget, before_);
  auto without = before_;
  without[0].effective &= ~(1U << CAP_DAC_OVERRIDE);
  call(SYS_capset, without);
}

BoundByPermissions::~BoundByPermissions() { call(SYS_capset, before_); }

SealedFolder::SealedFolder(std::string path) : path_(std::move(path)) {
  std::filesystem::create_directories(path_);
  chmod(path_.c_str(), 0555);
}

SealedFolder::~SealedFolder() { chmod(path_.c_str(), 0755); }

}  // namespace support
