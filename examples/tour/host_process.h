#pragma once

#include <sys/types.h>

#include <deque>
#include <optional>
#include <string>

namespace tour {

/// One line that a sample host printed.
struct HostEvent {
  std::string who;
  std::string what;
  std::optional<int> status;
  std::string detail;
};

/// A sample host that runs and reads commands. It ends with this object at the latest.
class HostProcess {
 public:
  /// Starts the host of the bundle at `bundlePath`. @throws std::runtime_error.
  explicit HostProcess(const std::string& bundlePath);
  ~HostProcess();
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  const std::string& name() const { return name_; }
  pid_t pid() const { return pid_; }
  /// What the host prints can be read here without waiting; -1 after its end.
  int output() const { return output_; }

  /// Reads what the host has printed up to now.
  void readOutput();
  /// The next event not taken yet.
  std::optional<HostEvent> nextEvent();
  /// Gives the host a command. @throws std::runtime_error when it is gone.
  void write(const std::string& line);
  /// Notes that the process has been waited for.
  void markEnded() { pid_ = -1; }

 private:
  std::string name_;
  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  std::string buffer_;
  std::deque<HostEvent> events_;
};

}  // namespace tour
