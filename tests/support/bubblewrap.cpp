#include "tests/support/bubblewrap.h"

#include <unistd.h>

namespace support {
namespace {

constexpr char kProgram[] = "/usr/bin/bwrap";

}  // namespace

std::string Bubblewrap::problem() {
  if (access(kProgram, X_OK) != 0) return "bubblewrap is not installed";
  const int status = Bubblewrap().withOwnProcesses().run({"/bin/true"}).wait();
  return status == 0 ? "" : "bubblewrap may not make namespaces here";
}

Bubblewrap& Bubblewrap::withOwnProcesses() { return add({"--unshare-pid", "--proc", "/proc"}); }

Bubblewrap& Bubblewrap::withOwnFolder(const std::string& path) {
  return add({"--perms", "0700", "--tmpfs", path});
}

Bubblewrap& Bubblewrap::withReadOnly(const std::string& source, const std::string& path) {
  return add({"--ro-bind", source, path});
}

Bubblewrap& Bubblewrap::endingWithFirstProcess() { return add({"--die-with-parent"}); }

ChildProcess Bubblewrap::run(const std::vector<std::string>& command) const {
  std::vector<std::string> all{kProgram, "--unshare-user", "--cap-drop", "ALL", "--dev-bind", "/",
                               "/"};
  all.insert(all.end(), options_.begin(), options_.end());
  all.insert(all.end(), command.begin(), command.end());
  return ChildProcess::spawn(all);
}

Bubblewrap& Bubblewrap::add(const std::vector<std::string>& options) {
  options_.insert(options_.end(), options.begin(), options.end());
  return *this;
}

}  // namespace support
