#include "benchmarks/support/shared_counter.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "ClientComm/platform/posix/scoped_fd.h"
#include "benchmarks/support/measurement.h"

namespace bench {
namespace {

constexpr std::chrono::seconds kLongestWait{60};

}  // namespace

SharedCounter::SharedCounter(const std::string& path) {
  const clientcomm::ScopedFd file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  constexpr std::size_t kSize = sizeof *value_;
  void* memory = MAP_FAILED;
  if (file.isValid() && ftruncate(file.get(), kSize) == 0) {
    memory = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
  }
  if (memory == MAP_FAILED) {
    std::perror(path.c_str());
    std::exit(1);
  }
  // A new file is all zeros, which is a counter at 0.
  value_ = static_cast<std::atomic<std::uint64_t>*>(memory);
}

SharedCounter::~SharedCounter() { munmap(value_, sizeof *value_); }

bool SharedCounter::waitFor(std::uint64_t value) const {
  const auto deadline = Clock::now() + kLongestWait;
  while (this->value() < value) {
    if (Clock::now() > deadline) return false;
  }
  return true;
}

}  // namespace bench
