#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace support {

/// Sends the signal to the process `pid`, and to nothing else: 0 and negative numbers, which stand
/// for groups of processes and, for root, for every process there is, fail the test instead.
void sendSignal(pid_t pid, int number);

/// A process that a test started and that ends with the test, at the latest.
class ChildProcess {
 public:
  /// Starts the program `arguments[0]`; its output is read through a pipe.
  static ChildProcess spawn(const std::vector<std::string>& arguments);
  /// Runs `body` in a forked copy of this process and exits with what it returns.
  static ChildProcess fork(const std::function<int()>& body);

  ~ChildProcess();
  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&&) = delete;

  pid_t pid() const { return pid_; }
  void signal(int number) const;
  /// Writes `text` to the program's standard input.
  void write(const std::string& text) const;
  /// Ends the program's standard input.
  void closeInput();
  /// Waits for the end. @return the exit status; 128 + the signal's number when one ended it.
  int wait();
  /// The next line of output, without its line break; nothing at the end of output.
  std::optional<std::string> readLine();
  /// All output up to its end.
  std::string readAll();

 private:
  ChildProcess(pid_t pid, int input, int output) : pid_(pid), input_(input), output_(output) {}

  pid_t pid_;
  int input_;
  int output_;
  std::string buffer_;
  std::optional<int> status_;
};

}  // namespace support
