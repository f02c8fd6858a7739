#include "tests/support/test_sandbox.h"

#include <glib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>
#include <utility>

namespace support {
namespace {

int entryCount(const char* directory) {
  const std::filesystem::directory_iterator entries(directory);
  return static_cast<int>(std::distance(begin(entries), end(entries)));
}

}  // namespace

const std::string& sandbox() {
  static const std::string* const path = new std::string(std::getenv("CLIENTCOMM_TEST_SANDBOX"));
  return *path;
}

void writeFile(const std::string& path, std::string_view text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary)
      .write(text.data(), static_cast<std::streamsize>(text.size()));
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return std::move(text).str();
}

bool isFolder(const std::string& path) { return std::filesystem::is_directory(path); }

bool runLoopUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  // The loop sleeps in poll(); this wakes it often enough to look at conditions outside it.
  const guint wake = g_timeout_add(
      10, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
  bool holds = condition();
  while (!holds && std::chrono::steady_clock::now() < deadline) {
    g_main_context_iteration(nullptr, TRUE);
    holds = condition();
  }
  g_source_remove(wake);
  return holds;
}

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

int openDescriptorCount() { return entryCount("/proc/self/fd") - 1; }  // less the listing's own

int threadCount() { return entryCount("/proc/self/task"); }

}  // namespace support
