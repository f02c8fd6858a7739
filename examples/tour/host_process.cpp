#include "examples/tour/host_process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace tour {
namespace {

// Columns are two blanks apart; the last one runs to the end of the line.
HostEvent parse(const std::string& line) {
  std::istringstream words(line);
  std::string time;
  std::string status;
  HostEvent event;
  words >> time >> event.who >> event.what >> status >> std::ws;
  std::getline(words, event.detail);
  if (status != "-" && !status.empty()) event.status = std::atoi(status.c_str());
  return event;
}

[[noreturn]] void runHost(const std::string& executable, int input, int output, pid_t parent) {
  signal(SIGPIPE, SIG_DFL);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(127);
  // Ctrl-C is for the tour alone; it ends its hosts itself.
  setpgid(0, 0);
  dup2(input, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  execl(executable.c_str(), executable.c_str(), "run", static_cast<char*>(nullptr));
  _exit(127);
}

}  // namespace

HostProcess::HostProcess(const std::string& bundlePath)
    : name_(std::filesystem::path(bundlePath).stem().string()) {
  int input[2];
  int output[2];
  if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe for " + name_);
  }
  const std::string executable = bundlePath + "/Contents/Linux/" + name_;
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ == 0) runHost(executable, input[0], output[1], parent);
  close(input[0]);
  close(output[1]);
  input_ = input[1];
  output_ = output[0];
  if (pid_ < 0) throw std::runtime_error("no process for " + name_);
  fcntl(output_, F_SETFL, O_NONBLOCK);
}

HostProcess::~HostProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  if (input_ >= 0) close(input_);
  if (output_ >= 0) close(output_);
}

void HostProcess::readOutput() {
  char chunk[65536];
  while (output_ >= 0) {
    const ssize_t count = read(output_, chunk, sizeof chunk);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) break;
    if (count <= 0) {
      close(output_);
      output_ = -1;
      break;
    }
    buffer_.append(chunk, static_cast<std::size_t>(count));
  }
  for (auto end = buffer_.find('\n'); end != std::string::npos; end = buffer_.find('\n')) {
    events_.push_back(parse(buffer_.substr(0, end)));
    buffer_.erase(0, end + 1);
  }
}

std::optional<HostEvent> HostProcess::nextEvent() {
  if (events_.empty()) return std::nullopt;
  HostEvent event = std::move(events_.front());
  events_.pop_front();
  return event;
}

void HostProcess::write(const std::string& line) {
  const std::string text = line + "\n";
  if (::write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw std::runtime_error(name_ + " does not take commands any more");
  }
}

}  // namespace tour
