#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "ClientComm/platform/file_tree.h"
#include "benchmarks/benchmarks.h"
#include "benchmarks/support/measurement.h"
#include "tests/support/child_process.h"
#include "tests/support/test_sandbox.h"

// Copying a helper of 2,000 files and 64 MiB to where it is installed.

namespace bench {
namespace {

constexpr int kFolders = 20;
constexpr int kFilesPerFolder = 100;
constexpr std::size_t kFileSize = (std::size_t{64} << 20) / (kFolders * kFilesPerFolder);

std::string installedPath() { return support::sandbox() + "/copy/Large Helper.app"; }

/// The bundle to copy, made on first use.
std::string largeHelper(int folders) {
  const std::string path = support::sandbox() + "/large/Large Helper.app";
  if (std::filesystem::exists(path)) return path;
  const std::string text(kFileSize, 'x');
  for (int folder = 0; folder < folders; ++folder) {
    for (int file = 0; file < kFilesPerFolder; ++file) {
      support::writeFile(
          path + "/Contents/Resources/" + std::to_string(folder) + "/" + std::to_string(file),
          text);
    }
  }
  support::writeFile(path + "/Contents/Info.plist", "");
  std::filesystem::create_directories(support::sandbox() + "/copy");
  return path;
}

template <typename Copy>
Sample timed(int folders, Copy copy) {
  return [source = largeHelper(folders), copy] {
    clientcomm::removeItemAtPath(installedPath()).ignore();
    sync();  // so that nobody pays for what the sample before has left to be written
    const auto start = Clock::now();
    const bool isCopied = copy(source, installedPath());
    const double seconds = secondsSince(start);
    if (isCopied) return seconds;
    std::fputs("a copy failed\n", stderr);
    std::exit(1);
  };
}

bool copyByLibrary(const std::string& from, const std::string& to) {
  return clientcomm::copyPath(from, to).isOk();
}

bool copyByCp(const std::string& from, const std::string& to) {
  return support::ChildProcess::spawn({"/bin/cp", "-a", from, to}).wait() == 0;
}

}  // namespace

void registerInstallBenchmarks(const Plan& plan) {
  const int folders = plan.atMost(kFolders);
  registerSampled(plan, "install/clientcomm", 1, [=] { return timed(folders, copyByLibrary); });
  registerSampled(plan, "install/floor", 1, [=] { return timed(folders, copyByCp); });
}

}  // namespace bench
