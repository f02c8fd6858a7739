#include "tests/integration/tool/tool_fixture.h"

#include "tests/support/child_process.h"
#include "tests/support/test_sandbox.h"

namespace tool_test {

Outcome run(const std::vector<std::string>& arguments) {
  const std::string errors = support::sandbox() + "/errors";
  std::vector<std::string> line{"/bin/sh", "-c",   R"(errors=$1; shift; exec "$@" 2>"$errors")",
                                "sh",      errors, CLIENTCOMM_TOOL};
  line.insert(line.end(), arguments.begin(), arguments.end());
  auto process = support::ChildProcess::spawn(line);
  process.closeInput();
  Outcome outcome;
  outcome.output = process.readAll();
  outcome.status = process.wait();
  outcome.errors = support::readFile(errors);
  return outcome;
}

}  // namespace tool_test
