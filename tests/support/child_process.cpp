#include "tests/support/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <utility>

#include "tests/support/test_sandbox.h"

namespace support {
namespace {

// Less than what ctest allows a test, so that a wait that fails is reported by the test itself.
std::chrono::milliseconds waitLimit() {
  const bool isFullStress = std::getenv("CLIENTCOMM_STRESS") != nullptr;
  return isFullStress ? std::chrono::minutes(60) : std::chrono::seconds(100);
}

}  // namespace

void sendSignal(pid_t pid, int number) {
  if (pid <= 0) {
    ADD_FAILURE() << "no process to send signal " << number << " to";
    return;
  }
  kill(pid, number);
}

ChildProcess ChildProcess::spawn(const std::vector<std::string>& arguments) {
  int input[2];
  int output[2];
  if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
    ADD_FAILURE() << "pipe2: errno " << errno;
    return {-1, -1, -1};
  }
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(input[0], STDIN_FILENO);
    dup2(output[1], STDOUT_FILENO);
    execv(argv[0], argv.data());
    _exit(127);
  }
  close(input[0]);
  close(output[1]);
  return {pid, input[1], output[0]};
}

ChildProcess ChildProcess::fork(const std::function<int()>& body) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    _exit(body());
  }
  return {pid, -1, -1};
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      input_(std::exchange(other.input_, -1)),
      output_(std::exchange(other.output_, -1)),
      buffer_(std::move(other.buffer_)),
      status_(other.status_) {}

ChildProcess::~ChildProcess() {
  if (pid_ > 0 && !status_) {
    kill(pid_, SIGKILL);
    wait();
  }
  if (input_ >= 0) close(input_);
  if (output_ >= 0) close(output_);
}

void ChildProcess::signal(int number) const { sendSignal(pid_, number); }

void ChildProcess::write(const std::string& text) const {
  EXPECT_EQ(::write(input_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

void ChildProcess::closeInput() {
  close(input_);
  input_ = -1;
}

int ChildProcess::wait() {
  if (status_) return *status_;
  int status = 0;
  const bool hasEnded =
      waitUntil([&] { return waitpid(pid_, &status, WNOHANG) != 0; }, waitLimit());
  if (!hasEnded) {
    ADD_FAILURE() << "process " << pid_ << " does not end";
    sendSignal(pid_, SIGKILL);
    waitpid(pid_, &status, 0);
  }
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return *status_;
}

std::optional<std::string> ChildProcess::readLine() {
  for (;;) {
    if (const auto end = buffer_.find('\n'); end != std::string::npos) {
      std::string line = buffer_.substr(0, end);
      buffer_.erase(0, end + 1);
      return line;
    }
    pollfd entry{output_, POLLIN, 0};
    if (poll(&entry, 1, static_cast<int>(waitLimit().count())) == 0) {
      ADD_FAILURE() << "process " << pid_ << " says nothing";
      return std::nullopt;
    }
    char chunk[4096];
    const ssize_t count = read(output_, chunk, sizeof chunk);
    if (count <= 0) return std::nullopt;
    buffer_.append(chunk, static_cast<std::size_t>(count));
  }
}

std::string ChildProcess::readAll() {
  std::string text;
  while (const auto line = readLine()) text += *line + '\n';
  return text;
}

}  // namespace support
