#include "fuzz/fuzz.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "ClientComm/platform/posix/scoped_fd.h"

namespace fuzz {
namespace {

// The folder, and the process that made it: a forked copy leaves it alone.
std::string* folder = nullptr;
pid_t folderOwner = 0;

void removeFolder() {
  if (getpid() != folderOwner) return;
  std::error_code ignored;
  std::filesystem::remove_all(*folder, ignored);
}

std::string* makeFolder() {
  const char* const parent = std::getenv("TMPDIR");
  std::string path = std::string(parent == nullptr ? "/tmp" : parent) + "/clientcomm-fuzz-XXXXXX";
  require(mkdtemp(path.data()) != nullptr, "a private folder can be made");
  for (const char* variable : {"HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"}) {
    setenv(variable, path.c_str(), 1);
  }
  for (const char* variable : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(variable);
  return new std::string(path);
}

}  // namespace

void require(bool holds, const char* what, const char* file, int line) {
  if (holds) return;
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, what);
  std::abort();
}

const std::string& privateFolder() {
  if (folder == nullptr) {
    folder = makeFolder();
    folderOwner = getpid();
    std::atexit(removeFolder);
  }
  return *folder;
}

void writeFile(const std::string& path, std::string_view bytes) {
  const clientcomm::ScopedFd file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  require(file.isValid() &&
              write(file.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
          "a file of the fuzzer can be written");
}

std::uint8_t Input::takeByte() {
  if (rest_.empty()) return 0;
  const auto byte = static_cast<std::uint8_t>(rest_.front());
  rest_.remove_prefix(1);
  return byte;
}

std::uint32_t Input::takeNumber() {
  std::uint32_t number = 0;
  for (unsigned shift = 0; shift < 32; shift += 8) number |= std::uint32_t{takeByte()} << shift;
  return number;
}

std::string_view Input::takeLine() {
  const std::string_view line = rest_.substr(0, rest_.find('\n'));
  rest_.remove_prefix(std::min(line.size() + 1, rest_.size()));
  return line;
}

std::string_view Input::take(std::size_t length) {
  const std::string_view part = rest_.substr(0, length);
  rest_.remove_prefix(part.size());
  return part;
}

std::string_view Input::takeRest() { return std::exchange(rest_, {}); }

}  // namespace fuzz
