#include "tests/integration/tool/tool_fixture.h"

#include <fcntl.h>
#include <linux/securebits.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "tests/support/child_process.h"
#include "tests/support/test_sandbox.h"

namespace tool_test {
namespace {

void redirect(int stream, const std::string& path) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  dup2(file, stream);
}

int execute(const std::vector<std::string>& line) {
  std::vector<char*> arguments;
  for (const std::string& each : line) arguments.push_back(const_cast<char*>(each.c_str()));
  arguments.push_back(nullptr);
  execv(arguments[0], arguments.data());
  return 127;
}

}  // namespace

Outcome run(const std::vector<std::string>& arguments, const std::function<void()>& prepare) {
  const std::string output = support::sandbox() + "/tool-output";
  const std::string errors = support::sandbox() + "/tool-errors";
  std::vector<std::string> line{CLIENTCOMM_TOOL};
  line.insert(line.end(), arguments.begin(), arguments.end());
  auto process = support::ChildProcess::fork([&] {
    redirect(STDOUT_FILENO, output);
    redirect(STDERR_FILENO, errors);
    if (prepare) prepare();
    return execute(line);
  });
  Outcome outcome;
  outcome.status = process.wait();
  outcome.output = support::readFile(output);
  outcome.errors = support::readFile(errors);
  return outcome;
}

void loseRightsOfRoot() {
  if (geteuid() != 0) return;
  if (prctl(PR_SET_SECUREBITS, SECBIT_NOROOT | SECBIT_NOROOT_LOCKED) != 0) _exit(126);
}

}  // namespace tool_test
