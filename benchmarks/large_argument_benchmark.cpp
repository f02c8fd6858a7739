#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "benchmarks/benchmarks.h"
#include "benchmarks/support/measurement.h"
#include "benchmarks/support/peers.h"

// One large argument, there and back.

namespace bench {
namespace {

struct Size {
  const char* name;
  std::size_t bytes;
  int samples;
};

constexpr std::size_t kKiB = 1024;

constexpr Size kSizes[] = {{"1024", kKiB, 500},
                           {"16384", 16 * kKiB, 500},
                           {"131072", 128 * kKiB, 300},
                           {"1048576", 1024 * kKiB, 50},
                           {"16777216", 16 * 1024 * kKiB, 7}};

void require(bool isDone) {
  if (isDone) return;
  std::fputs("a large argument did not come back\n", stderr);
  std::exit(1);
}

template <typename Exchange>
Sample timed(Exchange exchange) {
  return [exchange] {
    const auto start = Clock::now();
    const bool isDone = exchange();
    const double seconds = secondsSince(start);
    require(isDone);
    return seconds;
  };
}

bool readAll(int fd, char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t count = read(fd, bytes, size);
    if (count <= 0) return false;
    bytes += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

bool writeAll(int fd, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t count = write(fd, bytes, size);
    if (count <= 0) return false;
    bytes += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

/// Where the floor's two sides put what they read.
enum class Memory {
  kReused,
  kFresh,  ///< Mapped for each reading, as by a program that has no buffer of that size.
};

/// Memory of `size` bytes for one reading.
class Buffer {
 public:
  Buffer(std::vector<char>& reused, Memory memory) : size_(reused.size()), bytes_(reused.data()) {
    if (memory == Memory::kReused) return;
    mapping_ = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    require(mapping_ != MAP_FAILED);
    bytes_ = static_cast<char*>(mapping_);
  }
  ~Buffer() {
    if (mapping_ != nullptr) munmap(mapping_, size_);
  }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  char* bytes() const { return bytes_; }

 private:
  std::size_t size_;
  char* bytes_;
  void* mapping_ = nullptr;
};

/// A process that sends back what it is sent, `size` bytes at a time, over a socket pair.
class SocketPairEcho {
 public:
  SocketPairEcho(std::size_t size, Memory memory) : memory_(memory), bytes_(size, 'x') {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    ours_.reset(ends[0]);
    const clientcomm::ScopedFd theirs(ends[1]);
    echo_.emplace(support::ChildProcess::fork([&] {
      pinTo(kReceiverProcessor);
      ours_.reset();
      return echo(theirs.get());
    }));
  }

  bool exchange() {
    const Buffer answer(bytes_, memory_);
    return writeAll(ours_.get(), bytes_.data(), bytes_.size()) &&
           readAll(ours_.get(), answer.bytes(), bytes_.size());
  }

 private:
  int echo(int fd) {
    for (;;) {
      const Buffer received(bytes_, memory_);
      if (!readAll(fd, received.bytes(), bytes_.size()) ||
          !writeAll(fd, received.bytes(), bytes_.size())) {
        return 0;
      }
    }
  }

  Memory memory_;
  std::vector<char> bytes_;
  clientcomm::ScopedFd ours_;
  std::optional<support::ChildProcess> echo_;
};

void registerAsk(const Plan& plan, const std::string& row, const Size& size) {
  const std::string text(size.bytes, 'x');
  registerSampled(plan, row + "/clientcomm", size.samples, [text] {
    receiver();
    return [text] {
      const auto start = Clock::now();
      const clientcomm::OptionalString answer = ask(text);
      const double seconds = secondsSince(start);
      require(answer == text);
      return seconds;
    };
  });
}

void registerFloor(const Plan& plan, const std::string& row, const Size& size, Memory memory) {
  registerSampled(plan, row + "/floor", size.samples, [bytes = size.bytes, memory] {
    auto echo = std::make_shared<SocketPairEcho>(bytes, memory);
    return timed([echo] { return echo->exchange(); });
  });
}

void registerAlternative(const Plan& plan, const std::string& row, const Size& size) {
  const std::string text(size.bytes, 'x');
  registerSampled(plan, row + "/alternative", size.samples, [text] {
    sd_bus& bus = busConnection();
    return timed([&bus, text] { return askOverBus(bus, text); });
  });
}

}  // namespace

void registerLargeArgumentBenchmarks(const Plan& plan) {
  for (const Size& size : kSizes) {
    const std::string row = std::string("large-argument/") + size.name;
    registerAsk(plan, row, size);
    registerFloor(plan, row, size, Memory::kReused);
    registerAlternative(plan, row, size);
  }
  // The largest once more, beside a floor that has no buffer of its size either.
  const Size& largest = *std::rbegin(kSizes);
  const std::string row = std::string("large-argument-fresh/") + largest.name;
  registerAsk(plan, row, largest);
  registerFloor(plan, row, largest, Memory::kFresh);
}

}  // namespace bench
